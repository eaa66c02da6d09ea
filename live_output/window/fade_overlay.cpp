#include "live_output/window/fade_overlay.h"

#include <atomic>
#include <utility>

#include "live_output/window/render_fault_guard.h"

namespace native_live_window {
namespace {

constexpr wchar_t kOverlayClassName[] = L"KestrunFadeOverlay";
constexpr UINT kRaiseFlags = SWP_NOSIZE | SWP_NOMOVE | SWP_NOACTIVATE;
// Posted to the overlay by a thread that does not own it: apply the alpha last computed and raise
// the overlay to the top.
constexpr UINT kApplyAlphaMessage = WM_APP + 1;
// Steps a timed fade on the overlay's own thread, so that every fade ends (and calls its
// callback) also while the render loop is stopped, as it is on windows that show video.
constexpr UINT_PTR kFadeTimerId = 1;
constexpr UINT kFadeTimerMs = 10;

std::atomic<bool> g_overlay_class_registered{false};

}  // namespace

FadeOverlay::FadeOverlay(std::shared_ptr<const LiveWindowClock> clock)
    : clock_(std::move(clock)), audience_level_(std::make_shared<std::atomic<std::uint8_t>>(255)) {}

FadeOverlay::~FadeOverlay() { Destroy(); }

LRESULT CALLBACK FadeOverlay::OverlayProc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_NCHITTEST) {
    // Clicks go through to the live window below.
    return HTTRANSPARENT;
  }
  if (message == kApplyAlphaMessage) {
    auto* overlay = reinterpret_cast<FadeOverlay*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (overlay != nullptr) {
      overlay->ApplyPostedAlpha(hwnd);
    }
    return 0;
  }
  if (message == WM_TIMER && wparam == kFadeTimerId) {
    auto* overlay = reinterpret_cast<FadeOverlay*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    bool fading = false;
    if (overlay != nullptr) {
      overlay->Step();
      bool blank = false;
      overlay->ReadState(&blank, &fading);
    }
    if (!fading) {
      KillTimer(hwnd, kFadeTimerId);
    }
    return 0;
  }
  return DefWindowProcW(hwnd, message, wparam, lparam);
}

bool FadeOverlay::RegisterOverlayClass() {
  if (g_overlay_class_registered.load()) {
    return true;
  }
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.style = 0;
  window_class.lpfnWndProc = &FadeOverlay::OverlayProc;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.hbrBackground = CreateSolidBrush(RGB(0, 0, 0));
  window_class.lpszClassName = kOverlayClassName;
  if (RegisterClassExW(&window_class) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
    DeleteObject(window_class.hbrBackground);
    return false;
  }
  g_overlay_class_registered.store(true);
  return true;
}

