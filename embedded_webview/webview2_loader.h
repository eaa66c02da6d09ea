// WebView2Loader.dll, loaded at run time from the program's own folder or System32 only (never
// from the current folder or PATH, where another program could plant one). A missing library or
// entry point makes the call fail like any other creation failure.

#ifndef KESTRUN_EMBEDDED_WEBVIEW_WEBVIEW2_LOADER_H_
#define KESTRUN_EMBEDDED_WEBVIEW_WEBVIEW2_LOADER_H_

#include <windows.h>

#include "foreign_interfaces/webview2/webview2_api.h"

namespace native_webview {

inline constexpr wchar_t kWebView2LoaderName[] = L"WebView2Loader.dll";

// CreateCoreWebView2EnvironmentWithOptions of the loader with no browser folder and no options;
// `user_data_folder` null asks for the browser's default folder. Answers the loader's result, or
// a failure code when the library or its entry point cannot be found (the handler is then never
// called).
HRESULT CreateWebView2Environment(
    const wchar_t* user_data_folder,
    webview2::ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

// Tests name another library file to look for (null: WebView2Loader.dll again).
void SetWebView2LoaderNameForTesting(const wchar_t* name);

}  // namespace native_webview

#endif  // KESTRUN_EMBEDDED_WEBVIEW_WEBVIEW2_LOADER_H_
