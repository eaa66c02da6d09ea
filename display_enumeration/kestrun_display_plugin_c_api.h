// C entry of the display plugin, in the shape the program's plugin registrant expects.
#ifndef KESTRUN_DISPLAY_ENUMERATION_KESTRUN_DISPLAY_PLUGIN_C_API_H_
#define KESTRUN_DISPLAY_ENUMERATION_KESTRUN_DISPLAY_PLUGIN_C_API_H_

#include <flutter_plugin_registrar.h>

// The plugin is a static library linked into the program; a build that makes it a DLL defines
// KESTRUN_DISPLAY_PLUGIN_SHARED (and KESTRUN_DISPLAY_PLUGIN_IMPL while building it).
#if defined(KESTRUN_DISPLAY_PLUGIN_SHARED) && defined(_WIN32)
#if defined(KESTRUN_DISPLAY_PLUGIN_IMPL)
#define KESTRUN_DISPLAY_PLUGIN_EXPORT __declspec(dllexport)
#else
#define KESTRUN_DISPLAY_PLUGIN_EXPORT __declspec(dllimport)
#endif
#else
#define KESTRUN_DISPLAY_PLUGIN_EXPORT
#endif

#if defined(__cplusplus)
extern "C" {
#endif

// Creates the display plugin on the engine's registrar named "KestrunDisplayPlugin".
KESTRUN_DISPLAY_PLUGIN_EXPORT void KestrunDisplayPluginRegisterWithRegistrar(
    FlutterDesktopPluginRegistrarRef registrar);

#if defined(__cplusplus)
}  // extern "C"
#endif

#endif  // KESTRUN_DISPLAY_ENUMERATION_KESTRUN_DISPLAY_PLUGIN_C_API_H_
