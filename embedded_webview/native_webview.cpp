#include "embedded_webview/native_webview.h"

#include <shlobj.h>

#include <cstdio>
#include <utility>

#include "embedded_webview/com_handler.h"
#include "embedded_webview/webview2_loader.h"
#include "live_output/log/logger.h"

namespace native_webview {

namespace {

using Microsoft::WRL::ComPtr;
using native_live_window::Logger;
using namespace webview2;

// Paints the page black from the moment a document exists.
constexpr wchar_t kBlackDocumentScript[] =
    L"(function() {  document.documentElement.style.cssText = 'background: #000 !important; "
    L"margin: 0; padding: 0;';  if (document.body) {    document.body.style.cssText = "
    L"'background: #000 !important; margin: 0; padding: 0;';  }})();";
// Once the DOM exists: no pointer events, no selection, no scrolling, black behind everything.
constexpr wchar_t kInertDocumentScript[] =
    L"document.addEventListener('DOMContentLoaded', function() {  var style = "
    L"document.createElement('style');  style.textContent = '* { pointer-events: none "
    L"!important; user-select: none !important; } html, body { overflow: hidden !important; "
    L"background: #000 !important; }';  document.head.appendChild(style);});";

std::wstring Utf16(const std::string& text) {
  if (text.empty()) {
    return std::wstring();
  }
  const int length =
      MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length > 0 ? length : 0), L'\0');
  if (length > 0) {
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &wide[0], length);
  }
  return wide;
}

// The whole content of a stream from its start.
bool ReadStream(IStream* stream, std::vector<std::uint8_t>* bytes) {
  STATSTG stat{};
  if (FAILED(stream->Stat(&stat, STATFLAG_NONAME))) {
    return false;
  }
  const LARGE_INTEGER start{};
  if (FAILED(stream->Seek(start, STREAM_SEEK_SET, nullptr))) {
    return false;
  }
  bytes->resize(static_cast<std::size_t>(stat.cbSize.QuadPart));
  ULONG read = 0;
  if (!bytes->empty() &&
      FAILED(stream->Read(bytes->data(), static_cast<ULONG>(bytes->size()), &read))) {
    return false;
  }
  bytes->resize(read);
  return !bytes->empty();
}

std::string Utf8(const std::wstring& text) {
  if (text.empty()) {
    return std::string();
  }
  const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
  std::string narrow(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
  if (length > 0) {
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &narrow[0],
                        length, nullptr, nullptr);
  }
  return narrow;
}

// %LOCALAPPDATA%\Kestrun\WebView2, made if missing; empty when the folder is unknown.
std::wstring PerUserDataFolder() {
  PWSTR local = nullptr;
  std::wstring folder;
  if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &local)) && local) {
    folder = local;
  }
  CoTaskMemFree(local);
  if (folder.empty()) {
    return folder;
  }
  folder += L"\\Kestrun";
  CreateDirectoryW(folder.c_str(), nullptr);
  folder += L"\\WebView2";
  CreateDirectoryW(folder.c_str(), nullptr);
  return folder;
}

}  // namespace

NativeWebView::NativeWebView() : link_(std::make_shared<Link>(Link{this})) {}

NativeWebView::~NativeWebView() {
  link_->view = nullptr;
  // Every capture is answered, also the ones the browser drops when it is closed.
  FailCaptures();
  if (controller_) {
    // Releases every event handler the browser holds.
    controller_->Close();
  }
}

// ---------------------------------------------------------------------------------------------
// Creation

void NativeWebView::Initialize(HWND parent, InitCallback callback) {
  if (initializing_ || ready_) {
    if (callback) {
      callback(false, "WebView2 already initialized");
    }
    return;
  }
  parent_ = parent;
  init_callback_ = std::move(callback);
  initializing_ = true;
  CreateEnvironment(std::wstring());
}

void NativeWebView::CreateEnvironment(const std::wstring& user_data_folder) {
  std::shared_ptr<Link> link = link_;
  ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> handler =
      MakeHandler<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler, HRESULT,
                  ICoreWebView2Environment*>(
          IID_ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
          [link](HRESULT result, ICoreWebView2Environment* environment) {
            if (link->view != nullptr) {
              link->view->OnEnvironmentCreated(result, environment);
            }
            return S_OK;
          });
  const HRESULT result = CreateWebView2Environment(
      user_data_folder.empty() ? nullptr : user_data_folder.c_str(), handler.Get());
  if (FAILED(result) && !RetryWithPerUserFolder(result)) {
    FinishInitialize(false, "CreateCoreWebView2EnvironmentWithOptions failed");
  }
}

