// WebView2Loader.dll stand-in: the loader's exports and the browser's environment, controller and
// web view objects, with real child windows that paint the current URL. Behaviour is scripted
// through webview2_standin.h.
#define KESTRUN_WEBVIEW2_STANDIN_IMPL
#include "webview2_standin.h"

#include <wrl/client.h>

#include <atomic>
#include <cstring>
#include <cwchar>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foreign_interfaces/webview2/webview2_api.h"

using Microsoft::WRL::ComPtr;
using namespace webview2;

namespace {

constexpr UINT kRunTask = WM_APP + 0x57;
constexpr wchar_t kDispatcherClass[] = L"KestrunWebView2StandinDispatcher";
constexpr wchar_t kPageClass[] = L"KestrunWebView2StandinPage";

std::atomic<int> g_live_objects{0};
std::atomic<std::int64_t> g_next_token{1};
// What the real browser answers for any call on a closed view.
const HRESULT kClosed = HRESULT_FROM_WIN32(ERROR_INVALID_STATE);
constexpr UINT kAllStrict = WEBVIEW2_STANDIN_LATE_EVENTS | WEBVIEW2_STANDIN_CLOSE_DROPS_PENDING |
                            WEBVIEW2_STANDIN_ASYNC_SCRIPTS;

// ---- Scripted behaviour ---------------------------------------------------------------------

struct Script {
  HRESULT environment_result = S_OK;
  HRESULT controller_result = S_OK;
  bool hold_creations = false;
  bool auto_completed = true;
  bool auto_dom_loaded = true;
  HRESULT capture_result = E_FAIL;
  std::vector<BYTE> capture;
  UINT strict = kAllStrict;
  std::wstring denied_folder;
};
Script g_script;
std::wstring g_last_user_data_folder;

bool Strict(UINT behaviour) { return (g_script.strict & behaviour) != 0; }

// Text into a caller's buffer; answers its length.
UINT CopyText(const std::wstring& text, wchar_t* buffer, UINT size) {
  if (buffer != nullptr && size > 0) {
    const std::size_t length = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(buffer, text.c_str(), length * sizeof(wchar_t));
    buffer[length] = L'\0';
  }
  return static_cast<UINT>(text.size());
}

// ---- Delivery through the message loop ------------------------------------------------------

HWND g_dispatcher = nullptr;
std::deque<std::function<void()>> g_tasks;
std::deque<std::function<void()>> g_held;

LRESULT CALLBACK DispatcherProc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == kRunTask) {
    if (!g_tasks.empty()) {
      std::function<void()> task = std::move(g_tasks.front());
      g_tasks.pop_front();
      task();
    }
    return 0;
  }
  return DefWindowProcW(hwnd, message, wparam, lparam);
}

HINSTANCE ThisModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                         GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&DispatcherProc), &module);
  return module;
}

void EnsureDispatcher() {
  if (g_dispatcher != nullptr && IsWindow(g_dispatcher)) {
    return;
  }
  WNDCLASSEXW window_class{};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = DispatcherProc;
  window_class.hInstance = ThisModule();
  window_class.lpszClassName = kDispatcherClass;
  RegisterClassExW(&window_class);
  g_dispatcher = CreateWindowExW(0, kDispatcherClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                 ThisModule(), nullptr);
}

void Post(std::function<void()> task) {
  EnsureDispatcher();
  g_tasks.push_back(std::move(task));
  PostMessageW(g_dispatcher, kRunTask, 0, 0);
}

void PostCreation(std::function<void()> task) {
  if (g_script.hold_creations) {
    g_held.push_back(std::move(task));
  } else {
    Post(std::move(task));
  }
}

// ---- COM object base ------------------------------------------------------------------------

class Counted {
 public:
  Counted() { ++g_live_objects; }
  virtual ~Counted() { --g_live_objects; }
  ULONG AddReference() { return ++references_; }
  ULONG ReleaseReference() {
    const ULONG left = --references_;
    if (left == 0) {
      delete this;
    }
    return left;
  }

 private:
  // Starts at 0: the first ComPtr (or the AddRef of a returned pointer) takes the first count.
  std::atomic<ULONG> references_{0};
};

#define STANDIN_REFERENCES                                                   \
  ULONG STDMETHODCALLTYPE AddRef() override { return AddReference(); }       \
  ULONG STDMETHODCALLTYPE Release() override { return ReleaseReference(); }

