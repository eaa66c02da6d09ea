// A live output window: the borderless, topmost window that the live output plugin opens over one
// or more displays to show an image, a webpage or video to an audience.
//
// The window owns its Direct3D 11 device and flip-model swap chain, one render thread that draws
// the current content and presents it with vertical sync, the image on the GPU, a black fade
// overlay and the keyboard and mouse controls of the show (Escape or a left click ends it, arrows
// and digits move between intervals, Ctrl+Shift+H toggles the HUD).
//
// Every operation runs on the platform thread (the thread that created the window), except the
// completion callbacks of timed fades, which run on the render thread. Failures are reported by
// the result or the creation callback and logged; nothing throws to the caller except misuse of a
// thread or mutex, which raises the standard system error.
//
// The render thread never waits for the platform thread. The live window and its fade overlay
// belong to the platform thread, and that thread joins the render thread (Close, WM_SIZE) without
// pumping messages, so any render-thread call that waits for the platform thread's message loop
// would hang both for good. On those windows the render thread therefore only posts: the overlay's
// alpha and z-order are applied by the overlay's own window procedure on a posted message, and
// nothing is sent, set or asked synchronously (the drawing size comes from the swap chain's last
// resize, not from the window). The swap chain is told to leave the window alone (no Alt+Enter,
// no watching of its messages), so that Present never waits for the window's thread either. Fade
// completion callbacks run on the render thread under the same rule: they may post, not send.
//
// A lost device (removed or reset by the driver) does not leave the audience in the dark: the
// render thread reports the loss once, drops the device, swap chain and textures, makes them again
// on the adapter that drives the window's display now and puts back what was shown (the image or
// the current frame of an animation with its timing, crop and fit; blanking and fades live
// outside the device and go on meanwhile). A failed re-creation is tried again after 250 ms,
// 500 ms, 1 s, ... up to every 5 s, with one warning per attempt. The loss may also be found by a
// resize or an upload on the platform thread, which only reports it and leaves the rest to the
// render thread.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_NATIVE_LIVE_WINDOW_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_NATIVE_LIVE_WINDOW_H_

#include <windows.h>

#include <d3d11.h>
#include <dxgi.h>
#include <wrl/client.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "live_output/window/display_record.h"
#include "live_output/window/fade_overlay.h"
#include "live_output/images/image_pipeline.h"
#include "live_output/window/live_window_clock.h"
#include "live_output/window/live_window_device_resources.h"
#include "live_output/window/recursive_lock.h"
#include "live_output/window/unique_event.h"
#include "live_output/webpage/webpage_presenter.h"

namespace native_live_window {

// What a live window shows (`content_mode_`).
enum ContentMode : std::int32_t {
  kContentNone = 0,
  kContentImage = 2,
  kContentWebpage = 3,
};

class NativeLiveWindow {
 public:
  // Outcome of CreateOnDisplays: success, or false with "No displays provided",
  // "Failed to create native window" or "Failed to initialize D3D11".
  using CreateCallback = std::function<void(bool success, const std::string& error)>;
  // The audience window asks to leave live output (Escape or a left click).
  using ExitCallback = std::function<void()>;
  // Interval control: "prev", "next", or a slot index "0" ... "9".
  using IntervalCallback = std::function<void(const std::string& action)>;
  using HudToggleCallback = std::function<void()>;
  // Runs once when a fade ends: at once for immediate or failed fades (platform thread), on the
  // render thread for timed ones.
  using FadeCallback = std::function<void()>;
  // Frames of an animated image, each width x height x 4 bytes of BGRA, rows packed.
  using FrameList = std::vector<std::vector<std::uint8_t>>;

  // Test seams of the render loop. Both are plain function pointers so that the loop can read
  // them every frame without locking or allocating.
  // Called on the render thread inside every frame, with the image lock held.
  using FrameHook = void (*)();
  // Replaces the HRESULT of every Present (the argument is the real one).
  using PresentFilter = HRESULT (*)(HRESULT presented);
  // Replaces the device-removed reason the loop reports (the argument is the device's own).
  using RemovedReasonFilter = HRESULT (*)(HRESULT reason);
  // Replaces the result of creating the device and swap chain, for every window of the process.
  using DeviceCreationFilter = HRESULT (*)(HRESULT created);

  NativeLiveWindow();
  // A window whose render loop, fades and animations read the given clock.
  explicit NativeLiveWindow(std::shared_ptr<const LiveWindowClock> clock);
  // Closes the window if it is still open.
  ~NativeLiveWindow();

  NativeLiveWindow(const NativeLiveWindow&) = delete;
  NativeLiveWindow& operator=(const NativeLiveWindow&) = delete;

  // Creates the window over the union of the displays' bounds, its device and swap chain, and
  // starts the render loop; the callback reports the outcome before this returns. A window that
  // is already shown is closed first.
  void CreateOnDisplays(const std::vector<DisplayRecord>& displays, CreateCallback callback);
  // Stops the render loop and destroys the overlay, the device and the window.
  void Close();

