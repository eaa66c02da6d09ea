// Stand-in for the screen_retriever_windows plugin library: its registration only reports itself
// on the testing channel (standin_plugin_channels.h).
#include <screen_retriever_windows/screen_retriever_windows_plugin_c_api.h>

#include "registration_record.h"

void ScreenRetrieverWindowsPluginCApiRegisterWithRegistrar(
    FlutterDesktopPluginRegistrarRef registrar) {
  kestrun_testing::SendRegistrationRecord(registrar, "ScreenRetrieverWindowsPluginCApi");
}
