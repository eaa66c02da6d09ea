// Hangs that would stop a show: the platform thread joining a render thread that waits for it. A
// watchdog ends the program if it hangs.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <string>

#include "live_output/test_support/hang_watchdog.h"
#include "live_output/test_support/live_window_test_support.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {
namespace {

using live_window_test::Display;
using live_window_test::HangWatchdog;
using live_window_test::PumpPending;
using live_window_test::PumpUntil;
using live_window_test::Show;
using live_window_test::WaitForPresents;

int WindowAlpha(HWND window) {
  BYTE alpha = 0;
  COLORREF key = 0;
  DWORD flags = 0;
  return GetLayeredWindowAttributes(window, &key, &alpha, &flags) ? alpha : -1;
}

// Each window is resized many times while a short fade runs (the render thread changes the overlay
// every frame meanwhile), runs one fade to its end, and is closed in the middle of another.
TEST(LiveWindowHangTest, ClosingAndResizingDuringTimedFadesNeverHangs) {
  HangWatchdog watchdog(90000, "closing and resizing live windows during fades");
  constexpr int kWindows = 6;
  constexpr int kResizesPerWindow = 35;
  std::atomic<int> finished{0};
  for (int cycle = 0; cycle < kWindows; ++cycle) {
    NativeLiveWindow window;
    ASSERT_TRUE(Show(window, {Display("Fade and resize", 1600, 40, 120, 80)}));
    for (int i = 0; i < kResizesPerWindow; ++i) {
      const std::int32_t duration_ms = 40 + 30 * (i % 4);
      if (i % 2 == 0) {
        window.FadeToBlack(duration_ms, nullptr);
      } else {
        window.FadeFromBlack(duration_ms, nullptr);
      }
      ASSERT_TRUE(WaitForPresents(window, 2));
      // WM_SIZE: the platform thread stops and joins the render thread mid-fade.
      SetWindowPos(window.GetHwnd(), nullptr, 0, 0, 120 + 8 * (i % 3), 80 + 6 * (i % 2),
                   SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    // A fade that runs to its end leaves the overlay as dark as the window says.
    const int target = finished.load() + 1;
    window.FadeToBlack(30, [&finished] { finished.fetch_add(1); });
    ASSERT_TRUE(PumpUntil([&] { return finished.load() == target; }, window.present_event()));
    PumpPending();
    EXPECT_EQ(WindowAlpha(window.fade_overlay_window()), 255) << "cycle " << cycle;
    EXPECT_EQ(window.fade_overlay_alpha(), 255);

    window.FadeFromBlack(200, nullptr);
    ASSERT_TRUE(WaitForPresents(window, 1));
    window.Close();
  }
  EXPECT_EQ(finished.load(), kWindows);
}

}  // namespace
}  // namespace native_live_window
