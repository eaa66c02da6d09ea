// Brings decoded video onto the output windows through the composition services, without
// drawing into the windows' own swap chains.
//
// A pipeline (named by decoder key) is one video: a decoder and a composition swap chain of the
// decoder's canvas size. A display (named by display id) is one output window: a composition
// target, its root visual and an effect group for opacity. Assigning a display to a pipeline
// makes the display's visual show the pipeline's swap chain scaled to the display, optionally
// cropped, so that one video can be mirrored on several displays or span them.
//
// One render thread lets every decoder draw its next frame, copies new frames into the swap
// chains on the GPU, presents them and commits; it also drives fades of every display's opacity.
// A newly added display is transparent until a fade-in or SetOpacity raises it.
//
// Threads: every operation but the render loop's runs on the platform thread. mutex_ guards the
// maps and the composition calls on them; it is never held while presenting. The decoders are
// not owned: remove a pipeline before destroying its decoder. Log lines go under "DCOMP".

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_DCOMP_COORDINATOR_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_DCOMP_COORDINATOR_H_

#include <d3d11.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "live_output/video/composition_services.h"
#include "live_output/video/video_decoder.h"
#include "live_output/window/recursive_lock.h"

namespace native_live_window {

class DCompCoordinator {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Clock = std::function<TimePoint()>;
  using Completion = std::function<void()>;

  // The steady clock and the composition services of DefaultCompositionDeviceFactory().
  DCompCoordinator();
  // Empty arguments mean the defaults above.
  DCompCoordinator(Clock clock, CompositionDeviceFactory composition_factory);
  DCompCoordinator(const DCompCoordinator&) = delete;
  DCompCoordinator& operator=(const DCompCoordinator&) = delete;
  // As Shutdown, but a pending fade completion is dropped without being called.
  ~DCompCoordinator();

  // Keeps the shared device and context (not owned) and makes the composition device.
  bool Initialize(ID3D11Device* device, ID3D11DeviceContext* context);

  // Makes (or remakes) the composition of the output window `hwnd`.
  bool AddDisplay(HWND hwnd, const std::string& display_id, int width, int height, bool is_primary);
  // A composition swap chain of width x height filled from `decoder`. A pipeline of the same
  // key is replaced; displays that showed it must be assigned again.
  bool AddDecoderPipeline(const std::string& decoder_key, VideoDecoder* decoder, int width,
                          int height);
  // The display shows the pipeline, scaled from the canvas to the display.
  bool AssignDisplayToDecoder(const std::string& display_id, const std::string& decoder_key);
  // The display shows only crop_width x crop_height of the canvas from (x, y), scaled to the
  // display. Published by the render loop's next commit, or at once while the loop is stopped.
  void SetDisplayCrop(const std::string& display_id, int x, int y, int crop_width, int crop_height);
  void UnassignDisplay(const std::string& display_id);
  // What the audience may see of the output window below the display's composition (its fade and
  // blanking, 255 all ... 0 black). The composition is drawn above the window's fade overlay, so
  // the display's opacity follows this level too: the render loop multiplies it into the opacity
  // of every pass. Null: always 255.
  using AudienceLevel = std::shared_ptr<const std::atomic<std::uint8_t>>;
  void SetDisplayAudienceLevel(const std::string& display_id, AudienceLevel level);
  // Empty when the display is unknown or shows nothing.
  std::string GetAssignedDecoderKey(const std::string& display_id);
  void RemoveDecoderPipeline(const std::string& decoder_key);
  void RemoveAllDecoderPipelines();
  void RemoveAllDisplays();
  // Stops the loop and any fade, removes everything and releases the composition device.
  void Shutdown();

  void StartRenderLoop();
  // Cancels a running fade (calling its completion) and joins the render thread. Calling it
  // from the render thread itself raises std::system_error.
  void StopRenderLoop();
  bool IsRenderLoopRunning() const { return running_.load(); }

  // Fades every display's opacity to 1 (in, always from 0) or to 0 (out, from the opacity shown
  // when it starts) over duration_ms with an ease-in-out curve; the completion is called once,
  // when the fade ends or is cancelled. A duration below 1, or a display without an effect group,
  // makes the change instant. An instant fade-in leaves a running fade alone; an instant fade-out
  // cancels it.
  void FadeIn(int duration_ms, Completion completion);
  void FadeOut(int duration_ms, Completion completion);
  void CancelFade();
  // Ends a running fade (its completion is called), sets every display's opacity at once and
  // commits.
  void SetOpacity(float opacity);
  // At least one display, and every display has an effect group.
  bool CanFade();

  // Present answered that the device was removed or reset (kept until the coordinator goes).
  bool device_lost() const { return device_lost_.load(); }
  // A render thread that did not stop within the stop timeout (stuck in the media library or in
  // Present) was left behind: the loop cannot start again, and the decoders it may still be
  // inside must not be destroyed.
  bool render_loop_abandoned() const { return loop_abandoned_.load(); }
  // How long StopRenderLoop waits for the render thread (2000 ms unless changed).
  void SetStopTimeoutForTesting(int milliseconds) { stop_timeout_ms_ = milliseconds; }

