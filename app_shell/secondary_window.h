// Secondary engine windows created by the multi-window plugin get their own plugin set.
//
// The plugin calls the window-created callback with a pointer to the
// `flutter::FlutterViewController` of the C++ client wrapper compiled into the plugin's own
// library: not a FlutterDesktopViewControllerRef, and not necessarily the same class as the host's.
// Its full layout is not relied on; only its stable start is read:
//   - the class is polymorphic with no base class, so a vtable pointer comes first;
//   - its first data member is the FlutterDesktopViewControllerRef it wraps, right after it;
//   - the plugin library is built for the same pointer size and data model as the host (x64), and
//     the controller is alive for the duration of the callback.
// From that handle the engine is reached through the engine's C API only
// (FlutterDesktopViewControllerGetEngine, FlutterDesktopEngineGetPluginRegistrar). A wrapper that
// put another member or a second base class first would break this.
#ifndef KESTRUN_APP_SHELL_SECONDARY_WINDOW_H_
#define KESTRUN_APP_SHELL_SECONDARY_WINDOW_H_

#include <flutter_windows.h>

namespace kestrun_shell {

// The engine's view controller handle held by a client-wrapper `flutter::FlutterViewController`
// (see above); null for a null pointer.
FlutterDesktopViewControllerRef ViewControllerHandleOfWrapper(const void* flutter_view_controller);

// The multi-window plugin's window-created callback: registers the secondary window's plugins
// (RegisterSecondaryWindowPlugins) on the engine of `flutter_view_controller`. Ignores a pointer
// that leads to no engine.
void OnSecondaryWindowCreated(void* flutter_view_controller);

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_SECONDARY_WINDOW_H_
