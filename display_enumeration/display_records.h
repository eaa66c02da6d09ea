// Turning enumerated monitors into display records, and display lists into the signature that
// tells one monitor arrangement from another. No system calls besides the UTF-16 to UTF-8
// conversion, so all of it can be checked with made-up monitors.
#ifndef KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECORDS_H_
#define KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECORDS_H_

#include <string>
#include <vector>

#include "display_record.h"
#include "monitor_snapshot.h"

namespace kestrun_display {

// UTF-8 form of `text`; empty when `text` is empty or the conversion fails.
std::string Utf8FromWide(const std::wstring& text);

// The interface path of the first active device that has one; otherwise the monitor's device
// name.
std::string DisplayIdOf(const MonitorSnapshot& monitor);

// The device string of the first active device that has one; otherwise the monitor's device
// name.
std::string DisplayNameOf(const MonitorSnapshot& monitor);

DisplayRecord MakeDisplayRecord(const MonitorSnapshot& monitor);
// One record per monitor, in enumeration order.
std::vector<DisplayRecord> MakeDisplayRecords(const std::vector<MonitorSnapshot>& monitors);

// One line per display, in list order:
//   id|primary|dpi|left,top,right,bottom;left,top,right,bottom;\n
// (bounds, then work area). Name and scale factor are left out on purpose: renaming a monitor is
// no rearrangement, and the scale follows from the dpi.
std::string DisplaySignature(const std::vector<DisplayRecord>& displays);

// The first display marked primary, or null when none is.
const DisplayRecord* FindPrimaryDisplay(const std::vector<DisplayRecord>& displays);

}  // namespace kestrun_display

#endif  // KESTRUN_DISPLAY_ENUMERATION_DISPLAY_RECORDS_H_
