#include "live_output/window/native_live_window.h"

#include <dwmapi.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>

#include "live_output/window/display_bounds.h"
#include "live_output/diagnostics/gpu_diagnostics.h"
#include "live_output/log/logger.h"
#include "live_output/window/render_fault_guard.h"

namespace native_live_window {
namespace {

constexpr wchar_t kWindowClassName[] = L"KestrunNativeLiveWindow";
constexpr wchar_t kWindowTitle[] = L"Kestrun Live";
constexpr const char* kUnknownDisplay = "unknown display";
// The timer that hides the cursor again after mouse activity.
constexpr UINT_PTR kCursorTimerId = 1;
constexpr UINT kCursorHideDelayMs = 5000;

std::atomic<bool> g_window_class_registered{false};

// Test seam of a whole program: with KESTRUN_TEST_DEVICE_LOSS=1 in its environment, the message
// "KestrunTestDeviceLoss" posted to an output window makes the lParam-th call of kind wParam
// (LiveWindowDeviceResources::Call) from then on find its device removed. 0 without the variable.
UINT DeviceLossTestMessage() {
  static const UINT message = [] {
    wchar_t value[8] = {};
    const DWORD length = GetEnvironmentVariableW(L"KESTRUN_TEST_DEVICE_LOSS", value, 8);
    return length == 1 && value[0] == L'1' ? RegisterWindowMessageW(L"KestrunTestDeviceLoss")
                                           : 0u;
  }();
  return message;
}

// A fully transparent cursor, made once and kept for the process.
HCURSOR InvisibleCursor() {
  static const HCURSOR cursor = [] {
    const int width = GetSystemMetrics(SM_CXCURSOR);
    const int height = GetSystemMetrics(SM_CYCURSOR);
    const std::size_t plane_bytes = static_cast<std::size_t>(width) * height / 8;
    const std::vector<BYTE> and_plane(plane_bytes, 0xFF);
    const std::vector<BYTE> xor_plane(plane_bytes, 0x00);
    return CreateCursor(GetModuleHandleW(nullptr), 0, 0, width, height, and_plane.data(),
                        xor_plane.data());
  }();
  return cursor;
}

void DebugLine(const std::wstring& text) { OutputDebugStringW(text.c_str()); }

// One "Kestrun Native: " line on standard output, flushed.
void PrintLine(const char* text) {
  std::printf("Kestrun Native: %s\n", text);
  std::fflush(stdout);
}

bool KeyIsDown(int key) { return (GetKeyState(key) & 0x8000) != 0; }

}  // namespace

NativeLiveWindow::NativeLiveWindow() : NativeLiveWindow(LiveWindowClock::System()) {}

NativeLiveWindow::NativeLiveWindow(std::shared_ptr<const LiveWindowClock> clock)
    : clock_(clock ? std::move(clock) : LiveWindowClock::System()),
      webpage_(content_mode_, WebpagePresenter::Host{[this] { return hwnd_; },
                                                       [this] { ClearContent(); },
                                                       [this] { return fade_.blanked(); },
                                                       [this] { KeepFadeOverlayOnTop(); }}),
      fade_(clock_) {}

NativeLiveWindow::~NativeLiveWindow() {
  if (hwnd_ != nullptr || running_.load() || render_thread_.joinable()) {
    Close();
  }
}

// ---------------------------------------------------------------------------------------------
// Creation and closing

void NativeLiveWindow::CreateOnDisplays(const std::vector<DisplayRecord>& displays,
                                        CreateCallback callback) {
  // Copied first: `displays` may be displays_ itself, which closing clears.
  std::vector<DisplayRecord> requested = displays;
  if (hwnd_ != nullptr) {
    Close();
  }
  create_callback_ = callback;
  displays_ = std::move(requested);
  auto report = [&callback](bool success, const char* error) {
    if (callback) {
      callback(success, error);
    }
  };

  if (displays_.empty()) {
    report(false, "No displays provided");
    return;
  }

  const VirtualRect bounds = DisplayBounds::Union(displays_);
  origin_x_ = bounds.left;
  origin_y_ = bounds.top;
  DebugLine(L"Kestrun: Creating native live window at (" + std::to_wstring(bounds.left) + L", " +
            std::to_wstring(bounds.top) + L") " + std::to_wstring(bounds.width) + L"x" +
            std::to_wstring(bounds.height) + L"\n");

  if (!CreateNativeWindow(bounds.left, bounds.top, bounds.width, bounds.height)) {
    report(false, "Failed to create native window");
    return;
  }
  if (!InitD3D()) {
    DestroyWindow(hwnd_);
    hwnd_ = nullptr;
    report(false, "Failed to initialize D3D11");
    return;
  }

  StartRenderLoop();

  ShowWindow(hwnd_, SW_SHOW);
  SetForegroundWindow(hwnd_);
  SetFocus(hwnd_);

  cursor_visible_ = false;
  POINT cursor = {};
  if (GetCursorPos(&cursor) && ScreenToClient(hwnd_, &cursor)) {
    last_mouse_x_ = cursor.x;
    last_mouse_y_ = cursor.y;
  } else {
    last_mouse_x_ = -1;
    last_mouse_y_ = -1;
  }
  report(true, "");
}

bool NativeLiveWindow::CreateNativeWindow(std::int32_t x, std::int32_t y, std::int32_t width,
                                          std::int32_t height) {
  const HINSTANCE instance = GetModuleHandleW(nullptr);
  if (!g_window_class_registered.load()) {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.style = CS_HREDRAW | CS_VREDRAW;
    window_class.lpfnWndProc = &NativeLiveWindow::WindowProc;
    window_class.cbClsExtra = 0;
    window_class.cbWndExtra = 8;
    window_class.hInstance = instance;
    window_class.hCursor = InvisibleCursor();
    window_class.hbrBackground = CreateSolidBrush(RGB(0, 0, 0));
    window_class.lpszClassName = kWindowClassName;
    if (RegisterClassExW(&window_class) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
      DeleteObject(window_class.hbrBackground);
      return false;
    }
    g_window_class_registered.store(true);
  }

  hwnd_ = CreateWindowExW(WS_EX_APPWINDOW | WS_EX_TOPMOST, kWindowClassName, kWindowTitle,
                          WS_POPUP | WS_VISIBLE, x, y, width, height, nullptr, nullptr, instance,
                          this);
  if (hwnd_ == nullptr) {
    DebugLine(L"Kestrun: Failed to create native live window, error: " +
              std::to_wstring(GetLastError()) + L"\n");
    return false;
  }
  const DWORD policy = DWMNCRP_DISABLED;
  DwmSetWindowAttribute(hwnd_, DWMWA_NCRENDERING_POLICY, &policy, sizeof(policy));
  DebugLine(L"Kestrun: Native live window created successfully\n");
  return true;
}

bool NativeLiveWindow::InitD3D() {
  if (hwnd_ == nullptr) {
    return false;
  }
  ResetRecovery();
  RECT client = {};
  GetClientRect(hwnd_, &client);
  const UINT width = static_cast<UINT>(client.right - client.left);
  const UINT height = static_cast<UINT>(client.bottom - client.top);
  if (FAILED(device_.Create(hwnd_, width, height, LiveWindowDeviceResources::Adapter::kDefault))) {
    ReleaseD3D();
    return false;
  }

  LogAdapterTopologyOnce();
  LogAdapterForWindow(device_.device(), MonitorFromWindow(hwnd_, MONITOR_DEFAULTTONULL),
                      DisplayName());

  ImagePipeline::BindTarget(device_.context(), device_.render_target_view(),
                            static_cast<std::int32_t>(width), static_cast<std::int32_t>(height));
  target_width_.store(static_cast<std::int32_t>(width));
  target_height_.store(static_cast<std::int32_t>(height));

  DebugLine(L"Kestrun: D3D11 initialized successfully (" + std::to_wstring(width) + L"x" +
            std::to_wstring(height) + L")\n");
  return true;
}

void NativeLiveWindow::ReleaseD3D() { device_.Release(); }

bool NativeLiveWindow::HasDeviceOrRecovery() const {
  return recovering_.load() || device_.SharedDevice() != nullptr;
}

void NativeLiveWindow::Close() {
  // No late browser-process event reaches a closing window.
  webpage_.WindowClosing();
  if (hwnd_ != nullptr) {
    KillTimer(hwnd_, kCursorTimerId);
  }
  if (running_.exchange(false) || render_thread_.joinable()) {
    if (render_thread_.joinable()) {
      render_thread_.join();
    }
  }
  fade_.Destroy();
  {
    std::lock_guard<RecursiveLock> lock(image_.mutex());
    image_.ReleaseGpuObjects();
    content_mode_.store(kContentNone);
  }
  ReleaseD3D();
  ResetRecovery();
  if (hwnd_ != nullptr) {
    HWND hwnd = hwnd_;
    hwnd_ = nullptr;
    DestroyWindow(hwnd);
    DebugLine(L"Kestrun: Native live window closed\n");
  }
  displays_.clear();
}

void NativeLiveWindow::SetExitCallback(ExitCallback callback) {
  exit_callback_ = std::move(callback);
}

void NativeLiveWindow::SetIntervalCallback(IntervalCallback callback) {
  interval_callback_ = std::move(callback);
}

void NativeLiveWindow::SetHudToggleCallback(HudToggleCallback callback) {
  hud_toggle_callback_ = std::move(callback);
}

void NativeLiveWindow::SetDeviceCreationFilterForTesting(DeviceCreationFilter filter) {
  LiveWindowDeviceResources::SetCreationFilterForTesting(filter);
}

const char* NativeLiveWindow::DisplayName() const {
  return displays_.empty() ? kUnknownDisplay : displays_.front().name.c_str();
}

// ---------------------------------------------------------------------------------------------
// Resizing

void NativeLiveWindow::OnResize(std::int32_t width, std::int32_t height) {
  if (width < 1 || height < 1 || hwnd_ == nullptr) {
    return;
  }
  // The render thread may be making the device again: it is stopped before the device is looked at.
  const bool was_running = running_.load();
  if (was_running) {
    StopRenderLoop();
  }
  Logger& log = Logger::Instance();

  bool resized = false;
  if (!recovering_.load() && (!device_.swap_chain() || !device_.context())) {
    // No device: nothing to resize.
  } else if (recovering_.load()) {
    // No swap chain to resize: the next one is made at the new size.
    resized = true;
  } else {
    const char* step = "";
    const HRESULT hr = device_.Resize(static_cast<std::uint32_t>(width),
                                      static_cast<std::uint32_t>(height), &step);
    if (SUCCEEDED(hr)) {
      ImagePipeline::BindTarget(device_.context(), device_.render_target_view(), width, height);
      resized = true;
    } else if (LiveWindowDeviceResources::IsDeviceLoss(hr)) {
      OnDeviceLost(step, hr);
      resized = true;
    } else if (std::string(step) == "ResizeBuffers") {
      log.Error("RESIZE", "IDXGISwapChain::ResizeBuffers failed hr=0x%08X (target=%dx%d)",
                static_cast<unsigned>(hr), static_cast<int>(width), static_cast<int>(height));
    } else if (std::string(step) == "GetBuffer") {
      log.Error("RESIZE", "GetBuffer after ResizeBuffers failed hr=0x%08X",
                static_cast<unsigned>(hr));
    } else {
      log.Error("RESIZE", "CreateRenderTargetView after resize failed hr=0x%08X",
                static_cast<unsigned>(hr));
    }
  }

  if (resized) {
    target_width_.store(width);
    target_height_.store(height);
    fade_.Resize(width, height);
    webpage_.Resize(width, height);
    log.Info("RESIZE", "Window resized to %dx%d", static_cast<int>(width),
             static_cast<int>(height));
  }

  if (was_running) {
    RestartRenderLoop();
  }
}

// ---------------------------------------------------------------------------------------------
// Images

bool NativeLiveWindow::CheckUploadable(const std::vector<std::uint8_t>& pixels,
                                       std::int32_t width, std::int32_t height) const {
  if (!HasDeviceOrRecovery()) {
    PrintLine("ERROR - d3d_device_ is null");
    return false;
  }
  // The texture reads width * height * 4 bytes, so a shorter buffer is refused too.
  if (pixels.empty() || width < 1 || height < 1 ||
      pixels.size() / 4 / static_cast<std::size_t>(width) < static_cast<std::size_t>(height)) {
    PrintLine("ERROR - Invalid pixel data");
    return false;
  }
  return true;
}

bool NativeLiveWindow::UploadLocked(const std::uint8_t* pixels, std::int32_t width,
                                    std::int32_t height, std::int32_t fit_mode) {
  Microsoft::WRL::ComPtr<ID3D11Device> device = device_.SharedDevice();
  HRESULT hr = device ? device_.CheckUpload() : S_OK;
  if (LiveWindowDeviceResources::IsDeviceLoss(hr)) {
    // The device is gone: the image waits for the next one.
    device.Reset();
  } else {
    hr = S_OK;
  }
  const HRESULT uploaded = image_.Upload(device.Get(), pixels, width, height, fit_mode);
  if (uploaded == DXGI_ERROR_DEVICE_REMOVED) {
    if (device || FAILED(hr)) {
      // The render thread finds the same loss at its next Present and makes the device again.
      ReportDeviceLoss("image upload", FAILED(hr) ? hr : uploaded);
    }
    return true;
  }
  return SUCCEEDED(uploaded);
}

bool NativeLiveWindow::ShowImageFromPixels(const std::vector<std::uint8_t>& pixels,
                                           std::int32_t width, std::int32_t height,
                                           std::int32_t fit_mode) {
  if (!CheckUploadable(pixels, width, height)) {
    return false;
  }
  // Showing an image always ends a page. Done before the image lock is taken, so that the two
  // locks are never held together.
  StopWebpage();
  std::lock_guard<RecursiveLock> lock(image_.mutex());
  if (!UploadLocked(pixels.data(), width, height, fit_mode)) {
    return false;
  }
  content_mode_.store(kContentImage);
  return true;
}

bool NativeLiveWindow::ShowAnimatedImage(std::shared_ptr<const FrameList> frames,
                                         const std::vector<std::uint32_t>& delays_ms,
                                         std::int32_t width, std::int32_t height,
                                         std::int32_t fit_mode) {
  if (!frames || frames->size() < 2 || delays_ms.size() != frames->size() || width < 1 ||
      height < 1) {
    return false;
  }
  if (!CheckUploadable(frames->front(), width, height)) {
    return false;
  }
  StopWebpage();
  std::lock_guard<RecursiveLock> lock(image_.mutex());
  if (!UploadLocked(frames->front().data(), width, height, fit_mode)) {
    return false;
  }
  image_.StartAnimation(std::move(frames), delays_ms, clock_->SteadyNow());
  content_mode_.store(kContentImage);
  return true;
}

void NativeLiveWindow::ClearImage() { image_.Clear(); }

void NativeLiveWindow::ClearContent() {
  std::lock_guard<RecursiveLock> lock(image_.mutex());
  image_.Clear();
  std::int32_t expected = kContentImage;
  content_mode_.compare_exchange_strong(expected, kContentNone);
}

void NativeLiveWindow::SetCropRect(float x, float y, float w, float h, std::int32_t canvas_width,
                                   std::int32_t canvas_height) {
  image_.SetCrop(x, y, w, h, canvas_width, canvas_height);
}

void NativeLiveWindow::ClearCropRect() { image_.ClearCrop(); }

// ---------------------------------------------------------------------------------------------
// Webpages

bool NativeLiveWindow::LoadWebpage(const std::string& url, bool is_local_file) {
  return webpage_.Load(url, is_local_file);
}

bool NativeLiveWindow::ReloadWebpage() { return webpage_.Reload(); }

void NativeLiveWindow::StopWebpage() { webpage_.Stop(); }

void NativeLiveWindow::KeepFadeOverlayOnTop() {
  const HWND overlay = fade_.overlay_window();
  if (overlay != nullptr) {
    SetWindowPos(overlay, HWND_TOP, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE | SWP_NOACTIVATE);
  }
}

// ---------------------------------------------------------------------------------------------
// Fades and blanking

void NativeLiveWindow::FadeToBlack(std::int32_t duration_ms, FadeCallback callback) {
  fade_.FadeToBlack(hwnd_, duration_ms, std::move(callback));
}

void NativeLiveWindow::FadeFromBlack(std::int32_t duration_ms, FadeCallback callback) {
  fade_.FadeFromBlack(hwnd_, duration_ms, std::move(callback));
}

void NativeLiveWindow::Blank() {
  fade_.SetBlank(true);
  webpage_.Hide();
}

void NativeLiveWindow::Unblank() {
  fade_.SetBlank(false);
  webpage_.RevealIfLoaded();
}

// ---------------------------------------------------------------------------------------------
// Window procedure

void NativeLiveWindow::ShowCursorTemporarily() {
  if (!cursor_visible_) {
    cursor_visible_ = true;
    SetCursor(LoadCursorW(nullptr, IDC_ARROW));
  }
  if (hwnd_ != nullptr) {
    SetTimer(hwnd_, kCursorTimerId, kCursorHideDelayMs, nullptr);
  }
}

void NativeLiveWindow::RequestExit() {
  // Copied: the callback may replace itself.
  const ExitCallback callback = exit_callback_;
  if (callback) {
    callback();
  }
  Close();
}

void NativeLiveWindow::SendIntervalAction(const std::string& action) {
  const IntervalCallback callback = interval_callback_;
  if (callback) {
    callback(action);
  }
}

LRESULT CALLBACK NativeLiveWindow::WindowProc(HWND hwnd, UINT message, WPARAM wparam,
                                              LPARAM lparam) {
  if (message == WM_NCCREATE) {
    const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lparam);
    auto* window = static_cast<NativeLiveWindow*>(create->lpCreateParams);
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(window));
    if (window != nullptr) {
      window->hwnd_ = hwnd;
    }
    return DefWindowProcW(hwnd, message, wparam, lparam);
  }
  auto* window = reinterpret_cast<NativeLiveWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  if (message == WM_NCDESTROY) {
    // The last message: the window no longer leads to the object.
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, 0);
    return DefWindowProcW(hwnd, message, wparam, lparam);
  }
  return HandleMessage(window, hwnd, message, wparam, lparam);
}

