// The render loop of a real live window: stopping and restarting, the heartbeat on a clock moved
// by hand, and a genuine access violation inside a frame.
#include <gtest/gtest.h>
#include <windows.h>

#include <dxgi.h>

#include <atomic>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {
namespace {

using live_window_test::CapturedStdout;
using live_window_test::CountOf;
using live_window_test::Display;
using live_window_test::LogText;
using live_window_test::ManualClock;
using live_window_test::PumpUntil;
using live_window_test::Show;
using live_window_test::WaitForPresents;

TEST(RenderLoopTest, StopKeepsTheWindowAndRestartResumesPresenting) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Stop and restart", 120, 120, 160, 90)}));
  ASSERT_TRUE(WaitForPresents(window, 3));
  std::size_t mark = LogText().size();
  window.StopRenderLoop();
  window.StopRenderLoop();  // again: nothing more
  EXPECT_FALSE(window.render_loop_running());
  EXPECT_TRUE(IsWindow(window.GetHwnd()));
  std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "INFO  [RENDER] Render loop stopped (window kept open)"), 1u) << log;
  EXPECT_EQ(CountOf(log, "INFO  [RENDER] Render loop ended after "), 1u) << log;

  mark = LogText().size();
  window.RestartRenderLoop();
  window.RestartRenderLoop();  // already running: nothing more
  EXPECT_TRUE(window.render_loop_running());
  ASSERT_TRUE(WaitForPresents(window, 3));
  log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "INFO  [RENDER] Render loop restarted"), 1u) << log;
  EXPECT_EQ(CountOf(log, "INFO  [RENDER] Render loop started"), 1u) << log;

  // After close there is nothing to restart, and nothing to present a black frame on.
  window.Close();
  mark = LogText().size();
  const std::uint64_t closed = window.present_count();
  window.RestartRenderLoop();
  window.PresentBlackNow();
  EXPECT_FALSE(window.render_loop_running());
  EXPECT_EQ(LogText().substr(mark), "");
  EXPECT_EQ(window.present_count(), closed);
}

TEST(RenderLoopTest, HeartbeatEverySixtySecondsOfTicks) {
  auto clock = std::make_shared<ManualClock>();
  const std::uint32_t start = 0xFFFF0000u;  // the tick count wraps during the test
  clock->tick_ms.store(start);
  NativeLiveWindow window(clock);
  CapturedStdout output;
  ASSERT_TRUE(Show(window, {Display("Heartbeat", 120, 120, 160, 90)}));
  ASSERT_TRUE(WaitForPresents(window, 3));
  const std::regex beat(
      "Kestrun Native: Render heartbeat: ([0-9]+) frames, ([0-9]+) seconds, ([0-9]+\\.[0-9]) avg "
      "FPS\n");
  auto beats = [&] {
    const std::string text = output.Text();
    std::vector<std::smatch> found;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), beat);
         it != std::sregex_iterator(); ++it) {
      found.push_back(*it);
    }
    return found;
  };
  // A clock that jumps back so that no whole second has passed since the start prints 0.0.
  const struct {
    std::uint32_t after_ms;
    std::size_t beats;
    const char* seconds;
  } steps[] = {{59999, 0, ""}, {60000, 1, "60"}, {119999, 1, ""}, {120000, 2, "120"}, {500, 3, "0"}};
  for (const auto& step : steps) {
    clock->tick_ms.store(start + step.after_ms);
    ASSERT_TRUE(WaitForPresents(window, 3));
    const auto found = beats();
    ASSERT_EQ(found.size(), step.beats) << output.Text();
    if (*step.seconds == '\0') {
      continue;
    }
    const auto& last = found.back();
    EXPECT_EQ(last[2].str(), step.seconds);
    const double seconds = std::stod(last[2].str());
    char expected_fps[32];
    std::snprintf(expected_fps, sizeof(expected_fps), "%.1f",
                  seconds != 0 ? std::stod(last[1].str()) / seconds : 0.0);
    EXPECT_EQ(last[3].str(), expected_fps);
  }
  window.Close();
}

// A frame hook that faults: it signals that it ran, then writes through a null pointer.
HANDLE g_fault_reached = nullptr;
void FaultingFrame() {
  SetEvent(g_fault_reached);
  volatile int* volatile target = nullptr;
  *target = 1;
}

// Makes the window's next frame fault, and waits until it has.
::testing::AssertionResult FaultNextFrame(NativeLiveWindow& window) {
  g_fault_reached = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  window.SetFrameHookForTesting(&FaultingFrame);
  const bool reached = PumpUntil(
      [] { return WaitForSingleObject(g_fault_reached, 0) == WAIT_OBJECT_0; }, g_fault_reached);
  window.SetFrameHookForTesting(nullptr);
  CloseHandle(g_fault_reached);
  g_fault_reached = nullptr;
  return reached ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << "no fault";
}

