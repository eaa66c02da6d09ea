// Composition of GIF frames from made-up patches: placement, transparency, clipping at the
// canvas edges, the disposal methods, and the delay and budget rules.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "live_output/images/gif_compositor.h"

namespace native_live_window {
namespace {

struct Bgra {
  std::uint8_t b, g, r, a;
  bool operator==(const Bgra& other) const {
    return b == other.b && g == other.g && r == other.r && a == other.a;
  }
};

std::ostream& operator<<(std::ostream& out, const Bgra& p) {
  return out << "(b" << int{p.b} << " g" << int{p.g} << " r" << int{p.r} << " a" << int{p.a} << ")";
}

constexpr Bgra kClear{0, 0, 0, 0};
constexpr Bgra kRed{0, 0, 255, 255};
constexpr Bgra kGreen{0, 255, 0, 255};
constexpr Bgra kBlue{255, 0, 0, 255};

std::vector<std::uint8_t> Patch(std::uint32_t width, std::uint32_t height, Bgra colour) {
  std::vector<std::uint8_t> pixels;
  pixels.reserve(std::size_t{width} * height * 4);
  for (std::uint32_t i = 0; i < width * height; ++i) {
    pixels.insert(pixels.end(), {colour.b, colour.g, colour.r, colour.a});
  }
  return pixels;
}

void SetPixel(std::vector<std::uint8_t>* pixels, std::uint32_t width, std::uint32_t x,
              std::uint32_t y, Bgra colour) {
  std::uint8_t* p = pixels->data() + (std::size_t{y} * width + x) * 4;
  p[0] = colour.b;
  p[1] = colour.g;
  p[2] = colour.r;
  p[3] = colour.a;
}

Bgra PixelAt(const std::vector<std::uint8_t>& pixels, std::uint32_t width, std::uint32_t x,
             std::uint32_t y) {
  const std::uint8_t* p = pixels.data() + (std::size_t{y} * width + x) * 4;
  return Bgra{p[0], p[1], p[2], p[3]};
}

// Every pixel of a canvas, as one colour inside a rectangle and another outside.
void ExpectRect(const std::vector<std::uint8_t>& canvas, std::uint32_t width, std::uint32_t height,
                std::uint32_t x0, std::uint32_t y0, std::uint32_t x1, std::uint32_t y1, Bgra inside,
                Bgra outside) {
  ASSERT_EQ(canvas.size(), std::size_t{width} * height * 4);
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      const bool in = x >= x0 && x < x1 && y >= y0 && y < y1;
      ASSERT_EQ(PixelAt(canvas, width, x, y), in ? inside : outside) << "at " << x << "," << y;
    }
  }
}

bool Add(GifCompositor* compositor, const std::vector<std::uint8_t>& patch, std::uint32_t width,
         std::uint32_t height, std::uint32_t left, std::uint32_t top, std::uint8_t disposal,
         std::vector<std::uint8_t>* composed) {
  return compositor->AddFrame(patch.data(), patch.size(), width, height, left, top, disposal,
                              composed);
}

TEST(GifCompositorTest, CanvasStartsTransparentBlack) {
  GifCompositor compositor(8, 6);
  EXPECT_EQ(compositor.canvas_bytes(), 8u * 6u * 4u);
  ExpectRect(compositor.canvas(), 8, 6, 0, 0, 0, 0, kClear, kClear);
}

TEST(GifCompositorTest, PatchIsDrawnAtItsOffsetOverAClearCanvas) {
  GifCompositor compositor(20, 20);
  std::vector<std::uint8_t> frame;
  ASSERT_TRUE(Add(&compositor, Patch(10, 10, kRed), 10, 10, 5, 5, 0, &frame));
  ExpectRect(frame, 20, 20, 5, 5, 15, 15, kRed, kClear);
}

