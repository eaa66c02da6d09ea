#include "flutter_window.h"

#include <desktop_multi_window/desktop_multi_window_plugin.h>
#include <wtsapi32.h>

#include <utility>

#include "clean_exit_marker.h"
#include "flutter_engine.h"
#include "flutter_view.h"
#include "plugin_registrant.h"
#include "secondary_window.h"
#include "session_lock.h"
#include "standard_method_codec.h"
#include "store_distribution.h"

namespace kestrun_shell {

namespace {

constexpr char kNativeWindowChannel[] = "kestrun/native_window";
constexpr char kDistributionChannel[] = "kestrun/distribution";

// WTS_SESSION_LOCK and WTS_SESSION_UNLOCK.
constexpr WPARAM kSessionLock = 7;
constexpr WPARAM kSessionUnlock = 8;

}  // namespace

FlutterWindow::FlutterWindow(const flutter::DartProject& project) : project_(project) {}

FlutterWindow::~FlutterWindow() {
  // Tear down while this class's hooks still run (the base destructor only sees its own).
  Destroy();
}

bool FlutterWindow::OnCreate() {
  if (!Win32Window::OnCreate()) {
    return false;
  }

  const RECT frame = GetClientArea();
  flutter_controller_ = std::make_unique<flutter::FlutterViewController>(
      frame.right - frame.left, frame.bottom - frame.top, project_);
  if (flutter_controller_->engine() == nullptr || flutter_controller_->view() == nullptr) {
    return false;
  }
  flutter::FlutterEngine* engine = flutter_controller_->engine();

  RegisterMainWindowPlugins(
      [engine](const char* plugin_name) { return engine->GetRegistrarForPlugin(plugin_name); });

  const flutter::StandardMethodCodec* codec = &flutter::StandardMethodCodec::GetInstance();
  native_window_channel_ =
      std::make_unique<MethodChannel>(engine->messenger(), kNativeWindowChannel, codec);
  native_window_channel_->SetMethodCallHandler(
      [this](const MethodCall& call, std::unique_ptr<MethodResult> result) {
        HandleNativeWindowCall(call, std::move(result));
      });
  distribution_channel_ =
      std::make_unique<MethodChannel>(engine->messenger(), kDistributionChannel, codec);
  distribution_channel_->SetMethodCallHandler(
      [this](const MethodCall& call, std::unique_ptr<MethodResult> result) {
        HandleDistributionCall(call, std::move(result));
      });

  if (WTSRegisterSessionNotification(GetHandle(), NOTIFY_FOR_THIS_SESSION)) {
    session_notification_window_ = GetHandle();
  }
  session_locked_ = IsSessionLocked();

  DesktopMultiWindowSetWindowCreatedCallback(&OnSecondaryWindowCreated);

  SetChildContent(flutter_controller_->view()->GetNativeWindow());

  // Hidden until the engine has drawn its first frame; the forced redraw makes sure one comes
  // even when the interface schedules none.
  engine->SetNextFrameCallback([this]() { Show(); });
  flutter_controller_->ForceRedraw();
  return true;
}

void FlutterWindow::OnDestroy() {
  if (session_notification_window_ != nullptr) {
    WTSUnRegisterSessionNotification(session_notification_window_);
    session_notification_window_ = nullptr;
  }
  // Stops the engine; the channels stay until this object goes but are no longer used.
  flutter_controller_.reset();
  Win32Window::OnDestroy();
}

LRESULT FlutterWindow::MessageHandler(HWND window, UINT message, WPARAM wparam,
                                      LPARAM lparam) noexcept {
  // These four never reach the engine or the plugins.
  switch (message) {
    case WM_CLOSE:
      // The interface decides whether and when the window closes.
      NotifyInterface("closeRequested");
      return 0;
    case WM_QUERYENDSESSION:
      return TRUE;
    case WM_ENDSESSION:
      if (wparam == 1) {
        WriteCleanExitMarker();
      }
      return 0;
    case WM_WTSSESSION_CHANGE:
      OnSessionChange(wparam);
      return 0;
    default:
      break;
  }

  if (flutter_controller_) {
    std::optional<LRESULT> handled =
        flutter_controller_->HandleTopLevelWindowProc(window, message, wparam, lparam);
    if (handled) {
      return *handled;
    }
    if (message == WM_FONTCHANGE) {
      flutter_controller_->engine()->ReloadSystemFonts();
    }
  }
  return Win32Window::MessageHandler(window, message, wparam, lparam);
}

void FlutterWindow::OnSessionChange(WPARAM code) {
  if (code == kSessionLock) {
    session_locked_ = true;
    NotifyInterface("sessionLocked");
  } else if (code == kSessionUnlock) {
    session_locked_ = false;
    NotifyInterface("sessionUnlocked");
  }
}

void FlutterWindow::NotifyInterface(const char* method) {
  if (native_window_channel_ && flutter_controller_) {
    native_window_channel_->InvokeMethod(method, nullptr);
  }
}

void FlutterWindow::HandleNativeWindowCall(const MethodCall& call,
                                           std::unique_ptr<MethodResult> result) {
  const std::string& method = call.method_name();
  if (method == "isSessionLocked") {
    session_locked_ = IsSessionLocked();
    result->Success(flutter::EncodableValue(session_locked_));
  } else if (method == "bringToForeground") {
    result->Success(flutter::EncodableValue(SetForegroundWindow(GetHandle()) != FALSE));
  } else if (method == "isInForeground") {
    const HWND window = GetHandle();
    result->Success(flutter::EncodableValue(window != nullptr && GetForegroundWindow() == window));
  } else {
    result->NotImplemented();
  }
}

void FlutterWindow::HandleDistributionCall(const MethodCall& call,
                                           std::unique_ptr<MethodResult> result) {
  if (call.method_name() == "isWindowsStore") {
    result->Success(flutter::EncodableValue(IsRunningFromStorePackage()));
  } else {
    result->NotImplemented();
  }
}

}  // namespace kestrun_shell