template <typename Interface>
HRESULT Answer(Interface* self, REFIID riid, void** object, std::initializer_list<const IID*> ids) {
  if (object == nullptr) {
    return E_POINTER;
  }
  if (IsEqualIID(riid, IID_IUnknown)) {
    *object = static_cast<IUnknown*>(self);
    self->AddRef();
    return S_OK;
  }
  for (const IID* id : ids) {
    if (IsEqualIID(riid, *id)) {
      *object = static_cast<IUnknown*>(self);
      self->AddRef();
      return S_OK;
    }
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

// ---- One view: its windows, state and handlers ---------------------------------------------

template <typename Handler>
using HandlerMap = std::map<std::int64_t, ComPtr<Handler>>;

struct View {
  int number = 0;
  HWND parent = nullptr;
  HWND host = nullptr;
  HWND page = nullptr;
  bool closed = false;
  bool visible = true;
  RECT bounds{};
  double zoom = 1.0;
  COREWEBVIEW2_COLOR background{255, 255, 255, 255};
  BOOL settings[5] = {TRUE, TRUE, TRUE, TRUE, TRUE};
  int scripts_added = 0;
  // Scripts whose addition has completed, and those that ran on the current document.
  std::vector<std::wstring> scripts;
  std::vector<std::wstring> document_scripts;
  int navigations = 0;
  int reloads = 0;
  std::wstring url;
  std::uint64_t navigation_id = 0;
  // Completion handlers of captures in flight; Close empties them.
  std::vector<std::shared_ptr<ComPtr<ICoreWebView2CapturePreviewCompletedHandler>>> captures;

  HandlerMap<ICoreWebView2NavigationStartingEventHandler> starting;
  HandlerMap<ICoreWebView2NavigationCompletedEventHandler> completed;
  HandlerMap<ICoreWebView2DOMContentLoadedEventHandler> dom_loaded;
  HandlerMap<ICoreWebView2ProcessFailedEventHandler> failed;
  HandlerMap<ICoreWebView2FocusChangedEventHandler> got_focus;
  HandlerMap<ICoreWebView2FocusChangedEventHandler> lost_focus;
  HandlerMap<ICoreWebView2AcceleratorKeyPressedEventHandler> accelerators;

  // Borrowed by the event arguments' sender pointers while the view is open.
  ICoreWebView2* webview = nullptr;
  ICoreWebView2Controller* controller = nullptr;

  int handler_count() const {
    return static_cast<int>(starting.size() + completed.size() + dom_loaded.size() +
                            failed.size() + got_focus.size() + lost_focus.size() +
                            accelerators.size());
  }

  void Close() {
    if (closed) {
      return;
    }
    closed = true;
    starting.clear();
    completed.clear();
    dom_loaded.clear();
    failed.clear();
    got_focus.clear();
    lost_focus.clear();
    accelerators.clear();
    if (Strict(WEBVIEW2_STANDIN_CLOSE_DROPS_PENDING)) {
      for (const auto& capture : captures) {
        capture->Reset();
      }
    }
    captures.clear();
    if (host != nullptr) {
      DestroyWindow(host);
    }
    host = nullptr;
    page = nullptr;
    webview = nullptr;
    controller = nullptr;
  }
};

std::vector<std::shared_ptr<View>> g_views;

View* FindView(int number) {
  if (number < 1 || number > static_cast<int>(g_views.size())) {
    return nullptr;
  }
  View* view = g_views[static_cast<std::size_t>(number - 1)].get();
  return view->closed ? nullptr : view;
}

template <typename Handler, typename Invoke>
void ForEachHandler(const HandlerMap<Handler>& handlers, Invoke invoke) {
  // A copy: a handler may add or remove handlers while it runs.
  std::vector<ComPtr<Handler>> copy;
  for (const auto& entry : handlers) {
    copy.push_back(entry.second);
  }
  for (const ComPtr<Handler>& handler : copy) {
    invoke(handler.Get());
  }
}

template <typename Handler>
HRESULT AddHandler(View& view, HandlerMap<Handler>& handlers, Handler* handler,
                   EventRegistrationToken* token) {
  if (handler == nullptr || token == nullptr) {
    return E_INVALIDARG;
  }
  if (view.closed) {
    return kClosed;
  }
  token->value = g_next_token++;
  handlers[token->value] = handler;
  return S_OK;
}

template <typename Handler>
HRESULT RemoveHandler(HandlerMap<Handler>& handlers, EventRegistrationToken token) {
  handlers.erase(token.value);
  return S_OK;
}

// ---- The page windows -----------------------------------------------------------------------

LRESULT CALLBACK PageProc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_PAINT) {
    PAINTSTRUCT paint{};
    HDC dc = BeginPaint(hwnd, &paint);
    RECT client{};
    GetClientRect(hwnd, &client);
    HBRUSH brush = CreateSolidBrush(RGB(32, 64, 160));
    FillRect(dc, &client, brush);
    DeleteObject(brush);
    const View* view = reinterpret_cast<const View*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    if (view != nullptr) {
      std::wstring text = view->url + L"\n" + (view->visible ? L"(visible)" : L"(hidden)");
      SetBkMode(dc, TRANSPARENT);
      SetTextColor(dc, RGB(255, 255, 255));
      HFONT font = CreateFontW(28, 0, 0, 0, FW_BOLD, FALSE, FALSE, FALSE, DEFAULT_CHARSET, 0, 0,
                               0, 0, L"Arial");
      HGDIOBJ old = SelectObject(dc, font);
      RECT text_rect = client;
      InflateRect(&text_rect, -16, -16);
      DrawTextW(dc, text.c_str(), -1, &text_rect, DT_LEFT | DT_TOP | DT_WORDBREAK);
      SelectObject(dc, old);
      DeleteObject(font);
    }
    EndPaint(hwnd, &paint);
    return 0;
  }
  if (message == WM_ERASEBKGND) {
    return 1;
  }
  return DefWindowProcW(hwnd, message, wparam, lparam);
}

void RegisterPageClass() {
  static bool registered = false;
  if (registered) {
    return;
  }
  WNDCLASSEXW window_class{};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = PageProc;
  window_class.hInstance = ThisModule();
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.lpszClassName = kPageClass;
  registered = RegisterClassExW(&window_class) != 0 ||
               GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
}

void PlaceWindows(View& view) {
  if (view.host == nullptr) {
    return;
  }
  const int width = view.bounds.right - view.bounds.left;
  const int height = view.bounds.bottom - view.bounds.top;
  MoveWindow(view.host, view.bounds.left, view.bounds.top, width, height, TRUE);
  MoveWindow(view.page, 0, 0, width, height, TRUE);
  ShowWindow(view.host, view.visible ? SW_SHOWNA : SW_HIDE);
  InvalidateRect(view.page, nullptr, FALSE);
}

// ---- Event arguments ------------------------------------------------------------------------

