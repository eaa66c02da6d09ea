#include "headless_view.h"

#include <d3d11.h>

#include "engine_log.h"
#include "module_handle.h"

namespace kestrun_headless {
namespace {

constexpr wchar_t kViewClass[] = L"KestrunHeadlessFlutterView";
constexpr wchar_t kParkingClass[] = L"KestrunHeadlessViewParking";

bool RegisterClassOnce(const wchar_t* name, WNDPROC procedure, HBRUSH background) {
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.style = procedure == DefWindowProcW ? 0 : (CS_HREDRAW | CS_VREDRAW);
  window_class.lpfnWndProc = procedure;
  window_class.hInstance = CurrentModule();
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.hbrBackground = background;
  window_class.lpszClassName = name;
  if (RegisterClassExW(&window_class) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
    EngineLog("cannot register window class, error %lu", GetLastError());
    return false;
  }
  return true;
}

}  // namespace

std::unique_ptr<HeadlessView> HeadlessView::Create(int width, int height) {
  HBRUSH black = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
  if (!RegisterClassOnce(kViewClass, &HeadlessView::WindowProc, black) ||
      !RegisterClassOnce(kParkingClass, DefWindowProcW, nullptr)) {
    return nullptr;
  }
  std::unique_ptr<HeadlessView> view(new HeadlessView());
  view->parking_ = CreateWindowExW(WS_EX_TOOLWINDOW, kParkingClass, L"", WS_POPUP, 0, 0,
                                   width > 0 ? width : 1, height > 0 ? height : 1, nullptr,
                                   nullptr, CurrentModule(), nullptr);
  if (view->parking_ == nullptr) {
    EngineLog("cannot create the view's parking window, error %lu", GetLastError());
    return nullptr;
  }
  // WindowProc stores the handle at WM_NCCREATE.
  HWND window = CreateWindowExW(0, kViewClass, L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0,
                                width, height, view->parking_, nullptr, CurrentModule(),
                                view.get());
  if (window == nullptr) {
    EngineLog("cannot create the view window, error %lu", GetLastError());
    return nullptr;  // the destructor removes the parking window
  }
  return view;
}

HeadlessView::~HeadlessView() {
  if (window_ != nullptr) {
    DestroyWindow(window_);  // clears window_ (WM_NCDESTROY)
  }
  if (parking_ != nullptr) {
    DestroyWindow(parking_);
  }
}

HWND HeadlessView::MainWindow() const {
  if (window_ == nullptr) {
    return nullptr;
  }
  HWND root = GetAncestor(window_, GA_ROOT);
  return root == parking_ || root == window_ ? nullptr : root;
}

bool HeadlessView::IsShown() const { return window_ != nullptr && IsWindowVisible(window_); }

void HeadlessView::Invalidate() {
  if (window_ != nullptr) {
    InvalidateRect(window_, nullptr, TRUE);
  }
}

void HeadlessView::PaintNow() {
  if (window_ != nullptr) {
    RedrawWindow(window_, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW);
  }
}

IDXGIAdapter* HeadlessView::GraphicsAdapter() {
  if (adapter_looked_up_) {
    return adapter_.Get();
  }
  adapter_looked_up_ = true;
  // Looked up at run time: hosts that never ask for the adapter do not load Direct3D at all.
  HMODULE d3d11 = LoadLibraryW(L"d3d11.dll");
  auto create_device = d3d11 == nullptr
                           ? nullptr
                           : reinterpret_cast<PFN_D3D11_CREATE_DEVICE>(reinterpret_cast<void*>(
                                 GetProcAddress(d3d11, "D3D11CreateDevice")));
  if (create_device == nullptr) {
    EngineLog("Direct3D 11 is not available; the view has no graphics adapter");
    return nullptr;
  }
  Microsoft::WRL::ComPtr<ID3D11Device> device;
  HRESULT hr = create_device(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                             D3D11_SDK_VERSION, &device, nullptr, nullptr);
  Microsoft::WRL::ComPtr<IDXGIDevice> dxgi_device;
  if (SUCCEEDED(hr)) {
    hr = device.As(&dxgi_device);
  }
  if (SUCCEEDED(hr)) {
    hr = dxgi_device->GetAdapter(&adapter_);
  }
  if (FAILED(hr)) {
    EngineLog("no Direct3D 11 device for the view's adapter, hr=0x%08X",
              static_cast<unsigned>(hr));
    adapter_.Reset();
  }
  return adapter_.Get();
}

LRESULT CALLBACK HeadlessView::WindowProc(HWND window, UINT message, WPARAM wparam,
                                          LPARAM lparam) {
  if (message == WM_NCCREATE) {
    auto* view = static_cast<HeadlessView*>(reinterpret_cast<CREATESTRUCTW*>(lparam)->lpCreateParams);
    view->window_ = window;
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(view));
    return DefWindowProcW(window, message, wparam, lparam);
  }
  auto* view = reinterpret_cast<HeadlessView*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (view == nullptr) {
    return DefWindowProcW(window, message, wparam, lparam);
  }
  switch (message) {
    case WM_PAINT: {
      PAINTSTRUCT paint = {};
      HDC dc = BeginPaint(window, &paint);
      if (dc != nullptr) {
        FillRect(dc, &paint.rcPaint, static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH)));
      }
      EndPaint(window, &paint);
      if (view->paint_listener_ != nullptr) {
        view->paint_listener_->OnViewPainted();
      }
      return 0;
    }
    case WM_NCDESTROY:
      SetWindowLongPtrW(window, GWLP_USERDATA, 0);
      view->window_ = nullptr;
      break;
    default:
      break;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

}  // namespace kestrun_headless