bool NativeWebView::RetryWithPerUserFolder(HRESULT result) {
  if (result != E_ACCESSDENIED || tried_per_user_folder_) {
    return false;
  }
  tried_per_user_folder_ = true;
  const std::wstring folder = PerUserDataFolder();
  if (folder.empty()) {
    return false;
  }
  user_data_folder_ = Utf8(folder);
  // Installed where the program's own folder cannot be written (Program Files).
  Logger::Instance().Warning("WEBVIEW",
                             "Default WebView2 user data folder not writable (hr=0x%08X), using %s",
                             static_cast<unsigned>(result), user_data_folder_.c_str());
  CreateEnvironment(folder);
  return true;
}

void NativeWebView::OnEnvironmentCreated(HRESULT result, ICoreWebView2Environment* environment) {
  if (FAILED(result) || environment == nullptr) {
    if (!RetryWithPerUserFolder(result)) {
      FinishInitialize(false, "Failed to create WebView2 environment");
    }
    return;
  }
  Logger::Instance().Info("WEBVIEW", "WebView2 environment created (user data folder: %s)",
                          user_data_folder_.empty() ? "default, beside the program"
                                                    : user_data_folder_.c_str());
  environment_ = environment;
  std::shared_ptr<Link> link = link_;
  ComPtr<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler> handler =
      MakeHandler<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler, HRESULT,
                  ICoreWebView2Controller*>(
          IID_ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
          [link](HRESULT result, ICoreWebView2Controller* controller) {
            if (link->view != nullptr) {
              link->view->OnControllerCreated(result, controller);
            } else if (SUCCEEDED(result) && controller != nullptr) {
              // The view went away while the browser was being made: nobody will show it.
              controller->Close();
            }
            return S_OK;
          });
  if (FAILED(environment_->CreateCoreWebView2Controller(parent_, handler.Get()))) {
    FinishInitialize(false, "Failed to create WebView2 controller");
  }
}

void NativeWebView::OnControllerCreated(HRESULT result, ICoreWebView2Controller* controller) {
  ComPtr<ICoreWebView2> webview;
  if (FAILED(result) || controller == nullptr ||
      FAILED(controller->get_CoreWebView2(webview.GetAddressOf())) || !webview) {
    if (controller != nullptr) {
      controller->Close();
    }
    FinishInitialize(false, "Failed to create WebView2 controller");
    return;
  }
  controller_ = controller;
  webview_ = webview;
  Configure();
  DisableInput(parent_);
  StartDisableTimer();
  RegisterEventHandlers();
  // Ready once both scripts are registered (OnScriptAdded).
  OnScriptAdded();
}

void NativeWebView::OnScriptAdded() {
  if (--scripts_pending_ > 0 || ready_ || !initializing_) {
    return;
  }
  ready_ = true;
  FinishInitialize(true, "");
}

void NativeWebView::FinishInitialize(bool success, const std::string& error) {
  initializing_ = false;
  InitCallback callback = std::move(init_callback_);
  init_callback_ = nullptr;
  if (callback) {
    callback(success, error);
  }
}

void NativeWebView::Configure() {
  ComPtr<ICoreWebView2Settings> settings;
  if (SUCCEEDED(webview_->get_Settings(settings.GetAddressOf())) && settings) {
    settings->put_AreDefaultContextMenusEnabled(FALSE);
    settings->put_AreDevToolsEnabled(FALSE);
    settings->put_IsStatusBarEnabled(FALSE);
    settings->put_IsBuiltInErrorPageEnabled(FALSE);
    settings->put_AreDefaultScriptDialogsEnabled(FALSE);
  }
  // The scripts apply only to documents created after their completion: one count for each,
  // and one for the rest of the set-up (OnControllerCreated).
  scripts_pending_ = 3;
  std::shared_ptr<Link> link = link_;
  for (const wchar_t* script : {kBlackDocumentScript, kInertDocumentScript}) {
    ComPtr<ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler> added =
        MakeHandler<ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler, HRESULT,
                    LPCWSTR>(IID_ICoreWebView2AddScriptToExecuteOnDocumentCreatedCompletedHandler,
                             [link](HRESULT, LPCWSTR) {
                               if (link->view != nullptr) {
                                 link->view->OnScriptAdded();
                               }
                               return S_OK;
                             });
    if (FAILED(webview_->AddScriptToExecuteOnDocumentCreated(script, added.Get()))) {
      OnScriptAdded();
    }
  }
  ComPtr<ICoreWebView2Controller2> controller2;
  if (SUCCEEDED(controller_->QueryInterface(IID_ICoreWebView2Controller2,
                                            reinterpret_cast<void**>(controller2.GetAddressOf()))) &&
      controller2) {
    controller2->put_DefaultBackgroundColor(COREWEBVIEW2_COLOR{255, 0, 0, 0});
  }
}

