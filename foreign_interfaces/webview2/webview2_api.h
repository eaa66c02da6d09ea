// Our own declarations of the WebView2 COM interfaces the host uses, laid out slot for slot as the
// browser runtime expects them (one struct per interface, single inheritance, pure virtual
// __stdcall methods, no data members). Methods we never call are still declared, so that every
// later slot keeps its place.
//
// The loader (WebView2Loader.dll) is not linked: embedded_webview/webview2_loader.h resolves its
// one entry point at run time.

#ifndef KESTRUN_FOREIGN_INTERFACES_WEBVIEW2_WEBVIEW2_API_H_
#define KESTRUN_FOREIGN_INTERFACES_WEBVIEW2_WEBVIEW2_API_H_

#include <windows.h>
#include <objidl.h>
#include <oaidl.h>
#include <unknwn.h>
#include <eventtoken.h>

namespace webview2 {

// ---- Enums and structs (all enums are 32-bit) ----------------------------------------------

enum COREWEBVIEW2_PROCESS_FAILED_KIND : int {
  COREWEBVIEW2_PROCESS_FAILED_KIND_BROWSER_PROCESS_EXITED = 0,
  COREWEBVIEW2_PROCESS_FAILED_KIND_RENDER_PROCESS_EXITED = 1,
  COREWEBVIEW2_PROCESS_FAILED_KIND_RENDER_PROCESS_UNRESPONSIVE = 2,
  COREWEBVIEW2_PROCESS_FAILED_KIND_FRAME_RENDER_PROCESS_EXITED = 3,
};
enum COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT : int {
  COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT_PNG = 0,
  COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT_JPEG = 1,
};
enum COREWEBVIEW2_WEB_ERROR_STATUS : int { COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN = 0 };
enum COREWEBVIEW2_KEY_EVENT_KIND : int { COREWEBVIEW2_KEY_EVENT_KIND_KEY_DOWN = 0 };
enum COREWEBVIEW2_MOVE_FOCUS_REASON : int { COREWEBVIEW2_MOVE_FOCUS_REASON_PROGRAMMATIC = 0 };
enum COREWEBVIEW2_PROCESS_FAILED_REASON : int { COREWEBVIEW2_PROCESS_FAILED_REASON_UNEXPECTED = 0 };
enum COREWEBVIEW2_WEB_RESOURCE_CONTEXT : int { COREWEBVIEW2_WEB_RESOURCE_CONTEXT_ALL = 0 };

// Alpha first.
struct COREWEBVIEW2_COLOR {
  BYTE A;
  BYTE R;
  BYTE G;
  BYTE B;
};

struct COREWEBVIEW2_PHYSICAL_KEY_STATUS {
  UINT32 RepeatCount;
  UINT32 ScanCode;
  BOOL IsExtendedKey;
  BOOL IsMenuKeyDown;
  BOOL WasKeyDown;
  BOOL IsKeyReleased;
};

// ---- Interfaces that appear only as pointers ------------------------------------------------

struct ICoreWebView2CallDevToolsProtocolMethodCompletedHandler;
struct ICoreWebView2ContainsFullScreenElementChangedEventHandler;
struct ICoreWebView2ContentLoadingEventHandler;
struct ICoreWebView2CookieManager;
struct ICoreWebView2DevToolsProtocolEventReceiver;
struct ICoreWebView2DocumentTitleChangedEventHandler;
struct ICoreWebView2ExecuteScriptCompletedHandler;
struct ICoreWebView2FrameInfoCollection;
struct ICoreWebView2HistoryChangedEventHandler;
struct ICoreWebView2HttpRequestHeaders;
struct ICoreWebView2MoveFocusRequestedEventHandler;
struct ICoreWebView2NewBrowserVersionAvailableEventHandler;
struct ICoreWebView2NewWindowRequestedEventHandler;
struct ICoreWebView2PermissionRequestedEventHandler;
struct ICoreWebView2ScriptDialogOpeningEventHandler;
struct ICoreWebView2SourceChangedEventHandler;
struct ICoreWebView2WebMessageReceivedEventHandler;
struct ICoreWebView2WebResourceRequest;
struct ICoreWebView2WebResourceRequestedEventHandler;
struct ICoreWebView2WebResourceResponse;
struct ICoreWebView2WebResourceResponseReceivedEventHandler;
struct ICoreWebView2WindowCloseRequestedEventHandler;
struct ICoreWebView2ZoomFactorChangedEventHandler;

struct ICoreWebView2;
struct ICoreWebView2Controller;
struct ICoreWebView2Environment;
struct ICoreWebView2Settings;
struct ICoreWebView2NavigationStartingEventArgs;
struct ICoreWebView2NavigationCompletedEventArgs;
struct ICoreWebView2ProcessFailedEventArgs;
struct ICoreWebView2AcceleratorKeyPressedEventArgs;
struct ICoreWebView2DOMContentLoadedEventArgs;

// ---- Handlers the program implements (Invoke is slot 3) ------------------------------------

struct ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT error_code,
                                           ICoreWebView2Environment* result) = 0;
};
struct ICoreWebView2CreateCoreWebView2ControllerCompletedHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT error_code,
                                           ICoreWebView2Controller* result) = 0;
};
struct ICoreWebView2NavigationStartingEventHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                           ICoreWebView2NavigationStartingEventArgs* args) = 0;
};
struct ICoreWebView2NavigationCompletedEventHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                           ICoreWebView2NavigationCompletedEventArgs* args) = 0;
};
struct ICoreWebView2ProcessFailedEventHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                           ICoreWebView2ProcessFailedEventArgs* args) = 0;
};
struct ICoreWebView2FocusChangedEventHandler : IUnknown {
  // `args` carries nothing and is never dereferenced.
  virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2Controller* sender, IUnknown* args) = 0;
};
struct ICoreWebView2AcceleratorKeyPressedEventHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2Controller* sender,
                                           ICoreWebView2AcceleratorKeyPressedEventArgs* args) = 0;
};
struct ICoreWebView2CapturePreviewCompletedHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT error_code) = 0;
};
struct ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT error_code, LPCWSTR result) = 0;
};
struct ICoreWebView2DOMContentLoadedEventHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                           ICoreWebView2DOMContentLoadedEventArgs* args) = 0;
};

