#include "display_records.h"

#include <windows.h>

#include <climits>

namespace kestrun_display {

namespace {

// Walks the devices in system order; the first active one for which `pick` yields non-empty
// UTF-8 wins. Falls back to the monitor's device name.
template <typename Pick>
std::string FirstActiveDeviceText(const MonitorSnapshot& monitor, Pick pick) {
  for (const MonitorSnapshot::Device& device : monitor.devices) {
    if ((device.state_flags & DISPLAY_DEVICE_ACTIVE) == 0) {
      continue;
    }
    std::string text = Utf8FromWide(pick(device));
    if (!text.empty()) {
      return text;
    }
  }
  return Utf8FromWide(monitor.device_name);
}

void AppendRect(std::string& out, const DisplayRect& rect) {
  out += std::to_string(rect.left);
  out += ',';
  out += std::to_string(rect.top);
  out += ',';
  out += std::to_string(rect.right);
  out += ',';
  out += std::to_string(rect.bottom);
  out += ';';
}

}  // namespace

std::string Utf8FromWide(const std::wstring& text) {
  if (text.empty() || text.size() > static_cast<size_t>(INT_MAX)) {
    return std::string();
  }
  const int length = static_cast<int>(text.size());
  const int size =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  if (size <= 0) {
    return std::string();
  }
  std::string utf8(static_cast<size_t>(size), '\0');
  const int written =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), length, &utf8[0], size, nullptr, nullptr);
  if (written <= 0) {
    return std::string();
  }
  utf8.resize(static_cast<size_t>(written));
  return utf8;
}

std::string DisplayIdOf(const MonitorSnapshot& monitor) {
  return FirstActiveDeviceText(
      monitor, [](const MonitorSnapshot::Device& device) -> const std::wstring& {
        return device.device_id;
      });
}

std::string DisplayNameOf(const MonitorSnapshot& monitor) {
  return FirstActiveDeviceText(
      monitor, [](const MonitorSnapshot::Device& device) -> const std::wstring& {
        return device.device_string;
      });
}

DisplayRecord MakeDisplayRecord(const MonitorSnapshot& monitor) {
  DisplayRecord record;
  record.id = DisplayIdOf(monitor);
  record.name = DisplayNameOf(monitor);
  record.is_primary = monitor.is_primary;
  record.bounds = monitor.bounds;
  record.work_area = monitor.work_area;
  record.dpi = static_cast<int32_t>(monitor.dpi);
  return record;
}

std::vector<DisplayRecord> MakeDisplayRecords(const std::vector<MonitorSnapshot>& monitors) {
  std::vector<DisplayRecord> records;
  records.reserve(monitors.size());
  for (const MonitorSnapshot& monitor : monitors) {
    records.push_back(MakeDisplayRecord(monitor));
  }
  return records;
}

std::string DisplaySignature(const std::vector<DisplayRecord>& displays) {
  std::string signature;
  for (const DisplayRecord& display : displays) {
    signature += display.id;
    signature += '|';
    signature += display.is_primary ? '1' : '0';
    signature += '|';
    signature += std::to_string(display.dpi);
    signature += '|';
    AppendRect(signature, display.bounds);
    AppendRect(signature, display.work_area);
    signature += '\n';
  }
  return signature;
}

const DisplayRecord* FindPrimaryDisplay(const std::vector<DisplayRecord>& displays) {
  for (const DisplayRecord& display : displays) {
    if (display.is_primary) {
      return &display;
    }
  }
  return nullptr;
}

}  // namespace kestrun_display
