// What a plugin registers with: the messenger, the texture registrar, and ownership of plugins.
#ifndef KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_H_
#define KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_H_

#include <flutter_plugin_registrar.h>

#include <memory>
#include <set>

#include "binary_messenger.h"
#include "plugin.h"
#include "texture_registrar.h"

namespace flutter {

class PluginRegistrar {
 public:
  explicit PluginRegistrar(FlutterDesktopPluginRegistrarRef core_registrar);
  // Destroys the plugins first, while the messenger they may still use is alive.
  virtual ~PluginRegistrar();

  PluginRegistrar(const PluginRegistrar&) = delete;
  PluginRegistrar& operator=(const PluginRegistrar&) = delete;

  BinaryMessenger* messenger() { return messenger_.get(); }
  TextureRegistrar* texture_registrar() { return texture_registrar_.get(); }

  // Plugins live as long as the registrar.
  void AddPlugin(std::unique_ptr<Plugin> plugin);

 protected:
  FlutterDesktopPluginRegistrarRef registrar() const { return registrar_; }

  // Lets a subclass destroy the plugins before its own members go away.
  void ClearPlugins();

 private:
  FlutterDesktopPluginRegistrarRef registrar_;
  std::unique_ptr<BinaryMessenger> messenger_;
  std::unique_ptr<TextureRegistrar> texture_registrar_;
  std::set<std::unique_ptr<Plugin>> plugins_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_H_
