// The virtual-screen rectangle that a live window spanning several displays covers.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_DISPLAY_BOUNDS_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_DISPLAY_BOUNDS_H_

#include <cstdint>
#include <vector>

#include "live_output/window/display_record.h"

namespace native_live_window {

struct VirtualRect {
  std::int32_t left = 0;
  std::int32_t top = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
};

class DisplayBounds {
 public:
  // Smallest rectangle holding every display's bounds; all zero for no displays. Sizes that do
  // not fit 32 bits are clamped.
  static VirtualRect Union(const std::vector<DisplayRecord>& displays);
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_DISPLAY_BOUNDS_H_
