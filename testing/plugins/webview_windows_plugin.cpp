// Stand-in for the webview_windows plugin library: its registration only reports itself
// on the testing channel (standin_plugin_channels.h).
#include <webview_windows/webview_windows_plugin.h>

#include "registration_record.h"

void WebviewWindowsPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  kestrun_testing::SendRegistrationRecord(registrar, "WebviewWindowsPlugin");
}
