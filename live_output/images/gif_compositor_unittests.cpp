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

// One colour inside a rectangle of the canvas, another outside.
struct Picture {
  std::uint32_t x0, y0, x1, y1;
  Bgra inside, outside;
};

struct Step {
  std::uint32_t width, height;
  Bgra colour;
  std::uint32_t left, top;
  std::uint8_t disposal;
  Picture frame;   // the composed frame
  Picture canvas;  // what the next frame starts from
};

TEST(GifCompositorTest, FramesAreBuiltOnThePreviousOneAfterItsDisposal) {
  constexpr Picture kAllBlue{0, 0, 0, 0, kBlue, kBlue};
  const struct {
    const char* name;
    std::uint32_t canvas_width, canvas_height;
    std::vector<Step> steps;
  } cases[] = {
      {"drawn at its offset", 20, 20,
       {{10, 10, kRed, 5, 5, 0, {5, 5, 15, 15, kRed, kClear}, {5, 5, 15, 15, kRed, kClear}}}},
      {"on the previous frame", 20, 20,
       {{20, 20, kBlue, 0, 0, 1, kAllBlue, kAllBlue},
        {10, 10, kRed, 5, 5, 0, {5, 5, 15, 15, kRed, kBlue}, {5, 5, 15, 15, kRed, kBlue}}}},
      {"restore to background clears the patch rectangle", 20, 20,
       {{20, 20, kBlue, 0, 0, 0, kAllBlue, kAllBlue},
        {10, 10, kRed, 5, 5, 2, {5, 5, 15, 15, kRed, kBlue}, {5, 5, 15, 15, kClear, kBlue}},
        {1, 1, kClear, 0, 0, 0, {5, 5, 15, 15, kClear, kBlue}, {5, 5, 15, 15, kClear, kBlue}}}},
      {"restore to previous, twice", 20, 20,
       {{20, 20, kBlue, 0, 0, 1, kAllBlue, kAllBlue},
        {10, 10, kRed, 0, 0, 3, {0, 0, 10, 10, kRed, kBlue}, kAllBlue},
        {5, 5, kGreen, 15, 15, 3, {15, 15, 20, 20, kGreen, kBlue}, kAllBlue}}},
      {"restore to previous after restore to background", 10, 10,
       {{10, 10, kBlue, 0, 0, 2, kAllBlue, {0, 0, 0, 0, kClear, kClear}},
        {4, 4, kRed, 3, 3, 3, {3, 3, 7, 7, kRed, kClear}, {0, 0, 0, 0, kClear, kClear}}}},
      {"entirely off the canvas", 10, 10,
       {{10, 10, kBlue, 0, 0, 0, kAllBlue, kAllBlue},
        {4, 4, kRed, 10, 0, 2, kAllBlue, kAllBlue},
        {4, 4, kRed, 0, 65535, 3, kAllBlue, kAllBlue},
        {4, 4, kRed, 0xFFFFFFFFu, 0xFFFFFFFFu, 2, kAllBlue, kAllBlue}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    GifCompositor compositor(c.canvas_width, c.canvas_height);
    ExpectRect(compositor.canvas(), c.canvas_width, c.canvas_height, 0, 0, 0, 0, kClear, kClear);
    for (const Step& step : c.steps) {
      std::vector<std::uint8_t> frame;
      ASSERT_TRUE(Add(&compositor, Patch(step.width, step.height, step.colour), step.width,
                      step.height, step.left, step.top, step.disposal, &frame));
      for (const Picture* picture : {&step.frame, &step.canvas}) {
        ExpectRect(picture == &step.frame ? frame : compositor.canvas(), c.canvas_width,
                   c.canvas_height, picture->x0, picture->y0, picture->x1, picture->y1,
                   picture->inside, picture->outside);
      }
    }
  }
  // Disposal values other than 2 and 3 keep the patch.
  for (std::uint8_t disposal : {0, 1, 4, 7, 255}) {
    GifCompositor compositor(6, 6);
    std::vector<std::uint8_t> frame;
    ASSERT_TRUE(Add(&compositor, Patch(2, 2, kGreen), 2, 2, 1, 1, disposal, &frame));
    ExpectRect(compositor.canvas(), 6, 6, 1, 1, 3, 3, kGreen, kClear);
  }
}

TEST(GifCompositorTest, TransparentPixelsLeaveTheCanvasAndOthersBecomeOpaqueInEveryColumn) {
  // Rows 9 pixels wide at an odd offset, so that wide and narrow paths of the drawing both meet
  // every kind of alpha (0 leaves the canvas, 128 is drawn opaque).
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

TEST(GifCompositorTest, ShortPatchesAreRefusedAndEmptyOnesStillYieldAFrame) {
  GifCompositor compositor(4, 4);
  std::vector<std::uint8_t> frame;
  std::vector<std::uint8_t> patch = Patch(4, 4, kRed);
  patch.pop_back();
  EXPECT_FALSE(Add(&compositor, patch, 4, 4, 0, 0, 0, &frame));
  EXPECT_FALSE(compositor.AddFrame(nullptr, 64, 4, 4, 0, 0, 0, &frame));
  EXPECT_FALSE(compositor.AddFrame(Patch(4, 4, kRed).data(), 64, 4, 4, 0, 0, 0, nullptr));
  ExpectRect(compositor.canvas(), 4, 4, 0, 0, 0, 0, kClear, kClear);
  EXPECT_TRUE(compositor.AddFrame(nullptr, 0, 0, 0, 1, 1, 2, &frame));
  ExpectRect(frame, 4, 4, 0, 0, 0, 0, kClear, kClear);
}

TEST(GifTimingTest, DelaysFollowTheDefaultAndMinimumRules) {
  const struct {
    bool has_field;
    std::uint16_t field;
    std::uint32_t ms;
  } cases[] = {{false, 0, 100}, {true, 0, 100}, {true, 1, 100},
               {true, 2, 20},   {true, 7, 70},  {true, 65535, 655350}};
  for (const auto& c : cases) {
    EXPECT_EQ(GifCompositor::FrameDelayMs(c.has_field, c.field), c.ms) << c.field;
  }
}

TEST(GifBudgetTest, TheBoundIsInclusiveAndLargeCanvasesDoNotOverflow) {
  const struct {
    std::uint32_t width, height, frames;
    bool fits;
  } cases[] = {
      {1920, 1080, 32, true},   {1920, 1080, 33, false},
      // 1024 x 1024 x 4 = 4 MiB per frame: exactly 64 frames make 256 MB.
      {1024, 1024, 64, true},   {1024, 1024, 65, false},
      {65535, 65535, 2, false}, {0xFFFFFFFFu, 0xFFFFFFFFu, 2, false},
      {1, 1, 67108864, true},   {1, 1, 67108865, false},
      {0, 100, 2, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GifCompositor::FitsBudget(c.width, c.height, c.frames), c.fits)
        << c.width << "x" << c.height << " x " << c.frames;
  }
}

}  // namespace
}  // namespace native_live_window
