// The live output plugin: the interface's single entry into live output.
//
// Owns the method channel "com.kestrun.native_live_window", the output windows keyed by display
// id, the decoded image buffers and the deferred replies of fades. Every method call, reply and
// event runs on the platform thread; fades finish on render threads and are answered through
// DeferredReplies.
//
// Events sent to the interface on the same channel, no reply expected:
//   "onExitRequested" {displayId}   the audience window asks to leave live output
//   "onIntervalControl" {action}    arrows and digits on an output window
//   "onHudToggle" (null)            Ctrl+Shift+H on an output window

#ifndef KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_H_
#define KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_H_

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "encodable_value.h"
#include "live_output/images/image_decoder.h"
#include "live_output/window/native_live_window.h"
#include "live_output/native_live_window_plugin_deferred_replies.h"
#include "live_output/video/video_topology.h"
#include "method_call.h"
#include "method_channel.h"
#include "method_result.h"
#include "plugin.h"
#include "plugin_registrar_windows.h"

namespace native_live_window {

class NativeLiveWindowPlugin : public flutter::Plugin {
 public:
  using MethodCall = flutter::MethodCall<flutter::EncodableValue>;
  using Result = flutter::MethodResult<flutter::EncodableValue>;
  // Makes the output window for one "showForDisplay".
  using WindowFactory = std::function<std::unique_ptr<NativeLiveWindow>()>;

  static constexpr const char* kChannelName = "com.kestrun.native_live_window";

  // Creates the plugin on `registrar` and hands it to the registrar, which owns it from then on.
  static void RegisterWithRegistrar(flutter::PluginRegistrarWindows* registrar);

  // A plugin whose output windows come from `window_factory` (empty: plain NativeLiveWindow).
  NativeLiveWindowPlugin(flutter::PluginRegistrarWindows* registrar,
                         WindowFactory window_factory = nullptr);
  // Tears down as "closeAll" does (without replying), then the callback window. Fades still
  // running are never answered.
  ~NativeLiveWindowPlugin() override;

  NativeLiveWindowPlugin(const NativeLiveWindowPlugin&) = delete;
  NativeLiveWindowPlugin& operator=(const NativeLiveWindowPlugin&) = delete;

  // Dispatches one call from the interface. A required argument of the wrong kind is a contract
  // violation that ends the process (no reply is sent).
  void HandleMethodCall(const MethodCall& call, std::unique_ptr<Result> result) noexcept;

  // State for tests.
  std::size_t window_count() const { return windows_.size(); }
  const DeferredReplies& deferred_replies() const { return deferred_replies_; }
  const ImageDecoder& image_decoder() const { return image_decoder_; }
  VideoTopology& video_topology() { return video_topology_; }

 private:
  using Handler = void (NativeLiveWindowPlugin::*)(const flutter::EncodableValue* arguments,
                                                   std::unique_ptr<Result> result);
  static const std::map<std::string, Handler>& Handlers();

  // The window registered for the display, or null.
  NativeLiveWindow* FindWindow(const std::string& display_id) const;
  // Runs `action` on every registered window.
  void ForEachWindow(const std::function<void(NativeLiveWindow&)>& action);
  // Closes the display's window, if any, and removes its entry.
  void CloseWindow(const std::string& display_id);
  void CloseAllWindows();
  void TearDownVideoTopology();

  // Events to the interface.
  void SendExitRequested(const std::string& display_id);
  void SendIntervalControl(const std::string& action);
  void SendHudToggle();

  void InitializeLogger(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void ShowForDisplay(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void CloseForDisplay(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void CloseAll(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void BlankForDisplay(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void UnblankForDisplay(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void BlankAll(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void UnblankAll(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void FadeToBlackForDisplay(const flutter::EncodableValue* arguments,
                             std::unique_ptr<Result> result);
  void FadeFromBlackForDisplay(const flutter::EncodableValue* arguments,
                               std::unique_ptr<Result> result);
  void FadeToBlackAll(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void FadeFromBlackAll(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void LoadImageForDisplay(const flutter::EncodableValue* arguments,
                           std::unique_ptr<Result> result);
  void StopImageForDisplay(const flutter::EncodableValue* arguments,
                           std::unique_ptr<Result> result);
  void SetCropRectForDisplay(const flutter::EncodableValue* arguments,
                             std::unique_ptr<Result> result);
  void ClearCropRectForDisplay(const flutter::EncodableValue* arguments,
                               std::unique_ptr<Result> result);

  // Webpage rows (native_live_window_plugin_webpages.cpp).
  void LoadWebpageForDisplay(const flutter::EncodableValue* arguments,
                             std::unique_ptr<Result> result);
  void ReloadWebpageForDisplay(const flutter::EncodableValue* arguments,
                               std::unique_ptr<Result> result);
  void StopWebpageForDisplay(const flutter::EncodableValue* arguments,
                             std::unique_ptr<Result> result);

  // Video rows (native_live_window_plugin_video.cpp).
  void SetVideoTopology(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void SetVolumeForDisplay(const flutter::EncodableValue* arguments,
                           std::unique_ptr<Result> result);
  void GetPositionForDisplay(const flutter::EncodableValue* arguments,
                             std::unique_ptr<Result> result);
  void SeekToForDisplay(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void SeekToAll(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void SetVideoPausedForDisplay(const flutter::EncodableValue* arguments,
                                std::unique_ptr<Result> result);
  void SetVideoPausedAll(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);
  void SetVideoOpacity(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result);

  void FadeForDisplay(bool to_black, const flutter::EncodableValue* arguments,
                      std::unique_ptr<Result> result);
  void FadeAll(bool to_black, const flutter::EncodableValue* arguments,
               std::unique_ptr<Result> result);
  // Runs `action` on the display's window if one is registered; replies success either way.
  void ForDisplay(const flutter::EncodableValue* arguments, std::unique_ptr<Result> result,
                  const std::function<void(NativeLiveWindow&)>& action);

  flutter::PluginRegistrarWindows* registrar_;
  std::unique_ptr<flutter::MethodChannel<flutter::EncodableValue>> channel_;
  WindowFactory window_factory_;
  // Output windows by display id (compared bytewise). An entry may hold null; every use checks.
  std::map<std::string, std::unique_ptr<NativeLiveWindow>> windows_;
  // The last still and animated decodes of "loadImageForDisplay".
  ImageDecoder image_decoder_;
  DeferredReplies deferred_replies_;
  // Shared device, composition coordinator and decoders of "setVideoTopology".
  VideoTopology video_topology_;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_H_