  void SetExitCallback(ExitCallback callback);
  void SetIntervalCallback(IntervalCallback callback);
  void SetHudToggleCallback(HudToggleCallback callback);

  // Resizes the swap chain (and the fade overlay) to the new client size; also run for WM_SIZE.
  void OnResize(std::int32_t width, std::int32_t height);

  // Stops the render loop and keeps the window open. Does nothing when the loop is not running.
  void StopRenderLoop();
  // Starts the loop again after a stop; does nothing while it runs or after Close.
  void RestartRenderLoop();

  // Shows a still image: width x height x 4 bytes of BGRA, rows packed. fit_mode is a FitMode
  // value (0 cover, 1 contain, 2 stretch; others draw like stretch). Ends any webpage.
  bool ShowImageFromPixels(const std::vector<std::uint8_t>& pixels, std::int32_t width,
                           std::int32_t height, std::int32_t fit_mode);
  // Shows an animated image of at least two frames, with one delay (ms) per frame. The frames
  // are shared with the caller, not copied.
  bool ShowAnimatedImage(std::shared_ptr<const FrameList> frames,
                         const std::vector<std::uint32_t>& delays_ms, std::int32_t width,
                         std::int32_t height, std::int32_t fit_mode);
  // Drops the image (the window draws black).
  void ClearImage();
  // Drops the image and leaves image mode.
  void ClearContent();

  // Shows only the region (x, y, w, h) of a logical canvas of canvas_width x canvas_height, in
  // canvas units (the canvas is 1 x 1). Kept across image changes until ClearCropRect.
  void SetCropRect(float x, float y, float w, float h, std::int32_t canvas_width,
                   std::int32_t canvas_height);
  void ClearCropRect();

  // Webpages (WebpagePresenter): a page is shown once its DOM content has loaded; loading
  // answers false only when the window does not exist. Showing an image ends a page.
  bool LoadWebpage(const std::string& url, bool is_local_file);
  bool ReloadWebpage();
  void StopWebpage();

  // Fades the window to or from black over duration_ms (immediately when duration_ms <= 0). A
  // fade started while another runs continues from the current darkness and replaces the
  // other's callback, which is then never called.
  void FadeToBlack(std::int32_t duration_ms, FadeCallback callback);
  void FadeFromBlack(std::int32_t duration_ms, FadeCallback callback);
  // Blanking draws plain black while no fade runs.
  void Blank();
  void Unblank();
  // Presents one black frame at once, without waiting for vertical sync.
  void PresentBlackNow();

  // The live window; null before creation and after Close.
  HWND GetHwnd() const { return hwnd_; }

  // State for the plugin and for tests.
  std::int32_t content_mode() const { return content_mode_.load(); }
  const std::vector<DisplayRecord>& displays() const { return displays_; }
  // True from the render loop's start until it is stopped (also after a fault ended it).
  bool render_loop_running() const { return running_.load(); }
  // Whether the arrow cursor is shown (it hides after five seconds without mouse activity).
  bool cursor_visible() const { return cursor_visible_; }
  HWND fade_overlay_window() const { return fade_.overlay_window(); }
  std::uint8_t fade_overlay_alpha() const { return fade_.overlay_alpha(); }
  bool blanked() const { return fade_.blanked(); }
  // What the audience sees of the window's content through its fade and blanking (FadeOverlay).
  std::shared_ptr<const std::atomic<std::uint8_t>> audience_level() const {
    return fade_.audience_level();
  }
  const WebpagePresenter& webpage() const { return webpage_; }

  // Progress of the render loop, for tests and benchmarks: the number of Present calls made so
  // far, and an auto-reset event signalled after each of them.
  std::uint64_t present_count() const { return present_count_.load(); }
  HANDLE present_event() const { return present_event_.get(); }
  // Times the animated image's texture was rewritten because its frame changed.
  std::uint64_t texture_update_count() const { return image_.texture_update_count(); }
  // Black frames that PresentBlackNow asked for and that were presented, by either thread.
  std::uint64_t black_frame_count() const { return black_frame_count_.load(); }
  // Devices made again after a loss that have presented their first frame. Each recovery and
  // each failed attempt also signals present_event().
  std::uint64_t recovered_count() const { return recovered_count_.load(); }

  // Test seams (null removes them). May be changed while the loop runs.
  void SetFrameHookForTesting(FrameHook hook) { frame_hook_.store(hook); }
  void SetPresentFilterForTesting(PresentFilter filter) { present_filter_.store(filter); }
  void SetRemovedReasonFilterForTesting(RemovedReasonFilter filter) {
    removed_reason_filter_.store(filter);
  }
  static void SetDeviceCreationFilterForTesting(DeviceCreationFilter filter);

 private:
  struct LoopState;

  // The fade overlay above a browser made or shown after a fade began.
  void KeepFadeOverlayOnTop();

