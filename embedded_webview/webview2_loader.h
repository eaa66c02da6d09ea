// WebView2Loader.dll, loaded by name at run time (on Windows it ships beside the program). A
// missing library or entry point makes the call fail like any other creation failure.

#ifndef KESTRUN_EMBEDDED_WEBVIEW_WEBVIEW2_LOADER_H_
#define KESTRUN_EMBEDDED_WEBVIEW_WEBVIEW2_LOADER_H_

#include <windows.h>

#include "foreign_interfaces/webview2/webview2_api.h"

namespace native_webview {

inline constexpr wchar_t kWebView2LoaderName[] = L"WebView2Loader.dll";

// CreateCoreWebView2EnvironmentWithOptions of the loader with no browser folder, no user-data
// folder and no options. Answers the loader's result, or a failure code when the library or its
// entry point cannot be found (the handler is then never called).
HRESULT CreateWebView2Environment(
    webview2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

}  // namespace native_webview

#endif  // KESTRUN_EMBEDDED_WEBVIEW_WEBVIEW2_LOADER_H_
