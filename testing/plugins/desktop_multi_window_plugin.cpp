// Stand-in for the desktop_multi_window plugin library. Like the real plugin it keeps the host's
// window-created callback and, for every secondary window it creates, calls it with the window's
// client-wrapper view controller (a `flutter::FlutterViewController` of the wrapper compiled into
// this library, with its own engine). Windows are created on request over the testing channel
// (standin_plugin_channels.h); tests in the host's process can also call the callback directly
// (desktop_multi_window_testing.h).
#include <desktop_multi_window/desktop_multi_window_plugin.h>
#include <flutter_windows.h>

#include <cstdint>
#include <memory>
#include <variant>
#include <vector>

#include "dart_project.h"
#include "desktop_multi_window_testing.h"
#include "encodable_value.h"
#include "flutter_engine.h"
#include "flutter_view_controller.h"
#include "method_call.h"
#include "registration_record.h"
#include "standard_method_codec.h"
#include "standin_plugin_channels.h"

namespace {

constexpr char kPluginClass[] = "DesktopMultiWindowPlugin";
constexpr int kDefaultWidth = 640;
constexpr int kDefaultHeight = 480;

// Everything here is used on the main thread only, as in the real plugin.
WindowCreatedCallback g_window_created_callback = nullptr;
int64_t g_next_window_id = 1;

// The secondary windows' controllers. They stay alive for the rest of the process, as the real
// plugin's windows do until they close; the list is deliberately never destroyed, because at
// process exit the engine library may already be unloaded when this library's statics go.
std::vector<std::unique_ptr<flutter::FlutterViewController>>& SecondaryWindows() {
  static auto* windows = new std::vector<std::unique_ptr<flutter::FlutterViewController>>();
  return *windows;
}

int IntArgument(const flutter::EncodableValue* arguments, const char* key, int fallback) {
  const auto* map = arguments ? std::get_if<flutter::EncodableMap>(arguments) : nullptr;
  if (map == nullptr) {
    return fallback;
  }
  auto it = map->find(flutter::EncodableValue(key));
  if (it == map->end()) {
    return fallback;
  }
  const auto* value = std::get_if<int32_t>(&it->second);
  return value != nullptr && *value > 0 ? *value : fallback;
}

void Respond(FlutterDesktopMessengerRef messenger, const FlutterDesktopMessage* message,
             const std::vector<uint8_t>* reply) {
  if (message->response_handle == nullptr) {
    return;
  }
  FlutterDesktopMessengerSendResponse(messenger, message->response_handle,
                                      reply != nullptr ? reply->data() : nullptr,
                                      reply != nullptr ? reply->size() : 0);
}

void OnMultiWindowMessage(FlutterDesktopMessengerRef messenger,
                          const FlutterDesktopMessage* message, void* /*user_data*/) {
  const flutter::StandardMethodCodec& codec = flutter::StandardMethodCodec::GetInstance();
  std::unique_ptr<flutter::MethodCall<flutter::EncodableValue>> call =
      codec.DecodeMethodCall(message->message, message->message_size);
  if (!call || call->method_name() != kestrun_testing::kCreateWindowMethod) {
    Respond(messenger, message, nullptr);
    return;
  }
  const int width = IntArgument(call->arguments(), "width", kDefaultWidth);
  const int height = IntArgument(call->arguments(), "height", kDefaultHeight);
  auto controller = std::make_unique<flutter::FlutterViewController>(width, height,
                                                                     flutter::DartProject(L"data"));
  if (controller->engine() == nullptr || controller->view() == nullptr) {
    Respond(
        messenger, message,
        codec.EncodeErrorEnvelope("CREATE_FAILED", "The secondary engine could not start.").get());
    return;
  }
  if (g_window_created_callback != nullptr) {
    g_window_created_callback(controller.get());
  }
  // The real plugin registers itself on every window's engine after the host's callback.
  DesktopMultiWindowPluginRegisterWithRegistrar(
      controller->engine()->GetRegistrarForPlugin(kPluginClass));
  const flutter::EncodableValue window_id(g_next_window_id++);
  SecondaryWindows().push_back(std::move(controller));
  Respond(messenger, message, codec.EncodeSuccessEnvelope(&window_id).get());
}

}  // namespace

void DesktopMultiWindowPluginRegisterWithRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  kestrun_testing::SendRegistrationRecord(registrar, kPluginClass);
  if (registrar != nullptr) {
    FlutterDesktopMessengerSetCallback(FlutterDesktopPluginRegistrarGetMessenger(registrar),
                                       kestrun_testing::kMultiWindowChannel, &OnMultiWindowMessage,
                                       nullptr);
  }
}

void DesktopMultiWindowSetWindowCreatedCallback(WindowCreatedCallback callback) {
  g_window_created_callback = callback;
}

bool DesktopMultiWindowTestingNotifyWindowCreated(void* flutter_view_controller) {
  if (g_window_created_callback == nullptr) {
    return false;
  }
  g_window_created_callback(flutter_view_controller);
  return true;
}

WindowCreatedCallback DesktopMultiWindowTestingCallback(void) { return g_window_created_callback; }
