#include "plugin_registrar.h"

#include <utility>

#include "binary_messenger_impl.h"
#include "texture_registrar_impl.h"

namespace flutter {

PluginRegistrar::PluginRegistrar(FlutterDesktopPluginRegistrarRef core_registrar)
    : registrar_(core_registrar) {
  messenger_ =
      std::make_unique<BinaryMessengerImpl>(FlutterDesktopPluginRegistrarGetMessenger(registrar_));
  texture_registrar_ = std::make_unique<TextureRegistrarImpl>(
      FlutterDesktopRegistrarGetTextureRegistrar(registrar_));
}

PluginRegistrar::~PluginRegistrar() { ClearPlugins(); }

void PluginRegistrar::AddPlugin(std::unique_ptr<Plugin> plugin) {
  plugins_.insert(std::move(plugin));
}

void PluginRegistrar::ClearPlugins() { plugins_.clear(); }

}  // namespace flutter
