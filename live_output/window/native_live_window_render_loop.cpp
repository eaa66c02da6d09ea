// The render loop of a live window: its thread, one frame, Present, the black frame that
// PresentBlackNow asks for, and the recovery from a lost device.
//
// The render thread owns the Direct3D immediate context from the moment the platform thread
// decides to start it until the thread's last act; `render_handoff_` says which thread may use the
// context, so that the two never use it at once (the immediate context is not thread-safe).
#include <algorithm>
#include <cstdio>
#include <string>

#include "live_output/diagnostics/gpu_diagnostics.h"
#include "live_output/log/logger.h"
#include "live_output/window/native_live_window.h"
#include "live_output/window/render_fault_guard.h"

namespace native_live_window {
namespace {

constexpr std::uint32_t kHeartbeatIntervalMs = 60000;
// Waits between attempts to make a lost device again: the first comes at once, then 250 ms,
// doubling up to 5 s.
constexpr std::uint32_t kFirstRetryDelayMs = 250;
constexpr std::uint32_t kLongestRetryDelayMs = 5000;
// How long a frame without a device waits before it looks again (fades still step meanwhile).
constexpr DWORD kDevicelessFrameMs = 10;

void DebugLine(const wchar_t* text) { OutputDebugStringW(text); }

}  // namespace

// Locals of one run of the render loop, kept in memory so that they survive a fault.
struct NativeLiveWindow::LoopState {
  NativeLiveWindow* window;
  std::uint64_t frames;
  std::uint32_t start;
  std::uint32_t last;
};

void NativeLiveWindow::StartRenderLoop() {
  running_.store(true);
  LaunchRenderThread();
}

void NativeLiveWindow::LaunchRenderThread() {
  // Decided here, before the thread exists: from now on a black frame is the new thread's to
  // present, even before it has run a single instruction.
  render_handoff_.store(kRenderThreadOwnsContext);
  try {
    // Assigning over a thread that was never joined ends the process: that would be a lost loop.
    render_thread_ = std::thread(&NativeLiveWindow::RenderLoop, this);
  } catch (...) {
    render_handoff_.store(0);
    throw;
  }
}

void NativeLiveWindow::StopRenderLoop() {
  if (!running_.load()) {
    return;
  }
  running_.store(false);
  render_thread_.join();
  render_thread_ = std::thread();
  Logger::Instance().Info("RENDER", "Render loop stopped (window kept open)");
}

void NativeLiveWindow::RestartRenderLoop() {
  if (running_.load() || hwnd_ == nullptr || !HasDeviceOrRecovery()) {
    return;
  }
  running_.store(true);
  device_lost_.store(false);
  LaunchRenderThread();
  Logger::Instance().Info("RENDER", "Render loop restarted");
}

void NativeLiveWindow::RenderLoop() {
  Logger& log = Logger::Instance();
  log.Info("RENDER", "Render loop started");
  DebugLine(L"Kestrun: Render loop started\n");

  LoopState state = {};
  state.window = this;
  state.start = clock_->TickCountMs();
  state.last = state.start;
  state.frames = 0;
  std::uint32_t exception_code = 0;
  if (!RenderFaultGuard::Run(&NativeLiveWindow::RunLoopFrames, &state, &exception_code)) {
    ReportRenderCrash(exception_code);
  }

  log.Info("RENDER", "Render loop ended after %llu frames",
           static_cast<unsigned long long>(state.frames));
  DebugLine(L"Kestrun: Render loop ended\n");
  ReleaseContext();
}

void NativeLiveWindow::ReleaseContext() {
  // A black frame handed over while the loop was ending is presented before the context is given
  // back; only this thread clears the request, so the loop ends after at most a few rounds.
  for (;;) {
    std::uint32_t owned_without_request = kRenderThreadOwnsContext;
    if (render_handoff_.compare_exchange_strong(owned_without_request, 0)) {
      return;
    }
    render_handoff_.store(kRenderThreadOwnsContext);
    PresentBlackFrame();
  }
}

void NativeLiveWindow::RunLoopFrames(void* context) {
  LoopState* state = static_cast<LoopState*>(context);
  NativeLiveWindow* window = state->window;
  while (window->running_.load()) {
    window->RenderFrame();
    state->frames += 1;
    const std::uint32_t now = window->clock_->TickCountMs();
    if (static_cast<std::uint32_t>(now - state->last) >= kHeartbeatIntervalMs) {
      const std::uint32_t seconds = static_cast<std::uint32_t>(now - state->start) / 1000;
      const double fps =
          seconds != 0 ? static_cast<double>(state->frames) / static_cast<double>(seconds) : 0.0;
      std::printf("Kestrun Native: Render heartbeat: %llu frames, %lu seconds, %.1f avg FPS\n",
                  static_cast<unsigned long long>(state->frames),
                  static_cast<unsigned long>(seconds), fps);
      std::fflush(stdout);
      state->last = now;
    }
    Sleep(1);
  }
}

HRESULT NativeLiveWindow::DeviceRemovedReason() const {
  const HRESULT reason = device_.RemovedReason();
  const RemovedReasonFilter filter = removed_reason_filter_.load(std::memory_order_relaxed);
  return filter != nullptr ? filter(reason) : reason;
}

void NativeLiveWindow::ReportRenderCrash(std::uint32_t exception_code) {
  const HRESULT reason = DeviceRemovedReason();
  std::printf("Kestrun Native: CRASH in render loop! Exception code: 0x%08X\n",
              static_cast<unsigned>(exception_code));
  std::fflush(stdout);
  Logger& log = Logger::Instance();
  log.Error("RENDER", "CRASH in render loop on %s! Exception code: 0x%08X", DisplayName(),
            static_cast<unsigned>(exception_code));
  if (reason != S_OK) {
    log.Error("RENDER", "D3D11 device removed reason on %s: %s (0x%08X)", DisplayName(),
              DeviceRemovedReasonText(reason), static_cast<unsigned>(reason));
  }
  log.Flush();
}

void NativeLiveWindow::RenderFrame() {
  if (recovering_.load()) {
    if (!RecoverDevice()) {
      // Fades and their completions go on without a device.
      fade_.Step();
      Sleep(kDevicelessFrameMs);
      return;
    }
  }
  if (!device_.ready()) {
    return;
  }
  if ((render_handoff_.load(std::memory_order_relaxed) & kBlackFrameRequested) != 0) {
    render_handoff_.fetch_and(~kBlackFrameRequested);
    PresentBlackFrame();
    return;
  }

  fade_.Step();
  bool blank = false;
  bool fading = false;
  fade_.ReadState(&blank, &fading);
  if (blank && !fading) {
    ClearToBlack();
    Present(1);
    return;
  }

  HRESULT prepared = S_OK;
  {
    RenderFaultGuard::ScopedFrameLock lock(image_.mutex());
    const FrameHook hook = frame_hook_.load(std::memory_order_relaxed);
    if (hook != nullptr) {
      hook();
    }
    if (content_mode_.load() == kContentImage && image_.HasImageLocked()) {
      // After a new device the image is made again on it, from the pixels kept in memory.
      prepared = image_.PrepareLocked(device_.device());
    }
    if (content_mode_.load() != kContentImage || !image_.HasImageLocked() || FAILED(prepared)) {
      ClearToBlack();
    } else {
      image_.AdvanceAnimationLocked(device_.context(), clock_->SteadyNow());
      // The size the platform thread gave the swap chain: the window itself is not asked, since
      // this thread makes no call on the platform thread's windows.
      image_.DrawLocked(device_.context(), device_.render_target_view(), target_width_.load(),
                        target_height_.load());
    }
  }
  if (LiveWindowDeviceResources::IsDeviceLoss(prepared)) {
    OnDeviceLost("image upload", prepared);
    return;
  }
  // The image lock is released before presenting.
  Present(1);
}

void NativeLiveWindow::ClearToBlack() {
  const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
  device_.context()->ClearRenderTargetView(device_.render_target_view(), black);
}

void NativeLiveWindow::PresentBlackFrame() {
  if (!device_.ready()) {
    return;
  }
  ClearToBlack();
  Present(0);
  black_frame_count_.fetch_add(1);
}

bool NativeLiveWindow::Present(UINT sync_interval) {
  if (!device_.swap_chain()) {
    return false;
  }
  HRESULT hr = device_.Present(sync_interval);
  const PresentFilter filter = present_filter_.load(std::memory_order_relaxed);
  if (filter != nullptr) {
    hr = filter(hr);
  }

  if (SUCCEEDED(hr)) {
    if (awaiting_first_present_) {
      FinishRecovery();
    }
  } else if (!LiveWindowDeviceResources::IsDeviceLoss(hr)) {
    Logger::Instance().Warning("D3D11", "Present failed on %s with HRESULT=0x%08X", DisplayName(),
                               static_cast<unsigned>(hr));
  } else {
    OnDeviceLost("Present", hr);
  }
  present_count_.fetch_add(1);
  present_event_.Signal();
  return SUCCEEDED(hr);
}

void NativeLiveWindow::PresentBlackNow() {
  std::uint32_t state = render_handoff_.load();
  while ((state & kRenderThreadOwnsContext) != 0) {
    // A render thread was started and has not let go of the context: it presents the frame next.
    if (render_handoff_.compare_exchange_weak(state, state | kBlackFrameRequested)) {
      return;
    }
  }
  PresentBlackFrame();
}

// ---------------------------------------------------------------------------------------------
// Device loss and recovery

void NativeLiveWindow::ReportDeviceLoss(const char* call, HRESULT hr) {
  // Reported once: later failures of the same loss stay quiet.
  if (device_lost_.exchange(true)) {
    return;
  }
  loss_tick_.store(clock_->TickCountMs());
  const HRESULT reason = DeviceRemovedReason();
  Logger& log = Logger::Instance();
  log.Error("D3D11", "Device lost during %s on %s! HRESULT=0x%08X, Reason: %s (0x%08X)", call,
            DisplayName(), static_cast<unsigned>(hr), DeviceRemovedReasonText(reason),
            static_cast<unsigned>(reason));
  log.Flush();
}

void NativeLiveWindow::OnDeviceLost(const char* call, HRESULT hr) {
  ReportDeviceLoss(call, hr);
  if (awaiting_first_present_) {
    // The device just made is lost too: that attempt failed.
    awaiting_first_present_ = false;
    PostponeRecovery(hr);
  } else if (!recovering_.load()) {
    retry_delay_ms_ = 0;
    next_attempt_tick_ = clock_->TickCountMs();
    recovering_.store(true);
  }
}

bool NativeLiveWindow::RecoverDevice() {
  if (static_cast<std::int32_t>(clock_->TickCountMs() - next_attempt_tick_) < 0) {
    return false;
  }
  const std::int32_t width = target_width_.load();
  const std::int32_t height = target_height_.load();
  const HRESULT hr =
      device_.Create(hwnd_, static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                     LiveWindowDeviceResources::Adapter::kDrivingTheWindow);
  if (FAILED(hr)) {
    PostponeRecovery(hr);
    return false;
  }
  ImagePipeline::BindTarget(device_.context(), device_.render_target_view(), width, height);
  recovering_.store(false);
  awaiting_first_present_ = true;
  return true;
}

void NativeLiveWindow::PostponeRecovery(HRESULT hr) {
  retry_delay_ms_ = retry_delay_ms_ == 0 ? kFirstRetryDelayMs
                                         : std::min(retry_delay_ms_ * 2, kLongestRetryDelayMs);
  next_attempt_tick_ = clock_->TickCountMs() + retry_delay_ms_;
  recovering_.store(true);
  Logger::Instance().Warning("D3D11",
                             "Device re-creation failed on %s (HRESULT=0x%08X); next attempt in "
                             "%u ms",
                             DisplayName(), static_cast<unsigned>(hr),
                             static_cast<unsigned>(retry_delay_ms_));
  present_event_.Signal();
}

void NativeLiveWindow::FinishRecovery() {
  awaiting_first_present_ = false;
  retry_delay_ms_ = 0;
  const std::uint32_t elapsed = clock_->TickCountMs() - loss_tick_.load();
  Logger& log = Logger::Instance();
  log.Info("D3D11", "Device recovered on %s in %u ms", DisplayName(),
           static_cast<unsigned>(elapsed));
  // Which adapter renders now, once the audience sees the picture again.
  LogAdapterForWindow(device_.device(), MonitorFromWindow(hwnd_, MONITOR_DEFAULTTONULL),
                      DisplayName());
  log.Flush();
  // A later loss is a new one, and is reported again.
  device_lost_.store(false);
  recovered_count_.fetch_add(1);
}

void NativeLiveWindow::ResetRecovery() {
  recovering_.store(false);
  device_lost_.store(false);
  awaiting_first_present_ = false;
  retry_delay_ms_ = 0;
}

}  // namespace native_live_window
