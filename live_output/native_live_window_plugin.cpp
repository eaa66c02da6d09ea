#include "live_output/native_live_window_plugin.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <utility>
#include <variant>
#include <vector>

#include "live_output/window/display_record.h"
#include "live_output/log/logger.h"
#include "standard_method_codec.h"

namespace native_live_window {

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;

constexpr std::int32_t kDefaultFadeDurationMs = 500;

// The call's argument map, or null when the argument is absent or not a map.
const EncodableMap* ArgumentMap(const EncodableValue* arguments) {
  return arguments != nullptr ? std::get_if<EncodableMap>(arguments) : nullptr;
}

// The value under `key`, or null when the key is absent or holds null (the interface's way of
// leaving a value out).
const EncodableValue* Lookup(const EncodableMap& map, const char* key) {
  const auto it = map.find(EncodableValue(key));
  if (it == map.end() || it->second.IsNull()) {
    return nullptr;
  }
  return &it->second;
}

// Typed reads. A value of another kind is a contract violation: std::get raises, and the
// handler's noexcept boundary ends the process without a reply.
std::int32_t Int32Or(const EncodableMap& map, const char* key, std::int32_t fallback) {
  const EncodableValue* value = Lookup(map, key);
  return value != nullptr ? std::get<std::int32_t>(*value) : fallback;
}

bool BoolOr(const EncodableMap& map, const char* key, bool fallback) {
  const EncodableValue* value = Lookup(map, key);
  return value != nullptr ? std::get<bool>(*value) : fallback;
}

std::string StringOr(const EncodableMap& map, const char* key, const std::string& fallback) {
  const EncodableValue* value = Lookup(map, key);
  return value != nullptr ? std::get<std::string>(*value) : fallback;
}

void ReplyExpectedMap(std::unique_ptr<flutter::MethodResult<EncodableValue>> result) {
  result->Error("INVALID_ARGS", "Expected map argument");
}

void ReplyMissingDisplayId(std::unique_ptr<flutter::MethodResult<EncodableValue>> result) {
  result->Error("INVALID_ARGS", "Missing 'displayId' argument");
}

void ReplySuccess(std::unique_ptr<flutter::MethodResult<EncodableValue>> result) {
  result->Success(EncodableValue(true));
}

// The argument map of a call about one display, with its "displayId" in *display_id. When the map
// or the id is missing, answers the call with the error and gives null.
const EncodableMap* DisplayArguments(const EncodableValue* arguments,
                                     std::unique_ptr<flutter::MethodResult<EncodableValue>>& result,
                                     const std::string** display_id) {
  const EncodableMap* args = ArgumentMap(arguments);
  if (args == nullptr) {
    ReplyExpectedMap(std::move(result));
    return nullptr;
  }
  const EncodableValue* id = Lookup(*args, "displayId");
  if (id == nullptr) {
    ReplyMissingDisplayId(std::move(result));
    return nullptr;
  }
  *display_id = &std::get<std::string>(*id);
  return args;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Registration and lifetime

void NativeLiveWindowPlugin::RegisterWithRegistrar(flutter::PluginRegistrarWindows* registrar) {
  registrar->AddPlugin(std::make_unique<NativeLiveWindowPlugin>(registrar));
  OutputDebugStringW(L"Kestrun: NativeLiveWindowPlugin registered\n");
}

NativeLiveWindowPlugin::NativeLiveWindowPlugin(flutter::PluginRegistrarWindows* registrar,
                                               WindowFactory window_factory)
    : registrar_(registrar), window_factory_(std::move(window_factory)) {
  if (!window_factory_) {
    window_factory_ = [] { return std::make_unique<NativeLiveWindow>(); };
  }
  channel_ = std::make_unique<flutter::MethodChannel<EncodableValue>>(
      registrar_->messenger(), kChannelName, &flutter::StandardMethodCodec::GetInstance());
  channel_->SetMethodCallHandler([this](const MethodCall& call, std::unique_ptr<Result> result) {
    HandleMethodCall(call, std::move(result));
  });
}

NativeLiveWindowPlugin::~NativeLiveWindowPlugin() {
  channel_->SetMethodCallHandler(nullptr);
  TearDownVideoTopology();
  CloseAllWindows();
  // deferred_replies_ then destroys the callback window and drops unanswered results.
}

void NativeLiveWindowPlugin::HandleMethodCall(const MethodCall& call,
                                              std::unique_ptr<Result> result) noexcept {
  const auto& handlers = Handlers();
  const auto it = handlers.find(call.method_name());
  if (it == handlers.end()) {
    result->NotImplemented();
    return;
  }
  (this->*(it->second))(call.arguments(), std::move(result));
}

const std::map<std::string, NativeLiveWindowPlugin::Handler>& NativeLiveWindowPlugin::Handlers() {
  static const std::map<std::string, Handler> handlers = {
      {"initializeLogger", &NativeLiveWindowPlugin::InitializeLogger},
      {"showForDisplay", &NativeLiveWindowPlugin::ShowForDisplay},
      {"closeForDisplay", &NativeLiveWindowPlugin::CloseForDisplay},
      {"closeAll", &NativeLiveWindowPlugin::CloseAll},
      {"blankForDisplay", &NativeLiveWindowPlugin::BlankForDisplay},
      {"unblankForDisplay", &NativeLiveWindowPlugin::UnblankForDisplay},
      {"blankAll", &NativeLiveWindowPlugin::BlankAll},
      {"unblankAll", &NativeLiveWindowPlugin::UnblankAll},
      {"fadeToBlackForDisplay", &NativeLiveWindowPlugin::FadeToBlackForDisplay},
      {"fadeFromBlackForDisplay", &NativeLiveWindowPlugin::FadeFromBlackForDisplay},
      {"fadeToBlackAll", &NativeLiveWindowPlugin::FadeToBlackAll},
      {"fadeFromBlackAll", &NativeLiveWindowPlugin::FadeFromBlackAll},
      {"loadImageForDisplay", &NativeLiveWindowPlugin::LoadImageForDisplay},
      {"stopImageForDisplay", &NativeLiveWindowPlugin::StopImageForDisplay},
      {"setCropRectForDisplay", &NativeLiveWindowPlugin::SetCropRectForDisplay},
      {"clearCropRectForDisplay", &NativeLiveWindowPlugin::ClearCropRectForDisplay},
      {"loadWebpageForDisplay", &NativeLiveWindowPlugin::LoadWebpageForDisplay},
      {"reloadWebpageForDisplay", &NativeLiveWindowPlugin::ReloadWebpageForDisplay},
      {"stopWebpageForDisplay", &NativeLiveWindowPlugin::StopWebpageForDisplay},
      {"setVideoTopology", &NativeLiveWindowPlugin::SetVideoTopology},
      {"setVolumeForDisplay", &NativeLiveWindowPlugin::SetVolumeForDisplay},
      {"getPositionForDisplay", &NativeLiveWindowPlugin::GetPositionForDisplay},
      {"seekToForDisplay", &NativeLiveWindowPlugin::SeekToForDisplay},
      {"seekToAll", &NativeLiveWindowPlugin::SeekToAll},
      {"setVideoPausedForDisplay", &NativeLiveWindowPlugin::SetVideoPausedForDisplay},
      {"setVideoPausedAll", &NativeLiveWindowPlugin::SetVideoPausedAll},
      {"setVideoOpacity", &NativeLiveWindowPlugin::SetVideoOpacity},
  };
  return handlers;
}

NativeLiveWindow* NativeLiveWindowPlugin::FindWindow(const std::string& display_id) const {
  const auto it = windows_.find(display_id);
  return it != windows_.end() ? it->second.get() : nullptr;
}

void NativeLiveWindowPlugin::TearDownVideoTopology() {
  // Before the windows: the composition targets live on them.
  video_topology_.TearDown();
}

void NativeLiveWindowPlugin::ForEachWindow(const std::function<void(NativeLiveWindow&)>& action) {
  for (auto& entry : windows_) {
    if (entry.second) {
      action(*entry.second);
    }
  }
}

void NativeLiveWindowPlugin::CloseWindow(const std::string& display_id) {
  const auto it = windows_.find(display_id);
  if (it != windows_.end()) {
    if (it->second) {
      it->second->Close();
    }
    windows_.erase(it);
  }
}

void NativeLiveWindowPlugin::CloseAllWindows() {
  ForEachWindow([](NativeLiveWindow& window) { window.Close(); });
  windows_.clear();
}

// ---------------------------------------------------------------------------------------------
// Events

void NativeLiveWindowPlugin::SendExitRequested(const std::string& display_id) {
  channel_->InvokeMethod("onExitRequested",
                         std::make_unique<EncodableValue>(EncodableMap{
                             {EncodableValue("displayId"), EncodableValue(display_id)}}));
  OutputDebugStringW(L"Kestrun: Exit requested from display window, notifying Flutter\n");
}

void NativeLiveWindowPlugin::SendIntervalControl(const std::string& action) {
  channel_->InvokeMethod("onIntervalControl",
                         std::make_unique<EncodableValue>(
                             EncodableMap{{EncodableValue("action"), EncodableValue(action)}}));
  OutputDebugStringW(L"Kestrun: Interval control from display window, notifying Flutter\n");
}

void NativeLiveWindowPlugin::SendHudToggle() {
  channel_->InvokeMethod("onHudToggle", nullptr);
  OutputDebugStringW(L"Kestrun: HUD toggle from display window, notifying Flutter\n");
}

// ---------------------------------------------------------------------------------------------
// Methods

void NativeLiveWindowPlugin::InitializeLogger(const EncodableValue* arguments,
                                              std::unique_ptr<Result> result) {
  const EncodableMap* args = ArgumentMap(arguments);
  if (args == nullptr) {
    ReplyExpectedMap(std::move(result));
    return;
  }
  const EncodableValue* directory = Lookup(*args, "logDirectory");
  if (directory == nullptr) {
    result->Error("INVALID_ARGS", "Missing 'logDirectory' argument");
    return;
  }
  Logger& logger = Logger::Instance();
  logger.Initialize(std::get<std::string>(*directory));
  logger.Info("NATIVE", "Native file logger initialized");
  ReplySuccess(std::move(result));
}

void NativeLiveWindowPlugin::ShowForDisplay(const EncodableValue* arguments,
                                            std::unique_ptr<Result> result) {
  const std::string* display_id = nullptr;
  const EncodableMap* args = DisplayArguments(arguments, result, &display_id);
  if (args == nullptr) {
    return;
  }
  DisplayRecord display;
  display.id = *display_id;
  display.name = StringOr(*args, "name", std::string());
  display.x = Int32Or(*args, "x", 0);
  display.y = Int32Or(*args, "y", 0);
  display.width = Int32Or(*args, "width", 0);
  display.height = Int32Or(*args, "height", 0);
  display.is_primary = BoolOr(*args, "isPrimary", false);

  // One window per display: a second show replaces the first.
  CloseWindow(display.id);

  std::unique_ptr<NativeLiveWindow> window = window_factory_();
  if (!window) {
    result->Error("SHOW_FAILED", "Failed to create native window");
    return;
  }
  window->SetExitCallback([this, id = display.id] { SendExitRequested(id); });
  window->SetIntervalCallback([this](const std::string& action) { SendIntervalControl(action); });
  window->SetHudToggleCallback([this] { SendHudToggle(); });

  // The window reports through this once; a further report is ignored so that the call is
  // answered exactly once.
  std::shared_ptr<Result> shared_result(std::move(result));
  auto answered = std::make_shared<std::atomic<bool>>(false);
  NativeLiveWindow::CreateCallback completion = [shared_result, answered](
                                                    bool success, const std::string& error) {
    if (answered->exchange(true)) {
      return;
    }
    if (success) {
      shared_result->Success(EncodableValue(true));
    } else {
      shared_result->Error("SHOW_FAILED", error);
    }
  };

  NativeLiveWindow* raw_window = window.get();
  windows_[display.id] = std::move(window);
  raw_window->CreateOnDisplays({display}, completion);
}

void NativeLiveWindowPlugin::CloseForDisplay(const EncodableValue* arguments,
                                             std::unique_ptr<Result> result) {
  const std::string* display_id = nullptr;
  const EncodableMap* args = DisplayArguments(arguments, result, &display_id);
  if (args == nullptr) {
    return;
  }
  CloseWindow(*display_id);
  ReplySuccess(std::move(result));
}

void NativeLiveWindowPlugin::CloseAll(const EncodableValue* /*arguments*/,
                                      std::unique_ptr<Result> result) {
  TearDownVideoTopology();
  CloseAllWindows();
  ReplySuccess(std::move(result));
}

void NativeLiveWindowPlugin::ForDisplay(const EncodableValue* arguments,
                                        std::unique_ptr<Result> result,
                                        const std::function<void(NativeLiveWindow&)>& action) {
  const std::string* display_id = nullptr;
  const EncodableMap* args = DisplayArguments(arguments, result, &display_id);
  if (args == nullptr) {
    return;
  }
  if (NativeLiveWindow* window = FindWindow(*display_id)) {
    action(*window);
  }
  ReplySuccess(std::move(result));
}

void NativeLiveWindowPlugin::BlankForDisplay(const EncodableValue* arguments,
                                             std::unique_ptr<Result> result) {
  ForDisplay(arguments, std::move(result), [](NativeLiveWindow& window) { window.Blank(); });
}

void NativeLiveWindowPlugin::UnblankForDisplay(const EncodableValue* arguments,
                                               std::unique_ptr<Result> result) {
  ForDisplay(arguments, std::move(result), [](NativeLiveWindow& window) { window.Unblank(); });
}

void NativeLiveWindowPlugin::BlankAll(const EncodableValue* /*arguments*/,
                                      std::unique_ptr<Result> result) {
  ForEachWindow([](NativeLiveWindow& window) { window.Blank(); });
  ReplySuccess(std::move(result));
}

void NativeLiveWindowPlugin::UnblankAll(const EncodableValue* /*arguments*/,
                                        std::unique_ptr<Result> result) {
  ForEachWindow([](NativeLiveWindow& window) { window.Unblank(); });
  ReplySuccess(std::move(result));
}

void NativeLiveWindowPlugin::FadeToBlackForDisplay(const EncodableValue* arguments,
                                                   std::unique_ptr<Result> result) {
  FadeForDisplay(true, arguments, std::move(result));
}

void NativeLiveWindowPlugin::FadeFromBlackForDisplay(const EncodableValue* arguments,
                                                     std::unique_ptr<Result> result) {
  FadeForDisplay(false, arguments, std::move(result));
}

void NativeLiveWindowPlugin::FadeForDisplay(bool to_black, const EncodableValue* arguments,
                                            std::unique_ptr<Result> result) {
  const EncodableMap* args = ArgumentMap(arguments);
  if (args == nullptr) {
    ReplyExpectedMap(std::move(result));
    return;
  }
  // These two methods answer in lower case: the interface matches on these codes.
  const EncodableValue* id = Lookup(*args, "displayId");
  const std::string* display_id = id != nullptr ? std::get_if<std::string>(id) : nullptr;
  if (display_id == nullptr || display_id->empty()) {
    result->Error("invalid_args", "displayId is required");
    return;
  }
  NativeLiveWindow* window = FindWindow(*display_id);
  if (window == nullptr) {
    result->Error("not_found", "No window found for display: " + *display_id);
    return;
  }
  const std::int32_t duration_ms = Int32Or(*args, "duration", kDefaultFadeDurationMs);
  const std::int32_t request_id = deferred_replies_.Park(std::move(result));
  const NativeLiveWindow::FadeCallback completion = deferred_replies_.CompletionAfter(request_id);
  if (to_black) {
    window->FadeToBlack(duration_ms, completion);
  } else {
    window->FadeFromBlack(duration_ms, completion);
  }
}

void NativeLiveWindowPlugin::FadeToBlackAll(const EncodableValue* arguments,
                                            std::unique_ptr<Result> result) {
  FadeAll(true, arguments, std::move(result));
}

void NativeLiveWindowPlugin::FadeFromBlackAll(const EncodableValue* arguments,
                                              std::unique_ptr<Result> result) {
  FadeAll(false, arguments, std::move(result));
}

void NativeLiveWindowPlugin::FadeAll(bool to_black, const EncodableValue* arguments,
                                     std::unique_ptr<Result> result) {
  // The argument map and its duration are both optional.
  const EncodableMap* args = ArgumentMap(arguments);
  const std::int32_t duration_ms =
      args != nullptr ? Int32Or(*args, "duration", kDefaultFadeDurationMs) : kDefaultFadeDurationMs;
  std::vector<NativeLiveWindow*> windows;
  ForEachWindow([&windows](NativeLiveWindow& window) { windows.push_back(&window); });
  if (windows.empty()) {
    ReplySuccess(std::move(result));
    return;
  }
  // One completion shared by every window: the reply goes once the last fade has ended.
  const std::int32_t request_id = deferred_replies_.Park(std::move(result));
  const NativeLiveWindow::FadeCallback completion =
      deferred_replies_.CompletionAfter(request_id, static_cast<std::int32_t>(windows.size()));
  for (NativeLiveWindow* window : windows) {
    if (to_black) {
      window->FadeToBlack(duration_ms, completion);
    } else {
      window->FadeFromBlack(duration_ms, completion);
    }
  }
}

void NativeLiveWindowPlugin::LoadImageForDisplay(const EncodableValue* arguments,
                                                 std::unique_ptr<Result> result) {
  const std::string* display_id = nullptr;
  const EncodableMap* args = DisplayArguments(arguments, result, &display_id);
  if (args == nullptr) {
    return;
  }
  NativeLiveWindow* window = FindWindow(*display_id);
  if (window == nullptr || window->GetHwnd() == nullptr) {
    result->Error("NOT_SHOWING", "Window for display is not showing");
    return;
  }
  const EncodableValue* path_value = Lookup(*args, "path");
  if (path_value == nullptr) {
    result->Error("INVALID_ARGS", "Missing 'path' argument");
    return;
  }
  const std::string& path = std::get<std::string>(*path_value);
  const std::int32_t fit_mode = Int32Or(*args, "fitMode", 0);

  // An animation first; one the window refuses (or any other file) goes the still way, which
  // for a GIF shows its first frame.
  if (image_decoder_.DecodeAnimatedGif(path)) {
    const AnimatedImage& animation = image_decoder_.animated_image();
    if (window->ShowAnimatedImage(animation.frames, animation.delays_ms,
                                  static_cast<std::int32_t>(animation.canvas_width),
                                  static_cast<std::int32_t>(animation.canvas_height), fit_mode)) {
      window->RestartRenderLoop();
      ReplySuccess(std::move(result));
      return;
    }
  }
  if (!image_decoder_.DecodeImage(path)) {
    result->Error("DECODE_FAILED", "Failed to decode image");
    return;
  }
  const DecodedImage& image = image_decoder_.decoded_image();
  if (!window->ShowImageFromPixels(image.pixels, static_cast<std::int32_t>(image.width),
                                   static_cast<std::int32_t>(image.height), fit_mode)) {
    result->Error("LOAD_FAILED", "Failed to load image");
    return;
  }
  window->RestartRenderLoop();
  ReplySuccess(std::move(result));
}

void NativeLiveWindowPlugin::StopImageForDisplay(const EncodableValue* arguments,
                                                 std::unique_ptr<Result> result) {
  ForDisplay(arguments, std::move(result), [](NativeLiveWindow& window) { window.ClearContent(); });
}

void NativeLiveWindowPlugin::SetCropRectForDisplay(const EncodableValue* arguments,
                                                   std::unique_ptr<Result> result) {
  const std::string* display_id = nullptr;
  const EncodableMap* args = DisplayArguments(arguments, result, &display_id);
  if (args == nullptr) {
    return;
  }
  const EncodableValue* left = Lookup(*args, "left");
  const EncodableValue* top = Lookup(*args, "top");
  const EncodableValue* width = Lookup(*args, "width");
  const EncodableValue* height = Lookup(*args, "height");
  const EncodableValue* canvas_width = Lookup(*args, "canvasWidth");
  const EncodableValue* canvas_height = Lookup(*args, "canvasHeight");
  if (left == nullptr || top == nullptr || width == nullptr || height == nullptr ||
      canvas_width == nullptr || canvas_height == nullptr) {
    result->Error("INVALID_ARGS", "Missing crop rect arguments");
    return;
  }
  const float x = static_cast<float>(std::get<double>(*left));
  const float y = static_cast<float>(std::get<double>(*top));
  const float w = static_cast<float>(std::get<double>(*width));
  const float h = static_cast<float>(std::get<double>(*height));
  const std::int32_t canvas_w = std::get<std::int32_t>(*canvas_width);
  const std::int32_t canvas_h = std::get<std::int32_t>(*canvas_height);
  if (NativeLiveWindow* window = FindWindow(*display_id)) {
    window->SetCropRect(x, y, w, h, canvas_w, canvas_h);
  }
  ReplySuccess(std::move(result));
}

void NativeLiveWindowPlugin::ClearCropRectForDisplay(const EncodableValue* arguments,
                                                     std::unique_ptr<Result> result) {
  ForDisplay(arguments, std::move(result),
             [](NativeLiveWindow& window) { window.ClearCropRect(); });
}

}  // namespace native_live_window
