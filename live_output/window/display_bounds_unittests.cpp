// The rectangle a live window covers for a set of displays.
#include "live_output/window/display_bounds.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace native_live_window {
namespace {

DisplayRecord At(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height) {
  DisplayRecord display;
  display.x = x;
  display.y = y;
  display.width = width;
  display.height = height;
  return display;
}

TEST(DisplayBoundsTest, TwoDisplaysSideBySideMakeOneWideRectangle) {
  const VirtualRect rect = DisplayBounds::Union({At(0, 0, 1920, 1080), At(1920, 0, 1920, 1080)});
  EXPECT_EQ(rect.left, 0);
  EXPECT_EQ(rect.top, 0);
  EXPECT_EQ(rect.width, 3840);
  EXPECT_EQ(rect.height, 1080);
}

TEST(DisplayBoundsTest, DisplaysLeftOfAndAbovePrimaryMakeTheOriginNegative) {
  // A display left of the primary and one above it, with different heights.
  const VirtualRect rect = DisplayBounds::Union(
      {At(0, 0, 1920, 1080), At(-1280, 200, 1280, 1024), At(0, -1080, 1920, 1080)});
  EXPECT_EQ(rect.left, -1280);
  EXPECT_EQ(rect.top, -1080);
  EXPECT_EQ(rect.width, 1280 + 1920);
  EXPECT_EQ(rect.height, 1080 + 200 + 1024);
}

TEST(DisplayBoundsTest, OneDisplayIsItsOwnBounds) {
  const VirtualRect rect = DisplayBounds::Union({At(2560, -300, 1080, 1920)});
  EXPECT_EQ(rect.left, 2560);
  EXPECT_EQ(rect.top, -300);
  EXPECT_EQ(rect.width, 1080);
  EXPECT_EQ(rect.height, 1920);
}

TEST(DisplayBoundsTest, GapsBetweenDisplaysAreCovered) {
  const VirtualRect rect = DisplayBounds::Union({At(0, 0, 100, 100), At(500, 300, 100, 100)});
  EXPECT_EQ(rect.width, 600);
  EXPECT_EQ(rect.height, 400);
}

TEST(DisplayBoundsTest, NoDisplaysGiveAnEmptyRectangle) {
  const VirtualRect rect = DisplayBounds::Union({});
  EXPECT_EQ(rect.width, 0);
  EXPECT_EQ(rect.height, 0);
}

TEST(DisplayBoundsTest, ExtremeBoundsDoNotOverflow) {
  const std::int32_t max = std::numeric_limits<std::int32_t>::max();
  const std::int32_t min = std::numeric_limits<std::int32_t>::min();
  const VirtualRect rect = DisplayBounds::Union({At(min, min, 10, 10), At(max - 5, max - 5, 100, 100)});
  EXPECT_EQ(rect.left, min);
  EXPECT_EQ(rect.top, min);
  EXPECT_EQ(rect.width, max);
  EXPECT_EQ(rect.height, max);
}

}  // namespace
}  // namespace native_live_window
