// Stand-in for the fvp plugin library: its registration only reports itself
// on the testing channel (standin_plugin_channels.h).
#include <fvp/fvp_plugin_c_api.h>

#include "registration_record.h"

void FvpPluginCApiRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  kestrun_testing::SendRegistrationRecord(registrar, "FvpPluginCApi");
}
