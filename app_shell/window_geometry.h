// Window placement in logical units (96 dpi) and its conversion to a monitor's pixels.
#ifndef KESTRUN_APP_SHELL_WINDOW_GEOMETRY_H_
#define KESTRUN_APP_SHELL_WINDOW_GEOMETRY_H_

namespace kestrun_shell {

struct Point {
  unsigned int x;
  unsigned int y;
};

struct Size {
  unsigned int width;
  unsigned int height;
};

// A window rectangle in physical pixels, as CreateWindowExW takes it.
struct PhysicalBounds {
  int x;
  int y;
  int width;
  int height;
};

// Multiplies the origin and size by dpi / 96 and truncates each product toward zero.
PhysicalBounds ScaleToDpi(const Point& origin, const Size& size, unsigned int dpi);

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_WINDOW_GEOMETRY_H_
