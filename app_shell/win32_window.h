// The top-level window of the host: registers its window class, creates a DPI-scaled window that
// stays hidden until its owner shows it, routes the window's messages to MessageHandler, keeps one
// child window filling the client area, keeps the title bar dark, and can end the message loop
// when it is destroyed.
#ifndef KESTRUN_APP_SHELL_WIN32_WINDOW_H_
#define KESTRUN_APP_SHELL_WIN32_WINDOW_H_

#include <windows.h>

#include <string>

#include "window_geometry.h"

namespace kestrun_shell {

// Main thread only.
class Win32Window {
 public:
  Win32Window();
  // Destroys the window if it still exists.
  virtual ~Win32Window();

  Win32Window(const Win32Window&) = delete;
  Win32Window& operator=(const Win32Window&) = delete;

  // Creates the window, hidden, with `origin` and `size` in logical units scaled to the monitor
  // nearest `origin`. A window this object already has is destroyed first. Answers false, and
  // leaves no window, when the window cannot be created or OnCreate refuses.
  bool Create(const std::wstring& title, const Point& origin, const Size& size);

  // Answers whether the window was visible before.
  bool Show();

  // Runs OnDestroy and destroys the window; once no Win32Window object is left, also unregisters
  // the window class.
  void Destroy();

  // Makes `content` a child filling the client area and gives it the keyboard focus.
  void SetChildContent(HWND content);

  HWND GetHandle() const { return window_handle_; }

  // With true, destroying the window posts the quit message.
  void SetQuitOnClose(bool quit_on_close) { quit_on_close_ = quit_on_close; }

  RECT GetClientArea() const;

  // "FLUTTER_RUNNER_WIN32_WINDOW".
  static const wchar_t* WindowClassName();

 protected:
  // Handles the window's messages (after creation has started); overrides call it for messages
  // they leave alone.
  virtual LRESULT MessageHandler(HWND window, UINT message, WPARAM wparam, LPARAM lparam) noexcept;

  // Called once the window exists; false makes Create fail.
  virtual bool OnCreate();

  // Called when the window is being destroyed (possibly more than once: keep it idempotent).
  virtual void OnDestroy();

 private:
  static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wparam,
                                          LPARAM lparam) noexcept;

  bool quit_on_close_ = false;
  HWND window_handle_ = nullptr;
  HWND child_content_ = nullptr;
};

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_WIN32_WINDOW_H_