  // For tests and benchmarks: render loop passes made since the loop started.
  std::uint64_t loop_pass_count() const { return loop_passes_.load(); }
  // For benchmarks: one render tick on the calling thread, with the render loop stopped.
  void RenderTickForBenchmark() { RenderTick(); }

 private:
  struct DisplayEntry {
    std::string display_id;
    HWND hwnd = nullptr;
    int width = 0;
    int height = 0;
    bool is_primary = false;
    std::shared_ptr<CompositionTarget> target;
    std::shared_ptr<CompositionVisual> visual;
    std::shared_ptr<CompositionEffectGroup> effect_group;
    int crop_x = 0;
    int crop_y = 0;
    int crop_width = 0;
    int crop_height = 0;
    bool has_crop = false;
    std::string decoder_key;
    AudienceLevel audience_level;
    // The opacity fades and SetOpacity give the display (0 until raised), and what it was when
    // the running fade-out began: a fade-out starts from what the audience sees.
    float video_opacity = 0.0f;
    float fade_from = 1.0f;
    // Opacity last given to the effect group: the video opacity times the audience level.
    float applied_opacity = -1.0f;
  };
  struct DecoderPipeline {
    VideoDecoder* decoder = nullptr;
    std::shared_ptr<CompositionSwapChain> swap_chain;
    int width = 0;
    int height = 0;
  };
  // One pipeline as the render tick sees it, copied out of the map under the lock.
  struct TickEntry {
    VideoDecoder* decoder;
    std::shared_ptr<CompositionSwapChain> swap_chain;
    int width;
    int height;
  };

  TimePoint Now() const { return clock_(); }
  HRESULT CreatePipelineSwapChain(int width, int height,
                                  std::shared_ptr<CompositionSwapChain>* chain);
  // Shows nothing on the display and resets its crop. Caller holds mutex_.
  void ClearDisplayLocked(DisplayEntry& display);
  void ResetCropLocked(DisplayEntry& display);
  void ApplyVisualScaleLocked(CompositionVisual* visual, int source_width, int source_height,
                              int destination_width, int destination_height);
  void ReleaseDisplayLocked(DisplayEntry& display);
  void CommitLogged();

  // Render loop (dcomp_coordinator_render_loop.cpp).
  void RenderLoop();
  static void RunLoopPasses(void* context);
  void RenderTick();
  void PresentPipeline(CompositionSwapChain& swap_chain, int canvas_width, int canvas_height,
                       ID3D11Texture2D* source, int source_width, int source_height);
  void ReportDeviceLost(HRESULT presented);
  void FadeTick();
  // Every display's opacity, or with from_fade_start that fraction of what each showed when the
  // running fade-out began.
  void SetAllOpacity(float opacity, bool from_fade_start = false);
  // Gives the display's effect group the video opacity times its audience level, when that
  // changed; true when it did. Caller holds mutex_.
  bool ApplyOpacityLocked(DisplayEntry& display);
  // Follows every display's audience level; commits when an opacity changed.
  void ApplyAudienceLevels();
  // Takes the running fade out (not calling its completion); false when none ran.
  bool TakeRunningFade(Completion* completion);
  void StartFade(bool fade_out, int duration_ms, Completion completion);
  // Takes the stored fade completion out. Caller must not hold fade_mutex_.
  Completion TakeFadeCompletion();

  Clock clock_;
  CompositionDeviceFactory composition_factory_;

  ID3D11Device* device_ = nullptr;
  ID3D11DeviceContext* context_ = nullptr;
  std::shared_ptr<CompositionDevice> dcomp_device_;
  std::map<std::string, DisplayEntry> displays_;
  std::map<std::string, DecoderPipeline> pipelines_;
  RecursiveLock mutex_;

  struct LoopExit;
  std::thread render_thread_;
  std::shared_ptr<LoopExit> loop_exit_;
  int stop_timeout_ms_ = 2000;
  std::atomic<bool> loop_abandoned_{false};
  std::atomic<bool> device_lost_{false};
  std::atomic<bool> running_{false};
  std::atomic<bool> device_lost_reported_{false};
  std::atomic<bool> fade_active_{false};
  bool fade_out_ = true;
  std::int32_t fade_duration_ms_ = 0;
  TimePoint fade_start_{};
  Completion fade_complete_;
  // Counts the fades started, so that a tick of an earlier fade cannot end a later one.
  std::uint64_t fade_generation_ = 0;
  RecursiveLock fade_mutex_;

  // Render thread only: the tick's copy of the pipelines, kept to reuse its storage.
  std::vector<TickEntry> tick_entries_;
  std::atomic<std::uint64_t> loop_passes_{0};
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_DCOMP_COORDINATOR_H_
