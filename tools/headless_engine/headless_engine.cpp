#include "headless_engine.h"

#include <atomic>
#include <limits>
#include <utility>

#include "engine_log.h"
#include "text_conversion.h"

namespace kestrun_headless {
namespace {

// Only the first engine of the process is driven by the controller.
std::atomic<bool> g_control_claimed{false};

std::wstring WideOrEmpty(const wchar_t* text) { return text != nullptr ? text : L""; }

Json Event(const char* name) { return Json{{"event", name}}; }

}  // namespace

std::unique_ptr<HeadlessEngine> HeadlessEngine::Create(
    const FlutterDesktopEngineProperties& properties) {
  EngineSettings settings = EngineSettings::FromEnvironment();
  std::shared_ptr<PlatformTaskRunner> runner = PlatformTaskRunner::Create();
  std::shared_ptr<ControlProtocol> control;
  if (!settings.control_address.empty() && !g_control_claimed.exchange(true) && runner) {
    control = ControlProtocol::Connect(settings.control_address, runner);
  }
  if (settings.failure == EngineSettings::Failure::kEngine || !runner) {
    EngineLog(runner ? "engine creation fails as KESTRUN_HEADLESS_FAIL=engine asks"
                     : "engine creation failed: no platform task window");
    if (control) {
      Json event = Event("failureInjected");
      event["what"] = "engine";
      control->SendEvent(event);
      control->Stop();
    }
    if (runner) {
      runner->Shutdown();
    }
    return nullptr;
  }
  std::unique_ptr<HeadlessEngine> engine(
      new HeadlessEngine(properties, std::move(settings), runner, control));
  if (control) {
    engine->messenger_->SetOutlet(control);
    control->Start(engine.get(), engine->messenger_.get());
  }
  return engine;
}

HeadlessEngine::HeadlessEngine(const FlutterDesktopEngineProperties& properties,
                               EngineSettings settings, std::shared_ptr<PlatformTaskRunner> runner,
                               std::shared_ptr<ControlProtocol> control)
    : assets_path_(WideOrEmpty(properties.assets_path)),
      icu_data_path_(WideOrEmpty(properties.icu_data_path)),
      aot_library_path_(WideOrEmpty(properties.aot_library_path)),
      dart_entrypoint_(properties.dart_entrypoint != nullptr ? properties.dart_entrypoint : ""),
      gpu_preference_(static_cast<int>(properties.gpu_preference)),
      ui_thread_policy_(static_cast<int>(properties.ui_thread_policy)),
      settings_(std::move(settings)),
      runner_(std::move(runner)),
      messenger_(new HeadlessMessenger(runner_)),
      registrar_(this),
      texture_registrar_(std::make_unique<HeadlessTextureRegistrar>(runner_)),
      control_(std::move(control)) {
  if (properties.dart_entrypoint_argv != nullptr) {
    for (int i = 0; i < properties.dart_entrypoint_argc; ++i) {
      const char* argument = properties.dart_entrypoint_argv[i];
      entrypoint_arguments_.emplace_back(argument != nullptr ? argument : "");
    }
  }
  frames_held_ = settings_.hold_frames;
}

HeadlessEngine::~HeadlessEngine() {
  DetachView();
  // Plugins go first, while the messenger still works for anything they send on the way out.
  registrar_.RunDestructionHandlers();
  messenger_->Shutdown();
  if (control_) {
    control_->Stop();
  }
  runner_->Shutdown();
  texture_registrar_->Shutdown();
}

bool HeadlessEngine::Run(const char* entry_point) {
  if (running_) {
    EngineLog("the engine is already running");
    return false;
  }
  if (entry_point != nullptr && *entry_point != '\0') {
    if (!dart_entrypoint_.empty() && dart_entrypoint_ != entry_point) {
      EngineLog("entry point \"%s\" conflicts with the properties' \"%s\"", entry_point,
                dart_entrypoint_.c_str());
      return false;
    }
    dart_entrypoint_ = entry_point;
  }
  running_ = true;
  return true;
}

bool HeadlessEngine::AttachView(HeadlessView* view) {
  if (view_ != nullptr) {
    EngineLog("the engine already has a view");
    return false;
  }
  view_ = view;
  view_->set_paint_listener(this);
  // The interface's first frame.
  ScheduleFrame();
  return true;
}

void HeadlessEngine::DetachView() {
  if (view_ != nullptr) {
    view_->set_paint_listener(nullptr);
  }
  view_ = nullptr;
}

void HeadlessEngine::SetNextFrameCallback(VoidCallback callback, void* user_data) {
  next_frame_callback_ = callback;
  next_frame_user_data_ = user_data;
  // A run already queued belongs to an earlier request.
  ++callback_generation_;
  callback_posted_ = false;
  // An interface keeps drawing while it changes; without Dart, the request itself brings a frame.
  ScheduleFrame();
}

void HeadlessEngine::ForceRedraw() {
  ++forced_redraws_;
  ScheduleFrame();
}

uint64_t HeadlessEngine::ProcessMessages() {
  runner_->RunPending();
  return static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
}

void HeadlessEngine::ReleaseFrame() {
  if (!frames_held_) {
    return;
  }
  frames_held_ = false;
  if (frame_wanted_ || next_frame_callback_ != nullptr) {
    frame_wanted_ = false;
    ScheduleFrame();
  }
}

void HeadlessEngine::ScheduleFrame() {
  if (view_ == nullptr) {
    return;
  }
  view_->Invalidate();
  if (frame_scheduled_) {
    return;
  }
  frame_scheduled_ = true;
  // Dropped with the runner when the engine goes first.
  runner_->Post([this] { RenderScheduledFrame(); });
}

void HeadlessEngine::RenderScheduledFrame() {
  frame_scheduled_ = false;
  if (view_ == nullptr) {
    return;
  }
  if (frames_held_) {
    frame_wanted_ = true;
    return;
  }
  if (view_->IsShown()) {
    view_->PaintNow();  // its WM_PAINT renders the frame
  } else {
    OnFrameRendered();  // a hidden window is sent no WM_PAINT
  }
}

void HeadlessEngine::OnViewPainted() {
  if (frames_held_) {
    frame_wanted_ = true;
    return;
  }
  OnFrameRendered();
}

void HeadlessEngine::OnFrameRendered() {
  ++frames_rendered_;
  if (next_frame_callback_ == nullptr || callback_posted_) {
    return;
  }
  callback_posted_ = true;
  const uint64_t generation = callback_generation_;
  runner_->Post([this, generation] { FireFrameCallback(generation); });
}

void HeadlessEngine::FireFrameCallback(uint64_t generation) {
  if (generation != callback_generation_ || next_frame_callback_ == nullptr) {
    return;
  }
  callback_posted_ = false;
  VoidCallback callback = next_frame_callback_;
  void* user_data = next_frame_user_data_;
  next_frame_callback_ = nullptr;
  next_frame_user_data_ = nullptr;
  ++frame_callbacks_run_;
  // The callback may destroy the engine: nothing of it is touched afterwards.
  std::shared_ptr<ControlProtocol> control = control_;
  callback(user_data);
  if (control) {
    control->SendEvent(Event("frame"));
  }
}

HWND HeadlessEngine::MainWindow() const {
  return view_ != nullptr ? view_->MainWindow() : nullptr;
}

HWND HeadlessEngine::ViewWindow() const { return view_ != nullptr ? view_->window() : nullptr; }

Json HeadlessEngine::DescribeEngine() const {
  Json answer = Json::object();
  answer["ok"] = true;
  answer["assetsPath"] = WideToUtf8(assets_path_);
  answer["icuDataPath"] = WideToUtf8(icu_data_path_);
  answer["aotLibraryPath"] = WideToUtf8(aot_library_path_);
  answer["dartEntrypoint"] = dart_entrypoint_;
  answer["arguments"] = entrypoint_arguments_;
  answer["gpuPreference"] = gpu_preference_;
  answer["uiThreadPolicy"] = ui_thread_policy_;
  answer["running"] = running_;
  answer["hasView"] = view_ != nullptr;
  answer["topLevelDelegates"] = static_cast<uint64_t>(registrar_.delegate_count());
  answer["textures"] = static_cast<uint64_t>(texture_registrar_->texture_count());
  answer["framesHeld"] = frames_held_;
  answer["framesRendered"] = frames_rendered_;
  answer["frameCallbacksRun"] = frame_callbacks_run_;
  answer["nextFrameCallbackPending"] = next_frame_callback_ != nullptr;
  answer["forcedRedraws"] = forced_redraws_;
  answer["fontReloads"] = font_reloads_;
  return answer;
}

}  // namespace kestrun_headless
