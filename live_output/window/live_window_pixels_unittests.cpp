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

using live_window_test::ColorNear;
using live_window_test::ColorText;
using live_window_test::Display;
using live_window_test::MakeImage;
using live_window_test::ManualClock;
using live_window_test::ScreenPixel;
using live_window_test::Show;
using live_window_test::WaitForPresents;

constexpr std::uint32_t kBlack = 0x000000;
constexpr std::uint32_t kRed = 0xFF0000;
constexpr std::uint32_t kGreen = 0x00FF00;
constexpr std::uint32_t kBlue = 0x0000FF;
constexpr std::uint32_t kYellow = 0xFFFF00;
constexpr std::uint32_t kMagenta = 0xFF00FF;
constexpr std::uint32_t kCyan = 0x00FFFF;
constexpr std::uint32_t kWhite = 0xFFFFFF;
constexpr std::uint32_t kOrange = 0xFF8000;

// Screen area of the tests: away from the top-left corner where other programs open windows.
constexpr int kLeft = 1300;
constexpr int kTop = 700;

::testing::AssertionResult ScreenShows(int x, int y, std::uint32_t expected) {
  const std::uint32_t actual = ScreenPixel(x, y);
  if (ColorNear(actual, expected)) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << "screen (" << x << ", " << y << ") is "
                                       << ColorText(actual) << ", expected "
                                       << ColorText(expected);
}

// 200 x 200: four horizontal bands, different in the left and the right half.
//   left:  magenta, red,   blue,  cyan
//   right: yellow,  green, white, orange
std::vector<std::uint8_t> BandedImage() {
  return MakeImage(200, 200, [](int x, int y) {
    static const std::uint32_t left[4] = {kMagenta, kRed, kBlue, kCyan};
    static const std::uint32_t right[4] = {kYellow, kGreen, kWhite, kOrange};
    return x < 100 ? left[y / 50] : right[y / 50];
  });
}

class LiveWindowPixelsTest : public ::testing::Test {
 protected:
  // Waits until what was just changed has certainly reached the screen.
  static void Settle(const NativeLiveWindow& window) { ASSERT_TRUE(WaitForPresents(window, 4)); }
};

TEST_F(LiveWindowPixelsTest, FitModesOnAWiderWindow) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Fit modes", kLeft, kTop, 400, 200)}));
  const std::vector<std::uint8_t> image = BandedImage();

  // Stretch: the whole image over the whole window.
  ASSERT_TRUE(window.ShowImageFromPixels(image, 200, 200, 2));
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 25, kMagenta));
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 75, kRed));
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 125, kBlue));
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 175, kCyan));
  EXPECT_TRUE(ScreenShows(kLeft + 300, kTop + 25, kYellow));
  EXPECT_TRUE(ScreenShows(kLeft + 300, kTop + 175, kOrange));

  // Contain: a square in the middle, black bars left and right.
  ASSERT_TRUE(window.ShowImageFromPixels(image, 200, 200, 1));
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 40, kTop + 100, kBlack));
  EXPECT_TRUE(ScreenShows(kLeft + 360, kTop + 100, kBlack));
  EXPECT_TRUE(ScreenShows(kLeft + 150, kTop + 25, kMagenta));
  EXPECT_TRUE(ScreenShows(kLeft + 150, kTop + 125, kBlue));
  EXPECT_TRUE(ScreenShows(kLeft + 250, kTop + 175, kOrange));

  // Cover: the full width, the top and bottom quarters cut away.
  ASSERT_TRUE(window.ShowImageFromPixels(image, 200, 200, 0));
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 10, kRed));
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 190, kBlue));
  EXPECT_TRUE(ScreenShows(kLeft + 300, kTop + 10, kGreen));
  EXPECT_TRUE(ScreenShows(kLeft + 300, kTop + 190, kWhite));

  // Unknown modes draw like stretch.
  ASSERT_TRUE(window.ShowImageFromPixels(image, 200, 200, 7));
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 25, kMagenta));
  EXPECT_TRUE(ScreenShows(kLeft + 300, kTop + 175, kOrange));
}

