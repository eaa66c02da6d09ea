// Registration entry of the window_manager plugin library, as the host imports it in the default
// build (the library itself is a test stand-in; a build inside a real Flutter tree uses the
// plugin's own header instead).
#ifndef KESTRUN_TESTING_PLUGINS_WINDOW_MANAGER_PLUGIN_H_
#define KESTRUN_TESTING_PLUGINS_WINDOW_MANAGER_PLUGIN_H_

#include <flutter_plugin_registrar.h>

#ifdef FLUTTER_PLUGIN_IMPL
#define FLUTTER_PLUGIN_EXPORT __declspec(dllexport)
#else
#define FLUTTER_PLUGIN_EXPORT __declspec(dllimport)
#endif

#if defined(__cplusplus)
extern "C" {
#endif

FLUTTER_PLUGIN_EXPORT void WindowManagerPluginRegisterWithRegistrar(
    FlutterDesktopPluginRegistrarRef registrar);

#if defined(__cplusplus)
}  // extern "C"
#endif

#endif  // KESTRUN_TESTING_PLUGINS_WINDOW_MANAGER_PLUGIN_H_
