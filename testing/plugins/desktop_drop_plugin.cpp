// Stand-in for the desktop_drop plugin library: its registration only reports itself
// on the testing channel (standin_plugin_channels.h).
#include <desktop_drop/desktop_drop_plugin.h>

#include "registration_record.h"

void DesktopDropPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  kestrun_testing::SendRegistrationRecord(registrar, "DesktopDropPlugin");
}
