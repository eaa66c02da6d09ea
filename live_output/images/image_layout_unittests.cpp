// Placement of an image on a live window: the fit modes with and without a crop rectangle, the
// guards against degenerate sizes and the frame timing of animations. What reaches the screen is
// followed in live_window_pixels_unittests and native_live_window_plugin_unittests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <vector>

#include "live_output/images/image_layout.h"

namespace native_live_window {
namespace {

constexpr std::int32_t kCover = static_cast<std::int32_t>(FitMode::Cover);
constexpr std::int32_t kContain = static_cast<std::int32_t>(FitMode::Contain);
constexpr std::int32_t kStretch = static_cast<std::int32_t>(FitMode::Stretch);
constexpr std::int32_t kModes[] = {kCover, kContain, kStretch};
constexpr float kTolerance = 1e-5f;

CropRect Crop(float x, float y, float w, float h, std::int32_t canvas_width,
              std::int32_t canvas_height) {
  CropRect crop;
  crop.enabled = true;
  crop.x = x;
  crop.y = y;
  crop.w = w;
  crop.h = h;
  crop.canvas_width = canvas_width;
  crop.canvas_height = canvas_height;
  return crop;
}

void ExpectQuad(const ImageQuad& quad, const ImageQuad& expected) {
  EXPECT_TRUE(quad.visible);
  const float actual_values[] = {quad.x0, quad.x1, quad.y0, quad.y1,
                                 quad.ul, quad.ur, quad.vt, quad.vb};
  const float expected_values[] = {expected.x0, expected.x1, expected.y0, expected.y1,
                                   expected.ul, expected.ur, expected.vt, expected.vb};
  const char* names[] = {"x0", "x1", "y0", "y1", "ul", "ur", "vt", "vb"};
  for (int i = 0; i < 8; ++i) {
    EXPECT_NEAR(actual_values[i], expected_values[i], kTolerance) << names[i];
  }
}

// Quad fields in the order x0, x1, y0, y1, ul, ur, vt, vb.
ImageQuad Q(float x0, float x1, float y0, float y1, float ul, float ur, float vt, float vb) {
  return ImageQuad{x0, x1, y0, y1, ul, ur, vt, vb, true};
}

TEST(ImageLayoutTest, FitModesWithAndWithoutACropRectangle) {
  // wa / ia for a 16:9 image on a 9:16 window.
  const float half = (1080.0f / 1920.0f) / (1920.0f / 1080.0f);
  const struct {
    const char* name;
    std::int32_t image_width, image_height, window_width, window_height, mode;
    CropRect crop;
    ImageQuad expected;
  } cases[] = {
      {"contain on a taller window: bands above and below", 1920, 1080, 1080, 1920, kContain, {},
       Q(-1, 1, half, -half, 0, 1, 0, 1)},
      {"contain on a wider window: bands left and right", 1080, 1920, 1920, 1080, kContain, {},
       Q(-half, half, 1, -1, 0, 1, 0, 1)},
      {"cover cuts a quarter of the height", 1600, 1200, 1920, 1080, kCover, {},
       Q(-1, 1, 1, -1, 0, 1, 0.125f, 0.875f)},
      {"cover cuts half the width", 2000, 1000, 800, 800, kCover, {},
       Q(-1, 1, 1, -1, 0.25f, 0.75f, 0, 1)},
      {"stretch", 640, 480, 1080, 1920, kStretch, {}, Q(-1, 1, 1, -1, 0, 1, 0, 1)},
      {"unknown mode", 640, 480, 1080, 1920, -1, {}, Q(-1, 1, 1, -1, 0, 1, 0, 1)},
      {"right half of a wide canvas", 3840, 1080, 1920, 1080, kStretch,
       Crop(0.5f, 0, 0.5f, 1, 3840, 1080), Q(-1, 1, 1, -1, 0.5f, 1, 0, 1)},
      // A 16:9 image contained in a 32:9 canvas occupies canvas x 0.25..0.75: the canvas's left
      // half shows the image's left half on the window's right half.
      {"contain centres on a wide canvas", 1920, 1080, 1920, 1080, kContain,
       Crop(0, 0, 0.5f, 1, 3840, 1080), Q(0, 1, 1, -1, 0, 0.5f, 0, 1)},
      // A square image on a 1:2 canvas occupies canvas y 0.25..0.75.
      {"contain centres on a tall canvas", 500, 500, 800, 800, kContain,
       Crop(0, 0, 1, 0.5f, 1000, 2000), Q(-1, 1, 0, -1, 0, 1, 0, 0.5f)},
      {"cover on a wide canvas", 1920, 1080, 1920, 1080, kCover, Crop(0, 0, 1, 1, 3840, 1080),
       Q(-1, 1, 1, -1, 0, 1, 0.25f, 0.75f)},
      {"cover on a square canvas", 2000, 1000, 800, 800, kCover, Crop(0, 0, 1, 1, 1000, 1000),
       Q(-1, 1, 1, -1, 0.25f, 0.75f, 0, 1)},
      {"crop inside, any window aspect", 1920, 1080, 1080, 1920, kContain,
       Crop(0.25f, 0.25f, 0.5f, 0.5f, 1920, 1080), Q(-1, 1, 1, -1, 0.25f, 0.75f, 0.25f, 0.75f)},
      {"crop beyond the canvas", 1920, 1080, 1920, 1080, kStretch, Crop(0.5f, 0, 1, 1, 1920, 1080),
       Q(-1, 0, 1, -1, 0.5f, 1, 0, 1)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ExpectQuad(ImageLayout::ComputeQuad(c.image_width, c.image_height, c.window_width,
                                        c.window_height, c.mode, c.crop),
               c.expected);
  }
}

TEST(ImageLayoutTest, DegenerateSizesAndEmptyBrokenOrMissingCropsDrawNothing) {
  const std::int32_t sizes[][4] = {{0, 1080, 1920, 1080},  {1920, 0, 1920, 1080},
                                   {1920, 1080, 0, 1080},  {1920, 1080, 1920, 0},
                                   {-5, 1080, 1920, 1080}, {1920, 1080, 1920, -1}};
  for (const auto& s : sizes) {
    for (const CropRect& crop : {CropRect(), Crop(0, 0, 1, 1, 100, 100)}) {
      EXPECT_FALSE(ImageLayout::ComputeQuad(s[0], s[1], s[2], s[3], kContain, crop).visible)
          << s[0] << "x" << s[1] << " on " << s[2] << "x" << s[3];
    }
  }
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  // The contained image of the last two occupies canvas x 0.25..0.75: a crop ending exactly at
  // 0.25 has no area of it, one of the left fifth misses it.
  const CropRect crops[] = {Crop(0, 0, 0, 1, 1920, 1080),     Crop(0, 0, 1, 0, 1920, 1080),
                            Crop(0, 0, -1, 1, 1920, 1080),    Crop(2, 0, 1, 1, 1920, 1080),
                            Crop(nan, 0, 1, 1, 1920, 1080),   Crop(0, 0, nan, 1, 1920, 1080),
                            Crop(0, 0, 1, inf, 1920, 1080),   Crop(0, -inf, 1, 1, 1920, 1080),
                            Crop(0, 0, 0.25f, 1, 3840, 1080), Crop(0, 0, 0.2f, 1, 3840, 1080)};
  for (const CropRect& crop : crops) {
    const bool misses_contained = crop.canvas_width == 3840;
    for (std::int32_t mode : kModes) {
      if (misses_contained && mode != kContain) {
        continue;
      }
      const ImageQuad quad = ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, mode, crop);
      EXPECT_FALSE(quad.visible) << crop.x << "," << crop.y << "," << crop.w << "," << crop.h
                                 << " mode " << mode;
      float vertices[ImageLayout::kVertexFloatCount];
      std::fill(std::begin(vertices), std::end(vertices), 7.0f);
      ImageLayout::WriteVertices(quad, vertices);
      EXPECT_EQ(std::count(std::begin(vertices), std::end(vertices), 0.0f),
                static_cast<std::ptrdiff_t>(ImageLayout::kVertexFloatCount));
    }
  }
}

TEST(ImageLayoutTest, DisabledCropOrCanvasBelowOnePixelFallsBackToTheUncroppedLayout) {
  CropRect disabled = Crop(0.5f, 0, 0.5f, 1, 3840, 1080);
  disabled.enabled = false;
  const ImageQuad plain = ImageLayout::ComputeQuad(1920, 1080, 1080, 1920, kContain, CropRect());
  for (const CropRect& crop : {disabled, Crop(0.5f, 0, 0.5f, 1, 0, 1080),
                               Crop(0.5f, 0, 0.5f, 1, 3840, 0), Crop(0.5f, 0, 0.5f, 1, -3840, 1080)}) {
    ExpectQuad(ImageLayout::ComputeQuad(1920, 1080, 1080, 1920, kContain, crop), plain);
  }
}

TEST(ImageLayoutTest, AnimationFrameAtAnElapsedTime) {
  const std::uint32_t big = std::numeric_limits<std::uint32_t>::max();
  const std::uint64_t wrap = std::uint64_t{1} << 32;  // 2^32 ms wraps to 0
  const struct {
    std::vector<std::uint32_t> delays;
    std::uint32_t total;
    std::uint64_t elapsed_ms;
    std::size_t frame;
  } cases[] = {
      {{100, 100, 200}, 400, 0, 0},       {{100, 100, 200}, 400, 99, 0},
      {{100, 100, 200}, 400, 100, 1},     {{100, 100, 200}, 400, 199, 1},
      {{100, 100, 200}, 400, 200, 2},     {{100, 100, 200}, 400, 399, 2},
      {{100, 100, 200}, 400, 800 + 99, 0}, {{100, 100, 200}, 400, 800 + 200, 2},
      {{100, 100, 200}, 400, wrap, 0},    {{100, 100, 200}, 400, wrap + 250, 2},
      // Zero delays are skipped; without any time the first frame stays.
      {{0, 50, 0, 50}, 100, 0, 1},        {{0, 50, 0, 50}, 100, 49, 1},
      {{0, 50, 0, 50}, 100, 50, 3},       {{}, 400, 250, 0},
      {{0, 0, 0}, 0, 250, 0},
      // A total longer than the delays ends on the last frame; huge delays do not overflow.
      {{100, 100}, 1000, 999, 1},         {{big, big}, big, big - 1, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ImageLayout::FrameIndexAt(c.delays, c.total, c.elapsed_ms), c.frame)
        << c.elapsed_ms << " ms of " << c.total;
  }
}

}  // namespace
}  // namespace native_live_window