  static LRESULT CALLBACK WindowProc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam);
  // `window` is null for messages that arrive before creation or after close.
  static LRESULT HandleMessage(NativeLiveWindow* window, HWND hwnd, UINT message, WPARAM wparam,
                               LPARAM lparam);
  static LRESULT HandleKeyDown(NativeLiveWindow* window, HWND hwnd, WPARAM key, LPARAM lparam);
  // Escape and left click: the exit callback, then Close().
  void RequestExit();
  void SendIntervalAction(const std::string& action);

  bool CreateNativeWindow(std::int32_t x, std::int32_t y, std::int32_t width,
                          std::int32_t height);
  bool InitD3D();
  void ReleaseD3D();
  // Whether images can be taken: a device exists, or one is being made again.
  bool HasDeviceOrRecovery() const;
  // Puts the pixels on the device (image lock held); a lost device keeps them for the next one.
  bool UploadLocked(const std::uint8_t* pixels, std::int32_t width, std::int32_t height,
                    std::int32_t fit_mode);
  void ShowCursorTemporarily();
  bool CheckUploadable(const std::vector<std::uint8_t>& pixels, std::int32_t width,
                       std::int32_t height) const;

  void StartRenderLoop();
  // Gives the context to a new render thread and starts it on RenderLoop.
  void LaunchRenderThread();
  void RenderLoop();
  // The render thread's last act: presents any black frame still handed to it, then gives the
  // context back to the platform thread.
  void ReleaseContext();
  static void RunLoopFrames(void* state);
  void RenderFrame();
  void ClearToBlack();
  void PresentBlackFrame();
  bool Present(UINT sync_interval);
  HRESULT DeviceRemovedReason() const;
  // Device loss, by the thread that owns the context (see render_handoff_). The first report of
  // a loss logs it (any thread); recovery then starts, or, when the device just made is lost
  // before its first frame, the next attempt is put off.
  void ReportDeviceLoss(const char* call, HRESULT hr);
  void OnDeviceLost(const char* call, HRESULT hr);
  // Render thread: makes the device again when an attempt is due; true once it exists.
  bool RecoverDevice();
  void PostponeRecovery(HRESULT hr);
  void FinishRecovery();
  void ResetRecovery();
  void ReportRenderCrash(std::uint32_t exception_code);
  // The first display's name, which labels log lines.
  const char* DisplayName() const;

  HWND hwnd_ = nullptr;
  std::vector<DisplayRecord> displays_;
  CreateCallback create_callback_;
  ExitCallback exit_callback_;
  IntervalCallback interval_callback_;
  HudToggleCallback hud_toggle_callback_;

  // Device, context, swap chain and render target view.
  LiveWindowDeviceResources device_;

  std::thread render_thread_;
  std::atomic<bool> running_{false};
  std::atomic<bool> device_lost_{false};
  // The device must be made again (set with the loss, cleared once a new one exists).
  std::atomic<bool> recovering_{false};
  // Tick count when the current loss was found.
  std::atomic<std::uint32_t> loss_tick_{0};
  // Recovery schedule, kept by the thread that owns the context: the tick of the next attempt,
  // the delay after the last failed one (0 before any), and a new device not yet presented.
  std::uint32_t next_attempt_tick_ = 0;
  std::uint32_t retry_delay_ms_ = 0;
  bool awaiting_first_present_ = false;
  std::atomic<std::int32_t> content_mode_{kContentNone};
  // Which thread may use the immediate context. kRenderThreadOwnsContext is set by the platform
  // thread before it starts a render thread and cleared by that thread as its last act;
  // kBlackFrameRequested is a black frame PresentBlackNow handed to it meanwhile.
  static constexpr std::uint32_t kRenderThreadOwnsContext = 1;
  static constexpr std::uint32_t kBlackFrameRequested = 2;
  std::atomic<std::uint32_t> render_handoff_{0};
  // Client size the swap chain was last sized to, which the render thread draws into.
  std::atomic<std::int32_t> target_width_{0};
  std::atomic<std::int32_t> target_height_{0};

  std::int32_t origin_x_ = 0;
  std::int32_t origin_y_ = 0;

  std::shared_ptr<const LiveWindowClock> clock_;

  // Image, crop and animation state with its lock (`image_mutex_`).
  ImagePipeline image_;

  // Web view state with its lock (`webview_mutex_`).
  WebpagePresenter webpage_;

  // Fade and blank state with its lock (`fade_mutex_`) and the overlay window.
  FadeOverlay fade_;

  bool cursor_visible_ = false;
  std::int32_t last_mouse_x_ = -1;
  std::int32_t last_mouse_y_ = -1;

  std::atomic<std::uint64_t> present_count_{0};
  UniqueEvent present_event_;
  std::atomic<FrameHook> frame_hook_{nullptr};
  std::atomic<PresentFilter> present_filter_{nullptr};
  std::atomic<RemovedReasonFilter> removed_reason_filter_{nullptr};
  std::atomic<std::uint64_t> black_frame_count_{0};
  std::atomic<std::uint64_t> recovered_count_{0};
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_NATIVE_LIVE_WINDOW_H_
