// A live window whose device is lost comes back by itself: the seam of the device resources makes
// a chosen call find the device removed (Wine cannot remove one), and the screen must show the
// same content again from a new device, with the loss and the recovery logged once.
#include <gtest/gtest.h>
#include <windows.h>

#include <dxgi.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"
#include "live_output/window/live_window_device_resources.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {
namespace {

using live_window_test::ColorNear;
using live_window_test::ColorText;
using live_window_test::CountOf;
using live_window_test::Display;
using live_window_test::LogText;
using live_window_test::MakeImage;
using live_window_test::ManualClock;
using live_window_test::PumpUntil;
using live_window_test::ScreenPixel;
using live_window_test::Show;
using live_window_test::WaitForPresents;
using Call = LiveWindowDeviceResources::Call;

constexpr int kLeft = 1300;
constexpr int kTop = 700;
constexpr std::uint32_t kRed = 0xFF0000;
constexpr std::uint32_t kGreen = 0x00FF00;
constexpr std::uint32_t kBlue = 0x0000FF;
constexpr std::uint32_t kYellow = 0xFFFF00;
const char kRemoved[] =
    "HRESULT=0x887A0005, Reason: DXGI_ERROR_DEVICE_REMOVED - GPU was physically removed or driver "
    "upgrade (0x887A0005)";

std::vector<std::uint8_t> Halves(std::uint32_t left, std::uint32_t right) {
  return MakeImage(64, 32, [left, right](int x, int) { return x < 32 ? left : right; });
}

::testing::AssertionResult ScreenShows(const NativeLiveWindow& window, int x, int y,
                                       std::uint32_t expected) {
  if (!WaitForPresents(window, 4)) {
    return ::testing::AssertionFailure() << "no presents";
  }
  const std::uint32_t actual = ScreenPixel(kLeft + x, kTop + y);
  if (ColorNear(actual, expected)) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << "(" << x << ", " << y << ") is " << ColorText(actual)
                                       << ", expected " << ColorText(expected);
}

bool WaitForRecovery(const NativeLiveWindow& window, std::uint64_t recovered) {
  return PumpUntil([&] { return window.recovered_count() >= recovered; }, window.present_event());
}

// A loss found by Present, by a resize and by an upload: each is logged once, and the window
// shows its content again from a new device (the upload's new image included).
TEST(DeviceLossTest, WindowShowsItsContentAgainAfterALossFoundByAnyCall) {
  const struct {
    Call call;
    const char* name;
    std::uint32_t shown_after;  // colour of the left half once recovered
  } cases[] = {{Call::kPresent, "Present", kRed},
               {Call::kResizeBuffers, "ResizeBuffers", kRed},
               {Call::kUpload, "image upload", kGreen}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    NativeLiveWindow window;
    ASSERT_TRUE(Show(window, {Display("Lossy", kLeft, kTop, 160, 90)}));
    ASSERT_TRUE(window.ShowImageFromPixels(Halves(kRed, kBlue), 64, 32, 2));
    ASSERT_TRUE(ScreenShows(window, 20, 45, kRed));
    const std::size_t mark = LogText().size();

    LiveWindowDeviceResources::InjectLossForTesting(c.call, 1, DXGI_ERROR_DEVICE_REMOVED);
    if (c.call == Call::kResizeBuffers) {
      SetWindowPos(window.GetHwnd(), nullptr, 0, 0, 200, 100, SWP_NOMOVE | SWP_NOZORDER);
    } else if (c.call == Call::kUpload) {
      ASSERT_TRUE(window.ShowImageFromPixels(Halves(kGreen, kYellow), 64, 32, 2));
    }
    ASSERT_TRUE(WaitForRecovery(window, 1));
    EXPECT_TRUE(ScreenShows(window, 20, 45, c.shown_after));
    EXPECT_TRUE(ScreenShows(window, 140, 45, c.shown_after == kRed ? kBlue : kYellow));
    EXPECT_TRUE(window.render_loop_running());

    const std::string log = LogText().substr(mark);
    EXPECT_EQ(CountOf(log, std::string("ERROR [D3D11] Device lost during ") + c.name +
                               " on Lossy! " + kRemoved),
              1u)
        << log;
    EXPECT_EQ(CountOf(log, "Device lost"), 1u) << log;
    EXPECT_EQ(CountOf(log, "INFO  [D3D11] Device recovered on Lossy in "), 1u) << log;
    EXPECT_EQ(CountOf(log, "Device re-creation failed"), 0u) << log;
    window.Close();
  }
  LiveWindowDeviceResources::InjectLossForTesting(Call::kPresent, 0, S_OK);
}

// Each recovery releases everything of the lost device: repeated losses leave no handle or thread.
TEST(DeviceLossTest, RepeatedLossesLeaveHandlesAndThreadsAsTheyWere) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Repeated losses", kLeft, kTop, 160, 90)}));
  ASSERT_TRUE(window.ShowImageFromPixels(Halves(kRed, kBlue), 64, 32, 2));
  std::uint64_t recovered = 0;
  auto lose = [&] {
    LiveWindowDeviceResources::InjectLossForTesting(Call::kPresent, 1, DXGI_ERROR_DEVICE_REMOVED);
    return WaitForRecovery(window, ++recovered);
  };
  ASSERT_TRUE(lose());  // the first one may make what later ones reuse
  const DWORD handles = live_window_test::ProcessHandleCount();
  const DWORD threads = live_window_test::ProcessThreadCount();
  for (int i = 0; i < 8; ++i) {
    ASSERT_TRUE(lose());
  }
  EXPECT_TRUE(ScreenShows(window, 20, 45, kRed));
  EXPECT_TRUE(live_window_test::ProcessSettlesTo(handles, threads));
  window.Close();
}

