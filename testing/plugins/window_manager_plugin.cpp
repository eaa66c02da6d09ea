// Stand-in for the window_manager plugin library: its registration only reports itself
// on the testing channel (standin_plugin_channels.h).
#include <window_manager/window_manager_plugin.h>

#include "registration_record.h"

void WindowManagerPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  kestrun_testing::SendRegistrationRecord(registrar, "WindowManagerPlugin");
}