TEST(GifCompositorTest, EachFrameIsACompletePictureBuiltOnThePreviousOne) {
  GifCompositor compositor(20, 20);
  std::vector<std::uint8_t> first, second;
  ASSERT_TRUE(Add(&compositor, Patch(20, 20, kBlue), 20, 20, 0, 0, 1, &first));
  ASSERT_TRUE(Add(&compositor, Patch(10, 10, kRed), 10, 10, 5, 5, 0, &second));
  ExpectRect(first, 20, 20, 0, 0, 20, 20, kBlue, kBlue);
  ExpectRect(second, 20, 20, 5, 5, 15, 15, kRed, kBlue);
}

TEST(GifCompositorTest, TransparentPixelsLeaveTheCanvasAndOthersBecomeOpaque) {
  GifCompositor compositor(2, 1);
  std::vector<std::uint8_t> frame;
  ASSERT_TRUE(Add(&compositor, Patch(2, 1, kBlue), 2, 1, 0, 0, 0, &frame));
  std::vector<std::uint8_t> patch = Patch(2, 1, kClear);
  SetPixel(&patch, 2, 0, 0, Bgra{10, 20, 30, 0});    // transparent: colour ignored
  SetPixel(&patch, 2, 1, 0, Bgra{10, 20, 30, 128});  // half transparent: drawn opaque
  ASSERT_TRUE(Add(&compositor, patch, 2, 1, 0, 0, 0, &frame));
  EXPECT_EQ(PixelAt(frame, 2, 0, 0), kBlue);
  EXPECT_EQ(PixelAt(frame, 2, 1, 0), (Bgra{10, 20, 30, 255}));
}

TEST(GifCompositorTest, MixedAlphaFollowsTheSameRuleInEveryColumn) {
  // Rows 9 pixels wide at an odd offset, so that wide and narrow paths of the drawing both meet
  // every kind of alpha.
  constexpr std::uint32_t kWidth = 9, kHeight = 3, kLeft = 3, kCanvas = 16;
  GifCompositor compositor(kCanvas, kHeight);
  std::vector<std::uint8_t> frame;
  ASSERT_TRUE(Add(&compositor, Patch(kCanvas, kHeight, kBlue), kCanvas, kHeight, 0, 0, 0, &frame));
  const std::uint8_t alphas[] = {0, 1, 128, 254, 255, 0, 0, 7};
  std::vector<std::uint8_t> patch = Patch(kWidth, kHeight, kClear);
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      const std::uint8_t a = alphas[(x + y * 3) % 8];
      SetPixel(&patch, kWidth, x, y,
               Bgra{static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 9, a});
    }
  }
  ASSERT_TRUE(Add(&compositor, patch, kWidth, kHeight, kLeft, 0, 0, &frame));
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 0; x < kCanvas; ++x) {
      Bgra expected = kBlue;
      if (x >= kLeft && x < kLeft + kWidth && alphas[(x - kLeft + y * 3) % 8] != 0) {
        expected = Bgra{static_cast<std::uint8_t>(x - kLeft), static_cast<std::uint8_t>(y), 9, 255};
      }
      EXPECT_EQ(PixelAt(frame, kCanvas, x, y), expected) << "at " << x << "," << y;
    }
  }
}

TEST(GifCompositorTest, RestoreToBackgroundClearsThePatchRectangleForTheNextFrame) {
  GifCompositor compositor(20, 20);
  std::vector<std::uint8_t> frame;
  ASSERT_TRUE(Add(&compositor, Patch(20, 20, kBlue), 20, 20, 0, 0, 0, &frame));
  ASSERT_TRUE(Add(&compositor, Patch(10, 10, kRed), 10, 10, 5, 5, 2, &frame));
  // The frame itself shows the patch ...
  ExpectRect(frame, 20, 20, 5, 5, 15, 15, kRed, kBlue);
  // ... and the next frame starts with its rectangle cleared to transparent black.
  ExpectRect(compositor.canvas(), 20, 20, 5, 5, 15, 15, kClear, kBlue);
  // A fully transparent third patch shows exactly that canvas.
  ASSERT_TRUE(Add(&compositor, Patch(1, 1, kClear), 1, 1, 0, 0, 0, &frame));
  ExpectRect(frame, 20, 20, 5, 5, 15, 15, kClear, kBlue);
}

