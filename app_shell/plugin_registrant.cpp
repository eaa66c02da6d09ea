#include "plugin_registrant.h"

// Each plugin's header defines its own FLUTTER_PLUGIN_EXPORT; they need not agree, so each
// definition is dropped before the next header.
#include <desktop_drop/desktop_drop_plugin.h>
#undef FLUTTER_PLUGIN_EXPORT
#include <desktop_multi_window/desktop_multi_window_plugin.h>
#undef FLUTTER_PLUGIN_EXPORT
#include <fvp/fvp_plugin_c_api.h>
#undef FLUTTER_PLUGIN_EXPORT
#include <screen_retriever_windows/screen_retriever_windows_plugin_c_api.h>
#undef FLUTTER_PLUGIN_EXPORT
#include <universal_ble/universal_ble_plugin_c_api.h>
#undef FLUTTER_PLUGIN_EXPORT
#include <url_launcher_windows/url_launcher_windows.h>
#undef FLUTTER_PLUGIN_EXPORT
#include <webview_windows/webview_windows_plugin.h>
#undef FLUTTER_PLUGIN_EXPORT
#include <window_manager/window_manager_plugin.h>
#undef FLUTTER_PLUGIN_EXPORT

#include "embedded_webview/native_webview_plugin_c_api.h"
#include "kestrun_display_plugin_c_api.h"
#include "live_output/native_live_window_plugin_c_api.h"

#include <iostream>

namespace kestrun_shell {

namespace {

using RegisterWithRegistrar = void (*)(FlutterDesktopPluginRegistrarRef registrar);

enum class EngineWindow { kMain, kSecondary };

void Register(const RegistrarForPlugin& registrar_for, const char* plugin_name,
              RegisterWithRegistrar register_with_registrar) {
  FlutterDesktopPluginRegistrarRef registrar = registrar_for(plugin_name);
  if (registrar == nullptr) {
    std::cerr << "No registrar for plugin " << plugin_name << "; it is not registered."
              << std::endl;
    return;
  }
  register_with_registrar(registrar);
}

// The packaged plugins: each an import of the plugin's own library.
void RegisterPackagedPlugins(const RegistrarForPlugin& registrar_for, EngineWindow window) {
  Register(registrar_for, "DesktopDropPlugin", &DesktopDropPluginRegisterWithRegistrar);
  Register(registrar_for, "DesktopMultiWindowPlugin",
           &DesktopMultiWindowPluginRegisterWithRegistrar);
  Register(registrar_for, "FvpPluginCApi", &FvpPluginCApiRegisterWithRegistrar);
  Register(registrar_for, "ScreenRetrieverWindowsPluginCApi",
           &ScreenRetrieverWindowsPluginCApiRegisterWithRegistrar);
  if (window == EngineWindow::kMain) {
    Register(registrar_for, "UniversalBlePluginCApi", &UniversalBlePluginCApiRegisterWithRegistrar);
  }
  Register(registrar_for, "UrlLauncherWindows", &UrlLauncherWindowsRegisterWithRegistrar);
  Register(registrar_for, "WebviewWindowsPlugin", &WebviewWindowsPluginRegisterWithRegistrar);
  if (window == EngineWindow::kMain) {
    Register(registrar_for, "WindowManagerPlugin", &WindowManagerPluginRegisterWithRegistrar);
  }
}

// The program's own plugins, in this order: "NativeWebViewPlugin" (embedded_webview; also on
// secondary windows), "NativeLiveWindowPlugin" (live_output; main window only),
// "KestrunDisplayPlugin" (display_enumeration; main window only). This is the one place they are
// listed.
void RegisterOwnPlugins(const RegistrarForPlugin& registrar_for, EngineWindow window) {
  Register(registrar_for, "NativeWebViewPlugin", &NativeWebViewPluginRegisterWithRegistrar);
  if (window != EngineWindow::kMain) {
    return;
  }
  Register(registrar_for, "NativeLiveWindowPlugin", &NativeLiveWindowPluginRegisterWithRegistrar);
  Register(registrar_for, "KestrunDisplayPlugin", &KestrunDisplayPluginRegisterWithRegistrar);
}

}  // namespace

void RegisterMainWindowPlugins(const RegistrarForPlugin& registrar_for) {
  RegisterPackagedPlugins(registrar_for, EngineWindow::kMain);
  RegisterOwnPlugins(registrar_for, EngineWindow::kMain);
}

void RegisterSecondaryWindowPlugins(const RegistrarForPlugin& registrar_for) {
  RegisterPackagedPlugins(registrar_for, EngineWindow::kSecondary);
  RegisterOwnPlugins(registrar_for, EngineWindow::kSecondary);
}

}  // namespace kestrun_shell
