#include "live_output/native_live_window_plugin_c_api.h"

#include "live_output/native_live_window_plugin.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"

void NativeLiveWindowPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  native_live_window::NativeLiveWindowPlugin::RegisterWithRegistrar(
      flutter::PluginRegistrarManager::GetInstance()->GetRegistrar<flutter::PluginRegistrarWindows>(
          registrar));
}
