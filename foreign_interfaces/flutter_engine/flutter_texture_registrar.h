// External texture registration of the Flutter engine's C API (see flutter_export.h).
#ifndef KESTRUN_ENGINE_API_FLUTTER_TEXTURE_REGISTRAR_H_
#define KESTRUN_ENGINE_API_FLUTTER_TEXTURE_REGISTRAR_H_

#include <stddef.h>
#include <stdint.h>

#include "flutter_export.h"

#if defined(__cplusplus)
extern "C" {
#endif

typedef struct FlutterDesktopTextureRegistrar* FlutterDesktopTextureRegistrarRef;

typedef enum {
  kFlutterDesktopPixelBufferTexture = 0,
  kFlutterDesktopGpuSurfaceTexture = 1,
} FlutterDesktopTextureType;

typedef enum {
  kFlutterDesktopGpuSurfaceTypeNone = 0,
  kFlutterDesktopGpuSurfaceTypeDxgiSharedHandle = 1,
  kFlutterDesktopGpuSurfaceTypeD3d11Texture2D = 2,
} FlutterDesktopGpuSurfaceType;

typedef enum {
  kFlutterDesktopPixelFormatNone = 0,
  kFlutterDesktopPixelFormatRGBA8888 = 1,
  kFlutterDesktopPixelFormatBGRA8888 = 2,
} FlutterDesktopPixelFormat;

typedef struct {
  const uint8_t* buffer;
  size_t width;
  size_t height;
  void (*release_callback)(void* release_context);
  void* release_context;
} FlutterDesktopPixelBuffer;

typedef struct {
  size_t struct_size;
  // ID3D11Texture2D* for the Direct3D 11 type, a HANDLE for the DXGI shared-handle type.
  void* handle;
  size_t width;
  size_t height;
  size_t visible_width;
  size_t visible_height;
  FlutterDesktopPixelFormat format;
  void (*release_callback)(void* release_context);
  void* release_context;
} FlutterDesktopGpuSurfaceDescriptor;

typedef const FlutterDesktopPixelBuffer* (*FlutterDesktopPixelBufferTextureCallback)(
    size_t width, size_t height, void* user_data);

typedef const FlutterDesktopGpuSurfaceDescriptor* (*FlutterDesktopGpuSurfaceTextureCallback)(
    size_t width, size_t height, void* user_data);

typedef struct {
  FlutterDesktopPixelBufferTextureCallback callback;
  void* user_data;
} FlutterDesktopPixelBufferTextureConfig;

typedef struct {
  size_t struct_size;
  FlutterDesktopGpuSurfaceType type;
  FlutterDesktopGpuSurfaceTextureCallback callback;
  void* user_data;
} FlutterDesktopGpuSurfaceTextureConfig;

typedef struct {
  FlutterDesktopTextureType type;
  union {
    FlutterDesktopPixelBufferTextureConfig pixel_buffer_config;
    FlutterDesktopGpuSurfaceTextureConfig gpu_surface_config;
  };
} FlutterDesktopTextureInfo;

// Any thread. Answers a positive id, or -1 on error.
FLUTTER_EXPORT int64_t FlutterDesktopTextureRegistrarRegisterExternalTexture(
    FlutterDesktopTextureRegistrarRef texture_registrar, const FlutterDesktopTextureInfo* info);

// Unregisters asynchronously; `callback` (optional) runs once the texture is gone.
FLUTTER_EXPORT void FlutterDesktopTextureRegistrarUnregisterExternalTexture(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id,
    void (*callback)(void* user_data), void* user_data);

// Any thread. False if the texture does not exist.
FLUTTER_EXPORT bool FlutterDesktopTextureRegistrarMarkExternalTextureFrameAvailable(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id);

#if defined(__cplusplus)
}  // extern "C"
#endif

#if defined(__cplusplus) && (defined(__x86_64__) || defined(_M_X64))
static_assert(sizeof(FlutterDesktopPixelBuffer) == 40, "pixel buffer layout");
static_assert(sizeof(FlutterDesktopGpuSurfaceDescriptor) == 72, "GPU surface descriptor layout");
static_assert(offsetof(FlutterDesktopGpuSurfaceDescriptor, release_callback) == 56,
              "GPU surface descriptor layout");
static_assert(offsetof(FlutterDesktopTextureInfo, pixel_buffer_config) == 8, "texture info layout");
#endif

#endif  // KESTRUN_ENGINE_API_FLUTTER_TEXTURE_REGISTRAR_H_