HRESULT FailCreation(HRESULT) { return DXGI_ERROR_UNSUPPORTED; }

// While no device can be made the window tries again after 250 ms, 500 ms, ... up to every 5 s,
// with one warning per attempt; a fade meanwhile still ends and calls back. Once a device can be
// made the animation comes back at the frame its timing asks for, cropped as before.
TEST(DeviceLossTest, FailedRecreationBacksOffThenTheAnimationComesBackCropped) {
  auto clock = std::make_shared<ManualClock>();
  NativeLiveWindow window(clock);
  ASSERT_TRUE(Show(window, {Display("Backoff", kLeft, kTop, 160, 90)}));
  auto frames = std::make_shared<NativeLiveWindow::FrameList>(
      NativeLiveWindow::FrameList{Halves(kRed, kBlue), Halves(kGreen, kYellow)});
  ASSERT_TRUE(window.ShowAnimatedImage(frames, {100, 100}, 64, 32, 2));
  window.SetCropRect(0.5f, 0.0f, 0.5f, 1.0f, 64, 32);  // the right half only
  clock->AdvanceMs(150);                               // the second frame
  ASSERT_TRUE(ScreenShows(window, 80, 45, kYellow));
  const std::size_t mark = LogText().size();

  NativeLiveWindow::SetDeviceCreationFilterForTesting(&FailCreation);
  LiveWindowDeviceResources::InjectLossForTesting(Call::kPresent, 1, DXGI_ERROR_DEVICE_REMOVED);
  auto warnings = [mark] {
    return CountOf(LogText().substr(mark), "WARNING [D3D11] Device re-creation failed on Backoff "
                                           "(HRESULT=0x887A0004); next attempt in ");
  };
  ASSERT_TRUE(PumpUntil([&] { return warnings() == 1; }, window.present_event()));

  const std::uint32_t delays[] = {250, 500, 1000, 2000, 4000, 5000, 5000};
  std::uint32_t waited = 0;
  for (std::size_t i = 0; i + 1 < sizeof(delays) / sizeof(delays[0]); ++i) {
    const std::string line = "next attempt in " + std::to_string(delays[i]) + " ms";
    EXPECT_EQ(CountOf(LogText().substr(mark), line), 1u) << line;
    // Not yet due: frames go by (a fade runs to its end and calls back) without an attempt.
    clock->tick_ms.fetch_add(delays[i] - 1);
    std::atomic<bool> faded{false};
    const DWORD test_thread = GetCurrentThreadId();
    window.FadeToBlack(100, [&faded, test_thread] {
      faded.store(true);
      PostThreadMessageW(test_thread, WM_NULL, 0, 0);
    });
    clock->AdvanceMs(100);
    EXPECT_TRUE(PumpUntil([&] { return faded.load(); }, nullptr));
    EXPECT_EQ(warnings(), i + 1);
    clock->tick_ms.fetch_add(1);
    waited += delays[i];
    ASSERT_TRUE(PumpUntil([&] { return warnings() == i + 2; }, window.present_event()));
  }

  NativeLiveWindow::SetDeviceCreationFilterForTesting(nullptr);
  clock->tick_ms.fetch_add(5000);
  waited += 5000;
  ASSERT_TRUE(WaitForRecovery(window, 1));
  window.FadeFromBlack(0, nullptr);
  EXPECT_TRUE(ScreenShows(window, 80, 45, kYellow));
  clock->AdvanceMs(100);  // back to the first frame, still cropped to its right half
  EXPECT_TRUE(ScreenShows(window, 80, 45, kBlue));
  const std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, std::string("ERROR [D3D11] Device lost during Present on Backoff! ") +
                             kRemoved),
            1u)
      << log;
  EXPECT_EQ(CountOf(log, "INFO  [D3D11] Device recovered on Backoff in " + std::to_string(waited) +
                             " ms"),
            1u)
      << log;
  EXPECT_EQ(warnings(), 7u);
  window.Close();
}

HRESULT FailingPresent(HRESULT) { return E_FAIL; }

TEST(DeviceLossTest, OtherPresentFailuresAreWarnedEachTimeAndRecreateNothing) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Flaky present", 120, 120, 160, 90)}));
  const std::size_t mark = LogText().size();
  window.SetPresentFilterForTesting(&FailingPresent);
  ASSERT_TRUE(WaitForPresents(window, 6));
  window.StopRenderLoop();
  window.SetPresentFilterForTesting(nullptr);
  const std::string log = LogText().substr(mark);
  EXPECT_GE(CountOf(log, "WARNING [D3D11] Present failed on Flaky present with HRESULT=0x80004005"),
            5u);
  EXPECT_EQ(CountOf(log, "Device "), 0u) << log;
  window.Close();
}

}  // namespace
}  // namespace native_live_window
