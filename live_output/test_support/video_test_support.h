// Helpers of the video tests: a Direct3D device, plain windows to compose onto, a clock moved by
// hand, and a composition factory that hands out recording devices the test can inspect.

#ifndef KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_VIDEO_TEST_SUPPORT_H_
#define KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_VIDEO_TEST_SUPPORT_H_

#include <d3d11.h>
#include <windows.h>
#include <wrl/client.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "live_output/video/composition_services.h"
#include "live_output/video/recording_composition_device.h"

namespace native_live_window {
namespace video_test {

struct D3DDevice {
  Microsoft::WRL::ComPtr<ID3D11Device> device;
  Microsoft::WRL::ComPtr<ID3D11DeviceContext> context;
};
// A hardware device with BGRA support; empty pointers when none can be made.
D3DDevice CreateDevice();

// A hidden top-level window of the given client size; destroyed with the object.
class TestWindow {
 public:
  TestWindow(int x, int y, int width, int height);
  ~TestWindow();
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;
  HWND hwnd() const { return hwnd_; }

 private:
  HWND hwnd_ = nullptr;
};

// Steady-clock time points moved only by the test.
class ManualSteadyClock {
 public:
  std::chrono::steady_clock::time_point Now() const {
    return std::chrono::steady_clock::time_point(std::chrono::milliseconds(ms_.load()));
  }
  void Advance(std::int64_t ms) { ms_.fetch_add(ms); }
  std::function<std::chrono::steady_clock::time_point()> AsFunction() {
    return [this] { return Now(); };
  }

 private:
  std::atomic<std::int64_t> ms_{1000000};
};

// A factory whose every device is a RecordingCompositionDevice kept in `devices`.
class RecordingFactory {
 public:
  CompositionDeviceFactory AsFunction();
  // The newest device made; null before the first.
  std::shared_ptr<RecordingCompositionDevice> last() const;

 private:
  std::shared_ptr<std::vector<std::shared_ptr<RecordingCompositionDevice>>> devices_ =
      std::make_shared<std::vector<std::shared_ptr<RecordingCompositionDevice>>>();
};

}  // namespace video_test
}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_VIDEO_TEST_SUPPORT_H_
