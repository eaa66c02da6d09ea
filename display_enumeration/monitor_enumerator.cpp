#include "monitor_enumerator.h"

#include <flutter_windows.h>
#include <windows.h>

namespace kestrun_display {

namespace {

DisplayRect FromRect(const RECT& rect) {
  DisplayRect out;
  out.left = rect.left;
  out.top = rect.top;
  out.right = rect.right;
  out.bottom = rect.bottom;
  return out;
}

// The text of a fixed-size WCHAR field, up to its terminator or its end.
template <size_t N>
std::wstring FieldText(const WCHAR (&field)[N]) {
  size_t length = 0;
  while (length < N && field[length] != L'\0') {
    ++length;
  }
  return std::wstring(field, length);
}

// The display devices attached to `device_name`, with their interface paths, until the walk ends.
std::vector<MonitorSnapshot::Device> DevicesOf(const std::wstring& device_name) {
  std::vector<MonitorSnapshot::Device> devices;
  for (DWORD index = 0;; ++index) {
    DISPLAY_DEVICEW device = {};
    device.cb = sizeof(device);
    if (!EnumDisplayDevicesW(device_name.c_str(), index, &device,
                             EDD_GET_DEVICE_INTERFACE_NAME)) {
      break;
    }
    MonitorSnapshot::Device entry;
    entry.state_flags = device.StateFlags;
    entry.device_id = FieldText(device.DeviceID);
    entry.device_string = FieldText(device.DeviceString);
    devices.push_back(std::move(entry));
  }
  return devices;
}

BOOL CALLBACK CollectMonitor(HMONITOR monitor, HDC /*hdc*/, LPRECT /*clip*/, LPARAM data) {
  auto* monitors = reinterpret_cast<std::vector<MonitorSnapshot>*>(data);
  MONITORINFOEXW info = {};
  info.cbSize = sizeof(info);
  // MONITORINFOEXW starts with a MONITORINFO (a base class in some headers, a leading member in
  // others); cbSize tells the system it may fill in the device name.
  if (!GetMonitorInfoW(monitor, reinterpret_cast<MONITORINFO*>(&info))) {
    return TRUE;  // left out; the others are still listed
  }
  MonitorSnapshot snapshot;
  snapshot.device_name = FieldText(info.szDevice);
  snapshot.is_primary = (info.dwFlags & MONITORINFOF_PRIMARY) != 0;
  snapshot.bounds = FromRect(info.rcMonitor);
  snapshot.work_area = FromRect(info.rcWork);
  snapshot.dpi = FlutterDesktopGetDpiForMonitor(monitor);
  snapshot.devices = DevicesOf(snapshot.device_name);
  monitors->push_back(std::move(snapshot));
  return TRUE;
}

}  // namespace

std::vector<MonitorSnapshot> EnumerateMonitors() {
  std::vector<MonitorSnapshot> monitors;
  EnumDisplayMonitors(nullptr, nullptr, &CollectMonitor, reinterpret_cast<LPARAM>(&monitors));
  return monitors;
}

}  // namespace kestrun_display
