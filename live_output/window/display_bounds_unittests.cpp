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

TEST(DisplayBoundsTest, UnionCoversEveryDisplayAndTheGapsBetween) {
  constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
  const struct {
    const char* name;
    std::vector<DisplayRecord> displays;
    VirtualRect expected;
  } cases[] = {
      {"none", {}, {0, 0, 0, 0}},
      {"one", {At(2560, -300, 1080, 1920)}, {2560, -300, 1080, 1920}},
      {"side by side", {At(0, 0, 1920, 1080), At(1920, 0, 1920, 1080)}, {0, 0, 3840, 1080}},
      {"left of and above the primary",
       {At(0, 0, 1920, 1080), At(-1280, 200, 1280, 1024), At(0, -1080, 1920, 1080)},
       {-1280, -1080, 1280 + 1920, 1080 + 200 + 1024}},
      {"with a gap", {At(0, 0, 100, 100), At(500, 300, 100, 100)}, {0, 0, 600, 400}},
      {"extreme", {At(kMin, kMin, 10, 10), At(kMax - 5, kMax - 5, 100, 100)},
       {kMin, kMin, kMax, kMax}},
  };
  for (const auto& c : cases) {
    const VirtualRect rect = DisplayBounds::Union(c.displays);
    EXPECT_EQ(rect.left, c.expected.left) << c.name;
    EXPECT_EQ(rect.top, c.expected.top) << c.name;
    EXPECT_EQ(rect.width, c.expected.width) << c.name;
    EXPECT_EQ(rect.height, c.expected.height) << c.name;
  }
}

}  // namespace
}  // namespace native_live_window
