// Webpages on a live window: one embedded browser (NativeWebView) made as a child of the window on
// the first load and kept until the window is destroyed.
//
// Loads can follow each other quickly while the browser initialises and navigates
// asynchronously, so every load and every stop starts a new generation, and every browser
// callback carries the generation it was made for and does nothing once that is stale. A page
// stays hidden until its DOM content has loaded (the render loop keeps the window black beneath
// it), and stays hidden while the window is blanked. A browser whose process exited is replaced
// by a new one on the next load or reload.
//
// Everything runs on the platform thread. The state is guarded by the window's web view lock,
// which is never held while another lock of the window is taken.

#ifndef KESTRUN_LIVE_OUTPUT_WEBPAGE_WEBPAGE_PRESENTER_H_
#define KESTRUN_LIVE_OUTPUT_WEBPAGE_WEBPAGE_PRESENTER_H_

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "embedded_webview/native_webview.h"
#include "live_output/window/recursive_lock.h"

namespace native_live_window {

class WebpagePresenter {
 public:
  // What the presenter uses of its live window.
  struct Host {
    // The live window (null before creation and after close).
    std::function<HWND()> window;
    // Drops the image and leaves image mode.
    std::function<void()> clear_image;
    // Whether the window is blanked.
    std::function<bool()> blanked;
    // Puts the fade overlay back above the browser's windows (made or shown after a fade).
    std::function<void()> keep_fade_on_top;
  };

  // `content_mode` is the window's content mode (3 while a webpage is shown).
  WebpagePresenter(std::atomic<std::int32_t>& content_mode, Host host);
  ~WebpagePresenter();

  WebpagePresenter(const WebpagePresenter&) = delete;
  WebpagePresenter& operator=(const WebpagePresenter&) = delete;

  // Starts showing `url` (UTF-8; a file-system path when is_local_file). False only when the
  // window does not exist; browser failures are reported later on standard output.
  bool Load(const std::string& url, bool is_local_file);
  // Reloads the page shown (in a new browser when the old one's process exited); false when no
  // page is shown.
  bool Reload();
  // Hides the page and makes every callback of its load stale. The browser is kept.
  void Stop();

  // The window's client area changed.
  void Resize(std::int32_t width, std::int32_t height);
  // Blanking: hide the page; unblanking: show it again if its load has been revealed.
  void Hide();
  void RevealIfLoaded();
  // The window is closing: no browser-process failure reaches it any more.
  void WindowClosing();

  // State, for tests.
  bool has_webview() const { return webview_ != nullptr; }
  bool webview_ready() const { return webview_ready_; }
  bool load_pending() const { return load_pending_; }
  std::uint32_t load_generation() const { return load_generation_; }
  std::uint32_t revealed_generation() const { return revealed_generation_; }
  const std::string& current_url() const { return current_url_; }

 private:
  // A new browser on `window`, loading `url` for `generation` once ready.
  void CreateBrowser(HWND window, const std::string& url, bool is_local_file,
                     std::uint32_t generation);
  void KeepFadeOnTop();
  void OnInitialized(const std::string& url, bool is_local_file, std::uint32_t generation,
                     bool success, const std::string& error);
  void OnProcessFailed(const std::string& failure);
  void OnDomContentLoaded(std::uint32_t generation);
  // Hidden, placed over the client area, with handlers for `generation`, then navigated.
  void StartNavigation(const std::string& url, bool is_local_file, std::uint32_t generation);
  // The browser over the whole client area.
  void ResizeToWindow();
  // Navigates to the url (a file path when `is_local_file`); the window now shows a page.
  void Navigate(const std::string& url, bool is_local_file);
  void SetLoadHandlers(std::uint32_t generation);
  void ClearLoadHandlers();

  std::atomic<std::int32_t>& content_mode_;
  Host host_;

  RecursiveLock webview_mutex_;
  std::unique_ptr<native_webview::NativeWebView> webview_;
  bool webview_ready_ = false;
  std::string current_url_;
  bool current_is_local_file_ = false;
  bool load_pending_ = false;
  std::uint32_t load_generation_ = 0;
  std::uint32_t revealed_generation_ = 0;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WEBPAGE_WEBPAGE_PRESENTER_H_
