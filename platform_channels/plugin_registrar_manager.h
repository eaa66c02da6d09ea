// Keeps one registrar object per engine registrar and destroys it (with its plugins) when the
// engine destroys the registrar.
#ifndef KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_MANAGER_H_
#define KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_MANAGER_H_

#include <flutter_plugin_registrar.h>

#include <map>
#include <memory>

#include "plugin_registrar.h"

namespace flutter {

// Main thread only.
class PluginRegistrarManager {
 public:
  static PluginRegistrarManager* GetInstance();

  PluginRegistrarManager(const PluginRegistrarManager&) = delete;
  PluginRegistrarManager& operator=(const PluginRegistrarManager&) = delete;

  // The registrar object for `registrar_ref`, created on first use. `T` must be the same type
  // on every call for one reference.
  template <class T>
  T* GetRegistrar(FlutterDesktopPluginRegistrarRef registrar_ref) {
    auto it = registrars_.find(registrar_ref);
    if (it == registrars_.end()) {
      auto registrar = std::make_unique<T>(registrar_ref);
      T* raw = registrar.get();
      registrars_.emplace(registrar_ref, std::move(registrar));
      FlutterDesktopPluginRegistrarSetDestructionHandler(registrar_ref, &OnRegistrarDestroyed);
      return raw;
    }
    return static_cast<T*>(it->second.get());
  }

  // Destroys every registrar object (tests use it between cases).
  void Reset() { registrars_.clear(); }

 private:
  PluginRegistrarManager() = default;

  static void OnRegistrarDestroyed(FlutterDesktopPluginRegistrarRef registrar_ref);

  std::map<FlutterDesktopPluginRegistrarRef, std::unique_ptr<PluginRegistrar>> registrars_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_MANAGER_H_