TEST(GifCompositorTest, RestoreToPreviousPutsBackTheCanvasBeforeThePatch) {
  GifCompositor compositor(20, 20);
  std::vector<std::uint8_t> frame;
  ASSERT_TRUE(Add(&compositor, Patch(20, 20, kBlue), 20, 20, 0, 0, 1, &frame));
  ASSERT_TRUE(Add(&compositor, Patch(10, 10, kRed), 10, 10, 0, 0, 3, &frame));
  ExpectRect(frame, 20, 20, 0, 0, 10, 10, kRed, kBlue);
  ExpectRect(compositor.canvas(), 20, 20, 0, 0, 0, 0, kBlue, kBlue);
  // Twice in a row, the second restoring to the state the first restored.
  ASSERT_TRUE(Add(&compositor, Patch(5, 5, kGreen), 5, 5, 15, 15, 3, &frame));
  ExpectRect(frame, 20, 20, 15, 15, 20, 20, kGreen, kBlue);
  ASSERT_TRUE(Add(&compositor, Patch(1, 1, kClear), 1, 1, 0, 0, 0, &frame));
  ExpectRect(frame, 20, 20, 0, 0, 0, 0, kBlue, kBlue);
}

TEST(GifCompositorTest, RestoreToPreviousAfterRestoreToBackground) {
  GifCompositor compositor(10, 10);
  std::vector<std::uint8_t> frame;
  ASSERT_TRUE(Add(&compositor, Patch(10, 10, kBlue), 10, 10, 0, 0, 2, &frame));
  ASSERT_TRUE(Add(&compositor, Patch(4, 4, kRed), 4, 4, 3, 3, 3, &frame));
  ExpectRect(frame, 10, 10, 3, 3, 7, 7, kRed, kClear);
  ExpectRect(compositor.canvas(), 10, 10, 0, 0, 0, 0, kClear, kClear);
}

TEST(GifCompositorTest, OtherDisposalValuesKeepThePatch) {
  for (std::uint8_t disposal : {0, 1, 4, 7, 255}) {
    SCOPED_TRACE(int{disposal});
    GifCompositor compositor(6, 6);
    std::vector<std::uint8_t> frame;
    ASSERT_TRUE(Add(&compositor, Patch(2, 2, kGreen), 2, 2, 1, 1, disposal, &frame));
    ExpectRect(compositor.canvas(), 6, 6, 1, 1, 3, 3, kGreen, kClear);
  }
}

TEST(GifCompositorTest, PatchesReachingBeyondTheCanvasAreCutOff) {
  GifCompositor compositor(10, 10);
  std::vector<std::uint8_t> frame;
  std::vector<std::uint8_t> patch = Patch(6, 6, kRed);
  // Mark the patch's top-left pixel so that a misplaced source row or column shows.
  SetPixel(&patch, 6, 0, 0, kGreen);
  ASSERT_TRUE(Add(&compositor, patch, 6, 6, 7, 8, 2, &frame));
  EXPECT_EQ(PixelAt(frame, 10, 7, 8), kGreen);
  SetPixel(&frame, 10, 7, 8, kRed);
  ExpectRect(frame, 10, 10, 7, 8, 10, 10, kRed, kClear);
  // Disposal clears only the part on the canvas.
  ExpectRect(compositor.canvas(), 10, 10, 0, 0, 0, 0, kClear, kClear);
}

