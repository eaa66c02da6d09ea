#include "embedded_webview/webview2_loader.h"

namespace native_webview {

namespace {

// Resolved on first success; the library then stays loaded for the process (browser objects made
// through it may outlive any one web view). A failed look-up is tried again on the next call.
webview2::CreateCoreWebView2EnvironmentWithOptionsFunction LoaderEntryPoint() {
  static webview2::CreateCoreWebView2EnvironmentWithOptionsFunction entry = nullptr;
  if (entry != nullptr) {
    return entry;
  }
  HMODULE module = LoadLibraryW(kWebView2LoaderName);
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
    webview2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
  const webview2::CreateCoreWebView2EnvironmentWithOptionsFunction create = LoaderEntryPoint();
  if (create == nullptr) {
    return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
  }
  return create(nullptr, nullptr, nullptr, handler);
}

}  // namespace native_webview
