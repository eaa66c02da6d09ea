// One physical display that a live output window covers, as the live output plugin describes it
// from the "showForDisplay" arguments. Bounds are virtual-screen pixels.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_DISPLAY_RECORD_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_DISPLAY_RECORD_H_

#include <cstdint>
#include <string>

namespace native_live_window {

struct DisplayRecord {
  // Display id (compared bytewise by the plugin).
  std::string id;
  // Human-readable name; the first display's name labels the window's log lines.
  std::string name;
  std::int32_t x = 0;
  std::int32_t y = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  bool is_primary = false;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_DISPLAY_RECORD_H_
