#include "live_output/window/display_bounds.h"

#include <algorithm>
#include <limits>

namespace native_live_window {
namespace {

std::int32_t Clamp32(std::int64_t value) {
  return static_cast<std::int32_t>(
      std::min<std::int64_t>(std::max<std::int64_t>(value, std::numeric_limits<std::int32_t>::min()),
                             std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

VirtualRect DisplayBounds::Union(const std::vector<DisplayRecord>& displays) {
  VirtualRect rect;
  if (displays.empty()) {
    return rect;
  }
  std::int64_t left = std::numeric_limits<std::int32_t>::max();
  std::int64_t top = std::numeric_limits<std::int32_t>::max();
  std::int64_t right = std::numeric_limits<std::int32_t>::min();
  std::int64_t bottom = std::numeric_limits<std::int32_t>::min();
  for (const DisplayRecord& display : displays) {
    left = std::min<std::int64_t>(left, display.x);
    top = std::min<std::int64_t>(top, display.y);
    right = std::max<std::int64_t>(right, std::int64_t{display.x} + display.width);
    bottom = std::max<std::int64_t>(bottom, std::int64_t{display.y} + display.height);
  }
  rect.left = Clamp32(left);
  rect.top = Clamp32(top);
  rect.width = Clamp32(right - left);
  rect.height = Clamp32(bottom - top);
  return rect;
}

}  // namespace native_live_window
