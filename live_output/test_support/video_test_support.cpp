#include "live_output/test_support/video_test_support.h"

namespace native_live_window {
namespace video_test {

D3DDevice CreateDevice() {
  D3DDevice created;
  const D3D_FEATURE_LEVEL level = D3D_FEATURE_LEVEL_11_0;
  D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, D3D11_CREATE_DEVICE_BGRA_SUPPORT,
                    &level, 1, D3D11_SDK_VERSION, &created.device, nullptr, &created.context);
  return created;
}

TestWindow::TestWindow(int x, int y, int width, int height) {
  RECT rect = {0, 0, width, height};
  AdjustWindowRectEx(&rect, WS_POPUP, FALSE, 0);
  hwnd_ =
      CreateWindowExW(0, L"STATIC", L"video test window", WS_POPUP, x, y, rect.right - rect.left,
                      rect.bottom - rect.top, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
}

TestWindow::~TestWindow() {
  if (hwnd_ != nullptr) {
    DestroyWindow(hwnd_);
  }
}

CompositionDeviceFactory RecordingFactory::AsFunction() {
  auto devices = devices_;
  return [devices](IDXGIDevice*, std::shared_ptr<CompositionDevice>* out) {
    auto device = std::make_shared<RecordingCompositionDevice>();
    devices->push_back(device);
    *out = device;
    return S_OK;
  };
}

std::shared_ptr<RecordingCompositionDevice> RecordingFactory::last() const {
  return devices_->empty() ? nullptr : devices_->back();
}

}  // namespace video_test
}  // namespace native_live_window
