#include "texture_registrar_impl.h"

#include <iostream>
#include <memory>
#include <utility>

namespace flutter {

namespace {

const FlutterDesktopPixelBuffer* CopyPixelBuffer(size_t width, size_t height, void* user_data) {
  auto* texture = static_cast<PixelBufferTexture*>(user_data);
  return texture->buffer_callback()(width, height);
}

const FlutterDesktopGpuSurfaceDescriptor* ObtainDescriptor(size_t width, size_t height,
                                                           void* user_data) {
  auto* texture = static_cast<GpuSurfaceTexture*>(user_data);
  return texture->obtain_descriptor_callback()(width, height);
}

void RunUnregisterCallback(void* user_data) {
  std::unique_ptr<std::function<void()>> callback(static_cast<std::function<void()>*>(user_data));
  (*callback)();
}

}  // namespace

TextureRegistrarImpl::TextureRegistrarImpl(FlutterDesktopTextureRegistrarRef texture_registrar_ref)
    : texture_registrar_ref_(texture_registrar_ref) {}

int64_t TextureRegistrarImpl::RegisterTexture(TextureVariant* texture) {
  FlutterDesktopTextureInfo info = {};
  if (auto* pixel_buffer = std::get_if<PixelBufferTexture>(texture)) {
    info.type = kFlutterDesktopPixelBufferTexture;
    info.pixel_buffer_config.callback = &CopyPixelBuffer;
    info.pixel_buffer_config.user_data = pixel_buffer;
  } else if (auto* gpu_surface = std::get_if<GpuSurfaceTexture>(texture)) {
    info.type = kFlutterDesktopGpuSurfaceTexture;
    info.gpu_surface_config.struct_size = sizeof(FlutterDesktopGpuSurfaceTextureConfig);
    info.gpu_surface_config.type = gpu_surface->surface_type();
    info.gpu_surface_config.callback = &ObtainDescriptor;
    info.gpu_surface_config.user_data = gpu_surface;
  } else {
    std::cerr << "Attempting to register unknown texture variant." << std::endl;
    return -1;
  }
  return FlutterDesktopTextureRegistrarRegisterExternalTexture(texture_registrar_ref_, &info);
}

bool TextureRegistrarImpl::MarkTextureFrameAvailable(int64_t texture_id) {
  return FlutterDesktopTextureRegistrarMarkExternalTextureFrameAvailable(texture_registrar_ref_,
                                                                        texture_id);
}

void TextureRegistrarImpl::UnregisterTexture(int64_t texture_id, std::function<void()> callback) {
  if (!callback) {
    FlutterDesktopTextureRegistrarUnregisterExternalTexture(texture_registrar_ref_, texture_id,
                                                            nullptr, nullptr);
    return;
  }
  auto owned = std::make_unique<std::function<void()>>(std::move(callback));
  FlutterDesktopTextureRegistrarUnregisterExternalTexture(
      texture_registrar_ref_, texture_id, &RunUnregisterCallback, owned.release());
}

}  // namespace flutter
