// The fade and blank state of a live window and its black overlay.
//
// Fading is not drawn into the swap chain: a black, click-through, layered child window covers the
// live window's client area (and any web view in it), and the render loop steps its whole-window
// alpha once per frame along a quadratic ease-in-out curve. Blanking is a flag that makes the
// render loop draw plain black while no fade runs.
//
// Fade requests and blanking come from the platform thread, Step() from the render thread; both
// hold `fade_mutex_` while touching the state and the overlay's alpha. Completion callbacks are
// always called with no lock held. A timed fade is also stepped by a timer on the overlay's own
// thread, so it ends and calls its callback even while the render loop is stopped. The overlay window belongs to the thread that created it (the
// platform thread): Step() on any other thread only posts the new alpha to it, and the overlay's
// window procedure applies it, so the render thread never waits for the platform thread.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_FADE_OVERLAY_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_FADE_OVERLAY_H_

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "live_output/window/live_window_clock.h"
#include "live_output/window/recursive_lock.h"

namespace native_live_window {

class FadeOverlay {
 public:
  using Callback = std::function<void()>;

  explicit FadeOverlay(std::shared_ptr<const LiveWindowClock> clock);
  // Destroys the overlay window if Destroy() was not called.
  ~FadeOverlay();

  FadeOverlay(const FadeOverlay&) = delete;
  FadeOverlay& operator=(const FadeOverlay&) = delete;

  // Starts a fade of the overlay over `parent` (created on first use). duration_ms <= 0 fades at
  // once and calls the callback before returning; so does a fade whose overlay cannot be made.
  // Otherwise the callback runs on the thread that calls Step() when the fade ends, unless a
  // later fade replaces it first (it is then never called).
  void FadeToBlack(HWND parent, std::int32_t duration_ms, Callback callback);
  void FadeFromBlack(HWND parent, std::int32_t duration_ms, Callback callback);

  // Advances a running fade to the clock's present; called by the render loop once per frame.
  // The window is touched only when the 8-bit alpha changes.
  void Step();

  void SetBlank(bool blank);
  bool blanked() const;
  // Blank and fading flags read together.
  void ReadState(bool* blank, bool* fading) const;

  // Follows the live window's client size.
  void Resize(std::int32_t width, std::int32_t height);
  // Destroys the overlay window and resets its alpha to 0. A running fade stops without calling
  // its callback.
  void Destroy();

  HWND overlay_window() const;
  // Alpha last given to the overlay: 0 transparent ... 255 black.
  std::uint8_t overlay_alpha() const;
  // How much of the window's content the audience sees, 255 (all) ... 0 (black): the overlay's
  // darkness, or 0 while blanked and not fading. Shared, so that whatever composes onto the window
  // above the overlay (video) can follow it, also after the window is gone.
  std::shared_ptr<const std::atomic<std::uint8_t>> audience_level() const { return audience_level_; }

  // Alpha of a fade that began at start_alpha, at progress p in [0, 1) along the eased curve
  // (truncated, not rounded). A fresh fade begins at 0 towards black and at 255 from black; one
  // that interrupts another begins at the alpha the other had reached.
  static std::uint8_t AlphaAt(float progress, std::uint8_t start_alpha, bool to_black);

 private:
  void StartFade(HWND parent, bool to_black, std::int32_t duration_ms, Callback callback);
  bool EnsureOverlayLocked(HWND parent);
  void SetAlphaLocked(std::uint8_t alpha);
  void PublishLevelLocked();
  // A step's alpha, applied and raised at once on the overlay's own thread, posted from others.
  void ShowAlphaLocked(std::uint8_t alpha);
  void ApplyPostedAlpha(HWND overlay);
  static bool RegisterOverlayClass();
  static LRESULT CALLBACK OverlayProc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam);

  std::shared_ptr<const LiveWindowClock> clock_;

  mutable RecursiveLock fade_mutex_;
  bool blank_ = false;
  bool fading_ = false;
  bool fade_to_black_ = false;
  std::int64_t fade_start_ = 0;
  std::uint8_t fade_start_alpha_ = 0;
  std::int32_t fade_duration_ms_ = 0;
  Callback fade_callback_;
  HWND overlay_hwnd_ = nullptr;
  // Thread that owns the overlay window, and whether an alpha message is on its way to it.
  DWORD overlay_thread_ = 0;
  bool alpha_posted_ = false;
  std::uint8_t overlay_alpha_ = 0;
  const std::shared_ptr<std::atomic<std::uint8_t>> audience_level_;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_FADE_OVERLAY_H_
