// The main window: a Win32Window whose client area hosts the engine's view. Creating it starts the
// engine, registers every plugin, opens the "kestrun/native_window" and "kestrun/distribution"
// channels and hooks secondary engine windows; it stays hidden until the engine's first frame.
// Closing, session end and session lock are turned into channel events for the interface: the
// window is never closed by the close button itself, only by the interface.
#ifndef KESTRUN_APP_SHELL_FLUTTER_WINDOW_H_
#define KESTRUN_APP_SHELL_FLUTTER_WINDOW_H_

#include <windows.h>

#include <memory>

#include "dart_project.h"
#include "encodable_value.h"
#include "flutter_view_controller.h"
#include "method_call.h"
#include "method_channel.h"
#include "method_result.h"
#include "win32_window.h"

namespace kestrun_shell {

// Main thread only.
class FlutterWindow : public Win32Window {
 public:
  explicit FlutterWindow(const flutter::DartProject& project);
  ~FlutterWindow() override;

  FlutterWindow(const FlutterWindow&) = delete;
  FlutterWindow& operator=(const FlutterWindow&) = delete;

 protected:
  LRESULT MessageHandler(HWND window, UINT message, WPARAM wparam, LPARAM lparam) noexcept override;
  bool OnCreate() override;
  void OnDestroy() override;

 private:
  using MethodCall = flutter::MethodCall<flutter::EncodableValue>;
  using MethodResult = flutter::MethodResult<flutter::EncodableValue>;
  using MethodChannel = flutter::MethodChannel<flutter::EncodableValue>;

  void HandleNativeWindowCall(const MethodCall& call, std::unique_ptr<MethodResult> result);
  void HandleDistributionCall(const MethodCall& call, std::unique_ptr<MethodResult> result);

  // Sends `method` with no arguments on "kestrun/native_window", awaiting no reply; nothing when
  // the channel or the engine is gone.
  void NotifyInterface(const char* method);

  void OnSessionChange(WPARAM code);

  flutter::DartProject project_;
  std::unique_ptr<flutter::FlutterViewController> flutter_controller_;
  std::unique_ptr<MethodChannel> native_window_channel_;
  std::unique_ptr<MethodChannel> distribution_channel_;
  // Last known lock state: from the lock test at start and on "isSessionLocked", and from the
  // session notifications.
  bool session_locked_ = false;
  // The window registered for session notifications (it must be unregistered with the same one).
  HWND session_notification_window_ = nullptr;
};

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_FLUTTER_WINDOW_H_
