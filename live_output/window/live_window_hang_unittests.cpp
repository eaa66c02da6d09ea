// Hangs that would stop a show: the platform thread joining a render thread that waits for it, and a
// fault inside a log call leaving the logger locked. A watchdog ends the program if either hangs.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstring>
#include <string>

#include "live_output/log/logger.h"
#include "live_output/test_support/hang_watchdog.h"
#include "live_output/test_support/live_window_test_support.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {
namespace {

using live_window_test::CountOf;
using live_window_test::Display;
using live_window_test::HangWatchdog;
using live_window_test::LogText;
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

// The test hook faults inside the first "D3D11" log line while the logger's lock is held.
HANDLE g_log_fault_reached = nullptr;
std::atomic<bool> g_log_fault_armed{false};
void FaultInsideD3D11LogLine(const char* category) {
  if (std::strcmp(category, "D3D11") == 0 && g_log_fault_armed.exchange(false)) {
    SetEvent(g_log_fault_reached);
    volatile int* volatile target = nullptr;
    *target = 1;
  }
}
HRESULT FailingPresent(HRESULT) { return E_FAIL; }

TEST(LiveWindowHangTest, FaultInsideALogCallLeavesTheLoggerToEveryoneElse) {
  HangWatchdog watchdog(30000, "logging after a fault inside a log call");
  g_log_fault_reached = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ASSERT_NE(g_log_fault_reached, nullptr);
  NativeLiveWindow faulting;
  NativeLiveWindow bystander;
  ASSERT_TRUE(Show(faulting, {Display("Faulting logger", 120, 120, 160, 90)}));
  ASSERT_TRUE(Show(bystander, {Display("Logging bystander", 300, 120, 160, 90)}));
  const std::size_t mark = LogText().size();

  Logger::Instance().SetWriteHookForTesting(&FaultInsideD3D11LogLine);
  g_log_fault_armed.store(true);
  // The failed Present logs a warning from the render thread; the hook faults inside that call.
  faulting.SetPresentFilterForTesting(&FailingPresent);
  ASSERT_TRUE(PumpUntil([] { return WaitForSingleObject(g_log_fault_reached, 0) == WAIT_OBJECT_0; },
                        g_log_fault_reached));

  // The platform thread logs on, and the other window keeps drawing and logging.
  Logger::Instance().Info("NATIVE", "Platform thread logs after the fault");
  bystander.SetPresentFilterForTesting(&FailingPresent);
  EXPECT_TRUE(WaitForPresents(bystander, 3));
  bystander.SetPresentFilterForTesting(nullptr);
  EXPECT_TRUE(WaitForPresents(bystander, 3));
  faulting.StopRenderLoop();
  Logger::Instance().SetWriteHookForTesting(nullptr);

  const std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "INFO  [NATIVE] Platform thread logs after the fault"), 1u) << log;
  EXPECT_EQ(CountOf(log, "ERROR [RENDER] CRASH in render loop on Faulting logger! Exception code: "
                         "0xC0000005"),
            1u)
      << log;
  EXPECT_GE(CountOf(log, "WARNING [D3D11] Present failed on Logging bystander with HRESULT=0x80004005"),
            3u)
      << log;
  faulting.Close();
  bystander.Close();
  CloseHandle(g_log_fault_reached);
  g_log_fault_reached = nullptr;
}

}  // namespace
}  // namespace native_live_window