class StartingArgs final : public ICoreWebView2NavigationStartingEventArgs, Counted {
 public:
  StartingArgs(std::wstring uri, std::uint64_t id) : uri_(std::move(uri)), id_(id) {}
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(this, riid, object, {&IID_ICoreWebView2NavigationStartingEventArgs});
  }
  HRESULT STDMETHODCALLTYPE get_Uri(LPWSTR* uri) override {
    const std::size_t bytes = (uri_.size() + 1) * sizeof(wchar_t);
    *uri = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    std::memcpy(*uri, uri_.c_str(), bytes);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_IsUserInitiated(BOOL* value) override { *value = FALSE; return S_OK; }
  HRESULT STDMETHODCALLTYPE get_IsRedirected(BOOL* value) override { *value = FALSE; return S_OK; }
  HRESULT STDMETHODCALLTYPE get_RequestHeaders(ICoreWebView2HttpRequestHeaders**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE get_Cancel(BOOL* cancel) override { *cancel = FALSE; return S_OK; }
  HRESULT STDMETHODCALLTYPE put_Cancel(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) override { *id = id_; return S_OK; }

 private:
  std::wstring uri_;
  std::uint64_t id_;
};

class CompletedArgs final : public ICoreWebView2NavigationCompletedEventArgs, Counted {
 public:
  CompletedArgs(bool success, std::uint64_t id) : success_(success), id_(id) {}
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(this, riid, object, {&IID_ICoreWebView2NavigationCompletedEventArgs});
  }
  HRESULT STDMETHODCALLTYPE get_IsSuccess(BOOL* value) override {
    *value = success_ ? TRUE : FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* status) override {
    *status = COREWEBVIEW2_WEB_ERROR_STATUS_UNKNOWN;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) override { *id = id_; return S_OK; }

 private:
  bool success_;
  std::uint64_t id_;
};

class DomLoadedArgs final : public ICoreWebView2DOMContentLoadedEventArgs, Counted {
 public:
  explicit DomLoadedArgs(std::uint64_t id) : id_(id) {}
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(this, riid, object, {&IID_ICoreWebView2DOMContentLoadedEventArgs});
  }
  HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) override { *id = id_; return S_OK; }

 private:
  std::uint64_t id_;
};

class FailedArgs final : public ICoreWebView2ProcessFailedEventArgs, Counted {
 public:
  explicit FailedArgs(int kind) : kind_(kind) {}
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(this, riid, object, {&IID_ICoreWebView2ProcessFailedEventArgs});
  }
  HRESULT STDMETHODCALLTYPE get_ProcessFailedKind(COREWEBVIEW2_PROCESS_FAILED_KIND* kind) override {
    *kind = static_cast<COREWEBVIEW2_PROCESS_FAILED_KIND>(kind_);
    return S_OK;
  }

 private:
  int kind_;
};

