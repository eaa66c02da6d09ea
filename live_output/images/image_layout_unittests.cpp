// Placement of an image on a live window: the fit modes with and without a crop rectangle, the
// guards against degenerate sizes, the vertex order and the frame timing of animations.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "live_output/images/image_layout.h"

namespace native_live_window {
namespace {

constexpr std::int32_t kCover = static_cast<std::int32_t>(FitMode::Cover);
constexpr std::int32_t kContain = static_cast<std::int32_t>(FitMode::Contain);
constexpr std::int32_t kStretch = static_cast<std::int32_t>(FitMode::Stretch);
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

void ExpectQuad(const ImageQuad& quad, float x0, float x1, float y0, float y1, float ul, float ur,
                float vt, float vb) {
  EXPECT_TRUE(quad.visible);
  EXPECT_NEAR(quad.x0, x0, kTolerance);
  EXPECT_NEAR(quad.x1, x1, kTolerance);
  EXPECT_NEAR(quad.y0, y0, kTolerance);
  EXPECT_NEAR(quad.y1, y1, kTolerance);
  EXPECT_NEAR(quad.ul, ul, kTolerance);
  EXPECT_NEAR(quad.ur, ur, kTolerance);
  EXPECT_NEAR(quad.vt, vt, kTolerance);
  EXPECT_NEAR(quad.vb, vb, kTolerance);
}

void ExpectFullQuad(const ImageQuad& quad) { ExpectQuad(quad, -1, 1, 1, -1, 0, 1, 0, 1); }

// --- Without a crop rectangle ---

TEST(ImageLayoutFitTest, ContainLeavesBlackBandsAcrossTheLongerSide) {
  // wa / ia = 0.5625 / 1.7778 = 0.3164
  const float half = (1080.0f / 1920.0f) / (1920.0f / 1080.0f);
  const ImageQuad tall_window =
      ImageLayout::ComputeQuad(1920, 1080, 1080, 1920, kContain, CropRect());
  ExpectQuad(tall_window, -1, 1, half, -half, 0, 1, 0, 1);
  EXPECT_NEAR(tall_window.y0, 0.316f, 0.001f);
  ExpectQuad(ImageLayout::ComputeQuad(1080, 1920, 1920, 1080, kContain, CropRect()), -half, half, 1,
             -1, 0, 1, 0, 1);
}

TEST(ImageLayoutFitTest, EqualAspectsGiveTheFullTextureInEveryMode) {
  for (std::int32_t mode : {kCover, kContain, kStretch}) {
    SCOPED_TRACE(mode);
    ExpectFullQuad(ImageLayout::ComputeQuad(1920, 1080, 3840, 2160, mode, CropRect()));
  }
}

TEST(ImageLayoutFitTest, CoverCutsTheOverflowEvenlyFromBothSides) {
  // 4:3 image on a 16:9 window: ia / wa = 0.75, so a quarter of the height is cut.
  ExpectQuad(ImageLayout::ComputeQuad(1600, 1200, 1920, 1080, kCover, CropRect()), -1, 1, 1, -1, 0,
             1, 0.125f, 0.875f);
  // 2:1 image on a square window: wa / ia = 0.5.
  ExpectQuad(ImageLayout::ComputeQuad(2000, 1000, 800, 800, kCover, CropRect()), -1, 1, 1, -1,
             0.25f, 0.75f, 0, 1);
}

TEST(ImageLayoutFitTest, StretchAndUnknownModesFillTheWindow) {
  for (std::int32_t mode : {kStretch, 3, -1, std::numeric_limits<std::int32_t>::max()}) {
    SCOPED_TRACE(mode);
    ExpectFullQuad(ImageLayout::ComputeQuad(640, 480, 1080, 1920, mode, CropRect()));
  }
}

TEST(ImageLayoutFitTest, DegenerateSizesDrawNothing) {
  const std::int32_t sizes[][4] = {{0, 1080, 1920, 1080},  {1920, 0, 1920, 1080},
                                   {1920, 1080, 0, 1080},  {1920, 1080, 1920, 0},
                                   {-5, 1080, 1920, 1080}, {1920, 1080, 1920, -1}};
  for (const auto& s : sizes) {
    for (std::int32_t mode : {kCover, kContain, kStretch}) {
      const ImageQuad quad = ImageLayout::ComputeQuad(s[0], s[1], s[2], s[3], mode, CropRect());
      EXPECT_FALSE(quad.visible) << s[0] << "x" << s[1] << " on " << s[2] << "x" << s[3];
    }
    // Also with a crop rectangle: the guard comes before the crop path.
    EXPECT_FALSE(
        ImageLayout::ComputeQuad(s[0], s[1], s[2], s[3], kContain, Crop(0, 0, 1, 1, 100, 100))
            .visible);
  }
}

// --- With a crop rectangle ---

TEST(ImageLayoutCropTest, RightHalfOfAWideCanvasShowsTheRightHalfOfTheImage) {
  const ImageQuad quad = ImageLayout::ComputeQuad(3840, 1080, 1920, 1080, kStretch,
                                                  Crop(0.5f, 0, 0.5f, 1, 3840, 1080));
  ExpectQuad(quad, -1, 1, 1, -1, 0.5f, 1, 0, 1);
}

TEST(ImageLayoutCropTest, TwoHalvesTogetherShowTheWholeImageOnce) {
  const CropRect left = Crop(0, 0, 0.5f, 1, 3840, 1080);
  const CropRect right = Crop(0.5f, 0, 0.5f, 1, 3840, 1080);
  for (std::int32_t mode : {kCover, kContain, kStretch}) {
    SCOPED_TRACE(mode);
    const ImageQuad a = ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, mode, left);
    const ImageQuad b = ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, mode, right);
    ASSERT_TRUE(a.visible);
    ASSERT_TRUE(b.visible);
    // The texture ranges meet at the seam, without a gap or an overlap.
    EXPECT_NEAR(a.ur, b.ul, kTolerance);
    EXPECT_NEAR(a.vt, b.vt, kTolerance);
    EXPECT_NEAR(a.vb, b.vb, kTolerance);
    // The seam lies on the windows' shared edge.
    EXPECT_NEAR(a.x1, 1.0f, kTolerance);
    EXPECT_NEAR(b.x0, -1.0f, kTolerance);
  }
}

