#include "live_output/webpage/webpage_presenter.h"

#include <cstdio>
#include <mutex>
#include <utility>

#include "live_output/log/logger.h"

namespace native_live_window {

namespace {

constexpr std::int32_t kContentNone = 0;
constexpr std::int32_t kContentWebpage = 3;

void ClientSize(HWND window, std::int32_t* width, std::int32_t* height) {
  RECT client{};
  if (window != nullptr) {
    GetClientRect(window, &client);
  }
  *width = client.right - client.left;
  *height = client.bottom - client.top;
}

}  // namespace

WebpagePresenter::WebpagePresenter(std::atomic<std::int32_t>& content_mode, Host host)
    : content_mode_(content_mode), host_(std::move(host)) {}

WebpagePresenter::~WebpagePresenter() = default;

bool WebpagePresenter::Load(const std::string& url, bool is_local_file) {
  Logger& log = Logger::Instance();
  const HWND window = host_.window();
  {
    std::lock_guard<RecursiveLock> lock(webview_mutex_);
    log.Info("WEBVIEW", "LoadWebpage called (url=%s, gen=%u, webview=%s, ready=%d, pending=%d)",
             url.c_str(), static_cast<unsigned>(load_generation_),
             webview_ ? "exists" : "null", webview_ready_ ? 1 : 0, load_pending_ ? 1 : 0);
    if (window == nullptr) {
      std::printf("Kestrun Native: ERROR - No window for webpage\n");
      std::fflush(stdout);
      log.Error("WEBVIEW", "LoadWebpage failed - no hwnd_");
      return false;
    }
    if (webview_ && (webview_->parent() != window || webview_->browser_exited())) {
      // A browser made for an earlier window of this object went with that window; one whose
      // process exited shows nothing any more. Either way the load makes a new one.
      webview_.reset();
      webview_ready_ = false;
    }
    if (url == current_url_ && webview_ && (webview_ready_ || load_pending_)) {
      log.Info("WEBVIEW", "Skipping duplicate load for same URL");
      return true;
    }
  }
  // The image goes first, outside the web view lock.
  host_.clear_image();

  std::lock_guard<RecursiveLock> lock(webview_mutex_);
  current_url_ = url;
  current_is_local_file_ = is_local_file;
  const std::uint32_t generation = ++load_generation_;
  load_pending_ = true;
  if (!webview_) {
    CreateBrowser(window, url, is_local_file, generation);
  } else if (webview_ready_) {
    webview_->SetVisible(false);
    ClearLoadHandlers();
    ResizeToWindow();
    SetLoadHandlers(generation);
    Navigate(url, is_local_file);
  }
  // Otherwise the browser is still initialising: its result carries an older generation and is
  // ignored.
  log.Info("WEBVIEW", "LoadWebpage started navigation (gen=%u, url=%s)",
           static_cast<unsigned>(generation), url.c_str());
  return true;
}

void WebpagePresenter::CreateBrowser(HWND window, const std::string& url, bool is_local_file,
                                     std::uint32_t generation) {
  webview_ = std::make_unique<native_webview::NativeWebView>();
  webview_->Initialize(window, [this, url, is_local_file, generation](bool success,
                                                                     const std::string& error) {
    OnInitialized(url, is_local_file, generation, success, error);
  });
}

void WebpagePresenter::KeepFadeOnTop() {
  if (host_.keep_fade_on_top) {
    host_.keep_fade_on_top();
  }
}

void WebpagePresenter::OnInitialized(const std::string& url, bool is_local_file,
                                     std::uint32_t generation, bool success,
                                     const std::string& error) {
  {
    std::lock_guard<RecursiveLock> lock(webview_mutex_);
    if (load_generation_ != generation) {
      return;
    }
    if (!success) {
      std::printf("Kestrun Native: ERROR - WebView init failed: %s\n", error.c_str());
      std::fflush(stdout);
      load_pending_ = false;
      current_url_.clear();
      // Destroyed from inside its own callback: NativeWebView touches nothing after calling it.
      webview_.reset();
      return;
    }
    webview_ready_ = true;
    webview_->SetProcessFailedHandler(
        [this](const std::string& failure) { OnProcessFailed(failure); });
    StartNavigation(url, is_local_file, generation);
  }
  // The browser's windows were made above everything in the window, a black overlay included.
  // (The fade lock is never taken under the web view lock.)
  KeepFadeOnTop();
}

void WebpagePresenter::StartNavigation(const std::string& url, bool is_local_file,
                                       std::uint32_t generation) {
  SetLoadHandlers(generation);
  ResizeToWindow();
  webview_->SetVisible(false);
  Navigate(url, is_local_file);
}

void WebpagePresenter::ResizeToWindow() {
  std::int32_t width = 0;
  std::int32_t height = 0;
  ClientSize(host_.window(), &width, &height);
  webview_->SetBounds(0, 0, width, height);
}

void WebpagePresenter::Navigate(const std::string& url, bool is_local_file) {
  if (is_local_file) {
    webview_->NavigateToFile(url);
  } else {
    webview_->Navigate(url);
  }
  content_mode_.store(kContentWebpage);
}

void WebpagePresenter::SetLoadHandlers(std::uint32_t generation) {
  webview_->SetNavigationCompletedHandler([this, generation](bool success) {
    if (load_generation_ == generation) {
      Logger::Instance().Info("WEBVIEW", "NavigationCompleted (gen=%u, success=%d)",
                              static_cast<unsigned>(generation), success ? 1 : 0);
    }
  });
  webview_->SetDomContentLoadedHandler([this, generation] { OnDomContentLoaded(generation); });
}

void WebpagePresenter::ClearLoadHandlers() {
  webview_->SetNavigationCompletedHandler(nullptr);
  webview_->SetDomContentLoadedHandler(nullptr);
}

void WebpagePresenter::OnProcessFailed(const std::string& failure) {
  // Logged only: the page is not reloaded.
  Logger::Instance().Error("WEBVIEW", "ProcessFailed: %s (url=%s, gen=%u)", failure.c_str(),
                           current_url_.c_str(), static_cast<unsigned>(load_generation_));
}

void WebpagePresenter::OnDomContentLoaded(std::uint32_t generation) {
  if (load_generation_ != generation) {
    return;
  }
  load_pending_ = false;
  revealed_generation_ = generation;
  // The blank flag is read before the web view lock is taken.
  const bool blanked = host_.blanked();
  {
    std::lock_guard<RecursiveLock> lock(webview_mutex_);
    if (!webview_ || blanked || content_mode_.load() != kContentWebpage) {
      return;
    }
    webview_->SetVisible(true);
    Logger::Instance().Info("WEBVIEW", "DOMContentLoaded showing webview (gen=%u)",
                            static_cast<unsigned>(generation));
  }
  KeepFadeOnTop();
}

bool WebpagePresenter::Reload() {
  std::lock_guard<RecursiveLock> lock(webview_mutex_);
  if (!webview_ || content_mode_.load() != kContentWebpage) {
    return false;
  }
  const HWND window = host_.window();
  if (webview_->browser_exited() && window != nullptr) {
    // The old browser is gone: a new one loads the page again, hidden until its content loads.
    webview_ready_ = false;
    load_pending_ = true;
    CreateBrowser(window, current_url_, current_is_local_file_, load_generation_);
  } else {
    webview_->Reload();
  }
  Logger::Instance().Info("WEBVIEW", "ReloadWebpage (url=%s)", current_url_.c_str());
  return true;
}

void WebpagePresenter::Stop() {
  std::int32_t expected = kContentWebpage;
  content_mode_.compare_exchange_strong(expected, kContentNone);
  std::lock_guard<RecursiveLock> lock(webview_mutex_);
  current_url_.clear();
  load_pending_ = false;
  if (webview_) {
    webview_->SetVisible(false);
    ClearLoadHandlers();
  }
  ++load_generation_;
  Logger::Instance().Info("WEBVIEW", "StopWebpage complete, new generation=%u",
                          static_cast<unsigned>(load_generation_));
}

void WebpagePresenter::Resize(std::int32_t width, std::int32_t height) {
  std::lock_guard<RecursiveLock> lock(webview_mutex_);
  if (webview_) {
    webview_->Resize(width, height);
  }
}

void WebpagePresenter::Hide() {
  std::lock_guard<RecursiveLock> lock(webview_mutex_);
  if (webview_) {
    webview_->SetVisible(false);
  }
}

void WebpagePresenter::RevealIfLoaded() {
  {
    std::lock_guard<RecursiveLock> lock(webview_mutex_);
    if (!webview_ || content_mode_.load() != kContentWebpage || load_pending_ ||
        revealed_generation_ != load_generation_) {
      return;
    }
    webview_->SetVisible(true);
  }
  KeepFadeOnTop();
}

void WebpagePresenter::WindowClosing() {
  std::lock_guard<RecursiveLock> lock(webview_mutex_);
  if (webview_) {
    webview_->SetProcessFailedHandler(nullptr);
  }
}

}  // namespace native_live_window