class AcceleratorArgs final : public ICoreWebView2AcceleratorKeyPressedEventArgs, Counted {
 public:
  explicit AcceleratorArgs(UINT key) : key_(key) {}
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(this, riid, object, {&IID_ICoreWebView2AcceleratorKeyPressedEventArgs});
  }
  HRESULT STDMETHODCALLTYPE get_KeyEventKind(COREWEBVIEW2_KEY_EVENT_KIND* kind) override {
    *kind = COREWEBVIEW2_KEY_EVENT_KIND_KEY_DOWN;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_VirtualKey(UINT* key) override { *key = key_; return S_OK; }
  HRESULT STDMETHODCALLTYPE get_KeyEventLParam(INT* lparam) override { *lparam = 1; return S_OK; }
  HRESULT STDMETHODCALLTYPE get_PhysicalKeyStatus(COREWEBVIEW2_PHYSICAL_KEY_STATUS* s) override {
    *s = COREWEBVIEW2_PHYSICAL_KEY_STATUS{1, 0, FALSE, FALSE, FALSE, FALSE};
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Handled(BOOL* handled) override { *handled = handled_; return S_OK; }
  HRESULT STDMETHODCALLTYPE put_Handled(BOOL handled) override { handled_ = handled; return S_OK; }
  BOOL handled() const { return handled_; }

 private:
  UINT key_;
  BOOL handled_ = FALSE;
};

// ---- Events of a view -----------------------------------------------------------------------

void RaiseCompleted(View& view, bool success, std::uint64_t id) {
  ComPtr<CompletedArgs> args;
  args = new CompletedArgs(success, id);
  ForEachHandler(view.completed, [&](ICoreWebView2NavigationCompletedEventHandler* handler) {
    handler->Invoke(view.webview, args.Get());
  });
}

void RaiseDomLoaded(View& view, std::uint64_t id) {
  ComPtr<DomLoadedArgs> args;
  args = new DomLoadedArgs(id);
  ForEachHandler(view.dom_loaded, [&](ICoreWebView2DOMContentLoadedEventHandler* handler) {
    handler->Invoke(view.webview, args.Get());
  });
}

// Posts an event of the view's current navigation, carrying that navigation's id. It is dropped
// if the view closes first; a later navigation drops it only when late events are not strict.
void PostNavigationEvent(const std::shared_ptr<View>& shared,
                         std::function<void(View&, std::uint64_t)> raise) {
  std::weak_ptr<View> weak = shared;
  const std::uint64_t id = shared->navigation_id;
  Post([weak, id, raise] {
    std::shared_ptr<View> view = weak.lock();
    if (view && !view->closed &&
        (view->navigation_id == id || Strict(WEBVIEW2_STANDIN_LATE_EVENTS))) {
      raise(*view, id);
    }
  });
}

void StartNavigation(const std::shared_ptr<View>& view, const std::wstring& uri) {
  view->url = uri;
  ++view->navigations;
  ++view->navigation_id;
  // The new document runs the scripts registered by now.
  view->document_scripts = view->scripts;
  if (view->page != nullptr) {
    // Also readable from another process, as the page window's text.
    SetWindowTextW(view->page, uri.c_str());
    InvalidateRect(view->page, nullptr, FALSE);
  }
  PostNavigationEvent(view, [uri](View& v, std::uint64_t id) {
    ComPtr<StartingArgs> args;
    args = new StartingArgs(uri, id);
    ForEachHandler(v.starting, [&](ICoreWebView2NavigationStartingEventHandler* handler) {
      handler->Invoke(v.webview, args.Get());
    });
  });
  if (g_script.auto_dom_loaded) {
    PostNavigationEvent(view, [](View& v, std::uint64_t id) { RaiseDomLoaded(v, id); });
  }
  if (g_script.auto_completed) {
    PostNavigationEvent(view, [](View& v, std::uint64_t id) { RaiseCompleted(v, true, id); });
  }
}

// ---- Settings -------------------------------------------------------------------------------

class Settings final : public ICoreWebView2Settings, Counted {
 public:
  explicit Settings(std::shared_ptr<View> view) : view_(std::move(view)) {}
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(this, riid, object, {&IID_ICoreWebView2Settings});
  }
  HRESULT STDMETHODCALLTYPE get_IsScriptEnabled(BOOL* v) override { *v = TRUE; return S_OK; }
  HRESULT STDMETHODCALLTYPE put_IsScriptEnabled(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_IsWebMessageEnabled(BOOL* v) override { *v = TRUE; return S_OK; }
  HRESULT STDMETHODCALLTYPE put_IsWebMessageEnabled(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_AreDefaultScriptDialogsEnabled(BOOL* v) override { return Get(4, v); }
  HRESULT STDMETHODCALLTYPE put_AreDefaultScriptDialogsEnabled(BOOL v) override { return Put(4, v); }
  HRESULT STDMETHODCALLTYPE get_IsStatusBarEnabled(BOOL* v) override { return Get(2, v); }
  HRESULT STDMETHODCALLTYPE put_IsStatusBarEnabled(BOOL v) override { return Put(2, v); }
  HRESULT STDMETHODCALLTYPE get_AreDevToolsEnabled(BOOL* v) override { return Get(1, v); }
  HRESULT STDMETHODCALLTYPE put_AreDevToolsEnabled(BOOL v) override { return Put(1, v); }
  HRESULT STDMETHODCALLTYPE get_AreDefaultContextMenusEnabled(BOOL* v) override { return Get(0, v); }
  HRESULT STDMETHODCALLTYPE put_AreDefaultContextMenusEnabled(BOOL v) override { return Put(0, v); }
  HRESULT STDMETHODCALLTYPE get_AreHostObjectsAllowed(BOOL* v) override { *v = TRUE; return S_OK; }
  HRESULT STDMETHODCALLTYPE put_AreHostObjectsAllowed(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_IsZoomControlEnabled(BOOL* v) override { *v = TRUE; return S_OK; }
  HRESULT STDMETHODCALLTYPE put_IsZoomControlEnabled(BOOL) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE get_IsBuiltInErrorPageEnabled(BOOL* v) override { return Get(3, v); }
  HRESULT STDMETHODCALLTYPE put_IsBuiltInErrorPageEnabled(BOOL v) override { return Put(3, v); }

 private:
  HRESULT Get(int index, BOOL* value) {
    *value = view_->settings[index];
    return S_OK;
  }
  HRESULT Put(int index, BOOL value) {
    view_->settings[index] = value;
    return S_OK;
  }
  std::shared_ptr<View> view_;
};

// ---- The web view ---------------------------------------------------------------------------

#define STANDIN_NOT_USED(signature) \
  HRESULT STDMETHODCALLTYPE signature override { return E_NOTIMPL; }

class WebView final : public ICoreWebView2_2, Counted {
 public:
  explicit WebView(std::shared_ptr<View> view) : view_(std::move(view)) {}
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(static_cast<ICoreWebView2_2*>(this), riid, object,
                  {&IID_ICoreWebView2, &IID_ICoreWebView2_2});
  }
  HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings** settings) override {
    if (view_->closed) {
      return kClosed;
    }
    *settings = new Settings(view_);
    (*settings)->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* uri) override {
    const std::size_t bytes = (view_->url.size() + 1) * sizeof(wchar_t);
    *uri = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    std::memcpy(*uri, view_->url.c_str(), bytes);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR uri) override {
    if (view_->closed) {
      return kClosed;
    }
    if (uri == nullptr) {
      return E_INVALIDARG;
    }
    StartNavigation(view_, uri);
    return S_OK;
  }
  STANDIN_NOT_USED(NavigateToString(LPCWSTR))
  HRESULT STDMETHODCALLTYPE add_NavigationStarting(ICoreWebView2NavigationStartingEventHandler* h,
                                                   EventRegistrationToken* t) override {
    return AddHandler(*view_, view_->starting, h, t);
  }
  HRESULT STDMETHODCALLTYPE remove_NavigationStarting(EventRegistrationToken t) override {
    return RemoveHandler(view_->starting, t);
  }
  STANDIN_NOT_USED(add_ContentLoading(ICoreWebView2ContentLoadingEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_ContentLoading(EventRegistrationToken))
  STANDIN_NOT_USED(add_SourceChanged(ICoreWebView2SourceChangedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_SourceChanged(EventRegistrationToken))
  STANDIN_NOT_USED(add_HistoryChanged(ICoreWebView2HistoryChangedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_HistoryChanged(EventRegistrationToken))
  HRESULT STDMETHODCALLTYPE add_NavigationCompleted(ICoreWebView2NavigationCompletedEventHandler* h,
                                                    EventRegistrationToken* t) override {
    return AddHandler(*view_, view_->completed, h, t);
  }
  HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken t) override {
    return RemoveHandler(view_->completed, t);
  }
  STANDIN_NOT_USED(add_FrameNavigationStarting(ICoreWebView2NavigationStartingEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_FrameNavigationStarting(EventRegistrationToken))
  STANDIN_NOT_USED(add_FrameNavigationCompleted(ICoreWebView2NavigationCompletedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_FrameNavigationCompleted(EventRegistrationToken))
  STANDIN_NOT_USED(add_ScriptDialogOpening(ICoreWebView2ScriptDialogOpeningEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_ScriptDialogOpening(EventRegistrationToken))
  STANDIN_NOT_USED(add_PermissionRequested(ICoreWebView2PermissionRequestedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_PermissionRequested(EventRegistrationToken))
  HRESULT STDMETHODCALLTYPE add_ProcessFailed(ICoreWebView2ProcessFailedEventHandler* h,
                                              EventRegistrationToken* t) override {
    return AddHandler(*view_, view_->failed, h, t);
  }
  HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken t) override {
    return RemoveHandler(view_->failed, t);
  }
  HRESULT STDMETHODCALLTYPE AddScriptToExecuteOnDocumentCreated(
      LPCWSTR script, ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler* handler)
      override {
    if (view_->closed) {
      return kClosed;
    }
    if (script == nullptr) {
      return E_INVALIDARG;
    }
    const std::wstring id = std::to_wstring(++view_->scripts_added);
    ComPtr<ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler> held(handler);
    std::weak_ptr<View> weak = view_;
    // Registered once its completion runs: documents of navigations started before then do not
    // run it.
    auto complete = [weak, held, id, text = std::wstring(script)] {
      std::shared_ptr<View> view = weak.lock();
      if (!view || view->closed) {
        return;
      }
      view->scripts.push_back(text);
      if (held) {
        held->Invoke(S_OK, id.c_str());
      }
    };
    if (Strict(WEBVIEW2_STANDIN_ASYNC_SCRIPTS)) {
      Post(complete);
    } else {
      complete();
    }
    return S_OK;
  }
  STANDIN_NOT_USED(RemoveScriptToExecuteOnDocumentCreated(LPCWSTR))
  STANDIN_NOT_USED(ExecuteScript(LPCWSTR, ICoreWebView2ExecuteScriptCompletedHandler*))
  HRESULT STDMETHODCALLTYPE CapturePreview(COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT,
                                           IStream* stream,
                                           ICoreWebView2CapturePreviewCompletedHandler* handler)
      override {
    if (view_->closed) {
      return kClosed;
    }
    if (stream == nullptr || handler == nullptr) {
      return E_INVALIDARG;
    }
    ComPtr<IStream> held_stream(stream);
    auto held = std::make_shared<ComPtr<ICoreWebView2CapturePreviewCompletedHandler>>(handler);
    view_->captures.push_back(held);
    std::weak_ptr<View> weak = view_;
    const HRESULT result = view_->navigations == 0 ? E_FAIL : g_script.capture_result;
    const std::vector<BYTE> bytes = g_script.capture;
    Post([weak, held_stream, held, result, bytes] {
      std::shared_ptr<View> view = weak.lock();
      ComPtr<ICoreWebView2CapturePreviewCompletedHandler> handler = std::move(*held);
      if (view) {
        auto& captures = view->captures;
        for (auto it = captures.begin(); it != captures.end(); ++it) {
          if (*it == held) {
            captures.erase(it);
            break;
          }
        }
      }
      if (!view || view->closed || !handler) {
        return;
      }
      if (SUCCEEDED(result) && !bytes.empty()) {
        ULONG written = 0;
        held_stream->Write(bytes.data(), static_cast<ULONG>(bytes.size()), &written);
      }
      handler->Invoke(result);
    });
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Reload() override {
    if (view_->closed) {
      return kClosed;
    }
    ++view_->reloads;
    StartNavigation(view_, view_->url);
    return S_OK;
  }
  STANDIN_NOT_USED(PostWebMessageAsJson(LPCWSTR))
  STANDIN_NOT_USED(PostWebMessageAsString(LPCWSTR))
  STANDIN_NOT_USED(add_WebMessageReceived(ICoreWebView2WebMessageReceivedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_WebMessageReceived(EventRegistrationToken))
  STANDIN_NOT_USED(CallDevToolsProtocolMethod(LPCWSTR, LPCWSTR, ICoreWebView2CallDevToolsProtocolMethodCompletedHandler*))
  STANDIN_NOT_USED(get_BrowserProcessId(UINT32*))
  STANDIN_NOT_USED(get_CanGoBack(BOOL*))
  STANDIN_NOT_USED(get_CanGoForward(BOOL*))
  STANDIN_NOT_USED(GoBack())
  STANDIN_NOT_USED(GoForward())
  STANDIN_NOT_USED(GetDevToolsProtocolEventReceiver(LPCWSTR, ICoreWebView2DevToolsProtocolEventReceiver**))
  STANDIN_NOT_USED(Stop())
  STANDIN_NOT_USED(add_NewWindowRequested(ICoreWebView2NewWindowRequestedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_NewWindowRequested(EventRegistrationToken))
  STANDIN_NOT_USED(add_DocumentTitleChanged(ICoreWebView2DocumentTitleChangedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_DocumentTitleChanged(EventRegistrationToken))
  STANDIN_NOT_USED(get_DocumentTitle(LPWSTR*))
  STANDIN_NOT_USED(AddHostObjectToScript(LPCWSTR, VARIANT*))
  STANDIN_NOT_USED(RemoveHostObjectFromScript(LPCWSTR))
  STANDIN_NOT_USED(OpenDevToolsWindow())
  STANDIN_NOT_USED(add_ContainsFullScreenElementChanged(ICoreWebView2ContainsFullScreenElementChangedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_ContainsFullScreenElementChanged(EventRegistrationToken))
  STANDIN_NOT_USED(get_ContainsFullScreenElement(BOOL*))
  STANDIN_NOT_USED(add_WebResourceRequested(ICoreWebView2WebResourceRequestedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_WebResourceRequested(EventRegistrationToken))
  STANDIN_NOT_USED(AddWebResourceRequestedFilter(const LPCWSTR, const COREWEBVIEW2_WEB_RESOURCE_CONTEXT))
  STANDIN_NOT_USED(RemoveWebResourceRequestedFilter(const LPCWSTR, const COREWEBVIEW2_WEB_RESOURCE_CONTEXT))
  STANDIN_NOT_USED(add_WindowCloseRequested(ICoreWebView2WindowCloseRequestedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_WindowCloseRequested(EventRegistrationToken))
  STANDIN_NOT_USED(add_WebResourceResponseReceived(ICoreWebView2WebResourceResponseReceivedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_WebResourceResponseReceived(EventRegistrationToken))
  STANDIN_NOT_USED(NavigateWithWebResourceRequest(ICoreWebView2WebResourceRequest*))
  HRESULT STDMETHODCALLTYPE add_DOMContentLoaded(ICoreWebView2DOMContentLoadedEventHandler* h,
                                                 EventRegistrationToken* t) override {
    return AddHandler(*view_, view_->dom_loaded, h, t);
  }
  HRESULT STDMETHODCALLTYPE remove_DOMContentLoaded(EventRegistrationToken t) override {
    return RemoveHandler(view_->dom_loaded, t);
  }
  STANDIN_NOT_USED(get_CookieManager(ICoreWebView2CookieManager**))
  STANDIN_NOT_USED(get_Environment(ICoreWebView2Environment**))

 private:
  std::shared_ptr<View> view_;
};

// ---- The controller -------------------------------------------------------------------------

class Controller final : public ICoreWebView2Controller2, Counted {
 public:
  explicit Controller(std::shared_ptr<View> view) : view_(std::move(view)) {
    webview_ = new WebView(view_);
    view_->webview = webview_.Get();
    view_->controller = this;
  }
  ~Controller() override { view_->Close(); }
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(static_cast<ICoreWebView2Controller2*>(this), riid, object,
                  {&IID_ICoreWebView2Controller, &IID_ICoreWebView2Controller2});
  }
  HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL* visible) override {
    *visible = view_->visible ? TRUE : FALSE;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL visible) override {
    if (view_->closed) {
      return kClosed;
    }
    const bool shown = visible != FALSE && !view_->visible;
    view_->visible = visible != FALSE;
    PlaceWindows(*view_);
    if (shown) {
      // Where the browser's window lands among its siblings when shown is not documented: it is
      // raised to the top, the harsher case for anything meant to stay above it.
      SetWindowPos(view_->host, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_Bounds(RECT* bounds) override { *bounds = view_->bounds; return S_OK; }
  HRESULT STDMETHODCALLTYPE put_Bounds(RECT bounds) override {
    if (view_->closed) {
      return kClosed;
    }
    view_->bounds = bounds;
    PlaceWindows(*view_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_ZoomFactor(double* zoom) override { *zoom = view_->zoom; return S_OK; }
  HRESULT STDMETHODCALLTYPE put_ZoomFactor(double zoom) override {
    if (view_->closed) {
      return kClosed;
    }
    view_->zoom = zoom;
    return S_OK;
  }
  STANDIN_NOT_USED(add_ZoomFactorChanged(ICoreWebView2ZoomFactorChangedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_ZoomFactorChanged(EventRegistrationToken))
  HRESULT STDMETHODCALLTYPE SetBoundsAndZoomFactor(RECT bounds, double zoom) override {
    view_->zoom = zoom;
    return put_Bounds(bounds);
  }
  STANDIN_NOT_USED(MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON))
  STANDIN_NOT_USED(add_MoveFocusRequested(ICoreWebView2MoveFocusRequestedEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_MoveFocusRequested(EventRegistrationToken))
  HRESULT STDMETHODCALLTYPE add_GotFocus(ICoreWebView2FocusChangedEventHandler* h,
                                         EventRegistrationToken* t) override {
    return AddHandler(*view_, view_->got_focus, h, t);
  }
  HRESULT STDMETHODCALLTYPE remove_GotFocus(EventRegistrationToken t) override {
    return RemoveHandler(view_->got_focus, t);
  }
  HRESULT STDMETHODCALLTYPE add_LostFocus(ICoreWebView2FocusChangedEventHandler* h,
                                          EventRegistrationToken* t) override {
    return AddHandler(*view_, view_->lost_focus, h, t);
  }
  HRESULT STDMETHODCALLTYPE remove_LostFocus(EventRegistrationToken t) override {
    return RemoveHandler(view_->lost_focus, t);
  }
  HRESULT STDMETHODCALLTYPE add_AcceleratorKeyPressed(
      ICoreWebView2AcceleratorKeyPressedEventHandler* h, EventRegistrationToken* t) override {
    return AddHandler(*view_, view_->accelerators, h, t);
  }
  HRESULT STDMETHODCALLTYPE remove_AcceleratorKeyPressed(EventRegistrationToken t) override {
    return RemoveHandler(view_->accelerators, t);
  }
  HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND* parent) override { *parent = view_->parent; return S_OK; }
  STANDIN_NOT_USED(put_ParentWindow(HWND))
  HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Close() override {
    view_->Close();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2** webview) override {
    if (view_->closed) {
      return kClosed;
    }
    *webview = webview_.Get();
    webview_->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE get_DefaultBackgroundColor(COREWEBVIEW2_COLOR* color) override {
    *color = view_->background;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE put_DefaultBackgroundColor(COREWEBVIEW2_COLOR color) override {
    if (view_->closed) {
      return kClosed;
    }
    if (color.A != 0 && color.A != 255) {
      return E_INVALIDARG;
    }
    view_->background = color;
    return S_OK;
  }

 private:
  std::shared_ptr<View> view_;
  ComPtr<ICoreWebView2> webview_;
};

// A new view: the browser's host window and page window, children of the parent.
ComPtr<Controller> MakeController(HWND parent) {
  RegisterPageClass();
  auto view = std::make_shared<View>();
  view->number = static_cast<int>(g_views.size()) + 1;
  view->parent = parent;
  GetClientRect(parent, &view->bounds);
  const int width = view->bounds.right - view->bounds.left;
  const int height = view->bounds.bottom - view->bounds.top;
  view->host = CreateWindowExW(0, kPageClass, L"", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, 0, 0,
                               width, height, parent, nullptr, ThisModule(), nullptr);
  view->page = CreateWindowExW(0, kPageClass, L"", WS_CHILD | WS_VISIBLE, 0, 0, width, height,
                               view->host, nullptr, ThisModule(), nullptr);
  SetWindowLongPtrW(view->page, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(view.get()));
  SetWindowPos(view->host, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
  g_views.push_back(view);
  ComPtr<Controller> controller;
  controller = new Controller(view);
  return controller;
}

// ---- The environment ------------------------------------------------------------------------

class Environment final : public ICoreWebView2Environment, Counted {
 public:
  STANDIN_REFERENCES
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    return Answer(this, riid, object, {&IID_ICoreWebView2Environment});
  }
  HRESULT STDMETHODCALLTYPE CreateCoreWebView2Controller(
      HWND parent, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) override {
    if (handler == nullptr) {
      return E_INVALIDARG;
    }
    ComPtr<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler> held(handler);
    PostCreation([held, parent] {
      if (!IsWindow(parent)) {
        held->Invoke(E_ABORT, nullptr);
      } else if (FAILED(g_script.controller_result)) {
        held->Invoke(g_script.controller_result, nullptr);
      } else {
        ComPtr<Controller> controller = MakeController(parent);
        held->Invoke(S_OK, controller.Get());
      }
    });
    return S_OK;
  }
  STANDIN_NOT_USED(CreateWebResourceResponse(IStream*, int, LPCWSTR, LPCWSTR, ICoreWebView2WebResourceResponse**))
  HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR* version) override {
    static const wchar_t kVersion[] = L"0.0.0.0-standin";
    *version = static_cast<LPWSTR>(CoTaskMemAlloc(sizeof(kVersion)));
    std::memcpy(*version, kVersion, sizeof(kVersion));
    return S_OK;
  }
  STANDIN_NOT_USED(add_NewBrowserVersionAvailable(ICoreWebView2NewBrowserVersionAvailableEventHandler*, EventRegistrationToken*))
  STANDIN_NOT_USED(remove_NewBrowserVersionAvailable(EventRegistrationToken))
};

}  // namespace

// ---- The loader's exports -------------------------------------------------------------------

namespace {

// The folder a creation uses: the one given, or "<program>.WebView2" beside the executable.
std::wstring UserDataFolder(PCWSTR folder) {
  if (folder != nullptr && *folder != L'\0') {
    return folder;
  }
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  return std::wstring(program) + L".WebView2";
}

bool FolderDenied(const std::wstring& folder) {
  const std::wstring& denied = g_script.denied_folder;
  return !denied.empty() && folder.size() >= denied.size() &&
         _wcsnicmp(folder.c_str(), denied.c_str(), denied.size()) == 0;
}

}  // namespace

extern "C" __declspec(dllexport) HRESULT STDAPICALLTYPE CreateCoreWebView2EnvironmentWithOptions(
    PCWSTR /*browser_folder*/, PCWSTR user_data_folder,
    ICoreWebView2EnvironmentOptions* /*options*/,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
  if (handler == nullptr) {
    return E_POINTER;
  }
  g_last_user_data_folder = user_data_folder != nullptr ? user_data_folder : L"";
  const bool denied = FolderDenied(UserDataFolder(user_data_folder));
  ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> held(handler);
  PostCreation([held, denied] {
    if (denied) {
      // The browser cannot create its user-data folder there.
      held->Invoke(E_ACCESSDENIED, nullptr);
      return;
    }
    if (FAILED(g_script.environment_result)) {
      held->Invoke(g_script.environment_result, nullptr);
      return;
    }
    ComPtr<Environment> environment;
    environment = new Environment();
    held->Invoke(S_OK, environment.Get());
  });
  return S_OK;
}

extern "C" __declspec(dllexport) HRESULT STDAPICALLTYPE CreateCoreWebView2Environment(
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
  return CreateCoreWebView2EnvironmentWithOptions(nullptr, nullptr, nullptr, handler);
}

extern "C" __declspec(dllexport) HRESULT STDAPICALLTYPE
GetAvailableCoreWebView2BrowserVersionString(PCWSTR /*browser_folder*/, LPWSTR* version) {
  if (version == nullptr) {
    return E_POINTER;
  }
  static const wchar_t kVersion[] = L"0.0.0.0-standin";
  *version = static_cast<LPWSTR>(CoTaskMemAlloc(sizeof(kVersion)));
  std::memcpy(*version, kVersion, sizeof(kVersion));
  return S_OK;
}

// ---- Test control ---------------------------------------------------------------------------

void WebView2Standin_Reset() { g_script = Script(); }

void WebView2Standin_SetStrict(UINT behaviours) { g_script.strict = behaviours; }

void WebView2Standin_DenyUserDataFolder(LPCWSTR folder) {
  g_script.denied_folder = folder != nullptr ? folder : L"";
}

UINT WebView2Standin_LastUserDataFolder(wchar_t* buffer, UINT size) {
  return CopyText(g_last_user_data_folder, buffer, size);
}

UINT WebView2Standin_DocumentScripts(int number, wchar_t* buffer, UINT size) {
  std::wstring text;
  if (number >= 1 && number <= static_cast<int>(g_views.size())) {
    for (const std::wstring& script : g_views[static_cast<std::size_t>(number - 1)]->document_scripts) {
      text += (text.empty() ? L"" : L"\n") + script;
    }
  }
  return CopyText(text, buffer, size);
}

void WebView2Standin_SetCreationResults(HRESULT environment, HRESULT controller) {
  g_script.environment_result = environment;
  g_script.controller_result = controller;
}

void WebView2Standin_HoldCreations(BOOL hold) { g_script.hold_creations = hold != FALSE; }

int WebView2Standin_ReleaseCreations() {
  const int count = static_cast<int>(g_held.size());
  while (!g_held.empty()) {
    Post(std::move(g_held.front()));
    g_held.pop_front();
  }
  return count;
}

void WebView2Standin_SetAutomaticEvents(BOOL navigation_completed, BOOL dom_content_loaded) {
  g_script.auto_completed = navigation_completed != FALSE;
  g_script.auto_dom_loaded = dom_content_loaded != FALSE;
}

namespace {
std::shared_ptr<View> SharedView(int number) {
  return FindView(number) != nullptr ? g_views[static_cast<std::size_t>(number - 1)] : nullptr;
}
}  // namespace

BOOL WebView2Standin_CompleteNavigation(int number, BOOL success) {
  std::shared_ptr<View> view = SharedView(number);
  if (!view) {
    return FALSE;
  }
  PostNavigationEvent(view, [success](View& v, std::uint64_t id) {
    RaiseCompleted(v, success != FALSE, id);
  });
  return TRUE;
}

BOOL WebView2Standin_FireDomContentLoaded(int number) {
  std::shared_ptr<View> view = SharedView(number);
  if (!view) {
    return FALSE;
  }
  PostNavigationEvent(view, [](View& v, std::uint64_t id) { RaiseDomLoaded(v, id); });
  return TRUE;
}

BOOL WebView2Standin_FailProcess(int number, int kind) {
  std::shared_ptr<View> view = SharedView(number);
  if (!view) {
    return FALSE;
  }
  std::weak_ptr<View> weak = view;
  Post([weak, kind] {
    std::shared_ptr<View> v = weak.lock();
    if (!v || v->closed) {
      return;
    }
    ComPtr<FailedArgs> args;
    args = new FailedArgs(kind);
    ForEachHandler(v->failed, [&](ICoreWebView2ProcessFailedEventHandler* handler) {
      handler->Invoke(v->webview, args.Get());
    });
    if (kind == COREWEBVIEW2_PROCESS_FAILED_KIND_BROWSER_PROCESS_EXITED) {
      // The browser is gone: the view is closed, and only a new controller shows pages again.
      v->Close();
    }
  });
  return TRUE;
}

BOOL WebView2Standin_Focus(int number) {
  View* view = FindView(number);
  if (view == nullptr) {
    return FALSE;
  }
  SetFocus(view->page);
  ForEachHandler(view->got_focus, [&](ICoreWebView2FocusChangedEventHandler* handler) {
    handler->Invoke(view->controller, nullptr);
  });
  return TRUE;
}

BOOL WebView2Standin_PressAccelerator(int number, UINT virtual_key) {
  View* view = FindView(number);
  if (view == nullptr) {
    return FALSE;
  }
  ComPtr<AcceleratorArgs> args;
  args = new AcceleratorArgs(virtual_key);
  ForEachHandler(view->accelerators, [&](ICoreWebView2AcceleratorKeyPressedEventHandler* handler) {
    handler->Invoke(view->controller, args.Get());
  });
  return args->handled();
}

void WebView2Standin_SetCapture(HRESULT result, const BYTE* bytes, UINT32 size) {
  g_script.capture_result = result;
  g_script.capture.assign(bytes, bytes + (bytes != nullptr ? size : 0));
}

int WebView2Standin_LastView() { return static_cast<int>(g_views.size()); }

BOOL WebView2Standin_GetView(int number, WebView2StandinView* state) {
  if (state == nullptr || number < 1 || number > static_cast<int>(g_views.size())) {
    return FALSE;
  }
  const View& view = *g_views[static_cast<std::size_t>(number - 1)];
  *state = WebView2StandinView{};
  state->parent = view.parent;
  state->host = view.host;
  state->page = view.page;
  state->closed = view.closed ? TRUE : FALSE;
  state->visible = view.visible ? TRUE : FALSE;
  state->bounds = view.bounds;
  state->zoom = view.zoom;
  state->background[0] = view.background.A;
  state->background[1] = view.background.R;
  state->background[2] = view.background.G;
  state->background[3] = view.background.B;
  std::memcpy(state->settings, view.settings, sizeof(state->settings));
  state->navigations = view.navigations;
  state->reloads = view.reloads;
  state->handlers = view.handler_count();
  const std::size_t length = view.url.size() < 1023 ? view.url.size() : 1023;
  std::memcpy(state->url, view.url.c_str(), length * sizeof(wchar_t));
  state->url[length] = L'\0';
  return TRUE;
}

int WebView2Standin_LiveObjects() { return g_live_objects.load(); }

int WebView2Standin_PendingEvents() { return static_cast<int>(g_tasks.size() + g_held.size()); }

BOOL WebView2Standin_DeliverPending() {
  const ULONGLONG deadline = GetTickCount64() + 30000;
  while (WebView2Standin_PendingEvents() != 0) {
    if (GetTickCount64() > deadline) {
      return FALSE;
    }
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
  }
  return TRUE;
}
