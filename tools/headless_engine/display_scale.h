// Dots per inch of monitors and windows, as the engine reports them to the host.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_DISPLAY_SCALE_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_DISPLAY_SCALE_H_

#include <windows.h>

namespace kestrun_headless {

// The monitor's effective DPI through GetDpiForMonitor (shcore.dll, looked up at run time);
// 96 when that is unavailable or fails.
UINT DpiForMonitor(HMONITOR monitor);

// The DPI of the monitor nearest to `window`; a null window means the primary monitor.
UINT DpiForWindow(HWND window);

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_DISPLAY_SCALE_H_
