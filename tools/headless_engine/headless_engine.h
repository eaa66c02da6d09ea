// One engine (FlutterDesktopEngineRef) of the headless flutter_windows.dll: the properties it was
// created with, its messenger, registrar and texture registrar, its view (at most one) and its
// frames. There is no Dart: the first engine of the process is driven by a controller over the
// control connection instead (ControlProtocol).
//
// Everything here runs on the platform thread, the thread that created the engine.
//
// Frames: the engine renders a frame when the view appears, when the host forces a redraw and
// when it asks for a next-frame callback. A view on screen renders through its WM_PAINT; a
// hidden one (the host keeps its window hidden until the first frame) gets no WM_PAINT from the
// system, so its frame is rendered directly. A pending next-frame callback runs once, after the
// first frame following the request, from a task posted at that frame (never inside WM_PAINT);
// the controller then gets {"event":"frame"}. With KESTRUN_HEADLESS_HOLD_FRAMES=1 nothing is
// rendered until the controller releases the frame.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_ENGINE_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_ENGINE_H_

#include <windows.h>

#include <flutter_windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "control_protocol.h"
#include "engine_control.h"
#include "engine_settings.h"
#include "headless_messenger.h"
#include "headless_registrar.h"
#include "headless_texture_registrar.h"
#include "headless_view.h"
#include "platform_task_runner.h"
#include "view_paint_listener.h"

namespace kestrun_headless {

class HeadlessEngine : public EngineControl, public ViewPaintListener {
 public:
  // Copies what it needs of `properties`. The first engine of the process connects to the
  // controller the environment names. Null (reason logged, and told to the controller) when the
  // creation fails or KESTRUN_HEADLESS_FAIL=engine asks it to.
  static std::unique_ptr<HeadlessEngine> Create(const FlutterDesktopEngineProperties& properties);
  // Runs the registrar's destruction handlers, shuts the messenger down, tells the controller
  // and closes the connection.
  ~HeadlessEngine() override;

  HeadlessEngine(const HeadlessEngine&) = delete;
  HeadlessEngine& operator=(const HeadlessEngine&) = delete;

  static HeadlessEngine* FromRef(FlutterDesktopEngineRef ref) {
    return reinterpret_cast<HeadlessEngine*>(ref);
  }
  FlutterDesktopEngineRef ref() { return reinterpret_cast<FlutterDesktopEngineRef>(this); }

  // False when already running, or when `entry_point` contradicts the properties' entry point.
  bool Run(const char* entry_point);
  bool running() const { return running_; }

  const EngineSettings& settings() const { return settings_; }
  HeadlessMessenger* messenger() const { return messenger_.get(); }
  HeadlessRegistrar* registrar() { return &registrar_; }
  HeadlessTextureRegistrar* texture_registrar() { return texture_registrar_.get(); }

  // The view controller that owns the engine marks it, so that a direct destroy is refused.
  bool owned_by_view_controller() const { return owned_by_view_controller_; }
  void set_owned_by_view_controller(bool owned) { owned_by_view_controller_ = owned; }

  // The engine's view, attached by its view controller; one at a time.
  bool AttachView(HeadlessView* view);
  void DetachView();
  HeadlessView* view() const { return view_; }

  void SetNextFrameCallback(VoidCallback callback, void* user_data);
  void ForceRedraw();
  void ReloadSystemFonts() { ++font_reloads_; }
  // Runs the tasks already queued for the platform thread; answers "nothing scheduled".
  uint64_t ProcessMessages();

  // EngineControl
  HWND MainWindow() const override;
  HWND ViewWindow() const override;
  Json DescribeEngine() const override;
  void ReleaseFrame() override;

  // ViewPaintListener
  void OnViewPainted() override;

 private:
  struct MessengerRelease {
    void operator()(HeadlessMessenger* messenger) const { messenger->Release(); }
  };

  HeadlessEngine(const FlutterDesktopEngineProperties& properties, EngineSettings settings,
                 std::shared_ptr<PlatformTaskRunner> runner,
                 std::shared_ptr<ControlProtocol> control);

  void ScheduleFrame();
  void RenderScheduledFrame();
  void OnFrameRendered();
  void FireFrameCallback(uint64_t generation);

  // As received.
  std::wstring assets_path_;
  std::wstring icu_data_path_;
  std::wstring aot_library_path_;
  std::string dart_entrypoint_;
  std::vector<std::string> entrypoint_arguments_;
  int gpu_preference_ = 0;
  int ui_thread_policy_ = 0;

  const EngineSettings settings_;
  std::shared_ptr<PlatformTaskRunner> runner_;
  std::unique_ptr<HeadlessMessenger, MessengerRelease> messenger_;
  HeadlessRegistrar registrar_;
  std::unique_ptr<HeadlessTextureRegistrar> texture_registrar_;
  std::shared_ptr<ControlProtocol> control_;  // null unless this engine is the controlled one

  HeadlessView* view_ = nullptr;
  bool running_ = false;
  bool owned_by_view_controller_ = false;

  // Frames.
  bool frames_held_ = false;
  bool frame_wanted_ = false;      // a frame came due while frames were held
  bool frame_scheduled_ = false;   // a render task is queued
  bool callback_posted_ = false;   // a task to run the next-frame callback is queued
  VoidCallback next_frame_callback_ = nullptr;
  void* next_frame_user_data_ = nullptr;
  uint64_t callback_generation_ = 0;
  int64_t frames_rendered_ = 0;
  int64_t frame_callbacks_run_ = 0;
  int64_t forced_redraws_ = 0;
  int64_t font_reloads_ = 0;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_ENGINE_H_
