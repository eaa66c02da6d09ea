#include "kestrun_display_plugin_c_api.h"

#include <iostream>

#include "kestrun_display_plugin.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"

void KestrunDisplayPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  if (registrar == nullptr) {
    std::cerr << "KestrunDisplayPlugin: no registrar, the display plugin is not registered."
              << std::endl;
    return;
  }
  kestrun_display::KestrunDisplayPlugin::RegisterWithRegistrar(
      flutter::PluginRegistrarManager::GetInstance()
          ->GetRegistrar<flutter::PluginRegistrarWindows>(registrar));
}
