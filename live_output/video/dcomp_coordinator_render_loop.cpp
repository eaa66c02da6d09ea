// The running half of DCompCoordinator: the render loop and the fades.

#include <windows.h>
#include <wrl/client.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>

#include "live_output/diagnostics/gpu_diagnostics.h"
#include "live_output/log/logger.h"
#include "live_output/video/dcomp_coordinator.h"
#include "live_output/window/render_fault_guard.h"

namespace native_live_window {

namespace {

using Microsoft::WRL::ComPtr;

constexpr char kCategory[] = "DCOMP";
constexpr std::int64_t kHeartbeatSeconds = 60;

unsigned Hr(HRESULT hr) { return static_cast<unsigned>(hr); }

// Ease in-out quadratic on t in [0, 1].
float Ease(float t) {
  if (t < 0.5f) {
    return 2.0f * t * t;
  }
  const float rest = 2.0f - 2.0f * t;
  return 1.0f - rest * rest / 2.0f;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Loop

// Set by the render thread as its last act, so that StopRenderLoop can wait for it with a bound.
struct DCompCoordinator::LoopExit {
  std::mutex mutex;
  std::condition_variable ended;
  bool done = false;
};

void DCompCoordinator::StartRenderLoop() {
  if (running_.load()) {
    return;
  }
  if (loop_abandoned_.load()) {
    Logger::Instance().Error(kCategory, "Render loop not started: an earlier render thread is "
                                        "still stuck");
    return;
  }
  if (render_thread_.joinable()) {
    render_thread_.join();
  }
  running_.store(true);
  device_lost_reported_.store(false);
  loop_passes_.store(0);
  loop_exit_ = std::make_shared<LoopExit>();
  render_thread_ = std::thread([this, exit = loop_exit_] {
    RenderLoop();
    std::lock_guard<std::mutex> lock(exit->mutex);
    exit->done = true;
    exit->ended.notify_all();
  });
  Logger::Instance().Info(kCategory, "Render loop started");
}

void DCompCoordinator::StopRenderLoop() {
  CancelFade();
  running_.store(false);
  if (render_thread_.joinable()) {
    if (render_thread_.get_id() == std::this_thread::get_id()) {
      render_thread_.join();  // raises std::system_error (resource deadlock)
    }
    bool ended = true;
    if (loop_exit_) {
      std::unique_lock<std::mutex> lock(loop_exit_->mutex);
      ended = loop_exit_->ended.wait_for(lock, std::chrono::milliseconds(stop_timeout_ms_),
                                         [this] { return loop_exit_->done; });
    }
    if (ended) {
      render_thread_.join();
    } else {
      // A thread stuck in the media library or in Present is not waited on for ever: it is left
      // behind, and with it everything it may still touch (see render_loop_abandoned()).
      render_thread_.detach();
      loop_abandoned_.store(true);
      Logger::Instance().Error(kCategory,
                               "Render loop did not stop within %d ms (stuck in the media "
                               "library or in Present); the render thread is abandoned",
                               stop_timeout_ms_);
      Logger::Instance().Flush();
    }
  }
  Logger::Instance().Info(kCategory, "Render loop stopped");
}

void DCompCoordinator::RenderLoop() {
  std::uint32_t exception_code = 0;
  if (!RenderFaultGuard::Run(&DCompCoordinator::RunLoopPasses, this, &exception_code)) {
    // The thread ends; running_ stays set until StopRenderLoop joins it.
    Logger::Instance().Error(kCategory, "Render loop SEH exception: 0x%08X", exception_code);
    Logger::Instance().Flush();
  }
}

void DCompCoordinator::RunLoopPasses(void* context) {
  DCompCoordinator* self = static_cast<DCompCoordinator*>(context);
  std::int64_t frames = 0;
  TimePoint mark = self->Now();
  while (self->running_.load()) {
    self->RenderTick();
    if (self->fade_active_.load()) {
      self->FadeTick();
    }
    self->ApplyAudienceLevels();
    frames += 1;
    self->loop_passes_.fetch_add(1);
    const TimePoint now = self->Now();
    const std::int64_t seconds =
        std::chrono::duration_cast<std::chrono::seconds>(now - mark).count();
    if (seconds >= kHeartbeatSeconds) {
      Logger::Instance().Info(kCategory, "Render heartbeat: %lld frames, ~%.1f fps",
                              static_cast<long long>(frames),
                              static_cast<double>(frames) / static_cast<double>(seconds));
      frames = 0;
      mark = now;
    }
    Sleep(1);
  }
}

void DCompCoordinator::RenderTick() {
  tick_entries_.clear();
  {
    RenderFaultGuard::ScopedFrameLock lock(mutex_);
    for (const auto& pipeline : pipelines_) {
      const DecoderPipeline& entry = pipeline.second;
      tick_entries_.push_back(
          TickEntry{entry.decoder, entry.swap_chain, entry.width, entry.height});
    }
  }
  for (TickEntry& entry : tick_entries_) {
    VideoDecoder* decoder = entry.decoder;
    if (decoder == nullptr || decoder->GetTexture() == nullptr || !entry.swap_chain) {
      continue;
    }
    if (decoder->RenderFrame() && decoder->GetTexture() != nullptr) {
      PresentPipeline(*entry.swap_chain, entry.width, entry.height, decoder->GetTexture(),
                      static_cast<int>(decoder->GetWidth()),
                      static_cast<int>(decoder->GetHeight()));
    }
  }
  // Drop the swap chain references now rather than on the next tick.
  tick_entries_.clear();
}

void DCompCoordinator::PresentPipeline(CompositionSwapChain& swap_chain, int canvas_width,
                                       int canvas_height, ID3D11Texture2D* source, int source_width,
                                       int source_height) {
  {
    ComPtr<ID3D11Texture2D> back_buffer;
    if (FAILED(swap_chain.GetBackBuffer(&back_buffer)) || !back_buffer) {
      return;
    }
    if (source_width == canvas_width && source_height == canvas_height) {
      context_->CopyResource(back_buffer.Get(), source);
    } else {
      D3D11_BOX box = {};
      box.left = 0;
      box.top = 0;
      box.front = 0;
      box.right = static_cast<UINT>(std::min(source_width, canvas_width));
      box.bottom = static_cast<UINT>(std::min(source_height, canvas_height));
      box.back = 1;
      context_->CopySubresourceRegion(back_buffer.Get(), 0, 0, 0, 0, source, 0, &box);
    }
  }
  const HRESULT presented = swap_chain.Present(1, 0);
  if (SUCCEEDED(presented)) {
    CommitLogged();
  } else if (presented == DXGI_ERROR_DEVICE_REMOVED || presented == DXGI_ERROR_DEVICE_RESET) {
    device_lost_.store(true);
    ReportDeviceLost(presented);
  } else {
    Logger::Instance().Warning(kCategory, "Pipeline Present failed with HRESULT=0x%08X",
                               Hr(presented));
  }
}

void DCompCoordinator::ReportDeviceLost(HRESULT presented) {
  if (device_lost_reported_.exchange(true)) {
    return;
  }
  const HRESULT reason = device_ != nullptr ? device_->GetDeviceRemovedReason() : S_OK;
  std::string names;
  {
    RenderFaultGuard::ScopedFrameLock lock(mutex_);
    for (const auto& display : displays_) {
      if (!names.empty()) {
        names += ",";
      }
      names += display.first;
    }
  }
  Logger& log = Logger::Instance();
  log.Error(kCategory,
            "Device lost during pipeline Present (displays=[%s])! HRESULT=0x%08X, Reason: %s "
            "(0x%08X)",
            names.c_str(), Hr(presented), DeviceRemovedReasonText(reason), Hr(reason));
  log.Flush();
}

// ---------------------------------------------------------------------------------------------
// Opacity and fades

bool DCompCoordinator::ApplyOpacityLocked(DisplayEntry& display) {
  if (!display.effect_group) {
    return false;
  }
  const float level =
      display.audience_level ? static_cast<float>(display.audience_level->load()) / 255.0f : 1.0f;
  const float opacity = display.video_opacity * level;
  if (opacity == display.applied_opacity) {
    return false;
  }
  display.applied_opacity = opacity;
  display.effect_group->SetOpacity(opacity);
  return true;
}

void DCompCoordinator::SetAllOpacity(float opacity, bool from_fade_start) {
  RenderFaultGuard::ScopedFrameLock lock(mutex_);
  for (auto& display : displays_) {
    display.second.video_opacity =
        from_fade_start ? display.second.fade_from * opacity : opacity;
    ApplyOpacityLocked(display.second);
  }
}

void DCompCoordinator::ApplyAudienceLevels() {
  bool changed = false;
  {
    RenderFaultGuard::ScopedFrameLock lock(mutex_);
    for (auto& display : displays_) {
      changed = ApplyOpacityLocked(display.second) || changed;
    }
  }
  if (changed) {
    CommitLogged();
  }
}

void DCompCoordinator::SetOpacity(float opacity) {
  // An instant change ends a running fade, which would otherwise overwrite it on its next tick.
  CancelFade();
  SetAllOpacity(opacity);
  CommitLogged();
}

bool DCompCoordinator::CanFade() {
  std::lock_guard<RecursiveLock> lock(mutex_);
  if (displays_.empty()) {
    return false;
  }
  for (const auto& display : displays_) {
    if (!display.second.effect_group) {
      return false;
    }
  }
  return true;
}

DCompCoordinator::Completion DCompCoordinator::TakeFadeCompletion() {
  RenderFaultGuard::ScopedFrameLock lock(fade_mutex_);
  Completion completion = std::move(fade_complete_);
  fade_complete_ = nullptr;
  return completion;
}

bool DCompCoordinator::TakeRunningFade(Completion* completion) {
  RenderFaultGuard::ScopedFrameLock lock(fade_mutex_);
  if (!fade_active_.exchange(false)) {
    return false;
  }
  // A tick of this fade that is under way finds the generation changed and applies nothing.
  fade_generation_ += 1;
  *completion = std::move(fade_complete_);
  fade_complete_ = nullptr;
  return true;
}

void DCompCoordinator::CancelFade() {
  Completion completion;
  if (!TakeRunningFade(&completion)) {
    return;
  }
  if (completion) {
    completion();
  }
  Logger::Instance().Info(kCategory, "Fade cancelled");
}

void DCompCoordinator::StartFade(bool fade_out, int duration_ms, Completion completion) {
  {
    // Ticks apply opacities under this lock and only for the fade they read: once the new fade is
    // stored here, no tick of an earlier fade can change what it starts from.
    std::lock_guard<RecursiveLock> lock(fade_mutex_);
    if (fade_out) {
      std::lock_guard<RecursiveLock> map_lock(mutex_);
      for (auto& display : displays_) {
        display.second.fade_from = display.second.video_opacity;
      }
    } else {
      // A fade-in always starts from black.
      SetAllOpacity(0.0f);
    }
    fade_complete_ = std::move(completion);
    fade_out_ = fade_out;
    fade_duration_ms_ = duration_ms;
    fade_start_ = Now();
    fade_generation_ += 1;
    fade_active_.store(true);
  }
  CommitLogged();
}

void DCompCoordinator::FadeIn(int duration_ms, Completion completion) {
  const bool can_fade = CanFade();
  if (duration_ms < 1 || !can_fade) {
    // Deliberately leaves a running fade alone: it keeps driving the opacity on the next tick.
    SetAllOpacity(1.0f);
    CommitLogged();
    if (completion) {
      completion();
    }
    return;
  }
  CancelFade();
  StartFade(false, duration_ms, std::move(completion));
  Logger::Instance().Info(kCategory, "Fade-in started (%d ms)", duration_ms);
}

void DCompCoordinator::FadeOut(int duration_ms, Completion completion) {
  const bool can_fade = CanFade();
  if (duration_ms < 1 || !can_fade) {
    CancelFade();
    SetAllOpacity(0.0f);
    CommitLogged();
    if (completion) {
      completion();
    }
    return;
  }
  CancelFade();
  // Starts from what the audience sees now, never from full opacity.
  StartFade(true, duration_ms, std::move(completion));
  Logger::Instance().Info(kCategory, "Fade-out started (%d ms)", duration_ms);
}

void DCompCoordinator::FadeTick() {
  Completion completion;
  bool finished = false;
  bool fade_out = true;
  {
    RenderFaultGuard::ScopedFrameLock lock(fade_mutex_);
    if (!fade_active_.load()) {
      return;
    }
    fade_out = fade_out_;
    const std::int32_t duration_ms = fade_duration_ms_ > 0 ? fade_duration_ms_ : 1;
    const std::int64_t elapsed_ms =
        std::chrono::duration_cast<std::chrono::nanoseconds>(Now() - fade_start_).count() /
        1000000;
    const float progress = static_cast<float>(elapsed_ms) / static_cast<float>(duration_ms);
    const float t = std::min(progress, 1.0f);
    const float eased = Ease(t < 0.0f ? 0.0f : t);
    if (fade_out) {
      SetAllOpacity(1.0f - eased, true);
    } else {
      SetAllOpacity(eased);
    }
    if (t >= 1.0f) {
      fade_active_.store(false);
      fade_generation_ += 1;
      completion = std::move(fade_complete_);
      fade_complete_ = nullptr;
      finished = true;
    }
  }
  CommitLogged();
  if (finished) {
    Logger::Instance().Info(kCategory, "Fade-%s complete", fade_out ? "out" : "in");
    if (completion) {
      completion();
    }
  }
}

}  // namespace native_live_window
