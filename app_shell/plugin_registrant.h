// Which plugins each engine window of the program gets, and in which order.
#ifndef KESTRUN_APP_SHELL_PLUGIN_REGISTRANT_H_
#define KESTRUN_APP_SHELL_PLUGIN_REGISTRANT_H_

#include <flutter_plugin_registrar.h>

#include <functional>

namespace kestrun_shell {

// The engine's registrar for a plugin name (null when the engine cannot give one).
using RegistrarForPlugin = std::function<FlutterDesktopPluginRegistrarRef(const char* plugin_name)>;

// The main window: the eight packaged plugins, then the program's own plugins.
void RegisterMainWindowPlugins(const RegistrarForPlugin& registrar_for);

// A secondary engine window made by the multi-window plugin: the packaged plugins except
// UniversalBle and WindowManager, then the web view plugin only.
void RegisterSecondaryWindowPlugins(const RegistrarForPlugin& registrar_for);

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_PLUGIN_REGISTRANT_H_