TEST(RenderLoopFaultTest, AccessViolationInAFrameEndsOnlyThatWindowsLoop) {
  NativeLiveWindow window;
  NativeLiveWindow bystander;
  ASSERT_TRUE(Show(window, {Display("Faulting display", 120, 120, 160, 90)}));
  ASSERT_TRUE(Show(bystander, {Display("Bystander display", 300, 120, 160, 90)}));
  ASSERT_TRUE(WaitForPresents(window, 2));
  const std::size_t mark = LogText().size();
  CapturedStdout output;

  ASSERT_TRUE(FaultNextFrame(window));

  // The frame hook ran with the image lock held: the fault released it, so an upload goes through.
  EXPECT_TRUE(window.ShowImageFromPixels(std::vector<std::uint8_t>(8 * 8 * 4, 0x40), 8, 8, 2));
  EXPECT_TRUE(WaitForPresents(bystander, 3));  // the other window's loop goes on
  // The loop has ended but still counts as running until it is stopped.
  EXPECT_TRUE(window.render_loop_running());
  EXPECT_TRUE(IsWindow(window.GetHwnd()));
  window.StopRenderLoop();
  const std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "ERROR [RENDER] CRASH in render loop on Faulting display! Exception code: "
                         "0xC0000005"),
            1u)
      << log;
  EXPECT_EQ(CountOf(log, "Render loop ended after "), 1u) << log;
  EXPECT_EQ(CountOf(log, "D3D11 device removed reason"), 0u) << log;
  EXPECT_EQ(CountOf(log, "Bystander display"), 0u) << log;
  EXPECT_EQ(CountOf(output.Text(),
                    "Kestrun Native: CRASH in render loop! Exception code: 0xC0000005\n"),
            1u)
      << output.Text();

  // Restart works again.
  window.RestartRenderLoop();
  ASSERT_TRUE(WaitForPresents(window, 3));
  EXPECT_EQ(CountOf(LogText().substr(mark), "CRASH in render loop"), 1u);
  window.Close();
  bystander.Close();
}

HRESULT HungDevice(HRESULT) { return DXGI_ERROR_DEVICE_HUNG; }

TEST(RenderLoopFaultTest, CrashOnARemovedDeviceLogsItsReasonAndOnlyAStopAllowsARestart) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Hung device", 120, 120, 160, 90)}));
  window.SetRemovedReasonFilterForTesting(&HungDevice);
  const std::size_t mark = LogText().size();
  ASSERT_TRUE(FaultNextFrame(window));
  // Crashed but not stopped: a restart does nothing (and does not replace the unjoined thread).
  window.RestartRenderLoop();
  EXPECT_TRUE(window.render_loop_running());
  window.StopRenderLoop();
  const std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "ERROR [RENDER] D3D11 device removed reason on Hung device: "
                         "DXGI_ERROR_DEVICE_HUNG - GPU took too long to execute commands (0x887A0006)"),
            1u)
      << log;
  EXPECT_EQ(CountOf(log, "Render loop restarted"), 0u) << log;
  window.Close();
}

// Frames that reached the content (the frame hook runs only there).
std::atomic<int> g_content_frames{0};
void CountContentFrame() { g_content_frames.fetch_add(1); }

TEST(RenderLoopTest, BlankedWindowStillDrawsItsContentUnderARunningFade) {
  auto clock = std::make_shared<ManualClock>();
  NativeLiveWindow window(clock);
  ASSERT_TRUE(Show(window, {Display("Blank and fade", 120, 120, 160, 90)}));
  ASSERT_TRUE(window.ShowImageFromPixels(std::vector<std::uint8_t>(8 * 8 * 4, 0xFF), 8, 8, 2));
  window.SetFrameHookForTesting(&CountContentFrame);
  auto content_frames_over = [&window](std::uint64_t presents) {
    const int before = g_content_frames.load();
    EXPECT_TRUE(WaitForPresents(window, presents));
    return g_content_frames.load() - before;
  };
  window.Blank();
  content_frames_over(2);
  EXPECT_EQ(content_frames_over(3), 0) << "blanked without a fade draws black";
  // Fading while blanked: the content is drawn under the overlay, so that it is there when the
  // fade uncovers it.
  clock->SetFadeTimeMs(0);
  window.FadeFromBlack(1000, nullptr);
  EXPECT_GE(content_frames_over(3), 2);
  window.Unblank();
  clock->SetFadeTimeMs(1000);
  EXPECT_GE(content_frames_over(3), 2);
  window.SetFrameHookForTesting(nullptr);
  window.Close();
}

// Presents made on the test's own (the platform) thread.
DWORD g_platform_thread = 0;
std::atomic<int> g_platform_presents{0};
HRESULT CountPlatformPresents(HRESULT presented) {
  if (GetCurrentThreadId() == g_platform_thread) {
    g_platform_presents.fetch_add(1);
  }
  return presented;
}

TEST(RenderLoopTest, PresentBlackNowPresentsAtOnceWhenStoppedAndHandsTheFrameToAStartedLoop) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Black now", 120, 120, 160, 90)}));
  const std::vector<std::uint8_t> pixels(8 * 8 * 4, 0xFF);
  ASSERT_TRUE(window.ShowImageFromPixels(pixels, 8, 8, 2));
  window.StopRenderLoop();
  const std::uint64_t before = window.present_count();
  window.PresentBlackNow();
  EXPECT_EQ(window.present_count(), before + 1);
  EXPECT_EQ(window.black_frame_count(), 1u);
  // Right after a start the new render thread owns the context, before it has run at all: the
  // frame is handed to it and presented by it, never from here alongside it.
  g_platform_thread = GetCurrentThreadId();
  g_platform_presents.store(0);
  window.SetPresentFilterForTesting(&CountPlatformPresents);
  for (std::uint64_t presented = 2; presented <= 4; ++presented) {
    window.RestartRenderLoop();
    window.PresentBlackNow();
    EXPECT_TRUE(PumpUntil([&window, presented] { return window.black_frame_count() == presented; },
                          window.present_event()));
    window.StopRenderLoop();
  }
  EXPECT_EQ(g_platform_presents.load(), 0);
  window.SetPresentFilterForTesting(nullptr);
  // Nothing to present on after close.
  window.Close();
  const std::uint64_t closed = window.present_count();
  window.PresentBlackNow();
  EXPECT_EQ(window.present_count(), closed);
}

}  // namespace
}  // namespace native_live_window
