#include "kestrun_display_plugin.h"

#include <utility>

#include "display_encoding.h"
#include "display_records.h"
#include "monitor_enumerator.h"
#include "standard_method_codec.h"
#include "stream_handler_functions.h"

namespace kestrun_display {

namespace {

using flutter::EncodableValue;

// Messages after which the monitor arrangement may have changed.
bool MayChangeArrangement(UINT message) {
  return message == WM_SETTINGCHANGE || message == WM_DISPLAYCHANGE || message == WM_DPICHANGED;
}

}  // namespace

void KestrunDisplayPlugin::RegisterWithRegistrar(flutter::PluginRegistrarWindows* registrar) {
  registrar->AddPlugin(std::make_unique<KestrunDisplayPlugin>(registrar, &EnumerateMonitors));
}

KestrunDisplayPlugin::KestrunDisplayPlugin(flutter::PluginRegistrarWindows* registrar,
                                           MonitorEnumeration enumerate_monitors)
    : registrar_(registrar), enumerate_monitors_(std::move(enumerate_monitors)) {
  const flutter::StandardMethodCodec& codec = flutter::StandardMethodCodec::GetInstance();

  method_channel_ = std::make_unique<flutter::MethodChannel<EncodableValue>>(
      registrar_->messenger(), kMethodChannelName, &codec);
  method_channel_->SetMethodCallHandler(
      [this](const flutter::MethodCall<EncodableValue>& call, Result result) {
        HandleMethodCall(call, std::move(result));
      });

  event_channel_ = std::make_unique<flutter::EventChannel<EncodableValue>>(
      registrar_->messenger(), kEventChannelName, &codec);
  event_channel_->SetStreamHandler(
      std::make_unique<flutter::StreamHandlerFunctions<EncodableValue>>(
          [this](const EncodableValue* /*arguments*/, Sink&& events)
              -> std::unique_ptr<flutter::StreamHandlerError<EncodableValue>> {
            StartListening(std::move(events));
            return nullptr;
          },
          [this](const EncodableValue* /*arguments*/)
              -> std::unique_ptr<flutter::StreamHandlerError<EncodableValue>> {
            StopListening();
            return nullptr;
          }));

  window_proc_id_ = registrar_->RegisterTopLevelWindowProcDelegate(
      [this](HWND /*hwnd*/, UINT message, WPARAM /*wparam*/, LPARAM /*lparam*/) {
        return HandleWindowMessage(message);
      });
}

KestrunDisplayPlugin::~KestrunDisplayPlugin() {
  if (window_proc_id_ != -1) {
    registrar_->UnregisterTopLevelWindowProcDelegate(window_proc_id_);
    window_proc_id_ = -1;
  }
  // The handlers point at this object; a late call from the interface must find none.
  method_channel_->SetMethodCallHandler(nullptr);
  event_channel_->SetStreamHandler(nullptr);
}

void KestrunDisplayPlugin::HandleMethodCall(const flutter::MethodCall<EncodableValue>& call,
                                            Result result) {
  const std::string& method = call.method_name();
  if (method == "getAllDisplays") {
    const std::vector<DisplayRecord> displays = CurrentDisplays();
    last_signature_ = DisplaySignature(displays);
    result->Success(EncodeDisplayList(displays));
  } else if (method == "getPrimaryDisplay") {
    const std::vector<DisplayRecord> displays = CurrentDisplays();
    const DisplayRecord* primary = FindPrimaryDisplay(displays);
    result->Success(primary != nullptr ? EncodeDisplay(*primary) : EncodableValue());
  } else {
    result->NotImplemented();
  }
}

void KestrunDisplayPlugin::StartListening(Sink sink) {
  event_sink_ = std::move(sink);
  last_signature_ = DisplaySignature(CurrentDisplays());
}

void KestrunDisplayPlugin::StopListening() { event_sink_.reset(); }

std::optional<LRESULT> KestrunDisplayPlugin::HandleWindowMessage(UINT message) {
  if (MayChangeArrangement(message)) {
    CheckForChange();
  }
  return std::nullopt;
}

void KestrunDisplayPlugin::CheckForChange() {
  if (!event_sink_) {
    return;  // nobody listens; the arrangement is measured afresh when someone does
  }
  std::string signature = DisplaySignature(CurrentDisplays());
  if (signature == last_signature_) {
    return;
  }
  last_signature_ = std::move(signature);
  event_sink_->Success();
}

std::vector<DisplayRecord> KestrunDisplayPlugin::CurrentDisplays() const {
  if (!enumerate_monitors_) {
    return {};
  }
  return MakeDisplayRecords(enumerate_monitors_());
}

}  // namespace kestrun_display