void NativeWebView::RegisterEventHandlers() {
  std::shared_ptr<Link> link = link_;
  EventRegistrationToken token{};

  auto starting = MakeHandler<ICoreWebView2NavigationStartingEventHandler, ICoreWebView2*,
                              ICoreWebView2NavigationStartingEventArgs*>(
      IID_ICoreWebView2NavigationStartingEventHandler,
      [link](ICoreWebView2*, ICoreWebView2NavigationStartingEventArgs* args) {
        if (link->view != nullptr) {
          link->view->OnNavigationStarting(args);
          DisableInput(link->view->parent_);
        }
        return S_OK;
      });
  webview_->add_NavigationStarting(starting.Get(), &token);

  auto completed = MakeHandler<ICoreWebView2NavigationCompletedEventHandler, ICoreWebView2*,
                               ICoreWebView2NavigationCompletedEventArgs*>(
      IID_ICoreWebView2NavigationCompletedEventHandler,
      [link](ICoreWebView2*, ICoreWebView2NavigationCompletedEventArgs* args) {
        if (link->view == nullptr) {
          return S_OK;
        }
        BOOL success = FALSE;
        UINT64 id = 0;
        const bool has_id = args != nullptr && SUCCEEDED(args->get_NavigationId(&id));
        if (args != nullptr) {
          args->get_IsSuccess(&success);
        }
        const HWND parent = link->view->parent_;
        const NavigationCompletedHandler handler =
            link->view->IsCurrentNavigation(has_id, id) ? link->view->navigation_completed_handler_
                                                        : nullptr;
        if (handler) {
          handler(success != FALSE);
        }
        DisableInput(parent);
        return S_OK;
      });
  webview_->add_NavigationCompleted(completed.Get(), &token);

  ComPtr<ICoreWebView2_2> webview2;
  if (SUCCEEDED(webview_->QueryInterface(IID_ICoreWebView2_2,
                                         reinterpret_cast<void**>(webview2.GetAddressOf()))) &&
      webview2) {
    auto loaded = MakeHandler<ICoreWebView2DOMContentLoadedEventHandler, ICoreWebView2*,
                              ICoreWebView2DOMContentLoadedEventArgs*>(
        IID_ICoreWebView2DOMContentLoadedEventHandler,
        [link](ICoreWebView2*, ICoreWebView2DOMContentLoadedEventArgs* args) {
          UINT64 id = 0;
          const bool has_id = args != nullptr && SUCCEEDED(args->get_NavigationId(&id));
          if (link->view != nullptr && link->view->IsCurrentNavigation(has_id, id)) {
            const DomContentLoadedHandler handler = link->view->dom_content_loaded_handler_;
            if (handler) {
              handler();
            }
          }
          return S_OK;
        });
    webview2->add_DOMContentLoaded(loaded.Get(), &token);
  }

  auto failed = MakeHandler<ICoreWebView2ProcessFailedEventHandler, ICoreWebView2*,
                            ICoreWebView2ProcessFailedEventArgs*>(
      IID_ICoreWebView2ProcessFailedEventHandler,
      [link](ICoreWebView2*, ICoreWebView2ProcessFailedEventArgs* args) {
        if (link->view == nullptr) {
          return S_OK;
        }
        COREWEBVIEW2_PROCESS_FAILED_KIND kind = COREWEBVIEW2_PROCESS_FAILED_KIND_BROWSER_PROCESS_EXITED;
        if (args != nullptr) {
          args->get_ProcessFailedKind(&kind);
        }
        link->view->OnProcessFailed(static_cast<int>(kind));
        return S_OK;
      });
  webview_->add_ProcessFailed(failed.Get(), &token);

  auto focus = MakeHandler<ICoreWebView2FocusChangedEventHandler, ICoreWebView2Controller*,
                           IUnknown*>(IID_ICoreWebView2FocusChangedEventHandler,
                                      [link](ICoreWebView2Controller*, IUnknown*) {
                                        if (link->view != nullptr &&
                                            IsWindow(link->view->parent_)) {
                                          SetFocus(link->view->parent_);
                                        }
                                        return S_OK;
                                      });
  controller_->add_GotFocus(focus.Get(), &token);

  auto keys = MakeHandler<ICoreWebView2AcceleratorKeyPressedEventHandler, ICoreWebView2Controller*,
                          ICoreWebView2AcceleratorKeyPressedEventArgs*>(
      IID_ICoreWebView2AcceleratorKeyPressedEventHandler,
      [](ICoreWebView2Controller*, ICoreWebView2AcceleratorKeyPressedEventArgs* args) {
        // No browser shortcut acts on a display surface.
        if (args != nullptr) {
          args->put_Handled(TRUE);
        }
        return S_OK;
      });
  controller_->add_AcceleratorKeyPressed(keys.Get(), &token);
}

