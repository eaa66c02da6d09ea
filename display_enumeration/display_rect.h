// A monitor rectangle in virtual-desktop physical pixels, right and bottom exclusive, exactly as
// the system reports it.
#ifndef KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECT_H_
#define KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECT_H_

#include <cstdint>

namespace kestrun_display {

struct DisplayRect {
  int32_t left = 0;
  int32_t top = 0;
  int32_t right = 0;
  int32_t bottom = 0;

  friend bool operator==(const DisplayRect& a, const DisplayRect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
  }
  friend bool operator!=(const DisplayRect& a, const DisplayRect& b) { return !(a == b); }
};

}  // namespace kestrun_display

#endif  // KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECT_H_
