#include "embedded_webview/native_webview_plugin_c_api.h"

#include "embedded_webview/native_webview_plugin.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"

void NativeWebViewPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  native_webview::NativeWebViewPlugin::RegisterWithRegistrar(
      flutter::PluginRegistrarManager::GetInstance()->GetRegistrar<flutter::PluginRegistrarWindows>(
          registrar));
}