// ---- Environment ----------------------------------------------------------------------------

struct ICoreWebView2EnvironmentOptions : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_AdditionalBrowserArguments(LPWSTR* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_AdditionalBrowserArguments(LPCWSTR value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Language(LPWSTR* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_Language(LPCWSTR value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_TargetCompatibleBrowserVersion(LPWSTR* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_TargetCompatibleBrowserVersion(LPCWSTR value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AllowSingleSignOnUsingOSPrimaryAccount(BOOL* allow) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_AllowSingleSignOnUsingOSPrimaryAccount(BOOL allow) = 0;
};

struct ICoreWebView2Environment : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2Controller(
      HWND parent_window, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateWebResourceResponse(
      IStream* content, int status_code, LPCWSTR reason_phrase, LPCWSTR headers,
      ICoreWebView2WebResourceResponse** response) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR* version_info) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_NewBrowserVersionAvailable(
      ICoreWebView2NewBrowserVersionAvailableEventHandler* handler,
      EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_NewBrowserVersionAvailable(
      EventRegistrationToken token) = 0;
};

// ---- Controller -----------------------------------------------------------------------------

struct ICoreWebView2Controller : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL* is_visible) = 0;             // 3
  virtual HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL is_visible) = 0;              // 4
  virtual HRESULT STDMETHODCALLTYPE get_Bounds(RECT* bounds) = 0;                    // 5
  virtual HRESULT STDMETHODCALLTYPE put_Bounds(RECT bounds) = 0;                     // 6
  virtual HRESULT STDMETHODCALLTYPE get_ZoomFactor(double* zoom_factor) = 0;         // 7
  virtual HRESULT STDMETHODCALLTYPE put_ZoomFactor(double zoom_factor) = 0;          // 8
  virtual HRESULT STDMETHODCALLTYPE add_ZoomFactorChanged(
      ICoreWebView2ZoomFactorChangedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_ZoomFactorChanged(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBoundsAndZoomFactor(RECT bounds, double zoom) = 0;  // 11
  virtual HRESULT STDMETHODCALLTYPE MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) = 0;  // 12
  virtual HRESULT STDMETHODCALLTYPE add_MoveFocusRequested(
      ICoreWebView2MoveFocusRequestedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_MoveFocusRequested(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_GotFocus(ICoreWebView2FocusChangedEventHandler* handler,
                                                 EventRegistrationToken* token) = 0;   // 15
  virtual HRESULT STDMETHODCALLTYPE remove_GotFocus(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_LostFocus(ICoreWebView2FocusChangedEventHandler* handler,
                                                  EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_LostFocus(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_AcceleratorKeyPressed(
      ICoreWebView2AcceleratorKeyPressedEventHandler* handler,
      EventRegistrationToken* token) = 0;                                               // 19
  virtual HRESULT STDMETHODCALLTYPE remove_AcceleratorKeyPressed(
      EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND* parent_window) = 0;        // 21
  virtual HRESULT STDMETHODCALLTYPE put_ParentWindow(HWND parent_window) = 0;
  virtual HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() = 0;
  virtual HRESULT STDMETHODCALLTYPE Close() = 0;                                      // 24
  virtual HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2** core_webview) = 0;  // 25
};

struct ICoreWebView2Controller2 : ICoreWebView2Controller {
  virtual HRESULT STDMETHODCALLTYPE get_DefaultBackgroundColor(COREWEBVIEW2_COLOR* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_DefaultBackgroundColor(COREWEBVIEW2_COLOR value) = 0;
};

// ---- Settings -------------------------------------------------------------------------------

struct ICoreWebView2Settings : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_IsScriptEnabled(BOOL* value) = 0;                 // 3
  virtual HRESULT STDMETHODCALLTYPE put_IsScriptEnabled(BOOL value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsWebMessageEnabled(BOOL* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_IsWebMessageEnabled(BOOL value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AreDefaultScriptDialogsEnabled(BOOL* value) = 0;  // 7
  virtual HRESULT STDMETHODCALLTYPE put_AreDefaultScriptDialogsEnabled(BOOL value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsStatusBarEnabled(BOOL* value) = 0;              // 9
  virtual HRESULT STDMETHODCALLTYPE put_IsStatusBarEnabled(BOOL value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AreDevToolsEnabled(BOOL* value) = 0;              // 11
  virtual HRESULT STDMETHODCALLTYPE put_AreDevToolsEnabled(BOOL value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AreDefaultContextMenusEnabled(BOOL* value) = 0;   // 13
  virtual HRESULT STDMETHODCALLTYPE put_AreDefaultContextMenusEnabled(BOOL value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AreHostObjectsAllowed(BOOL* value) = 0;           // 15
  virtual HRESULT STDMETHODCALLTYPE put_AreHostObjectsAllowed(BOOL value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsZoomControlEnabled(BOOL* value) = 0;            // 17
  virtual HRESULT STDMETHODCALLTYPE put_IsZoomControlEnabled(BOOL value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsBuiltInErrorPageEnabled(BOOL* value) = 0;       // 19
  virtual HRESULT STDMETHODCALLTYPE put_IsBuiltInErrorPageEnabled(BOOL value) = 0;
};

// ---- Core web view --------------------------------------------------------------------------

struct ICoreWebView2 : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings** settings) = 0;  // 3
  virtual HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* uri) = 0;
  virtual HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR uri) = 0;                            // 5
  virtual HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR html_content) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_NavigationStarting(
      ICoreWebView2NavigationStartingEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_NavigationStarting(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_ContentLoading(
      ICoreWebView2ContentLoadingEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_ContentLoading(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_SourceChanged(
      ICoreWebView2SourceChangedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_SourceChanged(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_HistoryChanged(
      ICoreWebView2HistoryChangedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_HistoryChanged(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_NavigationCompleted(
      ICoreWebView2NavigationCompletedEventHandler* handler,
      EventRegistrationToken* token) = 0;                                                 // 15
  virtual HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_FrameNavigationStarting(
      ICoreWebView2NavigationStartingEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_FrameNavigationStarting(
      EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_FrameNavigationCompleted(
      ICoreWebView2NavigationCompletedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_FrameNavigationCompleted(
      EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_ScriptDialogOpening(
      ICoreWebView2ScriptDialogOpeningEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_ScriptDialogOpening(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_PermissionRequested(
      ICoreWebView2PermissionRequestedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_PermissionRequested(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_ProcessFailed(
      ICoreWebView2ProcessFailedEventHandler* handler, EventRegistrationToken* token) = 0;  // 25
  virtual HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddScriptToExecuteOnDocumentCreated(
      LPCWSTR java_script,
      ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler* handler) = 0;     // 27
  virtual HRESULT STDMETHODCALLTYPE RemoveScriptToExecuteOnDocumentCreated(LPCWSTR id) = 0;
  virtual HRESULT STDMETHODCALLTYPE ExecuteScript(
      LPCWSTR java_script, ICoreWebView2ExecuteScriptCompletedHandler* handler) = 0;
  virtual HRESULT STDMETHODCALLTYPE CapturePreview(
      COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT image_format, IStream* image_stream,
      ICoreWebView2CapturePreviewCompletedHandler* handler) = 0;                          // 30
  virtual HRESULT STDMETHODCALLTYPE Reload() = 0;                                         // 31
  virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR message) = 0;
  virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsString(LPCWSTR message) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_WebMessageReceived(
      ICoreWebView2WebMessageReceivedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_WebMessageReceived(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE CallDevToolsProtocolMethod(
      LPCWSTR method_name, LPCWSTR parameters_as_json,
      ICoreWebView2CallDevToolsProtocolMethodCompletedHandler* handler) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_BrowserProcessId(UINT32* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_CanGoBack(BOOL* can_go_back) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_CanGoForward(BOOL* can_go_forward) = 0;
  virtual HRESULT STDMETHODCALLTYPE GoBack() = 0;                                          // 40
  virtual HRESULT STDMETHODCALLTYPE GoForward() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetDevToolsProtocolEventReceiver(
      LPCWSTR event_name, ICoreWebView2DevToolsProtocolEventReceiver** receiver) = 0;
  virtual HRESULT STDMETHODCALLTYPE Stop() = 0;                                            // 43
  virtual HRESULT STDMETHODCALLTYPE add_NewWindowRequested(
      ICoreWebView2NewWindowRequestedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_NewWindowRequested(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_DocumentTitleChanged(
      ICoreWebView2DocumentTitleChangedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_DocumentTitleChanged(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_DocumentTitle(LPWSTR* title) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddHostObjectToScript(LPCWSTR name, VARIANT* object) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveHostObjectFromScript(LPCWSTR name) = 0;
  virtual HRESULT STDMETHODCALLTYPE OpenDevToolsWindow() = 0;                              // 51
  virtual HRESULT STDMETHODCALLTYPE add_ContainsFullScreenElementChanged(
      ICoreWebView2ContainsFullScreenElementChangedEventHandler* handler,
      EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_ContainsFullScreenElementChanged(
      EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_ContainsFullScreenElement(BOOL* contains) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_WebResourceRequested(
      ICoreWebView2WebResourceRequestedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_WebResourceRequested(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE AddWebResourceRequestedFilter(
      const LPCWSTR uri, const COREWEBVIEW2_WEB_RESOURCE_CONTEXT resource_context) = 0;
  virtual HRESULT STDMETHODCALLTYPE RemoveWebResourceRequestedFilter(
      const LPCWSTR uri, const COREWEBVIEW2_WEB_RESOURCE_CONTEXT resource_context) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_WindowCloseRequested(
      ICoreWebView2WindowCloseRequestedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_WindowCloseRequested(
      EventRegistrationToken token) = 0;                                                    // 60
};

struct ICoreWebView2_2 : ICoreWebView2 {
  virtual HRESULT STDMETHODCALLTYPE add_WebResourceResponseReceived(
      ICoreWebView2WebResourceResponseReceivedEventHandler* handler,
      EventRegistrationToken* token) = 0;                                                   // 61
  virtual HRESULT STDMETHODCALLTYPE remove_WebResourceResponseReceived(
      EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE NavigateWithWebResourceRequest(
      ICoreWebView2WebResourceRequest* request) = 0;
  virtual HRESULT STDMETHODCALLTYPE add_DOMContentLoaded(
      ICoreWebView2DOMContentLoadedEventHandler* handler, EventRegistrationToken* token) = 0;  // 64
  virtual HRESULT STDMETHODCALLTYPE remove_DOMContentLoaded(EventRegistrationToken token) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_CookieManager(ICoreWebView2CookieManager** manager) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Environment(ICoreWebView2Environment** environment) = 0;
};

// ---- Event arguments ------------------------------------------------------------------------

struct ICoreWebView2NavigationStartingEventArgs : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_Uri(LPWSTR* uri) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsUserInitiated(BOOL* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsRedirected(BOOL* value) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_RequestHeaders(
      ICoreWebView2HttpRequestHeaders** headers) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Cancel(BOOL* cancel) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_Cancel(BOOL cancel) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) = 0;
};

struct ICoreWebView2NavigationCompletedEventArgs : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_IsSuccess(BOOL* is_success) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* status) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) = 0;
};

struct ICoreWebView2ProcessFailedEventArgs : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_ProcessFailedKind(
      COREWEBVIEW2_PROCESS_FAILED_KIND* kind) = 0;
};

struct ICoreWebView2AcceleratorKeyPressedEventArgs : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_KeyEventKind(COREWEBVIEW2_KEY_EVENT_KIND* kind) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_VirtualKey(UINT* virtual_key) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_KeyEventLParam(INT* lparam) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_PhysicalKeyStatus(
      COREWEBVIEW2_PHYSICAL_KEY_STATUS* status) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Handled(BOOL* handled) = 0;
  virtual HRESULT STDMETHODCALLTYPE put_Handled(BOOL handled) = 0;                          // 8
};

struct ICoreWebView2DOMContentLoadedEventArgs : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) = 0;
};

// ---- Interface ids --------------------------------------------------------------------------

inline constexpr IID IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler = {
    0x4e8a3389, 0xc9d8, 0x4bd2, {0xb6, 0xb5, 0x12, 0x4f, 0xee, 0x6c, 0xc1, 0x4d}};
inline constexpr IID IID_ICoreWebView2Environment = {
    0xb96d755e, 0x0319, 0x4e92, {0xa2, 0x96, 0x23, 0x43, 0x6f, 0x46, 0xa1, 0xfc}};
inline constexpr IID IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler = {
    0x6c4819f3, 0xc9b7, 0x4260, {0x81, 0x27, 0xc9, 0xf5, 0xbd, 0xe7, 0xf6, 0x8c}};
inline constexpr IID IID_ICoreWebView2Controller = {
    0x4d00c0d1, 0x9434, 0x4eb6, {0x80, 0x78, 0x86, 0x97, 0xa5, 0x60, 0x33, 0x4f}};
inline constexpr IID IID_ICoreWebView2Controller2 = {
    0xc979903e, 0xd4ca, 0x4228, {0x92, 0xeb, 0x47, 0xee, 0x3f, 0xa9, 0x6e, 0xab}};
inline constexpr IID IID_ICoreWebView2 = {
    0x76eceacb, 0x0462, 0x4d94, {0xac, 0x83, 0x42, 0x3a, 0x67, 0x93, 0x77, 0x5e}};
inline constexpr IID IID_ICoreWebView2_2 = {
    0x9e8f0cf8, 0xe670, 0x4b5e, {0xb2, 0xbc, 0x73, 0xe0, 0x61, 0xe3, 0x18, 0x4c}};
inline constexpr IID IID_ICoreWebView2Settings = {
    0xe562e4f0, 0xd7fa, 0x43ac, {0x8d, 0x71, 0xc0, 0x51, 0x50, 0x49, 0x9f, 0x00}};
inline constexpr IID IID_ICoreWebView2NavigationStartingEventHandler = {
    0x9adbe429, 0xf36d, 0x432b, {0x9d, 0xdc, 0xf8, 0x88, 0x1f, 0xbd, 0x76, 0xe3}};
inline constexpr IID IID_ICoreWebView2NavigationStartingEventArgs = {
    0x5b495469, 0xe119, 0x438a, {0x9b, 0x18, 0x76, 0x04, 0xf2, 0x5f, 0x2e, 0x49}};
inline constexpr IID IID_ICoreWebView2NavigationCompletedEventHandler = {
    0xd33a35bf, 0x1c49, 0x4f98, {0x93, 0xab, 0x00, 0x6e, 0x05, 0x33, 0xfe, 0x1c}};
inline constexpr IID IID_ICoreWebView2NavigationCompletedEventArgs = {
    0x30d68b7d, 0x20d9, 0x4752, {0xa9, 0xca, 0xec, 0x84, 0x48, 0xfb, 0xb5, 0xc1}};
inline constexpr IID IID_ICoreWebView2ProcessFailedEventHandler = {
    0x79e0aea4, 0x990b, 0x42d9, {0xaa, 0x1d, 0x0f, 0xcc, 0x2e, 0x5b, 0xc7, 0xf1}};
inline constexpr IID IID_ICoreWebView2ProcessFailedEventArgs = {
    0x8155a9a4, 0x1474, 0x4a86, {0x8c, 0xae, 0x15, 0x1b, 0x0f, 0xa6, 0xb8, 0xca}};
inline constexpr IID IID_ICoreWebView2FocusChangedEventHandler = {
    0x05ea24bd, 0x6452, 0x4926, {0x90, 0x14, 0x4b, 0x82, 0xb4, 0x98, 0x13, 0x5d}};
inline constexpr IID IID_ICoreWebView2AcceleratorKeyPressedEventHandler = {
    0xb29c7e28, 0xfa79, 0x41a8, {0x8e, 0x44, 0x65, 0x81, 0x1c, 0x76, 0xdc, 0xb2}};
inline constexpr IID IID_ICoreWebView2AcceleratorKeyPressedEventArgs = {
    0x9f760f8a, 0xfb79, 0x42be, {0x99, 0x90, 0x7b, 0x56, 0x90, 0x0f, 0xa9, 0xc7}};
inline constexpr IID IID_ICoreWebView2CapturePreviewCompletedHandler = {
    0x697e05e9, 0x3d8f, 0x45fa, {0x96, 0xf4, 0x8f, 0xfe, 0x1e, 0xde, 0xda, 0xf5}};
inline constexpr IID IID_ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler = {
    0xb99369f3, 0x9b11, 0x47b5, {0xbc, 0x6f, 0x8e, 0x78, 0x95, 0xfc, 0xea, 0x17}};
inline constexpr IID IID_ICoreWebView2DOMContentLoadedEventHandler = {
    0x4bac7e9c, 0x199e, 0x49ed, {0x87, 0xed, 0x24, 0x93, 0x03, 0xac, 0xf0, 0x19}};
inline constexpr IID IID_ICoreWebView2DOMContentLoadedEventArgs = {
    0x16b1e21a, 0xc503, 0x44f2, {0x84, 0xc9, 0x70, 0xab, 0xa5, 0x03, 0x12, 0x83}};

// The loader's entry point: `extern "C" HRESULT __stdcall` in WebView2Loader.dll.
using CreateCoreWebView2EnvironmentWithOptionsFunction = HRESULT(STDAPICALLTYPE*)(
    PCWSTR browser_executable_folder, PCWSTR user_data_folder,
    ICoreWebView2EnvironmentOptions* environment_options,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* environment_created_handler);

}  // namespace webview2

#endif  // KESTRUN_FOREIGN_INTERFACES_WEBVIEW2_WEBVIEW2_API_H_
