// Registration entry and window-created hook of the desktop_multi_window plugin library, as the
// host imports them in the default build (the library itself is a test stand-in; a build inside a
// real Flutter tree uses the plugin's own header instead).
#ifndef KESTRUN_TESTING_PLUGINS_DESKTOP_MULTI_WINDOW_PLUGIN_H_
#define KESTRUN_TESTING_PLUGINS_DESKTOP_MULTI_WINDOW_PLUGIN_H_

#include <flutter_plugin_registrar.h>

#ifdef FLUTTER_PLUGIN_IMPL
#define FLUTTER_PLUGIN_EXPORT __declspec(dllexport)
#else
#define FLUTTER_PLUGIN_EXPORT __declspec(dllimport)
#endif

#if defined(__cplusplus)
extern "C" {
#endif

// Called for every secondary engine window the plugin creates. The argument is the plugin's own
// client-wrapper `flutter::FlutterViewController*` of that window (not a
// FlutterDesktopViewControllerRef).
typedef void (*WindowCreatedCallback)(void* flutter_view_controller);

FLUTTER_PLUGIN_EXPORT void DesktopMultiWindowPluginRegisterWithRegistrar(
    FlutterDesktopPluginRegistrarRef registrar);

FLUTTER_PLUGIN_EXPORT void DesktopMultiWindowSetWindowCreatedCallback(
    WindowCreatedCallback callback);

#if defined(__cplusplus)
}  // extern "C"
#endif

#endif  // KESTRUN_TESTING_PLUGINS_DESKTOP_MULTI_WINDOW_PLUGIN_H_
