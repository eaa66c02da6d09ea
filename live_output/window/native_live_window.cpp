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
std::atomic<NativeLiveWindow::DeviceCreationFilter> g_device_creation_filter{nullptr};

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
  RECT client = {};
  GetClientRect(hwnd_, &client);
  const UINT width = static_cast<UINT>(client.right - client.left);
  const UINT height = static_cast<UINT>(client.bottom - client.top);

  DXGI_SWAP_CHAIN_DESC desc = {};
  desc.BufferDesc.Width = width;
  desc.BufferDesc.Height = height;
  desc.BufferDesc.RefreshRate.Numerator = 60;
  desc.BufferDesc.RefreshRate.Denominator = 1;
  desc.BufferDesc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  desc.BufferDesc.ScanlineOrdering = DXGI_MODE_SCANLINE_ORDER_UNSPECIFIED;
  desc.BufferDesc.Scaling = DXGI_MODE_SCALING_UNSPECIFIED;
  desc.SampleDesc.Count = 1;
  desc.SampleDesc.Quality = 0;
  desc.BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT;
  desc.BufferCount = 2;
  desc.OutputWindow = hwnd_;
  desc.Windowed = TRUE;
  desc.SwapEffect = DXGI_SWAP_EFFECT_FLIP_DISCARD;
  desc.Flags = DXGI_SWAP_CHAIN_FLAG_ALLOW_MODE_SWITCH;

  HRESULT hr = D3D11CreateDeviceAndSwapChain(
      nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0, D3D11_SDK_VERSION, &desc,
      swap_chain_.ReleaseAndGetAddressOf(), d3d_device_.ReleaseAndGetAddressOf(), nullptr,
      d3d_context_.ReleaseAndGetAddressOf());
  const DeviceCreationFilter filter = g_device_creation_filter.load();
  if (filter != nullptr) {
    hr = filter(hr);
  }
  if (FAILED(hr)) {
    DebugLine(L"Kestrun: Failed to create D3D11 device and swap chain, hr=" +
              std::to_wstring(static_cast<long>(hr)) + L"\n");
    ReleaseD3D();
    return false;
  }

  // DXGI must not watch the window's messages (Alt+Enter, mode changes): a swap chain that follows
  // its window's thread could make the render thread's Present wait for that thread.
  Microsoft::WRL::ComPtr<IDXGIFactory> factory;
  if (SUCCEEDED(swap_chain_->GetParent(IID_PPV_ARGS(&factory)))) {
    factory->MakeWindowAssociation(hwnd_, DXGI_MWA_NO_WINDOW_CHANGES | DXGI_MWA_NO_ALT_ENTER);
  }

  LogAdapterTopologyOnce();
  LogAdapterForWindow(d3d_device_.Get(), MonitorFromWindow(hwnd_, MONITOR_DEFAULTTONULL),
                      DisplayName());

  Microsoft::WRL::ComPtr<ID3D11Texture2D> back_buffer;
  if (FAILED(swap_chain_->GetBuffer(0, IID_PPV_ARGS(&back_buffer))) || !back_buffer) {
    DebugLine(L"Kestrun: Failed to get back buffer\n");
    ReleaseD3D();
    return false;
  }
  const HRESULT view_hr = d3d_device_->CreateRenderTargetView(
      back_buffer.Get(), nullptr, render_target_view_.ReleaseAndGetAddressOf());
  back_buffer.Reset();
  if (FAILED(view_hr)) {
    DebugLine(L"Kestrun: Failed to create render target view\n");
    ReleaseD3D();
    return false;
  }

  ImagePipeline::BindTarget(d3d_context_.Get(), render_target_view_.Get(),
                            static_cast<std::int32_t>(width), static_cast<std::int32_t>(height));
  target_width_.store(static_cast<std::int32_t>(width));
  target_height_.store(static_cast<std::int32_t>(height));

  DebugLine(L"Kestrun: D3D11 initialized successfully (" + std::to_wstring(width) + L"x" +
            std::to_wstring(height) + L")\n");
  return true;
}

void NativeLiveWindow::ReleaseD3D() {
  render_target_view_.Reset();
  swap_chain_.Reset();
  d3d_context_.Reset();
  d3d_device_.Reset();
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
  if (d3d_context_) {
    d3d_context_->ClearState();
  }
  ReleaseD3D();
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
  g_device_creation_filter.store(filter);
}

const char* NativeLiveWindow::DisplayName() const {
  return displays_.empty() ? kUnknownDisplay : displays_.front().name.c_str();
}

// ---------------------------------------------------------------------------------------------
// Resizing

void NativeLiveWindow::OnResize(std::int32_t width, std::int32_t height) {
  if (!swap_chain_ || !d3d_device_ || !d3d_context_ || width < 1 || height < 1) {
    return;
  }
  const bool was_running = running_.load();
  if (was_running) {
    StopRenderLoop();
  }
  Logger& log = Logger::Instance();

  d3d_context_->OMSetRenderTargets(0, nullptr, nullptr);
  render_target_view_.Reset();

  bool resized = false;
  HRESULT hr = swap_chain_->ResizeBuffers(0, static_cast<UINT>(width), static_cast<UINT>(height),
                                          DXGI_FORMAT_UNKNOWN, 0);
  if (FAILED(hr)) {
    log.Error("RESIZE", "IDXGISwapChain::ResizeBuffers failed hr=0x%08X (target=%dx%d)",
              static_cast<unsigned>(hr), static_cast<int>(width), static_cast<int>(height));
  } else {
    Microsoft::WRL::ComPtr<ID3D11Texture2D> back_buffer;
    hr = swap_chain_->GetBuffer(0, IID_PPV_ARGS(&back_buffer));
    if (FAILED(hr) || !back_buffer) {
      log.Error("RESIZE", "GetBuffer after ResizeBuffers failed hr=0x%08X",
                static_cast<unsigned>(hr));
    } else {
      hr = d3d_device_->CreateRenderTargetView(back_buffer.Get(), nullptr,
                                               render_target_view_.ReleaseAndGetAddressOf());
      back_buffer.Reset();
      if (FAILED(hr)) {
        render_target_view_.Reset();
        log.Error("RESIZE", "CreateRenderTargetView after resize failed hr=0x%08X",
                  static_cast<unsigned>(hr));
      } else {
        resized = true;
      }
    }
  }

  if (resized) {
    ImagePipeline::BindTarget(d3d_context_.Get(), render_target_view_.Get(), width, height);
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
  if (!d3d_device_) {
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
  if (!image_.Upload(d3d_device_.Get(), pixels.data(), width, height, fit_mode)) {
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
  if (!image_.Upload(d3d_device_.Get(), frames->front().data(), width, height, fit_mode)) {
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
