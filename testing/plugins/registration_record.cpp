#include "registration_record.h"

#include <cstdint>
#include <iostream>
#include <memory>
#include <vector>

#include "encodable_value.h"
#include "method_call.h"
#include "standard_method_codec.h"
#include "standin_plugin_channels.h"

namespace kestrun_testing {

void SendRegistrationRecord(FlutterDesktopPluginRegistrarRef registrar, const char* plugin_class) {
  if (registrar == nullptr) {
    std::cerr << "Stand-in plugin " << plugin_class << " was registered with a null registrar"
              << std::endl;
    return;
  }
  flutter::EncodableMap arguments{
      {flutter::EncodableValue(kPluginKey), flutter::EncodableValue(plugin_class)},
      {flutter::EncodableValue(kRegistrarKey),
       flutter::EncodableValue(static_cast<int64_t>(reinterpret_cast<intptr_t>(registrar)))},
  };
  flutter::MethodCall<flutter::EncodableValue> call(
      kRegisteredMethod, std::make_unique<flutter::EncodableValue>(std::move(arguments)));
  std::unique_ptr<std::vector<uint8_t>> message =
      flutter::StandardMethodCodec::GetInstance().EncodeMethodCall(call);
  FlutterDesktopMessengerSend(FlutterDesktopPluginRegistrarGetMessenger(registrar),
                              kStandInPluginsChannel, message->data(), message->size());
}

}  // namespace kestrun_testing
