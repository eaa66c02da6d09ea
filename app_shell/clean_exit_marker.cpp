#include "clean_exit_marker.h"

#include <windows.h>
// After windows.h, which it needs.
#include <shlobj.h>

#include <ctime>
#include <memory>

namespace kestrun_shell {

namespace {

constexpr wchar_t kMarkerFolder[] = L"\\Quillmere LLC\\Kestrun";
constexpr wchar_t kMarkerFile[] = L"\\kestrun.clean_exit";
constexpr char kMarkerPrefix[] = "clean_exit:";

struct FileHandleCloser {
  void operator()(HANDLE file) const { CloseHandle(file); }
};
using UniqueFileHandle = std::unique_ptr<void, FileHandleCloser>;

}  // namespace

std::string CleanExitMarkerText(int64_t seconds_since_1970) {
  return kMarkerPrefix + std::to_string(seconds_since_1970);
}

void WriteCleanExitMarkerIn(const std::wstring& app_data_folder, int64_t seconds_since_1970) {
  const std::wstring folder = app_data_folder + kMarkerFolder;
  const std::wstring path = folder + kMarkerFile;
  // One level only; the result does not matter (the folder may exist already, or its parent may
  // be missing, in which case the file cannot be opened below).
  CreateDirectoryW(folder.c_str(), nullptr);
  HANDLE opened = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) {
    return;
  }
  UniqueFileHandle file(opened);
  const std::string text = CleanExitMarkerText(seconds_since_1970);
  DWORD written = 0;
  WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

void WriteCleanExitMarker() {
  wchar_t app_data[MAX_PATH] = {};
  if (FAILED(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, 0, app_data))) {
    return;
  }
  WriteCleanExitMarkerIn(app_data, static_cast<int64_t>(std::time(nullptr)));
}

}  // namespace kestrun_shell