TEST(ImageLayoutCropTest, ContainCentresTheImageOnTheCanvas) {
  // A 16:9 image contained in a 32:9 canvas occupies canvas x 0.25..0.75. The left half of the
  // canvas therefore shows the image's left half on the window's right half, black elsewhere.
  ExpectQuad(
      ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, kContain, Crop(0, 0, 0.5f, 1, 3840, 1080)),
      0, 1, 1, -1, 0, 0.5f, 0, 1);
  // A square image on a 1:2 canvas occupies canvas y 0.25..0.75; the top half of the canvas
  // shows the image's top half in the window's lower half.
  ExpectQuad(
      ImageLayout::ComputeQuad(500, 500, 800, 800, kContain, Crop(0, 0, 1, 0.5f, 1000, 2000)), -1,
      1, 0, -1, 0, 1, 0, 0.5f);
}

TEST(ImageLayoutCropTest, CoverCutsTheImageToTheCanvas) {
  // A 16:9 image covering a 32:9 canvas shows its middle half vertically.
  ExpectQuad(ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, kCover, Crop(0, 0, 1, 1, 3840, 1080)),
             -1, 1, 1, -1, 0, 1, 0.25f, 0.75f);
  ExpectQuad(ImageLayout::ComputeQuad(2000, 1000, 800, 800, kCover, Crop(0, 0, 1, 1, 1000, 1000)),
             -1, 1, 1, -1, 0.25f, 0.75f, 0, 1);
}

