// The display plugin: lists the monitors on "com.kestrun.kestrun_display" and signals changes of
// the monitor arrangement on "com.kestrun.kestrun_display/events".
#ifndef KESTRUN_DISPLAY_ENUMERATION_KESTRUN_DISPLAY_PLUGIN_H_
#define KESTRUN_DISPLAY_ENUMERATION_KESTRUN_DISPLAY_PLUGIN_H_

#include <windows.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "display_record.h"
#include "encodable_value.h"
#include "event_channel.h"
#include "event_sink.h"
#include "method_call.h"
#include "method_channel.h"
#include "method_result.h"
#include "monitor_snapshot.h"
#include "plugin.h"
#include "plugin_registrar_windows.h"

namespace kestrun_display {

class KestrunDisplayPlugin : public flutter::Plugin {
 public:
  // Where the monitors come from. The program uses EnumerateMonitors; a test may hand in its own
  // arrangement.
  using MonitorEnumeration = std::function<std::vector<MonitorSnapshot>()>;

  static constexpr char kMethodChannelName[] = "com.kestrun.kestrun_display";
  static constexpr char kEventChannelName[] = "com.kestrun.kestrun_display/events";

  // Creates the plugin on `registrar`, which then owns it. Main engine only.
  static void RegisterWithRegistrar(flutter::PluginRegistrarWindows* registrar);

  // Opens both channels and registers the window-procedure delegate on `registrar`, which must
  // outlive the plugin (it does when it owns the plugin).
  KestrunDisplayPlugin(flutter::PluginRegistrarWindows* registrar,
                       MonitorEnumeration enumerate_monitors);
  // Unregisters the delegate and closes both channels.
  ~KestrunDisplayPlugin() override;

  KestrunDisplayPlugin(const KestrunDisplayPlugin&) = delete;
  KestrunDisplayPlugin& operator=(const KestrunDisplayPlugin&) = delete;

 private:
  using Result = std::unique_ptr<flutter::MethodResult<flutter::EncodableValue>>;
  using Sink = std::unique_ptr<flutter::EventSink<flutter::EncodableValue>>;

  void HandleMethodCall(const flutter::MethodCall<flutter::EncodableValue>& call, Result result);
  void StartListening(Sink sink);
  void StopListening();
  // Never consumes the message: the window and the other plugins see it as well.
  std::optional<LRESULT> HandleWindowMessage(UINT message);
  // Sends a null event when the arrangement differs from the last one seen.
  void CheckForChange();

  std::vector<DisplayRecord> CurrentDisplays() const;

  flutter::PluginRegistrarWindows* registrar_;
  MonitorEnumeration enumerate_monitors_;
  std::unique_ptr<flutter::MethodChannel<flutter::EncodableValue>> method_channel_;
  std::unique_ptr<flutter::EventChannel<flutter::EncodableValue>> event_channel_;
  Sink event_sink_;
  std::string last_signature_;
  int window_proc_id_ = -1;
};

}  // namespace kestrun_display

#endif  // KESTRUN_DISPLAY_ENUMERATION_KESTRUN_DISPLAY_PLUGIN_H_
