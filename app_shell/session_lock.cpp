#include "session_lock.h"

#include <windows.h>

#include <memory>

namespace kestrun_shell {

namespace {

constexpr wchar_t kLogonUiName[] = L"LogonUI.exe";
constexpr DWORD kImagePathCapacity = 260;

struct ProcessHandleCloser {
  void operator()(HANDLE process) const { CloseHandle(process); }
};
using UniqueProcessHandle = std::unique_ptr<void, ProcessHandleCloser>;

}  // namespace

bool IsLogonUiImagePath(const std::wstring& image_path) {
  const size_t separator = image_path.rfind(L'\\');
  if (separator == std::wstring::npos) {
    return false;
  }
  const std::wstring file_name = image_path.substr(separator + 1);
  return CompareStringOrdinal(file_name.c_str(), static_cast<int>(file_name.size()), kLogonUiName,
                              -1, TRUE) == CSTR_EQUAL;
}

bool IsSessionLocked() {
  HWND foreground = GetForegroundWindow();
  if (foreground == nullptr) {
    return true;
  }
  DWORD process_id = 0;
  GetWindowThreadProcessId(foreground, &process_id);
  if (process_id == 0) {
    return false;
  }
  UniqueProcessHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  if (!process) {
    return false;
  }
  wchar_t image_path[kImagePathCapacity] = {};
  DWORD length = kImagePathCapacity;
  if (!QueryFullProcessImageNameW(process.get(), 0, image_path, &length)) {
    return false;
  }
  return IsLogonUiImagePath(std::wstring(image_path, length));
}

}  // namespace kestrun_shell
