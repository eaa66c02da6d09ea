#include "embedded_webview/webview2_loader.h"

#include <string>

namespace native_webview {

namespace {

std::wstring& LoaderName() {
  static std::wstring name = kWebView2LoaderName;
  return name;
}

webview2::CreateCoreWebView2EnvironmentWithOptionsFunction& CachedEntryPoint() {
  static webview2::CreateCoreWebView2EnvironmentWithOptionsFunction entry = nullptr;
  return entry;
}

// Resolved on first success; the library then stays loaded for the process (browser objects made
// through it may outlive any one web view). A failed look-up is tried again on the next call.
webview2::CreateCoreWebView2EnvironmentWithOptionsFunction LoaderEntryPoint() {
  webview2::CreateCoreWebView2EnvironmentWithOptionsFunction& entry = CachedEntryPoint();
  if (entry != nullptr) {
    return entry;
  }
  HMODULE module = LoadLibraryExW(LoaderName().c_str(), nullptr,
                                  LOAD_LIBRARY_SEARCH_APPLICATION_DIR |
                                      LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr) {
    return nullptr;
  }
  entry = reinterpret_cast<webview2::CreateCoreWebView2EnvironmentWithOptionsFunction>(
      reinterpret_cast<void*>(GetProcAddress(module, "CreateCoreWebView2EnvironmentWithOptions")));
  if (entry == nullptr) {
    FreeLibrary(module);
  }
  return entry;
}

}  // namespace

HRESULT CreateWebView2Environment(
    const wchar_t* user_data_folder,
    webview2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
  const webview2::CreateCoreWebView2EnvironmentWithOptionsFunction create = LoaderEntryPoint();
  if (create == nullptr) {
    return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
  }
  return create(nullptr, user_data_folder, nullptr, handler);
}

void SetWebView2LoaderNameForTesting(const wchar_t* name) {
  LoaderName() = name != nullptr ? name : kWebView2LoaderName;
  CachedEntryPoint() = nullptr;
}

}  // namespace native_webview