void NativeWebView::OnNavigationStarting(ICoreWebView2NavigationStartingEventArgs* args) {
  UINT64 id = 0;
  if (args == nullptr || FAILED(args->get_NavigationId(&id)) ||
      navigation_ordinals_.count(id) != 0) {
    return;  // Unknown, or a redirect of a navigation already seen.
  }
  if (navigations_started_ < navigations_issued_) {
    ++navigations_started_;
  }
  navigation_ordinals_[id] = navigations_started_;
}

bool NativeWebView::IsCurrentNavigation(bool has_id, std::uint64_t id) const {
  if (!has_id) {
    return true;
  }
  const auto it = navigation_ordinals_.find(id);
  return it != navigation_ordinals_.end() && it->second == navigations_issued_;
}

void NativeWebView::NavigationIssued(HRESULT result) {
  if (FAILED(result)) {
    return;
  }
  ++navigations_issued_;
  // Navigations before the last one asked for are over for good.
  for (auto it = navigation_ordinals_.begin(); it != navigation_ordinals_.end();) {
    it = it->second + 1 < navigations_issued_ ? navigation_ordinals_.erase(it) : std::next(it);
  }
}

void NativeWebView::OnProcessFailed(int kind) {
  if (kind == COREWEBVIEW2_PROCESS_FAILED_KIND_BROWSER_PROCESS_EXITED) {
    // The browser has closed this view; only a new one shows pages again.
    browser_exited_ = true;
    ready_ = false;
    FailCaptures();
  }
  const ProcessFailedHandler handler = process_failed_handler_;
  if (handler) {
    handler(ProcessFailedText(kind));
  }
}