TEST(ImageLayoutCropTest, TheWindowAspectDoesNotMatterWithACrop) {
  const CropRect crop = Crop(0.25f, 0.25f, 0.5f, 0.5f, 1920, 1080);
  const ImageQuad wide = ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, kContain, crop);
  const ImageQuad tall = ImageLayout::ComputeQuad(1920, 1080, 1080, 1920, kContain, crop);
  ExpectQuad(wide, tall.x0, tall.x1, tall.y0, tall.y1, tall.ul, tall.ur, tall.vt, tall.vb);
  ExpectQuad(wide, -1, 1, 1, -1, 0.25f, 0.75f, 0.25f, 0.75f);
}

TEST(ImageLayoutCropTest, CropMissingTheContainedImageDrawsNothing) {
  // The contained image occupies canvas x 0.25..0.75; a crop ending exactly at 0.25 has no area
  // of it, and one of the left fifth misses it.
  EXPECT_FALSE(
      ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, kContain, Crop(0, 0, 0.25f, 1, 3840, 1080))
          .visible);
  const ImageQuad quad =
      ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, kContain, Crop(0, 0, 0.2f, 1, 3840, 1080));
  EXPECT_FALSE(quad.visible);
  float vertices[ImageLayout::kVertexFloatCount];
  std::fill(std::begin(vertices), std::end(vertices), 7.0f);
  ImageLayout::WriteVertices(quad, vertices);
  for (float v : vertices) {
    EXPECT_EQ(v, 0.0f);
  }
}

TEST(ImageLayoutCropTest, EmptyOrBrokenCropRectanglesDrawNothing) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const CropRect crops[] = {Crop(0, 0, 0, 1, 1920, 1080),   Crop(0, 0, 1, 0, 1920, 1080),
                            Crop(0, 0, -1, 1, 1920, 1080),  Crop(2, 0, 1, 1, 1920, 1080),
                            Crop(nan, 0, 1, 1, 1920, 1080), Crop(0, 0, nan, 1, 1920, 1080),
                            Crop(0, 0, 1, inf, 1920, 1080), Crop(0, -inf, 1, 1, 1920, 1080)};
  for (const CropRect& crop : crops) {
    for (std::int32_t mode : {kCover, kContain, kStretch}) {
      EXPECT_FALSE(ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, mode, crop).visible)
          << crop.x << "," << crop.y << "," << crop.w << "," << crop.h << " mode " << mode;
    }
  }
}

TEST(ImageLayoutCropTest, DisabledCropOrCanvasBelowOnePixelFallsBackToTheUncroppedLayout) {
  CropRect disabled = Crop(0.5f, 0, 0.5f, 1, 3840, 1080);
  disabled.enabled = false;
  const CropRect crops[] = {disabled, Crop(0.5f, 0, 0.5f, 1, 0, 1080),
                            Crop(0.5f, 0, 0.5f, 1, 3840, 0), Crop(0.5f, 0, 0.5f, 1, -3840, 1080)};
  const ImageQuad plain = ImageLayout::ComputeQuad(1920, 1080, 1080, 1920, kContain, CropRect());
  for (const CropRect& crop : crops) {
    const ImageQuad quad = ImageLayout::ComputeQuad(1920, 1080, 1080, 1920, kContain, crop);
    ExpectQuad(quad, plain.x0, plain.x1, plain.y0, plain.y1, plain.ul, plain.ur, plain.vt,
               plain.vb);
  }
}

TEST(ImageLayoutCropTest, CropReachingBeyondTheCanvasShowsBlackOutside) {
  // Crop x 0.5..1.5 of a stretched image: the image fills the window's left half only.
  const ImageQuad quad =
      ImageLayout::ComputeQuad(1920, 1080, 1920, 1080, kStretch, Crop(0.5f, 0, 1, 1, 1920, 1080));
  ExpectQuad(quad, -1, 0, 1, -1, 0.5f, 1, 0, 1);
}

