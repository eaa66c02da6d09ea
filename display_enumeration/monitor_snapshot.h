// What the system told us about one monitor, before any of it is interpreted: the monitor's own
// information and the display devices attached to its device name, in the order the system
// listed them. Filled by EnumerateMonitors (monitor_enumerator.h); tests make these up.
#ifndef KESTRUN_DISPLAY_ENUMERATION_MONITOR_SNAPSHOT_H_
#define KESTRUN_DISPLAY_ENUMERATION_MONITOR_SNAPSHOT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "display_rect.h"

namespace kestrun_display {

struct MonitorSnapshot {
  // One entry of the display-device walk over the monitor's device name.
  struct Device {
    uint32_t state_flags = 0;    // DISPLAY_DEVICE_ACTIVE and friends
    std::wstring device_id;      // the device interface path
    std::wstring device_string;  // the human-readable monitor name
  };

  std::wstring device_name;  // such as \\.\DISPLAY1
  bool is_primary = false;   // MONITORINFOF_PRIMARY
  DisplayRect bounds;
  DisplayRect work_area;
  uint32_t dpi = 0;  // effective dots per inch, as the engine reports it
  std::vector<Device> devices;
};

}  // namespace kestrun_display

#endif  // KESTRUN_DISPLAY_ENUMERATION_MONITOR_SNAPSHOT_H_
