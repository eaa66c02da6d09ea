// One WebView2 browser hosted as a child of a given window, configured as a pure display surface:
// black background, no context menus, developer tools, status bar, script dialogs or built-in
// error pages, and no pointer, keyboard or scroll interaction (injected style, disabled child
// windows, accelerator keys swallowed, focus handed back to the parent).
//
// Used by the live output windows for webpages and by the web view plugin for views over the
// main window. Every call and every callback runs on the thread that owns the parent window,
// which must be a single-threaded COM apartment that pumps messages. Once the object is
// destroyed no callback or handler of it runs again, even for browser events still on their way.
//
// The navigation handlers hear only the navigation started by the latest Navigate or Reload
// (matched by the browser's navigation id): events of a superseded navigation that the browser
// still delivers are dropped. When the browser process exits, the view is dead for good (the
// browser has closed it): navigation is ignored and a new NativeWebView must be made.

#ifndef KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_H_
#define KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_H_

#include <windows.h>
#include <wrl/client.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "foreign_interfaces/webview2/webview2_api.h"

namespace native_webview {

class NativeWebView {
 public:
  // Outcome of Initialize: success, or false with "CreateCoreWebView2EnvironmentWithOptions
  // failed", "Failed to create WebView2 environment" or "Failed to create WebView2 controller".
  // Success comes once both injected scripts are registered, so that the first document is
  // already black and inert. When the default user-data folder (beside the program) cannot be
  // written, creation is tried once more with the per-user folder (kPerUserDataFolder below
  // %LOCALAPPDATA%).
  using InitCallback = std::function<void(bool success, const std::string& error)>;
  // A browser process failed: "BROWSER (kind=0)", "RENDER (kind=1)",
  // "RENDER_UNRESPONSIVE (kind=2)" or "OTHER (kind=n)".
  using ProcessFailedHandler = std::function<void(const std::string& failure)>;
  using NavigationCompletedHandler = std::function<void(bool success)>;
  using DomContentLoadedHandler = std::function<void()>;
  // A capture: PNG bytes on success.
  using CaptureCallback = std::function<void(bool success, std::vector<std::uint8_t> png)>;

  // The timer on the parent that repeats the input-disabling walk after initialisation, and the
  // window property that counts its ticks.
  static constexpr UINT_PTR kDisableTimerId = 1001;
  static constexpr UINT kDisableTimerPeriodMs = 100;
  static constexpr int kDisableTimerTicks = 30;
  static constexpr const wchar_t* kDisableTimerProperty = L"DisableTimerCount";
  static constexpr const wchar_t* kPerUserDataFolder = L"Kestrun\\WebView2";

  NativeWebView();
  // Closes the browser. Callbacks and handlers still on their way are dropped.
  ~NativeWebView();

  NativeWebView(const NativeWebView&) = delete;
  NativeWebView& operator=(const NativeWebView&) = delete;

  // Starts creating the browser as a child of `parent`; `callback` reports the outcome once,
  // possibly before this returns (when the loader cannot be called).
  void Initialize(HWND parent, InitCallback callback);

  // Navigation, ignored until the view is ready. URLs and paths are UTF-8.
  void Navigate(const std::string& url);
  // Navigates "file:///" + path with every backslash turned into a forward slash.
  void NavigateToFile(const std::string& path);
  void Reload();

  // Placement in the parent's client pixels.
  void SetBounds(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height);
  void Resize(std::int32_t width, std::int32_t height);
  void SetVisible(bool visible);
  void SetZoom(double zoom_factor);
  // Captures the page as PNG. False (and no callback) when the view is not ready or the capture
  // cannot be started; otherwise the callback reports the outcome exactly once: later, or as a
  // failure when the browser exits or this object is destroyed first.
  bool CaptureScreenshot(CaptureCallback callback);

  // Handler slots; an empty function clears one.
  void SetProcessFailedHandler(ProcessFailedHandler handler);
  void SetNavigationCompletedHandler(NavigationCompletedHandler handler);
  void SetDomContentLoadedHandler(DomContentLoadedHandler handler);

  bool ready() const { return ready_; }
  // The browser process exited: this view shows nothing any more.
  bool browser_exited() const { return browser_exited_; }
  HWND parent() const { return parent_; }

  // "file:///" + path, backslashes turned into forward slashes, no percent-encoding.
  static std::string FileUrl(const std::string& path);
  // The text handed to the process-failed handler for a failure kind.
  static std::string ProcessFailedText(int kind);
  // Disables every descendant of `window` and makes it transparent to the mouse, depth first.
  static void DisableInput(HWND window);

 private:
  // The one link from browser callbacks back to the object; cleared on destruction.
  struct Link {
    NativeWebView* view;
  };

  // Asks the loader for an environment in `user_data_folder` (empty: the default one).
  void CreateEnvironment(const std::wstring& user_data_folder);
  // Once, when the default folder was refused: the per-user folder. False when already tried.
  bool RetryWithPerUserFolder(HRESULT result);
  void OnEnvironmentCreated(HRESULT result, webview2::ICoreWebView2Environment* environment);
  void OnControllerCreated(HRESULT result, webview2::ICoreWebView2Controller* controller);
  void Configure();
  void OnScriptAdded();
  void RegisterEventHandlers();
  void OnNavigationStarting(webview2::ICoreWebView2NavigationStartingEventArgs* args);
  // Whether an event of navigation `id` belongs to the latest navigation asked for.
  bool IsCurrentNavigation(bool has_id, std::uint64_t id) const;
  void OnProcessFailed(int kind);
  // Started a navigation (Navigate or Reload answered success).
  void NavigationIssued(HRESULT result);
  // Every capture still in flight fails.
  void FailCaptures();
  // Calls the initialisation callback once; the object may be gone when this returns.
  void FinishInitialize(bool success, const std::string& error);
  void StartDisableTimer();
  static void CALLBACK DisableTimerProc(HWND hwnd, UINT message, UINT_PTR id, DWORD time);

  HWND parent_ = nullptr;
  Microsoft::WRL::ComPtr<webview2::ICoreWebView2Environment> environment_;
  Microsoft::WRL::ComPtr<webview2::ICoreWebView2Controller> controller_;
  Microsoft::WRL::ComPtr<webview2::ICoreWebView2> webview_;
  bool ready_ = false;
  bool initializing_ = false;
  bool browser_exited_ = false;
  bool tried_per_user_folder_ = false;
  std::string user_data_folder_;  // UTF-8; empty for the default folder
  int scripts_pending_ = 0;
  InitCallback init_callback_;

  // Navigations asked for (Navigate, Reload) and navigations the browser reported starting, and
  // the ordinal of each navigation id seen: the n-th start belongs to the n-th navigation asked
  // for; a start beyond those asked for (the page navigating by itself) belongs to the latest.
  std::uint64_t navigations_issued_ = 0;
  std::uint64_t navigations_started_ = 0;
  std::map<std::uint64_t, std::uint64_t> navigation_ordinals_;

  // Captures in flight, by serial number.
  std::map<int, CaptureCallback> captures_;
  int next_capture_ = 1;

  ProcessFailedHandler process_failed_handler_;
  NavigationCompletedHandler navigation_completed_handler_;
  DomContentLoadedHandler dom_content_loaded_handler_;

  std::shared_ptr<Link> link_;
};

}  // namespace native_webview

#endif  // KESTRUN_EMBEDDED_WEBVIEW_NATIVE_WEBVIEW_H_
