// Stand-in for the universal_ble plugin library: its registration only reports itself
// on the testing channel (standin_plugin_channels.h).
#include <universal_ble/universal_ble_plugin_c_api.h>

#include "registration_record.h"

void UniversalBlePluginCApiRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  kestrun_testing::SendRegistrationRecord(registrar, "UniversalBlePluginCApi");
}