TEST_F(LiveWindowPixelsTest, ContainOnATallerWindowLeavesBarsAboveAndBelow) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Tall window", kLeft, kTop, 200, 300)}));
  ASSERT_TRUE(window.ShowImageFromPixels(BandedImage(), 200, 200, 1));
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 20, kBlack));
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 280, kBlack));
  EXPECT_TRUE(ScreenShows(kLeft + 50, kTop + 75, kMagenta));
  EXPECT_TRUE(ScreenShows(kLeft + 150, kTop + 225, kOrange));
}

TEST_F(LiveWindowPixelsTest, TwoWindowsCroppingTheirHalvesShowTheWholeCanvas) {
  // 800 x 200: red, green, blue and yellow columns, 200 pixels each.
  const std::vector<std::uint8_t> image = MakeImage(800, 200, [](int x, int) {
    static const std::uint32_t columns[4] = {kRed, kGreen, kBlue, kYellow};
    return columns[x / 200];
  });
  NativeLiveWindow left;
  NativeLiveWindow right;
  ASSERT_TRUE(Show(left, {Display("Left half", kLeft - 400, kTop, 400, 200)}));
  ASSERT_TRUE(Show(right, {Display("Right half", kLeft, kTop, 400, 200)}));
  left.SetCropRect(0.0f, 0.0f, 0.5f, 1.0f, 800, 200);
  right.SetCropRect(0.5f, 0.0f, 0.5f, 1.0f, 800, 200);
  ASSERT_TRUE(left.ShowImageFromPixels(image, 800, 200, 2));
  ASSERT_TRUE(right.ShowImageFromPixels(image, 800, 200, 2));
  Settle(left);
  Settle(right);
  EXPECT_TRUE(ScreenShows(kLeft - 300, kTop + 100, kRed));
  EXPECT_TRUE(ScreenShows(kLeft - 100, kTop + 100, kGreen));
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 100, kBlue));
  EXPECT_TRUE(ScreenShows(kLeft + 300, kTop + 100, kYellow));

  // The crop outlives the image: a new image is cropped the same way.
  const std::vector<std::uint8_t> swapped = MakeImage(800, 200, [](int x, int) {
    return x < 400 ? kWhite : kMagenta;
  });
  ASSERT_TRUE(right.ShowImageFromPixels(swapped, 800, 200, 2));
  Settle(right);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 100, kMagenta));

  // Without the crop the window shows the whole image again.
  right.ClearCropRect();
  Settle(right);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 100, kWhite));
  EXPECT_TRUE(ScreenShows(kLeft + 300, kTop + 100, kMagenta));
}

TEST_F(LiveWindowPixelsTest, CropThatMissesTheContainedImageShowsBlack) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Crop miss", kLeft, kTop, 400, 200)}));
  // A square image contained in a 4:1 canvas sits in its middle quarter (0.375 ... 0.625).
  const std::vector<std::uint8_t> image = MakeImage(100, 100, [](int, int) { return kRed; });
  window.SetCropRect(0.0f, 0.0f, 0.25f, 1.0f, 800, 200);
  ASSERT_TRUE(window.ShowImageFromPixels(image, 100, 100, 1));
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 50, kTop + 100, kBlack));
  EXPECT_TRUE(ScreenShows(kLeft + 200, kTop + 100, kBlack));
  EXPECT_TRUE(ScreenShows(kLeft + 350, kTop + 100, kBlack));

  // The middle half of the canvas holds it: the image fills the middle half of the window.
  window.SetCropRect(0.25f, 0.0f, 0.5f, 1.0f, 800, 200);
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 50, kTop + 100, kBlack));
  EXPECT_TRUE(ScreenShows(kLeft + 200, kTop + 100, kRed));
  EXPECT_TRUE(ScreenShows(kLeft + 350, kTop + 100, kBlack));
}

