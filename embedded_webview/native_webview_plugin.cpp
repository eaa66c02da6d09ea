#include "embedded_webview/native_webview_plugin.h"

#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "standard_method_codec.h"

namespace native_webview {

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using Result = flutter::MethodResult<EncodableValue>;

constexpr char kDefaultId[] = "default";

const EncodableMap* ArgumentMap(const EncodableValue* arguments) {
  return arguments != nullptr ? std::get_if<EncodableMap>(arguments) : nullptr;
}

// The value under `key`, or null when the key is absent or holds null.
const EncodableValue* Lookup(const EncodableMap* map, const char* key) {
  if (map == nullptr) {
    return nullptr;
  }
  const auto it = map->find(EncodableValue(key));
  return it == map->end() || it->second.IsNull() ? nullptr : &it->second;
}

// The value under `key`, null only when the key is absent: a required value sent as null is
// there, of the wrong kind.
const EncodableValue* Present(const EncodableMap* map, const char* key) {
  if (map == nullptr) {
    return nullptr;
  }
  const auto it = map->find(EncodableValue(key));
  return it == map->end() ? nullptr : &it->second;
}

// A number of any of the channel's kinds, as a double.
std::optional<double> Number(const EncodableValue* value) {
  if (value == nullptr) {
    return std::nullopt;
  }
  if (const auto* i = std::get_if<std::int32_t>(value)) {
    return static_cast<double>(*i);
  }
  if (const auto* l = std::get_if<std::int64_t>(value)) {
    return static_cast<double>(*l);
  }
  if (const auto* d = std::get_if<double>(value)) {
    return *d;
  }
  return std::nullopt;
}

// Truncated toward zero into 32 bits (saturating, so that no value is undefined).
std::int32_t Truncate(double value) {
  if (std::isnan(value)) {
    return 0;
  }
  const double truncated = std::trunc(value);
  if (truncated >= 2147483647.0) {
    return INT32_MAX;
  }
  if (truncated <= -2147483648.0) {
    return INT32_MIN;
  }
  return static_cast<std::int32_t>(truncated);
}

void ReplyDone(std::unique_ptr<Result> result) { result->Success(); }

// The string under `key` of a map argument: answers the three argument errors of a required
// string and gives null when one was sent.
const std::string* RequiredString(const EncodableValue* arguments, const char* key,
                                  std::unique_ptr<Result>& result) {
  const EncodableMap* map = ArgumentMap(arguments);
  if (map == nullptr) {
    result->Error("INVALID_ARGS", "Arguments required");
    return nullptr;
  }
  const EncodableValue* value = Present(map, key);
  if (value == nullptr) {
    result->Error("INVALID_ARGS", std::string(key) + " argument required");
    return nullptr;
  }
  const auto* text = std::get_if<std::string>(value);
  if (text == nullptr) {
    result->Error("INVALID_ARGS", std::string(key) + " must be a string");
  }
  return text;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Registration and dispatch

void NativeWebViewPlugin::RegisterWithRegistrar(flutter::PluginRegistrarWindows* registrar) {
  registrar->AddPlugin(std::make_unique<NativeWebViewPlugin>(registrar));
}

NativeWebViewPlugin::NativeWebViewPlugin(flutter::PluginRegistrarWindows* registrar,
                                         WindowSource window)
    : window_(std::move(window)) {
  if (!window_) {
    window_ = [registrar]() -> HWND {
      flutter::FlutterView* view = registrar->GetView();
      return view != nullptr ? view->GetNativeWindow() : nullptr;
    };
  }
  channel_ = std::make_unique<flutter::MethodChannel<EncodableValue>>(
      registrar->messenger(), kChannelName, &flutter::StandardMethodCodec::GetInstance());
  channel_->SetMethodCallHandler([this](const MethodCall& call, std::unique_ptr<Result> result) {
    HandleMethodCall(call, std::move(result));
  });
}

NativeWebViewPlugin::~NativeWebViewPlugin() {
  channel_->SetMethodCallHandler(nullptr);
  // Views still initialising go unanswered, as every reply does once the channel is gone.
  initializing_.clear();
  views_.clear();
}

void NativeWebViewPlugin::HandleMethodCall(const MethodCall& call, std::unique_ptr<Result> result) {
  const auto& handlers = Handlers();
  const auto it = handlers.find(call.method_name());
  if (it == handlers.end()) {
    result->NotImplemented();
    return;
  }
  const EncodableValue* id_value = Lookup(ArgumentMap(call.arguments()), "id");
  const auto* id = id_value != nullptr ? std::get_if<std::string>(id_value) : nullptr;
  if (id_value != nullptr && id == nullptr && it->second != &NativeWebViewPlugin::DisposeAll) {
    // Never taken for "default": that would act on another view.
    result->Error("INVALID_ARGS", "id must be a string");
    return;
  }
  (this->*(it->second))(call.arguments(), id != nullptr ? *id : std::string(kDefaultId),
                        std::move(result));
}

const std::map<std::string, NativeWebViewPlugin::Handler>& NativeWebViewPlugin::Handlers() {
  static const std::map<std::string, Handler> handlers = {
      {"initialize", &NativeWebViewPlugin::Initialize},
      {"navigate", &NativeWebViewPlugin::Navigate},
      {"navigateToFile", &NativeWebViewPlugin::NavigateToFile},
      {"reload", &NativeWebViewPlugin::Reload},
      {"setBounds", &NativeWebViewPlugin::SetBounds},
      {"setVisible", &NativeWebViewPlugin::SetVisible},
      {"setZoom", &NativeWebViewPlugin::SetZoom},
      {"captureScreenshot", &NativeWebViewPlugin::CaptureScreenshot},
      {"dispose", &NativeWebViewPlugin::Dispose},
      {"disposeAll", &NativeWebViewPlugin::DisposeAll},
  };
  return handlers;
}

NativeWebView* NativeWebViewPlugin::Find(const std::string& id, std::unique_ptr<Result>& result) {
  const auto it = views_.find(id);
  if (it == views_.end() || !it->second) {
    result->Error("NOT_INITIALIZED", "WebView not initialized for id: " + id);
    return nullptr;
  }
  if (it->second->browser_exited()) {
    // The browser closed the view: "initialize" makes a new one.
    result->Error("NOT_INITIALIZED", "WebView browser process exited for id: " + id);
    return nullptr;
  }
  return it->second.get();
}

void NativeWebViewPlugin::Drop(const std::string& id) {
  views_.erase(id);
  const auto it = initializing_.find(id);
  if (it == initializing_.end()) {
    return;
  }
  std::shared_ptr<std::unique_ptr<Result>> reply = it->second.reply;
  initializing_.erase(it);
  if (reply && *reply) {
    (*reply)->Error("INIT_FAILED", "WebView disposed before it was ready");
    reply->reset();
  }
}

// ---------------------------------------------------------------------------------------------
// Methods

void NativeWebViewPlugin::Initialize(const EncodableValue* /*arguments*/, const std::string& id,
                                     std::unique_ptr<Result> result) {
  const HWND window = window_();
  if (window == nullptr) {
    result->Error("NO_WINDOW", "Could not get Flutter window handle");
    return;
  }
  // A new view replaces whatever the id named.
  Drop(id);
  Initializing& entry = initializing_[id];
  entry.view = std::make_unique<NativeWebView>();
  entry.reply = std::make_shared<std::unique_ptr<Result>>(std::move(result));
  NativeWebView* view = entry.view.get();
  view->Initialize(window, [this, id, view](bool success, const std::string& error) {
    OnInitialized(id, view, success, error);
  });
}

void NativeWebViewPlugin::OnInitialized(const std::string& id, NativeWebView* view, bool success,
                                        const std::string& error) {
  const auto it = initializing_.find(id);
  if (it == initializing_.end() || it->second.view.get() != view) {
    return;
  }
  std::unique_ptr<NativeWebView> owned = std::move(it->second.view);
  std::unique_ptr<Result> result = std::move(*it->second.reply);
  initializing_.erase(it);
  if (success) {
    views_[id] = std::move(owned);
    ReplyDone(std::move(result));
  } else {
    // Destroyed from inside its own callback: NativeWebView touches nothing after calling it.
    owned.reset();
    result->Error("INIT_FAILED", error);
  }
}

void NativeWebViewPlugin::Navigate(const EncodableValue* arguments, const std::string& id,
                                   std::unique_ptr<Result> result) {
  const std::string* url = RequiredString(arguments, "url", result);
  if (url == nullptr) {
    return;
  }
  if (NativeWebView* view = Find(id, result)) {
    view->Navigate(*url);
    ReplyDone(std::move(result));
  }
}

void NativeWebViewPlugin::NavigateToFile(const EncodableValue* arguments, const std::string& id,
                                         std::unique_ptr<Result> result) {
  const std::string* path = RequiredString(arguments, "path", result);
  if (path == nullptr) {
    return;
  }
  if (NativeWebView* view = Find(id, result)) {
    view->NavigateToFile(*path);
    ReplyDone(std::move(result));
  }
}

void NativeWebViewPlugin::Reload(const EncodableValue* /*arguments*/, const std::string& id,
                                 std::unique_ptr<Result> result) {
  if (NativeWebView* view = Find(id, result)) {
    view->Reload();
    ReplyDone(std::move(result));
  }
}

void NativeWebViewPlugin::SetBounds(const EncodableValue* arguments, const std::string& id,
                                    std::unique_ptr<Result> result) {
  const EncodableMap* map = ArgumentMap(arguments);
  if (map == nullptr) {
    result->Error("INVALID_ARGS", "Arguments required");
    return;
  }
  const std::optional<double> x = Number(Lookup(map, "x"));
  const std::optional<double> y = Number(Lookup(map, "y"));
  const std::optional<double> width = Number(Lookup(map, "width"));
  const std::optional<double> height = Number(Lookup(map, "height"));
  if (!x || !y || !width || !height) {
    result->Error("INVALID_ARGS", "x, y, width, height arguments required");
    return;
  }
  if (NativeWebView* view = Find(id, result)) {
    view->SetBounds(Truncate(*x), Truncate(*y), Truncate(*width), Truncate(*height));
    ReplyDone(std::move(result));
  }
}

void NativeWebViewPlugin::SetVisible(const EncodableValue* arguments, const std::string& id,
                                     std::unique_ptr<Result> result) {
  const EncodableMap* map = ArgumentMap(arguments);
  if (map == nullptr) {
    result->Error("INVALID_ARGS", "Arguments required");
    return;
  }
  const EncodableValue* value = Present(map, "visible");
  if (value == nullptr) {
    result->Error("INVALID_ARGS", "visible argument required");
    return;
  }
  const bool* visible = std::get_if<bool>(value);
  if (visible == nullptr) {
    result->Error("INVALID_ARGS", "visible must be a boolean");
    return;
  }
  if (NativeWebView* view = Find(id, result)) {
    view->SetVisible(*visible);
    ReplyDone(std::move(result));
  }
}

void NativeWebViewPlugin::SetZoom(const EncodableValue* arguments, const std::string& id,
                                  std::unique_ptr<Result> result) {
  const EncodableMap* map = ArgumentMap(arguments);
  if (map == nullptr) {
    result->Error("INVALID_ARGS", "Arguments required");
    return;
  }
  const std::optional<double> zoom = Number(Lookup(map, "zoom"));
  if (!zoom) {
    result->Error("INVALID_ARGS", "zoom argument required");
    return;
  }
  if (NativeWebView* view = Find(id, result)) {
    view->SetZoom(*zoom);
    ReplyDone(std::move(result));
  }
}

void NativeWebViewPlugin::CaptureScreenshot(const EncodableValue* /*arguments*/,
                                            const std::string& id,
                                            std::unique_ptr<Result> result) {
  NativeWebView* view = Find(id, result);
  if (view == nullptr) {
    return;
  }
  // Shared so that whichever path answers takes it: the capture's completion, or the failure to
  // start one.
  auto reply = std::make_shared<std::unique_ptr<Result>>(std::move(result));
  const bool started =
      view->CaptureScreenshot([reply](bool success, std::vector<std::uint8_t> png) {
        if (!*reply) {
          return;
        }
        if (success) {
          (*reply)->Success(EncodableValue(std::move(png)));
        } else {
          (*reply)->Error("CAPTURE_FAILED", "Failed to capture screenshot");
        }
        reply->reset();
      });
  if (!started && *reply) {
    (*reply)->Error("CAPTURE_FAILED", "Failed to capture screenshot");
    reply->reset();
  }
}

void NativeWebViewPlugin::Dispose(const EncodableValue* /*arguments*/, const std::string& id,
                                  std::unique_ptr<Result> result) {
  Drop(id);
  ReplyDone(std::move(result));
}

void NativeWebViewPlugin::DisposeAll(const EncodableValue* /*arguments*/,
                                     const std::string& /*id*/, std::unique_ptr<Result> result) {
  std::vector<std::string> ids;
  for (const auto& entry : initializing_) {
    ids.push_back(entry.first);
  }
  for (const std::string& id : ids) {
    Drop(id);
  }
  views_.clear();
  ReplyDone(std::move(result));
}

}  // namespace native_webview
