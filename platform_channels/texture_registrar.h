// Registers external textures the engine draws from.
#ifndef KESTRUN_PLATFORM_CHANNELS_TEXTURE_REGISTRAR_H_
#define KESTRUN_PLATFORM_CHANNELS_TEXTURE_REGISTRAR_H_

#include <flutter_texture_registrar.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <variant>

namespace flutter {

// A texture whose pixels the engine copies from a CPU buffer.
class PixelBufferTexture {
 public:
  using CopyBufferCallback =
      std::function<const FlutterDesktopPixelBuffer*(size_t width, size_t height)>;

  explicit PixelBufferTexture(CopyBufferCallback copy_buffer)
      : copy_buffer_callback_(std::move(copy_buffer)) {}

  const CopyBufferCallback& buffer_callback() const { return copy_buffer_callback_; }

 private:
  const CopyBufferCallback copy_buffer_callback_;
};

// A texture the engine reads from a GPU surface.
class GpuSurfaceTexture {
 public:
  using ObtainDescriptorCallback =
      std::function<const FlutterDesktopGpuSurfaceDescriptor*(size_t width, size_t height)>;

  GpuSurfaceTexture(FlutterDesktopGpuSurfaceType surface_type,
                    ObtainDescriptorCallback obtain_descriptor)
      : surface_type_(surface_type), obtain_descriptor_callback_(std::move(obtain_descriptor)) {}

  FlutterDesktopGpuSurfaceType surface_type() const { return surface_type_; }
  const ObtainDescriptorCallback& obtain_descriptor_callback() const {
    return obtain_descriptor_callback_;
  }

 private:
  const FlutterDesktopGpuSurfaceType surface_type_;
  const ObtainDescriptorCallback obtain_descriptor_callback_;
};

using TextureVariant = std::variant<PixelBufferTexture, GpuSurfaceTexture>;

class TextureRegistrar {
 public:
  virtual ~TextureRegistrar() = default;

  // Answers the texture id, or -1 when it could not be registered. `texture` must stay alive
  // until it is unregistered.
  virtual int64_t RegisterTexture(TextureVariant* texture) = 0;

  // Tells the engine a new frame of the texture is ready. Any thread.
  virtual bool MarkTextureFrameAvailable(int64_t texture_id) = 0;

  // Unregisters asynchronously; `callback` (may be empty) runs once the engine has let go.
  virtual void UnregisterTexture(int64_t texture_id, std::function<void()> callback) = 0;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_TEXTURE_REGISTRAR_H_
