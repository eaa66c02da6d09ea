#include "display_encoding.h"

namespace kestrun_display {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;

EncodableValue EncodeRect(const DisplayRect& rect) {
  return EncodableValue(EncodableMap{
      {EncodableValue("left"), EncodableValue(rect.left)},
      {EncodableValue("top"), EncodableValue(rect.top)},
      {EncodableValue("right"), EncodableValue(rect.right)},
      {EncodableValue("bottom"), EncodableValue(rect.bottom)},
  });
}

EncodableValue EncodeDisplay(const DisplayRecord& display) {
  return EncodableValue(EncodableMap{
      {EncodableValue("id"), EncodableValue(display.id)},
      {EncodableValue("name"), EncodableValue(display.name)},
      {EncodableValue("isPrimary"), EncodableValue(display.is_primary)},
      {EncodableValue("bounds"), EncodeRect(display.bounds)},
      {EncodableValue("workArea"), EncodeRect(display.work_area)},
      {EncodableValue("scaleFactor"), EncodableValue(display.ScaleFactor())},
      {EncodableValue("dpi"), EncodableValue(display.dpi)},
  });
}

EncodableValue EncodeDisplayList(const std::vector<DisplayRecord>& displays) {
  EncodableList list;
  list.reserve(displays.size());
  for (const DisplayRecord& display : displays) {
    list.push_back(EncodeDisplay(display));
  }
  return EncodableValue(
      EncodableMap{{EncodableValue("displays"), EncodableValue(std::move(list))}});
}

}  // namespace kestrun_display
