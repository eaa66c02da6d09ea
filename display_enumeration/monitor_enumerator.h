// The system's view of the attached monitors: EnumDisplayMonitors, GetMonitorInfoW, the engine's
// per-monitor dpi and the display-device walk of each monitor.
#ifndef KESTRUN_DISPLAY_ENUMERATION_MONITOR_ENUMERATOR_H_
#define KESTRUN_DISPLAY_ENUMERATION_MONITOR_ENUMERATOR_H_

#include <vector>

#include "monitor_snapshot.h"

namespace kestrun_display {

// Every monitor in the system's enumeration order. A monitor whose information cannot be read is
// left out. Main thread.
std::vector<MonitorSnapshot> EnumerateMonitors();

}  // namespace kestrun_display

#endif  // KESTRUN_DISPLAY_ENUMERATION_MONITOR_ENUMERATOR_H_
