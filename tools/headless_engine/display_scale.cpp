#include "display_scale.h"

namespace kestrun_headless {
namespace {

constexpr UINT kDefaultDpi = 96;
// MONITOR_DPI_TYPE MDT_EFFECTIVE_DPI of shellscalingapi.h.
constexpr int kEffectiveDpi = 0;

using GetDpiForMonitorFunction = HRESULT(WINAPI*)(HMONITOR, int, UINT*, UINT*);

GetDpiForMonitorFunction LookUpGetDpiForMonitor() {
  // Kept loaded for the life of the process.
  HMODULE shcore = LoadLibraryW(L"shcore.dll");
  if (shcore == nullptr) {
    return nullptr;
  }
  return reinterpret_cast<GetDpiForMonitorFunction>(
      reinterpret_cast<void*>(GetProcAddress(shcore, "GetDpiForMonitor")));
}

}  // namespace

UINT DpiForMonitor(HMONITOR monitor) {
  static const GetDpiForMonitorFunction get_dpi_for_monitor = LookUpGetDpiForMonitor();
  if (get_dpi_for_monitor == nullptr || monitor == nullptr) {
    return kDefaultDpi;
  }
  UINT dpi_x = 0;
  UINT dpi_y = 0;
  if (FAILED(get_dpi_for_monitor(monitor, kEffectiveDpi, &dpi_x, &dpi_y)) || dpi_x == 0) {
    return kDefaultDpi;
  }
  return dpi_x;
}

UINT DpiForWindow(HWND window) {
  HMONITOR monitor = window != nullptr ? MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST)
                                       : MonitorFromPoint(POINT{0, 0}, MONITOR_DEFAULTTOPRIMARY);
  return DpiForMonitor(monitor);
}

}  // namespace kestrun_headless
