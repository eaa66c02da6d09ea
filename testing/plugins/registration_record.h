// Shared by the packaged-plugin stand-ins: reports one registration on the testing channel.
#ifndef KESTRUN_TESTING_PLUGINS_REGISTRATION_RECORD_H_
#define KESTRUN_TESTING_PLUGINS_REGISTRATION_RECORD_H_

#include <flutter_plugin_registrar.h>

namespace kestrun_testing {

// Sends the "registered" record of `plugin_class` (see standin_plugin_channels.h) through the
// registrar's messenger. A null registrar is reported on the standard error stream and nothing is
// sent (a real plugin would crash on it).
void SendRegistrationRecord(FlutterDesktopPluginRegistrarRef registrar, const char* plugin_class);

}  // namespace kestrun_testing

#endif  // KESTRUN_TESTING_PLUGINS_REGISTRATION_RECORD_H_