void NativeWebView::FailCaptures() {
  std::map<int, CaptureCallback> captures;
  captures.swap(captures_);
  for (auto& capture : captures) {
    if (capture.second) {
      capture.second(false, {});
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Input

void NativeWebView::DisableInput(HWND window) {
  if (window == nullptr || !IsWindow(window)) {
    return;
  }
  for (HWND child = GetWindow(window, GW_CHILD); child != nullptr;
       child = GetWindow(child, GW_HWNDNEXT)) {
    EnableWindow(child, FALSE);
    SetWindowLongPtrW(child, GWL_EXSTYLE,
                      GetWindowLongPtrW(child, GWL_EXSTYLE) | WS_EX_TRANSPARENT);
    DisableInput(child);
  }
}

void NativeWebView::StartDisableTimer() {
  if (!IsWindow(parent_)) {
    return;
  }
  // A browser made while another's timer still runs on this window restarts the timer and goes
  // on with its count.
  SetTimer(parent_, kDisableTimerId, kDisableTimerPeriodMs, &NativeWebView::DisableTimerProc);
}

void CALLBACK NativeWebView::DisableTimerProc(HWND hwnd, UINT /*message*/, UINT_PTR id,
                                              DWORD /*time*/) {
  if (!IsWindow(hwnd)) {
    return;
  }
  const std::intptr_t count =
      reinterpret_cast<std::intptr_t>(GetPropW(hwnd, kDisableTimerProperty)) + 1;
  SetPropW(hwnd, kDisableTimerProperty, reinterpret_cast<HANDLE>(count));
  DisableInput(hwnd);
  if (count >= kDisableTimerTicks) {
    KillTimer(hwnd, id);
    RemovePropW(hwnd, kDisableTimerProperty);
  }
}

// ---------------------------------------------------------------------------------------------
// Navigation and placement

void NativeWebView::Navigate(const std::string& url) {
  if (!ready_ || !webview_) {
    return;
  }
  NavigationIssued(webview_->Navigate(Utf16(url).c_str()));
}

void NativeWebView::NavigateToFile(const std::string& path) { Navigate(FileUrl(path)); }

void NativeWebView::Reload() {
  if (ready_ && webview_) {
    NavigationIssued(webview_->Reload());
  }
}

void NativeWebView::SetBounds(std::int32_t x, std::int32_t y, std::int32_t width,
                              std::int32_t height) {
  if (controller_) {
    controller_->put_Bounds(RECT{x, y, x + width, y + height});
  }
}

void NativeWebView::Resize(std::int32_t width, std::int32_t height) {
  SetBounds(0, 0, width, height);
}

void NativeWebView::SetVisible(bool visible) {
  if (controller_) {
    controller_->put_IsVisible(visible ? TRUE : FALSE);
  }
}

void NativeWebView::SetZoom(double zoom_factor) {
  if (controller_) {
    controller_->put_ZoomFactor(zoom_factor);
  }
}

bool NativeWebView::CaptureScreenshot(CaptureCallback callback) {
  if (!ready_ || !webview_) {
    return false;
  }
  ComPtr<IStream> stream;
  if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, stream.GetAddressOf()))) {
    return false;
  }
  // Kept here until answered: the browser drops the handler without calling it when it closes,
  // and then this object answers instead (FailCaptures).
  const int serial = next_capture_++;
  std::shared_ptr<Link> link = link_;
  auto handler = MakeHandler<ICoreWebView2CapturePreviewCompletedHandler, HRESULT>(
      IID_ICoreWebView2CapturePreviewCompletedHandler, [stream, link, serial](HRESULT result) {
        if (link->view == nullptr) {
          return S_OK;
        }
        auto& captures = link->view->captures_;
        const auto it = captures.find(serial);
        if (it == captures.end()) {
          return S_OK;
        }
        const CaptureCallback callback = std::move(it->second);
        captures.erase(it);
        std::vector<std::uint8_t> png;
        const bool captured = SUCCEEDED(result) && ReadStream(stream.Get(), &png);
        if (callback) {
          callback(captured, std::move(png));
        }
        return S_OK;
      });
  captures_[serial] = std::move(callback);
  if (FAILED(webview_->CapturePreview(COREWEBVIEW2_CAPTURE_PREVIEW_IMAGE_FORMAT_PNG, stream.Get(),
                                      handler.Get()))) {
    captures_.erase(serial);
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------------------------
// Handlers and texts

void NativeWebView::SetProcessFailedHandler(ProcessFailedHandler handler) {
  process_failed_handler_ = std::move(handler);
}

void NativeWebView::SetNavigationCompletedHandler(NavigationCompletedHandler handler) {
  navigation_completed_handler_ = std::move(handler);
}

void NativeWebView::SetDomContentLoadedHandler(DomContentLoadedHandler handler) {
  dom_content_loaded_handler_ = std::move(handler);
}

std::string NativeWebView::FileUrl(const std::string& path) {
  std::string url = "file:///" + path;
  for (char& c : url) {
    if (c == '\\') {
      c = '/';
    }
  }
  return url;
}

std::string NativeWebView::ProcessFailedText(int kind) {
  const char* name = "OTHER";
  switch (kind) {
    case COREWEBVIEW2_PROCESS_FAILED_KIND_BROWSER_PROCESS_EXITED: name = "BROWSER"; break;
    case COREWEBVIEW2_PROCESS_FAILED_KIND_RENDER_PROCESS_EXITED: name = "RENDER"; break;
    case COREWEBVIEW2_PROCESS_FAILED_KIND_RENDER_PROCESS_UNRESPONSIVE:
      name = "RENDER_UNRESPONSIVE";
      break;
    default: break;
  }
  return std::string(name) + " (kind=" + std::to_string(kind) + ")";
}

}  // namespace native_webview
