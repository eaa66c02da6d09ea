// Owns one engine instance (until a view controller takes it over).
#ifndef KESTRUN_PLATFORM_CHANNELS_FLUTTER_ENGINE_H_
#define KESTRUN_PLATFORM_CHANNELS_FLUTTER_ENGINE_H_

#include <flutter_windows.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "binary_messenger.h"
#include "binary_messenger_impl.h"
#include "dart_project.h"

namespace flutter {

class FlutterEngine {
 public:
  explicit FlutterEngine(const DartProject& project);
  virtual ~FlutterEngine();

  FlutterEngine(const FlutterEngine&) = delete;
  FlutterEngine& operator=(const FlutterEngine&) = delete;

  // Starts the engine (at the project's entry point, or at `entry_point`). False on failure.
  bool Run();
  bool Run(const char* entry_point);

  // Stops and destroys the engine if this object still owns it.
  void ShutDown();

  std::chrono::nanoseconds ProcessMessages();
  void ReloadSystemFonts();

  // Null (with a printed reason) while the engine is not running.
  FlutterDesktopPluginRegistrarRef GetRegistrarForPlugin(const std::string& plugin_name);

  BinaryMessenger* messenger() { return messenger_.get(); }

  // `callback` is kept and called once, on the main thread, after the engine's next frame.
  void SetNextFrameCallback(std::function<void()> callback);

  std::optional<LRESULT> ProcessExternalWindowMessage(HWND hwnd, UINT message, WPARAM wparam,
                                                      LPARAM lparam);

 private:
  friend class FlutterViewController;

  // Hands the engine over to a view controller, which then runs and destroys it.
  FlutterDesktopEngineRef RelinquishEngine();

  static void OnNextFrame(void* user_data);

  FlutterDesktopEngineRef engine_ = nullptr;
  std::unique_ptr<BinaryMessengerImpl> messenger_;
  bool owns_engine_ = true;
  bool has_been_run_ = false;
  std::unique_ptr<std::function<void()>> next_frame_callback_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_FLUTTER_ENGINE_H_
