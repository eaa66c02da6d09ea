// Display records as the channel carries them: string-keyed maps of the standard codec.
#ifndef KESTRUN_DISPLAY_ENUMERATION_DISPLAY_ENCODING_H_
#define KESTRUN_DISPLAY_ENUMERATION_DISPLAY_ENCODING_H_

#include <vector>

#include "display_record.h"
#include "encodable_value.h"

namespace kestrun_display {

// {"left", "top", "right", "bottom"}: 32-bit ints.
flutter::EncodableValue EncodeRect(const DisplayRect& rect);

// {"id", "name", "isPrimary", "bounds", "workArea", "scaleFactor", "dpi"}.
flutter::EncodableValue EncodeDisplay(const DisplayRecord& display);

// {"displays": [display maps in list order]}: the answer to "getAllDisplays".
flutter::EncodableValue EncodeDisplayList(const std::vector<DisplayRecord>& displays);

}  // namespace kestrun_display

#endif  // KESTRUN_DISPLAY_ENUMERATION_DISPLAY_ENCODING_H_
