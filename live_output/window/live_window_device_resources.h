// The Direct3D objects of one live window: device, immediate context, flip-model swap chain on the
// window and the view on its back buffer, with their creation, resizing, presenting and the
// detection of a lost device (removed or reset by the driver, a TDR, an unplugged dock).
//
// A lost device cannot be repaired, only replaced: Release() drops every object that belongs to
// it and Create() makes new ones, on the adapter that drives the window's display now (which may
// differ from the one it had). The live window does that on its render thread.
//
// Threads: Create, Resize, Present and Release are called by whichever thread owns the immediate
// context (the render thread while the loop runs, the platform thread otherwise). SharedDevice()
// may be called from any thread at any time: it takes the lock that Create and Release hold while
// they swap the objects.
//
// Test seam: a process-wide injection makes a chosen call (the n-th Present, ResizeBuffers or
// image upload from now) find its device removed. From then on that device stays removed, as a
// real one does: every later call on it fails with the same reason and RemovedReason() answers
// it, until Create() replaces it with a whole device.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_LIVE_WINDOW_DEVICE_RESOURCES_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_LIVE_WINDOW_DEVICE_RESOURCES_H_

#include <windows.h>

#include <d3d11.h>
#include <dxgi.h>
#include <wrl/client.h>

#include <atomic>
#include <cstdint>
#include <mutex>

namespace native_live_window {

class LiveWindowDeviceResources {
 public:
  // Calls that can find the device lost.
  enum class Call : std::int32_t { kPresent = 1, kResizeBuffers = 2, kUpload = 3 };
  // Where Create() makes the device.
  enum class Adapter { kDefault, kDrivingTheWindow };
  // Replaces the result of creating the device and swap chain, for every window of the process.
  using CreationFilter = HRESULT (*)(HRESULT created);

  LiveWindowDeviceResources() = default;
  ~LiveWindowDeviceResources() { Release(); }

  LiveWindowDeviceResources(const LiveWindowDeviceResources&) = delete;
  LiveWindowDeviceResources& operator=(const LiveWindowDeviceResources&) = delete;

  // Creates the device, the swap chain (width x height, two B8G8R8A8 buffers, flip-discard) on
  // `hwnd` and the view on back buffer 0, replacing whatever was there. On failure nothing is
  // kept and the cause is answered (and written to the debugger output).
  HRESULT Create(HWND hwnd, std::uint32_t width, std::uint32_t height, Adapter adapter);
  // Drops every object (the context's state is cleared first).
  void Release();
  // Resizes the swap chain's buffers and makes a new view. On failure the view is gone and `step`
  // names the call that failed: "ResizeBuffers", "GetBuffer" or "CreateRenderTargetView".
  HRESULT Resize(std::uint32_t width, std::uint32_t height, const char** step);
  HRESULT Present(UINT sync_interval);
  // Asked before an image upload: S_OK, or the removal reason of a device removed by the seam at
  // this upload (or before it), which must then not be used.
  HRESULT CheckUpload();
  // Why the device was lost (S_OK while it is whole).
  HRESULT RemovedReason() const;

  // The objects, for the thread that owns the context.
  ID3D11Device* device() const { return device_.Get(); }
  ID3D11DeviceContext* context() const { return context_.Get(); }
  IDXGISwapChain* swap_chain() const { return swap_chain_.Get(); }
  ID3D11RenderTargetView* render_target_view() const { return render_target_view_.Get(); }
  // Context, swap chain and view all exist.
  bool ready() const { return context_ && swap_chain_ && render_target_view_; }
  // The device, for any thread: a counted reference (empty when there is none).
  Microsoft::WRL::ComPtr<ID3D11Device> SharedDevice() const;

  static bool IsDeviceLoss(HRESULT hr) {
    return hr == DXGI_ERROR_DEVICE_REMOVED || hr == DXGI_ERROR_DEVICE_RESET;
  }

  // The countdown-th call of kind `call` made from now on any window's device finds the device
  // removed with `reason` (countdown 0 cancels).
  static void InjectLossForTesting(Call call, std::uint32_t countdown, HRESULT reason);
  static void SetCreationFilterForTesting(CreationFilter filter);

 private:
  // The seam's verdict on one call, before it is made: S_OK, or the removal reason of a device
  // that is removed (a removed device is not called at all: it would not present, for one).
  HRESULT Strike(Call call);

  mutable std::mutex swap_mutex_;
  Microsoft::WRL::ComPtr<ID3D11Device> device_;
  Microsoft::WRL::ComPtr<ID3D11DeviceContext> context_;
  Microsoft::WRL::ComPtr<IDXGISwapChain> swap_chain_;
  Microsoft::WRL::ComPtr<ID3D11RenderTargetView> render_target_view_;
  // Removal reason the seam gave this device; S_OK for a whole device.
  std::atomic<HRESULT> injected_removal_{S_OK};
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_LIVE_WINDOW_DEVICE_RESOURCES_H_
