// The running half of DCompCoordinator: the render loop and the fades.

#include <windows.h>
#include <wrl/client.h>

#include <algorithm>
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

void DCompCoordinator::StartRenderLoop() {
  if (running_.load()) {
    return;
  }
  if (render_thread_.joinable()) {
    render_thread_.join();
  }
  running_.store(true);
  device_lost_reported_.store(false);
  loop_passes_.store(0);
  render_thread_ = std::thread(&DCompCoordinator::RenderLoop, this);
  Logger::Instance().Info(kCategory, "Render loop started");
}

void DCompCoordinator::StopRenderLoop() {
  CancelFade();
  running_.store(false);
  if (render_thread_.joinable()) {
    // From the render thread itself this raises std::system_error (resource deadlock).
    render_thread_.join();
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

void DCompCoordinator::SetAllOpacity(float opacity) {
  RenderFaultGuard::ScopedFrameLock lock(mutex_);
  for (auto& display : displays_) {
    if (display.second.effect_group) {
      display.second.effect_group->SetOpacity(opacity);
    }
  }
}

void DCompCoordinator::SetOpacity(float opacity) {
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

void DCompCoordinator::CancelFade() {
  if (!fade_active_.exchange(false)) {
    return;
  }
  Completion completion = TakeFadeCompletion();
  if (completion) {
    completion();
  }
  Logger::Instance().Info(kCategory, "Fade cancelled");
}

void DCompCoordinator::StartFade(bool fade_out, int duration_ms, Completion completion) {
  {
    std::lock_guard<RecursiveLock> lock(fade_mutex_);
    fade_complete_ = std::move(completion);
    fade_out_ = fade_out;
    fade_duration_ms_ = duration_ms;
    fade_start_ = Now();
    fade_generation_ += 1;
    fade_active_.store(true);
  }
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
  // A fade-in always starts from black.
  SetAllOpacity(0.0f);
  CommitLogged();
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
  // The opacity is not reset: the first tick sets the curve's start value.
  StartFade(true, duration_ms, std::move(completion));
  Logger::Instance().Info(kCategory, "Fade-out started (%d ms)", duration_ms);
}

void DCompCoordinator::FadeTick() {
  bool fade_out = true;
  std::int32_t duration_ms = 1;
  TimePoint start;
  std::uint64_t generation = 0;
  {
    RenderFaultGuard::ScopedFrameLock lock(fade_mutex_);
    generation = fade_generation_;
    fade_out = fade_out_;
    duration_ms = fade_duration_ms_ > 0 ? fade_duration_ms_ : 1;
    start = fade_start_;
  }
  const std::int64_t elapsed_ms =
      std::chrono::duration_cast<std::chrono::nanoseconds>(Now() - start).count() / 1000000;
  const float progress = static_cast<float>(elapsed_ms) / static_cast<float>(duration_ms);
  const float t = std::min(progress, 1.0f);
  const float eased = Ease(t < 0.0f ? 0.0f : t);
  SetAllOpacity(fade_out ? 1.0f - eased : eased);
  CommitLogged();
  if (t >= 1.0f) {
    // A cancel, or a newer fade, may have raced this tick: whoever clears the flag of this
    // fade calls its completion.
    Completion completion;
    {
      RenderFaultGuard::ScopedFrameLock lock(fade_mutex_);
      if (generation != fade_generation_ || !fade_active_.exchange(false)) {
        return;
      }
      completion = std::move(fade_complete_);
      fade_complete_ = nullptr;
    }
    Logger::Instance().Info(kCategory, "Fade-%s complete", fade_out ? "out" : "in");
    if (completion) {
      completion();
    }
  }
}

}  // namespace native_live_window