// --- Vertices ---

TEST(ImageLayoutVerticesTest, SixVerticesInDrawOrder) {
  const ImageQuad quad{-0.5f, 0.5f, 0.75f, -0.75f, 0.1f, 0.9f, 0.2f, 0.8f, true};
  float v[ImageLayout::kVertexFloatCount];
  ImageLayout::WriteVertices(quad, v);
  const float expected[ImageLayout::kVertexFloatCount] = {
      -0.5f, 0.75f,  0.1f, 0.2f,  // top left
      0.5f,  0.75f,  0.9f, 0.2f,  // top right
      -0.5f, -0.75f, 0.1f, 0.8f,  // bottom left
      0.5f,  0.75f,  0.9f, 0.2f,  // top right
      0.5f,  -0.75f, 0.9f, 0.8f,  // bottom right
      -0.5f, -0.75f, 0.1f, 0.8f,  // bottom left
  };
  for (std::size_t i = 0; i < ImageLayout::kVertexFloatCount; ++i) {
    EXPECT_EQ(v[i], expected[i]) << "float " << i;
  }
}

// --- Animation frames ---

TEST(ImageLayoutFrameTest, LongFrameShowsFromItsStartToItsEndInEveryCycle) {
  const std::vector<std::uint32_t> delays = {100, 100, 200};
  const std::uint32_t total = 400;
  for (std::uint64_t cycle = 0; cycle < 3; ++cycle) {
    const std::uint64_t base = cycle * total;
    EXPECT_EQ(ImageLayout::FrameIndexAt(delays, total, base + 0), 0u);
    EXPECT_EQ(ImageLayout::FrameIndexAt(delays, total, base + 99), 0u);
    EXPECT_EQ(ImageLayout::FrameIndexAt(delays, total, base + 100), 1u);
    EXPECT_EQ(ImageLayout::FrameIndexAt(delays, total, base + 199), 1u);
    EXPECT_EQ(ImageLayout::FrameIndexAt(delays, total, base + 200), 2u);
    EXPECT_EQ(ImageLayout::FrameIndexAt(delays, total, base + 399), 2u);
  }
}

TEST(ImageLayoutFrameTest, ZeroDelaysAreSkippedAndNoTimeStaysOnTheFirstFrame) {
  const std::vector<std::uint32_t> delays = {0, 50, 0, 50};
  EXPECT_EQ(ImageLayout::FrameIndexAt(delays, 100, 0), 1u);
  EXPECT_EQ(ImageLayout::FrameIndexAt(delays, 100, 49), 1u);
  EXPECT_EQ(ImageLayout::FrameIndexAt(delays, 100, 50), 3u);
  EXPECT_EQ(ImageLayout::FrameIndexAt({}, 400, 250), 0u);
  EXPECT_EQ(ImageLayout::FrameIndexAt({0, 0, 0}, 0, 250), 0u);
}

TEST(ImageLayoutFrameTest, IndexStaysWithinTheFramesWhateverTheTotal) {
  // A total longer than the delays ends on the last frame; huge delays do not overflow the sum.
  EXPECT_EQ(ImageLayout::FrameIndexAt({100, 100}, 1000, 999), 1u);
  const std::uint32_t big = std::numeric_limits<std::uint32_t>::max();
  EXPECT_EQ(ImageLayout::FrameIndexAt({big, big}, big, big - 1), 0u);
}

TEST(ImageLayoutFrameTest, ElapsedTimeWrapsAt32Bits) {
  const std::vector<std::uint32_t> delays = {100, 100, 200};
  // 2^32 ms wraps to 0, the start of a cycle.
  EXPECT_EQ(ImageLayout::FrameIndexAt(delays, 400, std::uint64_t{1} << 32), 0u);
  EXPECT_EQ(ImageLayout::FrameIndexAt(delays, 400, (std::uint64_t{1} << 32) + 250), 2u);
}

}  // namespace
}  // namespace native_live_window
