// Plugin registrar of the Flutter engine's C API, platform-independent part (see flutter_export.h).
#ifndef KESTRUN_ENGINE_API_FLUTTER_PLUGIN_REGISTRAR_H_
#define KESTRUN_ENGINE_API_FLUTTER_PLUGIN_REGISTRAR_H_

#include <stddef.h>
#include <stdint.h>

#include "flutter_export.h"
#include "flutter_messenger.h"
#include "flutter_texture_registrar.h"

#if defined(__cplusplus)
extern "C" {
#endif

typedef struct FlutterDesktopPluginRegistrar* FlutterDesktopPluginRegistrarRef;

typedef void (*FlutterDesktopOnPluginRegistrarDestroyed)(FlutterDesktopPluginRegistrarRef);

FLUTTER_EXPORT FlutterDesktopMessengerRef
FlutterDesktopPluginRegistrarGetMessenger(FlutterDesktopPluginRegistrarRef registrar);

FLUTTER_EXPORT FlutterDesktopTextureRegistrarRef
FlutterDesktopRegistrarGetTextureRegistrar(FlutterDesktopPluginRegistrarRef registrar);

FLUTTER_EXPORT void FlutterDesktopPluginRegistrarSetDestructionHandler(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopOnPluginRegistrarDestroyed callback);

#if defined(__cplusplus)
}  // extern "C"
#endif

#endif  // KESTRUN_ENGINE_API_FLUTTER_PLUGIN_REGISTRAR_H_
