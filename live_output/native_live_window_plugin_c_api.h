// C entry of the live output plugin, in the shape the program's plugin registrant expects.

#ifndef KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_C_API_H_
#define KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_C_API_H_

#include <flutter_plugin_registrar.h>

#if defined(__cplusplus)
extern "C" {
#endif

// Creates the live output plugin on the engine's registrar named "NativeLiveWindowPlugin"; the
// registrar owns it from then on.
void NativeLiveWindowPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar);

#if defined(__cplusplus)
}  // extern "C"
#endif

#endif  // KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_C_API_H_
