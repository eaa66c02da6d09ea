// C entry of the web view plugin, in the shape the program's plugin registrant expects.

#ifndef KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_PLUGIN_C_API_H_
#define KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_PLUGIN_C_API_H_

#include <flutter_plugin_registrar.h>

#if defined(__cplusplus)
extern "C" {
#endif

// Creates the web view plugin on the engine's registrar named "NativeWebViewPlugin"; the
// registrar owns it from then on.
void NativeWebViewPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar);

#if defined(__cplusplus)
}  // extern "C"
#endif

#endif  // KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_PLUGIN_C_API_H_