LRESULT NativeLiveWindow::HandleMessage(NativeLiveWindow* window, HWND hwnd, UINT message,
                                        WPARAM wparam, LPARAM lparam) {
  if (message != 0 && message == DeviceLossTestMessage()) {
    LiveWindowDeviceResources::InjectLossForTesting(
        static_cast<LiveWindowDeviceResources::Call>(wparam), static_cast<std::uint32_t>(lparam),
        DXGI_ERROR_DEVICE_REMOVED);
    return 0;
  }
  switch (message) {
    case WM_DESTROY:
      // Closing a live window does not end the application.
      return 0;
    case WM_SIZE:
      if (window != nullptr && wparam != SIZE_MINIMIZED) {
        window->OnResize(static_cast<std::int32_t>(LOWORD(lparam)),
                         static_cast<std::int32_t>(HIWORD(lparam)));
      }
      return 0;
    case WM_PAINT: {
      // The render thread draws; painting only validates.
      PAINTSTRUCT paint;
      BeginPaint(hwnd, &paint);
      EndPaint(hwnd, &paint);
      return 0;
    }
    case WM_ERASEBKGND:
      return 1;
    case WM_SETCURSOR:
      if (LOWORD(lparam) == HTCLIENT) {
        const bool visible = window != nullptr && window->cursor_visible_;
        SetCursor(visible ? LoadCursorW(nullptr, IDC_ARROW) : InvisibleCursor());
        return TRUE;
      }
      break;
    case WM_KEYDOWN:
      return HandleKeyDown(window, hwnd, wparam, lparam);
    case WM_TIMER:
      if (wparam == kCursorTimerId && window != nullptr) {
        window->cursor_visible_ = false;
        KillTimer(hwnd, kCursorTimerId);
        SetCursor(InvisibleCursor());
        return 0;
      }
      break;
    case WM_MOUSEMOVE:
      if (window != nullptr) {
        const std::int32_t x = static_cast<short>(LOWORD(lparam));
        const std::int32_t y = static_cast<short>(HIWORD(lparam));
        if (x != window->last_mouse_x_ || y != window->last_mouse_y_) {
          window->last_mouse_x_ = x;
          window->last_mouse_y_ = y;
          window->ShowCursorTemporarily();
        }
        return 0;
      }
      break;
    case WM_LBUTTONDOWN:
      if (window != nullptr) {
        // A click anywhere ends the show, exactly as Escape does.
        window->ShowCursorTemporarily();
        window->RequestExit();
        return 0;
      }
      break;
    case WM_RBUTTONDOWN:
    case WM_MBUTTONDOWN:
      if (window != nullptr) {
        window->ShowCursorTemporarily();
      }
      break;
    case WM_DPICHANGED:
      if (lparam != 0) {
        const RECT* suggested = reinterpret_cast<const RECT*>(lparam);
        SetWindowPos(hwnd, nullptr, suggested->left, suggested->top,
                     suggested->right - suggested->left, suggested->bottom - suggested->top,
                     SWP_NOZORDER | SWP_NOACTIVATE);
        return 0;
      }
      break;
    default:
      break;
  }
  return DefWindowProcW(hwnd, message, wparam, lparam);
}