TEST(GifCompositorTest, PatchesEntirelyOffTheCanvasDrawNothing) {
  GifCompositor compositor(10, 10);
  std::vector<std::uint8_t> frame;
  ASSERT_TRUE(Add(&compositor, Patch(10, 10, kBlue), 10, 10, 0, 0, 0, &frame));
  ASSERT_TRUE(Add(&compositor, Patch(4, 4, kRed), 4, 4, 10, 0, 2, &frame));
  ASSERT_TRUE(Add(&compositor, Patch(4, 4, kRed), 4, 4, 0, 65535, 3, &frame));
  ASSERT_TRUE(Add(&compositor, Patch(4, 4, kRed), 4, 4, 0xFFFFFFFFu, 0xFFFFFFFFu, 2, &frame));
  ExpectRect(frame, 10, 10, 0, 0, 0, 0, kBlue, kBlue);
  ExpectRect(compositor.canvas(), 10, 10, 0, 0, 0, 0, kBlue, kBlue);
}

TEST(GifCompositorTest, ShortPatchIsRefusedAndLeavesTheCanvas) {
  GifCompositor compositor(4, 4);
  std::vector<std::uint8_t> frame;
  std::vector<std::uint8_t> patch = Patch(4, 4, kRed);
  patch.pop_back();
  EXPECT_FALSE(Add(&compositor, patch, 4, 4, 0, 0, 0, &frame));
  EXPECT_FALSE(compositor.AddFrame(nullptr, 64, 4, 4, 0, 0, 0, &frame));
  EXPECT_FALSE(compositor.AddFrame(Patch(4, 4, kRed).data(), 64, 4, 4, 0, 0, 0, nullptr));
  ExpectRect(compositor.canvas(), 4, 4, 0, 0, 0, 0, kClear, kClear);
}

TEST(GifCompositorTest, EmptyPatchStillYieldsAFrame) {
  GifCompositor compositor(3, 3);
  std::vector<std::uint8_t> frame;
  EXPECT_TRUE(compositor.AddFrame(nullptr, 0, 0, 0, 1, 1, 2, &frame));
  ExpectRect(frame, 3, 3, 0, 0, 0, 0, kClear, kClear);
}

TEST(GifTimingTest, DelaysFollowTheDefaultAndMinimumRules) {
  EXPECT_EQ(GifCompositor::FrameDelayMs(false, 0), 100u);
  EXPECT_EQ(GifCompositor::FrameDelayMs(true, 0), 100u);
  EXPECT_EQ(GifCompositor::FrameDelayMs(true, 1), 100u);
  EXPECT_EQ(GifCompositor::FrameDelayMs(true, 2), 20u);
  EXPECT_EQ(GifCompositor::FrameDelayMs(true, 7), 70u);
  EXPECT_EQ(GifCompositor::FrameDelayMs(true, 65535), 655350u);
}

TEST(GifBudgetTest, FullHdFitsThirtyTwoFramesButNotThirtyThree) {
  EXPECT_TRUE(GifCompositor::FitsBudget(1920, 1080, 32));
  EXPECT_FALSE(GifCompositor::FitsBudget(1920, 1080, 33));
}

TEST(GifBudgetTest, TheBoundIsInclusive) {
  // 1024 x 1024 x 4 = 4 MiB per frame: exactly 64 frames make 256 MB.
  EXPECT_TRUE(GifCompositor::FitsBudget(1024, 1024, 64));
  EXPECT_FALSE(GifCompositor::FitsBudget(1024, 1024, 65));
}

TEST(GifBudgetTest, LargestCanvasesDoNotOverflow) {
  EXPECT_FALSE(GifCompositor::FitsBudget(65535, 65535, 2));
  EXPECT_FALSE(GifCompositor::FitsBudget(0xFFFFFFFFu, 0xFFFFFFFFu, 2));
  EXPECT_TRUE(GifCompositor::FitsBudget(1, 1, 67108864));
  EXPECT_FALSE(GifCompositor::FitsBudget(1, 1, 67108865));
  EXPECT_FALSE(GifCompositor::FitsBudget(0, 100, 2));
}

}  // namespace
}  // namespace native_live_window
