// The web view plugin: browser views (NativeWebView) placed over the main window by the
// interface, on the channel "kestrun/native_webview".
//
// Each call names a view by its optional "id" argument ("default" when absent). A view is in the
// registry from a successful "initialize" until "dispose" or "disposeAll"; while it is still
// initialising, another "initialize", "dispose" or "disposeAll" of its id drops it and answers
// its "initialize" with INIT_FAILED. A view whose browser process exited answers every call with
// NOT_INITIALIZED until "initialize" makes a new one; a capture in flight when its view goes is
// answered CAPTURE_FAILED. An "id" of another kind than string is answered INVALID_ARGS. Every
// call and reply runs on the platform thread.

#ifndef KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_PLUGIN_H_
#define KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_PLUGIN_H_

#include <windows.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

#include "embedded_webview/native_webview.h"
#include "encodable_value.h"
#include "method_call.h"
#include "method_channel.h"
#include "method_result.h"
#include "plugin.h"
#include "plugin_registrar_windows.h"

namespace native_webview {

class NativeWebViewPlugin : public flutter::Plugin {
 public:
  using MethodCall = flutter::MethodCall<flutter::EncodableValue>;
  using Result = flutter::MethodResult<flutter::EncodableValue>;
  // The window views are made in; null when there is none.
  using WindowSource = std::function<HWND()>;

  static constexpr const char* kChannelName = "kestrun/native_webview";

  // Creates the plugin on `registrar` and hands it to the registrar, which owns it from then on.
  static void RegisterWithRegistrar(flutter::PluginRegistrarWindows* registrar);

  // Views are made in `window` (empty: the engine view's window of the registrar).
  explicit NativeWebViewPlugin(flutter::PluginRegistrarWindows* registrar,
                               WindowSource window = nullptr);
  ~NativeWebViewPlugin() override;

  NativeWebViewPlugin(const NativeWebViewPlugin&) = delete;
  NativeWebViewPlugin& operator=(const NativeWebViewPlugin&) = delete;

  void HandleMethodCall(const MethodCall& call, std::unique_ptr<Result> result);

  // Registered views, for tests.
  std::size_t view_count() const { return views_.size(); }

 private:
  // A view whose "initialize" has not been answered yet.
  struct Initializing {
    std::unique_ptr<NativeWebView> view;
    std::shared_ptr<std::unique_ptr<Result>> reply;
  };
  using Handler = void (NativeWebViewPlugin::*)(const flutter::EncodableValue* arguments,
                                                const std::string& id,
                                                std::unique_ptr<Result> result);
  static const std::map<std::string, Handler>& Handlers();

  // The registered view, or null after answering NOT_INITIALIZED.
  NativeWebView* Find(const std::string& id, std::unique_ptr<Result>& result);
  // Drops the view of `id`, registered or still initialising.
  void Drop(const std::string& id);
  void OnInitialized(const std::string& id, NativeWebView* view, bool success,
                     const std::string& error);

  void Initialize(const flutter::EncodableValue* arguments, const std::string& id,
                  std::unique_ptr<Result> result);
  void Navigate(const flutter::EncodableValue* arguments, const std::string& id,
                std::unique_ptr<Result> result);
  void NavigateToFile(const flutter::EncodableValue* arguments, const std::string& id,
                      std::unique_ptr<Result> result);
  void Reload(const flutter::EncodableValue* arguments, const std::string& id,
              std::unique_ptr<Result> result);
  void SetBounds(const flutter::EncodableValue* arguments, const std::string& id,
                 std::unique_ptr<Result> result);
  void SetVisible(const flutter::EncodableValue* arguments, const std::string& id,
                  std::unique_ptr<Result> result);
  void SetZoom(const flutter::EncodableValue* arguments, const std::string& id,
               std::unique_ptr<Result> result);
  void CaptureScreenshot(const flutter::EncodableValue* arguments, const std::string& id,
                         std::unique_ptr<Result> result);
  void Dispose(const flutter::EncodableValue* arguments, const std::string& id,
               std::unique_ptr<Result> result);
  void DisposeAll(const flutter::EncodableValue* arguments, const std::string& id,
                  std::unique_ptr<Result> result);

  std::unique_ptr<flutter::MethodChannel<flutter::EncodableValue>> channel_;
  WindowSource window_;
  std::unordered_map<std::string, std::unique_ptr<NativeWebView>> views_;
  std::unordered_map<std::string, Initializing> initializing_;
};

}  // namespace native_webview

#endif  // KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_PLUGIN_H_