LRESULT NativeLiveWindow::HandleKeyDown(NativeLiveWindow* window, HWND hwnd, WPARAM key,
                                        LPARAM lparam) {
  switch (key) {
    case VK_ESCAPE:
      if (window != nullptr) {
        window->RequestExit();
        return 0;
      }
      break;
    case VK_LEFT:
      if (window != nullptr) {
        window->SendIntervalAction("prev");
      }
      return 0;
    case VK_RIGHT:
      if (window != nullptr) {
        window->SendIntervalAction("next");
      }
      return 0;
    case 'H':
      if (KeyIsDown(VK_CONTROL) && KeyIsDown(VK_SHIFT)) {
        if (window != nullptr) {
          const HudToggleCallback callback = window->hud_toggle_callback_;
          if (callback) {
            callback();
          }
        }
        return 0;
      }
      break;
    default:
      // '1' ... '9' choose slots "0" ... "8", '0' chooses slot "9".
      if (key >= '0' && key <= '9' && window != nullptr && window->interval_callback_) {
        const int slot = key == '0' ? 9 : static_cast<int>(key - '1');
        window->SendIntervalAction(std::to_string(slot));
        return 0;
      }
      break;
  }
  return DefWindowProcW(hwnd, WM_KEYDOWN, key, lparam);
}

}  // namespace native_live_window
