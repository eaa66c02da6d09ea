// Test control of the multi-window plugin stand-in (exported by desktop_multi_window_plugin.dll;
// not part of the real plugin's interface).
#ifndef KESTRUN_TESTING_PLUGINS_DESKTOP_MULTI_WINDOW_TESTING_H_
#define KESTRUN_TESTING_PLUGINS_DESKTOP_MULTI_WINDOW_TESTING_H_

#include <desktop_multi_window/desktop_multi_window_plugin.h>

#if defined(__cplusplus)
extern "C" {
#endif

// Calls the window-created callback the host set, with `flutter_view_controller` as the argument,
// exactly as the plugin does for a window it created. The real plugin passes a pointer to a
// `flutter::FlutterViewController` of the client wrapper compiled into the plugin's library;
// a test passes a `flutter::FlutterViewController*` of its own (same layout). Answers false, and
// calls nothing, when no callback is set.
FLUTTER_PLUGIN_EXPORT bool DesktopMultiWindowTestingNotifyWindowCreated(
    void* flutter_view_controller);

// The callback currently set (null when none).
FLUTTER_PLUGIN_EXPORT WindowCreatedCallback DesktopMultiWindowTestingCallback(void);

#if defined(__cplusplus)
}  // extern "C"
#endif

#endif  // KESTRUN_TESTING_PLUGINS_DESKTOP_MULTI_WINDOW_TESTING_H_
