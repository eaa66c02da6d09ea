// Repetition: shows and closes, and fades, leave the process's handles and threads where
// they started.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <memory>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {
namespace {

using live_window_test::Display;
using live_window_test::ManualClock;
using live_window_test::ProcessHandleCount;
using live_window_test::ProcessSettlesTo;
using live_window_test::ProcessThreadCount;
using live_window_test::PumpPending;
using live_window_test::Show;
using live_window_test::WaitForPresents;

void ShowAndClose(const std::vector<std::uint8_t>& pixels) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Stress", 1600, 40, 96, 64)}));
  ASSERT_TRUE(window.ShowImageFromPixels(pixels, 8, 8, 0));
  ASSERT_TRUE(WaitForPresents(window, 1));
  window.Close();
}

TEST(LiveWindowStressTest, ShowCloseCyclesLeaveHandlesAndThreadsAsTheyWere) {
  const std::vector<std::uint8_t> pixels(8 * 8 * 4, 0x7F);
  // The first cycles load the graphics libraries and make the process-wide class and cursor. A
  // handle or thread lost per cycle shows after any number of cycles; sixty keep the run short.
  for (int i = 0; i < 3; ++i) {
    ShowAndClose(pixels);
  }
  PumpPending();
  const DWORD handles = ProcessHandleCount();
  const DWORD threads = ProcessThreadCount();
  ASSERT_GT(handles, 0u);
  ASSERT_GT(threads, 0u);

  for (int i = 0; i < 60; ++i) {
    ShowAndClose(pixels);
    if (HasFatalFailure()) {
      FAIL() << "cycle " << i;
    }
  }
  PumpPending();
  EXPECT_TRUE(ProcessSettlesTo(handles, threads));
}

TEST(LiveWindowStressTest, ManyFadesLeaveHandlesAndThreadsAsTheyWere) {
  auto clock = std::make_shared<ManualClock>();
  NativeLiveWindow window(clock);
  ASSERT_TRUE(Show(window, {Display("Fade stress", 1600, 140, 96, 64)}));
  window.FadeToBlack(0, nullptr);
  HWND overlay = window.fade_overlay_window();
  ASSERT_TRUE(WaitForPresents(window, 2));
  PumpPending();
  const DWORD handles = ProcessHandleCount();
  const DWORD threads = ProcessThreadCount();

  std::atomic<int> completed{0};
  int expected = 0;
  std::int64_t now_ms = 0;
  for (int i = 0; i < 200; ++i) {
    switch (i % 4) {
      case 0:  // timed; the next fade replaces it, so it never completes
        window.FadeFromBlack(400, [&completed] { completed.fetch_add(1); });
        break;
      case 1:  // reverses the previous one and runs to its end on the render thread
        now_ms += 200;
        clock->SetFadeTimeMs(now_ms);
        window.FadeToBlack(400, [&completed] { completed.fetch_add(1); });
        now_ms += 400;
        clock->SetFadeTimeMs(now_ms);
        ++expected;
        ASSERT_TRUE(live_window_test::PumpUntil(
            [&completed, expected] { return completed.load() == expected; },
            window.present_event()));
        break;
      case 2:
        window.FadeFromBlack(0, [&completed] { completed.fetch_add(1); });
        ++expected;
        break;
      default:
        window.FadeToBlack(-1, [&completed] { completed.fetch_add(1); });
        ++expected;
        break;
    }
  }
  ASSERT_TRUE(WaitForPresents(window, 3));
  PumpPending();
  EXPECT_EQ(window.fade_overlay_window(), overlay);
  EXPECT_EQ(completed.load(), 150);
  EXPECT_EQ(expected, 150);
  EXPECT_TRUE(ProcessSettlesTo(handles, threads));
}

}  // namespace
}  // namespace native_live_window
