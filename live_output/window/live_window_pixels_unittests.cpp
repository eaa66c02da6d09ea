// What a live window really puts on the screen: colour-coded images are shown through the render
// loop and the presented pixels are read back from the screen.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {
namespace {

using live_window_test::BandedImage;
using live_window_test::ColorNear;
using live_window_test::ColorText;
using live_window_test::Display;
using live_window_test::MakeImage;
using live_window_test::ManualClock;
using live_window_test::ScreenPixel;
using live_window_test::Show;
using live_window_test::WaitForPresents;

using namespace live_window_test::colors;

// Screen area of the tests: away from the top-left corner where other programs open windows.
constexpr int kLeft = 1300;
constexpr int kTop = 700;

struct Probe {
  int x;  // from kLeft, kTop
  int y;
  std::uint32_t color;
};

// Waits until what was just changed has certainly reached the screen, then reads the probes.
void ExpectScreen(const NativeLiveWindow& window, const std::vector<Probe>& probes) {
  ASSERT_TRUE(WaitForPresents(window, 4));
  for (const Probe& probe : probes) {
    const std::uint32_t actual = ScreenPixel(kLeft + probe.x, kTop + probe.y);
    EXPECT_TRUE(ColorNear(actual, probe.color))
        << "(" << probe.x << ", " << probe.y << ") is " << ColorText(actual) << ", expected "
        << ColorText(probe.color);
  }
}

std::vector<std::uint8_t> Solid(int width, int height, std::uint32_t color) {
  return MakeImage(width, height, [color](int, int) { return color; });
}

TEST(LiveWindowPixelsTest, FitModesOnWiderAndTallerWindows) {
  const struct {
    const char* mode;
    std::int32_t fit_mode;
    int width;
    int height;
    std::vector<Probe> probes;
  } cases[] = {
      // The whole image over the whole window (unknown modes draw the same).
      {"stretch", 2, 400, 200,
       {{100, 25, kMagenta}, {100, 75, kRed}, {100, 125, kBlue}, {100, 175, kCyan},
        {300, 25, kYellow}, {300, 175, kOrange}}},
      {"unknown", 7, 400, 200, {{100, 25, kMagenta}, {300, 175, kOrange}}},
      // A square in the middle, black bars left and right, or above and below.
      {"contain", 1, 400, 200,
       {{40, 100, kBlack}, {360, 100, kBlack}, {150, 25, kMagenta}, {150, 125, kBlue},
        {250, 175, kOrange}}},
      {"contain tall", 1, 200, 300,
       {{100, 20, kBlack}, {100, 280, kBlack}, {50, 75, kMagenta}, {150, 225, kOrange}}},
      // The full width, the top and bottom quarters cut away.
      {"cover", 0, 400, 200,
       {{100, 10, kRed}, {100, 190, kBlue}, {300, 10, kGreen}, {300, 190, kWhite}}},
  };
  const std::vector<std::uint8_t> image = BandedImage();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    NativeLiveWindow window;
    ASSERT_TRUE(Show(window, {Display(c.mode, kLeft, kTop, c.width, c.height)}));
    ASSERT_TRUE(window.ShowImageFromPixels(image, 200, 200, c.fit_mode));
    ExpectScreen(window, c.probes);
  }
}

// Two windows cropping their halves of one picture are followed through the real program in
// live_output_end_to_end_tests; here one window keeps its crop across images until it is cleared.
TEST(LiveWindowPixelsTest, CropOutlivesTheImageUntilCleared) {
  // 800 x 200: red, green, blue and yellow columns, 200 pixels each.
  const std::vector<std::uint8_t> image = MakeImage(800, 200, [](int x, int) {
    static const std::uint32_t columns[4] = {kRed, kGreen, kBlue, kYellow};
    return columns[x / 200];
  });
  NativeLiveWindow right;
  ASSERT_TRUE(Show(right, {Display("Right half", kLeft, kTop, 400, 200)}));
  right.SetCropRect(0.5f, 0.0f, 0.5f, 1.0f, 800, 200);
  ASSERT_TRUE(right.ShowImageFromPixels(image, 800, 200, 2));
  ExpectScreen(right, {{100, 100, kBlue}, {300, 100, kYellow}});
  const std::vector<std::uint8_t> swapped =
      MakeImage(800, 200, [](int x, int) { return x < 400 ? kWhite : kMagenta; });
  ASSERT_TRUE(right.ShowImageFromPixels(swapped, 800, 200, 2));
  ExpectScreen(right, {{100, 100, kMagenta}});
  right.ClearCropRect();
  ExpectScreen(right, {{100, 100, kWhite}, {300, 100, kMagenta}});
}

TEST(LiveWindowPixelsTest, AnimatedImageChangesFramesOnItsDelays) {
  auto clock = std::make_shared<ManualClock>();
  NativeLiveWindow window(clock);
  ASSERT_TRUE(Show(window, {Display("Animation", kLeft, kTop, 200, 100)}));
  auto frames = std::make_shared<NativeLiveWindow::FrameList>();
  for (std::uint32_t color : {kRed, kGreen, kBlue}) {
    frames->push_back(Solid(40, 20, color));
  }
  clock->steady_ms.store(5000);
  ASSERT_TRUE(window.ShowAnimatedImage(frames, {100, 100, 200}, 40, 20, 2));
  // Frame 2 runs from 200 to 400 ms; 450 ms is in the next cycle.
  const struct {
    std::int64_t ms;
    std::uint32_t color;
    std::uint64_t texture_updates;
  } steps[] = {{0, kRed, 0}, {150, kGreen, 1}, {200, kBlue, 2}, {399, kBlue, 2}, {450, kRed, 3}};
  for (const auto& step : steps) {
    clock->steady_ms.store(5000 + step.ms);
    ExpectScreen(window, {{100, 50, step.color}});
    EXPECT_EQ(window.texture_update_count(), step.texture_updates) << step.ms << " ms";
  }
  // Many frames with an unchanged animation frame rewrite nothing.
  ASSERT_TRUE(WaitForPresents(window, 20));
  EXPECT_EQ(window.texture_update_count(), 3u);

  // Without delays an animation stays on its first frame.
  auto still = std::make_shared<NativeLiveWindow::FrameList>();
  still->push_back(Solid(4, 4, kYellow));
  still->push_back(Solid(4, 4, kCyan));
  ASSERT_TRUE(window.ShowAnimatedImage(still, {0, 0}, 4, 4, 2));
  for (std::int64_t ms : {0, 50, 123456}) {
    clock->steady_ms.store(ms);
    ExpectScreen(window, {{100, 50, kYellow}});
  }
}

}  // namespace
}  // namespace native_live_window
