#include "plugin_registrar_manager.h"

namespace flutter {

PluginRegistrarManager* PluginRegistrarManager::GetInstance() {
  static PluginRegistrarManager* instance = new PluginRegistrarManager();
  return instance;
}

void PluginRegistrarManager::OnRegistrarDestroyed(FlutterDesktopPluginRegistrarRef registrar_ref) {
  // Taken out of the map before it is destroyed, so plugins see a consistent manager.
  auto& registrars = GetInstance()->registrars_;
  auto it = registrars.find(registrar_ref);
  if (it == registrars.end()) {
    return;
  }
  std::unique_ptr<PluginRegistrar> registrar = std::move(it->second);
  registrars.erase(it);
}

}  // namespace flutter
