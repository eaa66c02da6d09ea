#include "flutter_engine.h"

#include <iostream>
#include <utility>
#include <vector>

#include "binary_messenger_impl.h"

namespace flutter {

FlutterEngine::FlutterEngine(const DartProject& project) {
  FlutterDesktopEngineProperties properties = {};
  properties.assets_path = project.assets_path().c_str();
  properties.icu_data_path = project.icu_data_path().c_str();
  properties.aot_library_path = project.aot_library_path().c_str();
  properties.dart_entrypoint =
      project.dart_entrypoint().empty() ? nullptr : project.dart_entrypoint().c_str();
  // The engine copies the arguments during creation.
  std::vector<const char*> argv;
  argv.reserve(project.dart_entrypoint_arguments().size());
  for (const std::string& argument : project.dart_entrypoint_arguments()) {
    argv.push_back(argument.c_str());
  }
  properties.dart_entrypoint_argc = static_cast<int>(argv.size());
  properties.dart_entrypoint_argv = argv.empty() ? nullptr : argv.data();
  properties.gpu_preference = NoPreference;
  properties.ui_thread_policy = Default;

  engine_ = FlutterDesktopEngineCreate(&properties);
  if (engine_ != nullptr) {
    messenger_ = std::make_unique<BinaryMessengerImpl>(FlutterDesktopEngineGetMessenger(engine_));
  }
}

FlutterEngine::~FlutterEngine() { ShutDown(); }

bool FlutterEngine::Run() { return Run(nullptr); }

bool FlutterEngine::Run(const char* entry_point) {
  if (engine_ == nullptr) {
    std::cerr << "Cannot run an engine that failed creation." << std::endl;
    return false;
  }
  if (has_been_run_) {
    std::cerr << "Cannot run an engine more than once." << std::endl;
    return false;
  }
  if (!FlutterDesktopEngineRun(engine_, entry_point)) {
    std::cerr << "Failed to start engine." << std::endl;
    return false;
  }
  has_been_run_ = true;
  return true;
}

void FlutterEngine::ShutDown() {
  if (engine_ != nullptr && owns_engine_) {
    FlutterDesktopEngineDestroy(engine_);
  }
  engine_ = nullptr;
}

std::chrono::nanoseconds FlutterEngine::ProcessMessages() {
  return std::chrono::nanoseconds(FlutterDesktopEngineProcessMessages(engine_));
}

void FlutterEngine::ReloadSystemFonts() { FlutterDesktopEngineReloadSystemFonts(engine_); }

FlutterDesktopPluginRegistrarRef FlutterEngine::GetRegistrarForPlugin(
    const std::string& plugin_name) {
  if (engine_ == nullptr || !has_been_run_) {
    std::cerr << "Cannot get plugin registrar on an engine that isn't running; call Run first."
              << std::endl;
    return nullptr;
  }
  return FlutterDesktopEngineGetPluginRegistrar(engine_, plugin_name.c_str());
}

void FlutterEngine::SetNextFrameCallback(std::function<void()> callback) {
  next_frame_callback_ = std::make_unique<std::function<void()>>(std::move(callback));
  FlutterDesktopEngineSetNextFrameCallback(engine_, &FlutterEngine::OnNextFrame, this);
}

void FlutterEngine::OnNextFrame(void* user_data) {
  auto* self = static_cast<FlutterEngine*>(user_data);
  // Taken out first: the callback may set the next one.
  std::unique_ptr<std::function<void()>> callback = std::move(self->next_frame_callback_);
  if (callback && *callback) {
    (*callback)();
  }
}

std::optional<LRESULT> FlutterEngine::ProcessExternalWindowMessage(HWND hwnd, UINT message,
                                                                   WPARAM wparam,
                                                                   LPARAM lparam) {
  LRESULT result = 0;
  if (FlutterDesktopEngineProcessExternalWindowMessage(engine_, hwnd, message, wparam, lparam,
                                                       &result)) {
    return result;
  }
  return std::nullopt;
}

FlutterDesktopEngineRef FlutterEngine::RelinquishEngine() {
  owns_engine_ = false;
  return engine_;
}

}  // namespace flutter