bool FadeOverlay::EnsureOverlayLocked(HWND parent) {
  if (overlay_hwnd_ != nullptr) {
    return true;
  }
  if (parent == nullptr || !RegisterOverlayClass()) {
    return false;
  }
  RECT client = {};
  GetClientRect(parent, &client);
  overlay_hwnd_ = CreateWindowExW(WS_EX_LAYERED | WS_EX_TRANSPARENT, kOverlayClassName, L"",
                                  WS_CHILD | WS_VISIBLE, 0, 0, client.right - client.left,
                                  client.bottom - client.top, parent, nullptr,
                                  GetModuleHandleW(nullptr), nullptr);
  if (overlay_hwnd_ == nullptr) {
    return false;
  }
  SetWindowLongPtrW(overlay_hwnd_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  overlay_thread_ = GetWindowThreadProcessId(overlay_hwnd_, nullptr);
  alpha_posted_ = false;
  overlay_alpha_ = 0;
  SetLayeredWindowAttributes(overlay_hwnd_, 0, 0, LWA_ALPHA);
  SetWindowPos(overlay_hwnd_, HWND_TOP, 0, 0, 0, 0, kRaiseFlags);
  return true;
}

void FadeOverlay::ShowAlphaLocked(std::uint8_t alpha) {
  overlay_alpha_ = alpha;
  if (GetCurrentThreadId() == overlay_thread_) {
    SetLayeredWindowAttributes(overlay_hwnd_, 0, alpha, LWA_ALPHA);
    SetWindowPos(overlay_hwnd_, HWND_TOP, 0, 0, 0, 0, kRaiseFlags);
    return;
  }
  // Another thread (the render thread) never changes the window itself: the owning thread may be
  // joining it without pumping messages. One posted message at a time; it applies whatever alpha
  // is current when it arrives, so later steps and fades started meanwhile are never undone.
  if (!alpha_posted_) {
    alpha_posted_ = PostMessageW(overlay_hwnd_, kApplyAlphaMessage, 0, 0) != FALSE;
  }
}

void FadeOverlay::ApplyPostedAlpha(HWND overlay) {
  std::uint8_t alpha;
  {
    std::lock_guard<RecursiveLock> lock(fade_mutex_);
    if (overlay != overlay_hwnd_) {
      return;
    }
    alpha_posted_ = false;
    alpha = overlay_alpha_;
  }
  SetLayeredWindowAttributes(overlay, 0, alpha, LWA_ALPHA);
  // Kept above the web view at every step.
  SetWindowPos(overlay, HWND_TOP, 0, 0, 0, 0, kRaiseFlags);
}

void FadeOverlay::SetAlphaLocked(std::uint8_t alpha) {
  overlay_alpha_ = alpha;
  SetLayeredWindowAttributes(overlay_hwnd_, 0, alpha, LWA_ALPHA);
}

void FadeOverlay::PublishLevelLocked() {
  // Blanking shows black while no fade runs; otherwise the overlay's darkness counts.
  audience_level_->store(blank_ && !fading_ ? 0 : static_cast<std::uint8_t>(255 - overlay_alpha_));
}

void FadeOverlay::FadeToBlack(HWND parent, std::int32_t duration_ms, Callback callback) {
  StartFade(parent, true, duration_ms, std::move(callback));
}

void FadeOverlay::FadeFromBlack(HWND parent, std::int32_t duration_ms, Callback callback) {
  StartFade(parent, false, duration_ms, std::move(callback));
}

void FadeOverlay::StartFade(HWND parent, bool to_black, std::int32_t duration_ms,
                            Callback callback) {
  Callback call_now;
  {
    std::lock_guard<RecursiveLock> lock(fade_mutex_);
    if (!EnsureOverlayLocked(parent)) {
      // Nothing can be darkened: the fade is over before it began.
      call_now = std::move(callback);
    } else if (duration_ms > 0) {
      SetWindowPos(overlay_hwnd_, HWND_TOP, 0, 0, 0, 0, kRaiseFlags);
      fade_to_black_ = to_black;
      fade_duration_ms_ = duration_ms;
      // A running fade's callback is replaced here and never called.
      fade_callback_ = std::move(callback);
      fade_start_ = clock_->PerformanceCounter();
      if (!fading_) {
        SetAlphaLocked(to_black ? 0 : 255);
      }
      // A fade that interrupts another continues from the alpha it reached, without a jump.
      fade_start_alpha_ = overlay_alpha_;
      fading_ = true;
      SetTimer(overlay_hwnd_, kFadeTimerId, kFadeTimerMs, nullptr);
    } else {
      SetAlphaLocked(to_black ? 255 : 0);
      if (to_black) {
        SetWindowPos(overlay_hwnd_, HWND_TOP, 0, 0, 0, 0, kRaiseFlags);
      }
      fading_ = false;
      fade_callback_ = nullptr;
      call_now = std::move(callback);
    }
    PublishLevelLocked();
  }
  if (call_now) {
    call_now();
  }
}

std::uint8_t FadeOverlay::AlphaAt(float progress, std::uint8_t start_alpha, bool to_black) {
  // Quadratic ease-in-out.
  const float eased = progress < 0.5f
                          ? 2.0f * progress * progress
                          : 1.0f - (2.0f - 2.0f * progress) * (2.0f - 2.0f * progress) / 2.0f;
  const float start = static_cast<float>(start_alpha);
  // From 0 this is eased * 255, from 255 it is (1 - eased) * 255.
  const float value = to_black ? start + (255.0f - start) * eased : (1.0f - eased) * start;
  return static_cast<std::uint8_t>(static_cast<int>(value));
}

void FadeOverlay::Step() {
  Callback finished;
  {
    RenderFaultGuard::ScopedFrameLock lock(fade_mutex_);
    if (!fading_) {
      return;
    }
    const std::int64_t now = clock_->PerformanceCounter();
    const std::int64_t frequency = clock_->PerformanceFrequency();
    const double elapsed_ms =
        static_cast<double>(now - fade_start_) * 1000.0 / static_cast<double>(frequency);
    std::uint8_t alpha;
    bool done = false;
    if (elapsed_ms >= static_cast<double>(fade_duration_ms_)) {
      alpha = fade_to_black_ ? 255 : 0;
      done = true;
      fading_ = false;
    } else {
      const float progress =
          static_cast<float>(elapsed_ms / static_cast<double>(fade_duration_ms_));
      alpha = AlphaAt(progress, fade_start_alpha_, fade_to_black_);
    }
    if (alpha != overlay_alpha_ && overlay_hwnd_ != nullptr) {
      // Also raises the overlay, to keep it above the web view.
      ShowAlphaLocked(alpha);
    }
    if (done && fade_callback_) {
      finished = std::move(fade_callback_);
      fade_callback_ = nullptr;
    }
    PublishLevelLocked();
  }
  if (finished) {
    finished();
  }
}

void FadeOverlay::SetBlank(bool blank) {
  std::lock_guard<RecursiveLock> lock(fade_mutex_);
  blank_ = blank;
  PublishLevelLocked();
}

bool FadeOverlay::blanked() const {
  std::lock_guard<RecursiveLock> lock(fade_mutex_);
  return blank_;
}

void FadeOverlay::ReadState(bool* blank, bool* fading) const {
  RenderFaultGuard::ScopedFrameLock lock(fade_mutex_);
  *blank = blank_;
  *fading = fading_;
}

void FadeOverlay::Resize(std::int32_t width, std::int32_t height) {
  HWND overlay;
  {
    std::lock_guard<RecursiveLock> lock(fade_mutex_);
    overlay = overlay_hwnd_;
  }
  if (overlay != nullptr) {
    SetWindowPos(overlay, nullptr, 0, 0, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
  }
}

void FadeOverlay::Destroy() {
  HWND overlay;
  {
    std::lock_guard<RecursiveLock> lock(fade_mutex_);
    overlay = overlay_hwnd_;
    overlay_hwnd_ = nullptr;
    overlay_alpha_ = 0;
    alpha_posted_ = false;
    fading_ = false;
    fade_callback_ = nullptr;
    PublishLevelLocked();
  }
  if (overlay != nullptr && IsWindow(overlay)) {
    DestroyWindow(overlay);
  }
}

HWND FadeOverlay::overlay_window() const {
  std::lock_guard<RecursiveLock> lock(fade_mutex_);
  return overlay_hwnd_;
}

std::uint8_t FadeOverlay::overlay_alpha() const {
  std::lock_guard<RecursiveLock> lock(fade_mutex_);
  return overlay_alpha_;
}

}  // namespace native_live_window