TEST_F(LiveWindowPixelsTest, BlankShowsBlackUntilUnblanked) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Blank pixels", kLeft, kTop, 200, 100)}));
  ASSERT_TRUE(window.ShowImageFromPixels(MakeImage(20, 10, [](int, int) { return kGreen; }), 20, 10, 2));
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 50, kGreen));
  window.Blank();
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 50, kBlack));
  EXPECT_TRUE(ScreenShows(kLeft + 10, kTop + 10, kBlack));
  window.Unblank();
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 50, kGreen));
}

TEST_F(LiveWindowPixelsTest, ClearedContentAndFailedUploadsShowBlack) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Cleared", kLeft, kTop, 200, 100)}));
  const std::vector<std::uint8_t> blue = MakeImage(20, 10, [](int, int) { return kBlue; });
  ASSERT_TRUE(window.ShowImageFromPixels(blue, 20, 10, 2));
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 50, kBlue));
  window.ClearContent();
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 50, kBlack));

  ASSERT_TRUE(window.ShowImageFromPixels(blue, 20, 10, 2));
  Settle(window);
  window.ClearImage();  // image mode without an image
  Settle(window);
  EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 50, kBlack));
}

TEST_F(LiveWindowPixelsTest, AnimatedImageChangesFramesOnItsDelays) {
  auto clock = std::make_shared<ManualClock>();
  NativeLiveWindow window(clock);
  ASSERT_TRUE(Show(window, {Display("Animation", kLeft, kTop, 200, 100)}));
  auto frames = std::make_shared<NativeLiveWindow::FrameList>();
  for (std::uint32_t color : {kRed, kGreen, kBlue}) {
    frames->push_back(MakeImage(40, 20, [color](int, int) { return color; }));
  }
  clock->steady_ms.store(5000);
  ASSERT_TRUE(window.ShowAnimatedImage(frames, {100, 100, 200}, 40, 20, 2));
  const int x = kLeft + 100;
  const int y = kTop + 50;

  Settle(window);
  EXPECT_TRUE(ScreenShows(x, y, kRed));
  EXPECT_EQ(window.texture_update_count(), 0u);

  clock->steady_ms.store(5000 + 150);
  Settle(window);
  EXPECT_TRUE(ScreenShows(x, y, kGreen));
  EXPECT_EQ(window.texture_update_count(), 1u);

  clock->steady_ms.store(5000 + 200);  // frame 2 runs from 200 to 400 ms
  Settle(window);
  EXPECT_TRUE(ScreenShows(x, y, kBlue));
  clock->steady_ms.store(5000 + 399);
  Settle(window);
  EXPECT_TRUE(ScreenShows(x, y, kBlue));
  EXPECT_EQ(window.texture_update_count(), 2u);

  clock->steady_ms.store(5000 + 400 + 50);  // the next cycle
  Settle(window);
  EXPECT_TRUE(ScreenShows(x, y, kRed));
  EXPECT_EQ(window.texture_update_count(), 3u);

  // Many frames with an unchanged animation frame rewrite nothing.
  ASSERT_TRUE(WaitForPresents(window, 20));
  EXPECT_EQ(window.texture_update_count(), 3u);
}

TEST_F(LiveWindowPixelsTest, AnimationWithoutDelaysStaysOnItsFirstFrame) {
  auto clock = std::make_shared<ManualClock>();
  NativeLiveWindow window(clock);
  ASSERT_TRUE(Show(window, {Display("Still animation", kLeft, kTop, 200, 100)}));
  auto frames = std::make_shared<NativeLiveWindow::FrameList>();
  frames->push_back(MakeImage(4, 4, [](int, int) { return kYellow; }));
  frames->push_back(MakeImage(4, 4, [](int, int) { return kCyan; }));
  ASSERT_TRUE(window.ShowAnimatedImage(frames, {0, 0}, 4, 4, 2));
  for (std::int64_t ms : {0, 50, 1000, 123456}) {
    clock->steady_ms.store(ms);
    Settle(window);
    EXPECT_TRUE(ScreenShows(kLeft + 100, kTop + 50, kYellow));
  }
  EXPECT_EQ(window.texture_update_count(), 0u);
}

}  // namespace
}  // namespace native_live_window
