#include "win32_window.h"

#include <dwmapi.h>
#include <flutter_windows.h>

#include <memory>
#include <type_traits>

#include "resources/resource.h"
#include "system_function.h"

namespace kestrun_shell {

namespace {

constexpr wchar_t kWindowClassName[] = L"FLUTTER_RUNNER_WIN32_WINDOW";

// DWMWA_USE_IMMERSIVE_DARK_MODE; older SDK headers do not name it.
constexpr DWORD kDwmUseImmersiveDarkMode = 20;

// Process-wide: Win32Window objects alive, and whether the window class is registered. Destroy
// unregisters the class only when no object is left, so in practice it stays registered for the
// life of the process.
int g_live_window_count = 0;

bool& ClassRegistered() {
  static bool registered = false;
  return registered;
}

using EnableNonClientDpiScalingFunction = BOOL(WINAPI*)(HWND);

struct LibraryReleaser {
  void operator()(HMODULE library) const { FreeLibrary(library); }
};
using UniqueLibrary = std::unique_ptr<std::remove_pointer_t<HMODULE>, LibraryReleaser>;

// Lets the frame and title bar scale per monitor where the system offers it.
void EnableFrameDpiScaling(HWND window) {
  UniqueLibrary user32(LoadLibraryW(L"User32.dll"));
  auto enable = GetSystemFunction<EnableNonClientDpiScalingFunction>(user32.get(),
                                                                     "EnableNonClientDpiScaling");
  if (enable != nullptr) {
    enable(window);
  }
}

// The title bar is always dark, whatever the user's theme.
void UseDarkTitleBar(HWND window) {
  const BOOL dark = TRUE;
  DwmSetWindowAttribute(window, kDwmUseImmersiveDarkMode, &dark, sizeof(dark));
}

}  // namespace

Win32Window::Win32Window() { ++g_live_window_count; }

Win32Window::~Win32Window() {
  --g_live_window_count;
  Destroy();
}

const wchar_t* Win32Window::WindowClassName() { return kWindowClassName; }

bool Win32Window::Create(const std::wstring& title, const Point& origin, const Size& size) {
  Destroy();

  if (!ClassRegistered()) {
    WNDCLASSW window_class = {};
    window_class.style = CS_HREDRAW | CS_VREDRAW;
    window_class.lpfnWndProc = &Win32Window::WindowProcedure;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    window_class.hIcon = LoadIconW(window_class.hInstance, MAKEINTRESOURCEW(IDI_APP_ICON));
    window_class.lpszClassName = kWindowClassName;
    if (RegisterClassW(&window_class) != 0 || GetLastError() == ERROR_CLASS_ALREADY_EXISTS) {
      ClassRegistered() = true;
    }
  }

  const POINT target = {static_cast<LONG>(origin.x), static_cast<LONG>(origin.y)};
  HMONITOR monitor = MonitorFromPoint(target, MONITOR_DEFAULTTONEAREST);
  const PhysicalBounds bounds = ScaleToDpi(origin, size, FlutterDesktopGetDpiForMonitor(monitor));

  // Not WS_VISIBLE: the owner shows the window when it has something to show.
  HWND window = CreateWindowExW(0, kWindowClassName, title.c_str(), WS_OVERLAPPEDWINDOW, bounds.x,
                                bounds.y, bounds.width, bounds.height, nullptr, nullptr,
                                GetModuleHandleW(nullptr), this);
  if (window == nullptr) {
    return false;
  }
  UseDarkTitleBar(window);

  if (!OnCreate()) {
    Destroy();
    return false;
  }
  return true;
}

bool Win32Window::Show() { return ShowWindow(window_handle_, SW_SHOW) != 0; }

void Win32Window::Destroy() {
  OnDestroy();
  if (window_handle_ != nullptr) {
    DestroyWindow(window_handle_);
    window_handle_ = nullptr;
  }
  child_content_ = nullptr;
  // While a window of the class still exists (Destroy also runs inside WM_DESTROY) the class
  // cannot go yet; the flag stays set so that a later Destroy tries again.
  if (g_live_window_count == 0 && ClassRegistered() &&
      UnregisterClassW(kWindowClassName, nullptr)) {
    ClassRegistered() = false;
  }
}

void Win32Window::SetChildContent(HWND content) {
  child_content_ = content;
  SetParent(content, window_handle_);
  const RECT frame = GetClientArea();
  MoveWindow(content, frame.left, frame.top, frame.right - frame.left, frame.bottom - frame.top,
             TRUE);
  SetFocus(child_content_);
}

RECT Win32Window::GetClientArea() const {
  RECT frame = {};
  GetClientRect(window_handle_, &frame);
  return frame;
}

LRESULT CALLBACK Win32Window::WindowProcedure(HWND window, UINT message, WPARAM wparam,
                                              LPARAM lparam) noexcept {
  if (message == WM_NCCREATE) {
    const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lparam);
    auto* self = static_cast<Win32Window*>(create->lpCreateParams);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    EnableFrameDpiScaling(window);
    self->window_handle_ = window;
    return DefWindowProcW(window, message, wparam, lparam);
  }
  auto* self = reinterpret_cast<Win32Window*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (self == nullptr) {
    return DefWindowProcW(window, message, wparam, lparam);
  }
  const LRESULT result = self->MessageHandler(window, message, wparam, lparam);
  if (message == WM_NCDESTROY) {
    // Nothing may reach the object through this window any more.
    SetWindowLongPtrW(window, GWLP_USERDATA, 0);
  }
  return result;
}

LRESULT Win32Window::MessageHandler(HWND window, UINT message, WPARAM wparam,
                                    LPARAM lparam) noexcept {
  switch (message) {
    case WM_DESTROY:
      window_handle_ = nullptr;
      Destroy();
      if (quit_on_close_) {
        PostQuitMessage(0);
      }
      return 0;

    case WM_DPICHANGED: {
      const auto* suggested = reinterpret_cast<const RECT*>(lparam);
      SetWindowPos(window, nullptr, suggested->left, suggested->top,
                   suggested->right - suggested->left, suggested->bottom - suggested->top,
                   SWP_NOZORDER | SWP_NOACTIVATE);
      return 0;
    }

    case WM_SIZE:
      if (child_content_ != nullptr) {
        const RECT frame = GetClientArea();
        MoveWindow(child_content_, frame.left, frame.top, frame.right - frame.left,
                   frame.bottom - frame.top, TRUE);
      }
      return 0;

    case WM_ACTIVATE:
      if (child_content_ != nullptr) {
        SetFocus(child_content_);
      }
      return 0;

    case WM_DWMCOLORIZATIONCOLORCHANGED:
      UseDarkTitleBar(window);
      return 0;

    default:
      return DefWindowProcW(window, message, wparam, lparam);
  }
}

bool Win32Window::OnCreate() { return true; }

void Win32Window::OnDestroy() {}

}  // namespace kestrun_shell
