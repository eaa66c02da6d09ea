// The webpage rows of the live output channel: "loadWebpageForDisplay",
// "reloadWebpageForDisplay" and "stopWebpageForDisplay".
#include <string>
#include <utility>
#include <variant>

#include "live_output/native_live_window_plugin.h"

namespace native_live_window {

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;

// The value under `key`, or null when the key is absent or holds null.
const EncodableValue* Lookup(const EncodableMap& map, const char* key) {
  const auto it = map.find(EncodableValue(key));
  return it == map.end() || it->second.IsNull() ? nullptr : &it->second;
}

}  // namespace

void NativeLiveWindowPlugin::LoadWebpageForDisplay(const EncodableValue* arguments,
                                                   std::unique_ptr<Result> result) {
  const EncodableMap* args =
      arguments != nullptr ? std::get_if<EncodableMap>(arguments) : nullptr;
  if (args == nullptr) {
    result->Error("INVALID_ARGS", "Expected map argument");
    return;
  }
  const EncodableValue* id = Lookup(*args, "displayId");
  if (id == nullptr) {
    result->Error("INVALID_ARGS", "Missing 'displayId' argument");
    return;
  }
  // A value of another kind is a contract violation that ends the process (std::get raises).
  const std::string& display_id = std::get<std::string>(*id);
  NativeLiveWindow* window = FindWindow(display_id);
  if (window == nullptr) {
    result->Error("NOT_FOUND", "No window for display: " + display_id);
    return;
  }
  const EncodableValue* url = Lookup(*args, "url");
  if (url == nullptr) {
    result->Error("INVALID_ARGS", "Missing 'url' argument");
    return;
  }
  const EncodableValue* local = Lookup(*args, "isLocalFile");
  const bool is_local_file = local != nullptr ? std::get<bool>(*local) : false;
  if (!window->LoadWebpage(std::get<std::string>(*url), is_local_file)) {
    result->Error("LOAD_FAILED", "Failed to load webpage");
    return;
  }
  window->RestartRenderLoop();
  result->Success(EncodableValue(true));
}

void NativeLiveWindowPlugin::ReloadWebpageForDisplay(const EncodableValue* arguments,
                                                     std::unique_ptr<Result> result) {
  ForDisplay(arguments, std::move(result),
             [](NativeLiveWindow& window) { window.ReloadWebpage(); });
}

void NativeLiveWindowPlugin::StopWebpageForDisplay(const EncodableValue* arguments,
                                                   std::unique_ptr<Result> result) {
  ForDisplay(arguments, std::move(result), [](NativeLiveWindow& window) { window.StopWebpage(); });
}

}  // namespace native_live_window
