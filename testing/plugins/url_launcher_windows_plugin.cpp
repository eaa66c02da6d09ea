// Stand-in for the url_launcher_windows plugin library: its registration only reports itself
// on the testing channel (standin_plugin_channels.h).
#include <url_launcher_windows/url_launcher_windows.h>

#include "registration_record.h"

void UrlLauncherWindowsRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  kestrun_testing::SendRegistrationRecord(registrar, "UrlLauncherWindows");
}
