// One display as the interface sees it (the fields of a display map on the channel).
#ifndef KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECORD_H_
#define KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECORD_H_

#include <cstdint>
#include <string>

#include "display_rect.h"

namespace kestrun_display {

struct DisplayRecord {
  std::string id;    // UTF-8; stable device identifier
  std::string name;  // UTF-8; human-readable monitor name
  bool is_primary = false;
  DisplayRect bounds;
  DisplayRect work_area;
  int32_t dpi = 0;

  double ScaleFactor() const { return static_cast<double>(dpi) / 96.0; }
};

}  // namespace kestrun_display

#endif  // KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECORD_H_
