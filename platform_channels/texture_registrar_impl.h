// TextureRegistrar over the engine's texture registrar.
#ifndef KESTRUN_PLATFORM_CHANNELS_TEXTURE_REGISTRAR_IMPL_H_
#define KESTRUN_PLATFORM_CHANNELS_TEXTURE_REGISTRAR_IMPL_H_

#include <flutter_texture_registrar.h>

#include "texture_registrar.h"

namespace flutter {

class TextureRegistrarImpl : public TextureRegistrar {
 public:
  explicit TextureRegistrarImpl(FlutterDesktopTextureRegistrarRef texture_registrar_ref);
  ~TextureRegistrarImpl() override = default;

  TextureRegistrarImpl(const TextureRegistrarImpl&) = delete;
  TextureRegistrarImpl& operator=(const TextureRegistrarImpl&) = delete;

  int64_t RegisterTexture(TextureVariant* texture) override;
  bool MarkTextureFrameAvailable(int64_t texture_id) override;
  void UnregisterTexture(int64_t texture_id, std::function<void()> callback) override;

 private:
  FlutterDesktopTextureRegistrarRef texture_registrar_ref_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_TEXTURE_REGISTRAR_IMPL_H_
