#include "live_output/video/mdk/mdk_library.h"

#include <windows.h>

#include <cstdio>
#include <mutex>

namespace mdk {
namespace {

std::string Narrow(const std::wstring& text) {
  if (text.empty()) return std::string();
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()),
                                       nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<std::size_t>(size > 0 ? size : 0), '\0');
  if (size > 0) {
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), out.data(), size,
                        nullptr, nullptr);
  }
  return out;
}

// Full path of mdk.dll in the executable's folder.
std::wstring BesideExecutable() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return L"mdk.dll";
    if (length < path.size()) {
      path.resize(length);
      break;
    }
    path.resize(path.size() * 2);
  }
  const std::size_t slash = path.find_last_of(L"\\/");
  path.resize(slash == std::wstring::npos ? 0 : slash + 1);
  return path + L"mdk.dll";
}

template <typename Fn>
Fn Resolve(HMODULE module, const char* name) {
  return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace

std::shared_ptr<Library> Library::Default() {
  static std::once_flag once;
  static std::shared_ptr<Library> library;
  std::call_once(once, [] { library = Load(BesideExecutable()); });
  return library;
}

std::shared_ptr<Library> Library::Load(const std::wstring& path) {
  std::shared_ptr<Library> library(new Library());
  // A full path lets the library's own dependencies be found in its folder.
  const bool full_path = path.find_first_of(L"\\/") != std::wstring::npos;
  HMODULE module = LoadLibraryExW(path.c_str(), nullptr, full_path ? LOAD_WITH_ALTERED_SEARCH_PATH
      : LOAD_LIBRARY_SEARCH_APPLICATION_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr) {
    char text[64];
    std::snprintf(text, sizeof(text), " could not be loaded (error %lu)", GetLastError());
    library->failure_ = Narrow(path) + text;
    return library;
  }
  library->module_ = module;
  library->new_player_ = Resolve<MdkPlayerApiNewFn>(module, "mdkPlayerAPI_new");
  library->delete_player_ = Resolve<MdkPlayerApiDeleteFn>(module, "mdkPlayerAPI_delete");
  if (!library->available()) {
    library->failure_ = Narrow(path) + " does not export mdkPlayerAPI_new and mdkPlayerAPI_delete";
  }
  if (auto version = Resolve<MdkVersionFn>(module, "MDK_version")) library->version_ = version();
  return library;
}

// The module stays loaded: a parked player may still call into it.
Library::~Library() = default;

const mdkPlayerAPI* Library::NewPlayer() const {
  return available() ? new_player_() : nullptr;
}

void Library::DeletePlayer(const mdkPlayerAPI** api) const {
  if (delete_player_ != nullptr && api != nullptr && *api != nullptr) delete_player_(api);
}

}  // namespace mdk
