#include "window_geometry.h"

namespace kestrun_shell {

namespace {

constexpr double kLogicalDpi = 96.0;

int Scale(unsigned int logical, double scale) { return static_cast<int>(logical * scale); }

}  // namespace

PhysicalBounds ScaleToDpi(const Point& origin, const Size& size, unsigned int dpi) {
  const double scale = dpi / kLogicalDpi;
  return PhysicalBounds{Scale(origin.x, scale), Scale(origin.y, scale), Scale(size.width, scale),
                        Scale(size.height, scale)};
}

}  // namespace kestrun_shell
