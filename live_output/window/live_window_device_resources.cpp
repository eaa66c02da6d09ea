#include "live_output/window/live_window_device_resources.h"

#include <string>

namespace native_live_window {
namespace {

using Microsoft::WRL::ComPtr;

std::atomic<LiveWindowDeviceResources::CreationFilter> g_creation_filter{nullptr};
// The armed injection: which call, how many such calls until it strikes, and with what reason.
std::atomic<std::int32_t> g_injected_call{0};
std::atomic<std::uint32_t> g_injection_countdown{0};
std::atomic<HRESULT> g_injected_reason{S_OK};

void DebugLine(const std::wstring& text) { OutputDebugStringW(text.c_str()); }

// The adapter with an output on the window's monitor, from a new factory: after a loss the old
// factory's list of adapters is stale. Empty when none matches.
ComPtr<IDXGIAdapter1> AdapterDriving(HWND hwnd) {
  const HMONITOR monitor = MonitorFromWindow(hwnd, MONITOR_DEFAULTTONEAREST);
  ComPtr<IDXGIFactory1> factory;
  if (monitor == nullptr || FAILED(CreateDXGIFactory1(IID_PPV_ARGS(&factory)))) {
    return nullptr;
  }
  ComPtr<IDXGIAdapter1> adapter;
  for (UINT i = 0; factory->EnumAdapters1(i, adapter.ReleaseAndGetAddressOf()) != DXGI_ERROR_NOT_FOUND;
       ++i) {
    ComPtr<IDXGIOutput> output;
    for (UINT j = 0; adapter->EnumOutputs(j, output.ReleaseAndGetAddressOf()) != DXGI_ERROR_NOT_FOUND;
         ++j) {
      DXGI_OUTPUT_DESC desc = {};
      if (SUCCEEDED(output->GetDesc(&desc)) && desc.Monitor == monitor) {
        return adapter;
      }
    }
  }
  return nullptr;
}

}  // namespace

HRESULT LiveWindowDeviceResources::Create(HWND hwnd, std::uint32_t width, std::uint32_t height,
                                          Adapter adapter) {
  Release();
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
  desc.OutputWindow = hwnd;
  desc.Windowed = TRUE;
  desc.SwapEffect = DXGI_SWAP_EFFECT_FLIP_DISCARD;
  desc.Flags = DXGI_SWAP_CHAIN_FLAG_ALLOW_MODE_SWITCH;

  ComPtr<IDXGIAdapter1> chosen;
  if (adapter == Adapter::kDrivingTheWindow) {
    chosen = AdapterDriving(hwnd);
  }
  ComPtr<IDXGISwapChain> swap_chain;
  ComPtr<ID3D11Device> device;
  ComPtr<ID3D11DeviceContext> context;
  HRESULT hr = D3D11CreateDeviceAndSwapChain(
      chosen.Get(), chosen ? D3D_DRIVER_TYPE_UNKNOWN : D3D_DRIVER_TYPE_HARDWARE, nullptr, 0,
      nullptr, 0, D3D11_SDK_VERSION, &desc, &swap_chain, &device, nullptr, &context);
  const CreationFilter filter = g_creation_filter.load();
  if (filter != nullptr) {
    hr = filter(hr);
  }
  if (FAILED(hr)) {
    DebugLine(L"Kestrun: Failed to create D3D11 device and swap chain, hr=" +
              std::to_wstring(static_cast<long>(hr)) + L"\n");
    return hr;
  }

  // DXGI must not watch the window's messages (Alt+Enter, mode changes): a swap chain that follows
  // its window's thread could make the render thread's Present wait for that thread.
  ComPtr<IDXGIFactory> factory;
  if (SUCCEEDED(swap_chain->GetParent(IID_PPV_ARGS(&factory)))) {
    factory->MakeWindowAssociation(hwnd, DXGI_MWA_NO_WINDOW_CHANGES | DXGI_MWA_NO_ALT_ENTER);
  }

  ComPtr<ID3D11Texture2D> back_buffer;
  hr = swap_chain->GetBuffer(0, IID_PPV_ARGS(&back_buffer));
  if (FAILED(hr) || !back_buffer) {
    DebugLine(L"Kestrun: Failed to get back buffer\n");
    return FAILED(hr) ? hr : E_POINTER;
  }
  ComPtr<ID3D11RenderTargetView> view;
  hr = device->CreateRenderTargetView(back_buffer.Get(), nullptr, &view);
  if (FAILED(hr)) {
    DebugLine(L"Kestrun: Failed to create render target view\n");
    return hr;
  }

  // Swapped, not moved: the objects change hands without a reference count changing.
  std::lock_guard<std::mutex> lock(swap_mutex_);
  device_.Swap(device);
  context_.Swap(context);
  swap_chain_.Swap(swap_chain);
  render_target_view_.Swap(view);
  injected_removal_.store(S_OK);
  return S_OK;
}

void LiveWindowDeviceResources::Release() {
  ComPtr<ID3D11Device> device;
  ComPtr<ID3D11DeviceContext> context;
  ComPtr<IDXGISwapChain> swap_chain;
  ComPtr<ID3D11RenderTargetView> view;
  {
    std::lock_guard<std::mutex> lock(swap_mutex_);
    device.Swap(device_);
    context.Swap(context_);
    swap_chain.Swap(swap_chain_);
    view.Swap(render_target_view_);
  }
  if (context) {
    // Nothing the context still binds keeps the swap chain alive: the window takes a new one
    // only once the old one is gone.
    context->ClearState();
    context->Flush();
  }
}

HRESULT LiveWindowDeviceResources::Resize(std::uint32_t width, std::uint32_t height,
                                          const char** step) {
  *step = "ResizeBuffers";
  if (!swap_chain_ || !device_) {
    return E_POINTER;
  }
  if (context_) {
    context_->OMSetRenderTargets(0, nullptr, nullptr);
  }
  render_target_view_.Reset();
  HRESULT hr = Strike(Call::kResizeBuffers);
  if (SUCCEEDED(hr)) {
    hr = swap_chain_->ResizeBuffers(0, width, height, DXGI_FORMAT_UNKNOWN, 0);
  }
  if (FAILED(hr)) {
    return hr;
  }
  *step = "GetBuffer";
  ComPtr<ID3D11Texture2D> back_buffer;
  hr = swap_chain_->GetBuffer(0, IID_PPV_ARGS(&back_buffer));
  if (FAILED(hr) || !back_buffer) {
    return FAILED(hr) ? hr : E_POINTER;
  }
  *step = "CreateRenderTargetView";
  hr = device_->CreateRenderTargetView(back_buffer.Get(), nullptr,
                                       render_target_view_.ReleaseAndGetAddressOf());
  if (FAILED(hr)) {
    render_target_view_.Reset();
  }
  return hr;
}

HRESULT LiveWindowDeviceResources::Present(UINT sync_interval) {
  if (!swap_chain_) {
    return E_POINTER;
  }
  const HRESULT removed = Strike(Call::kPresent);
  return FAILED(removed) ? removed : swap_chain_->Present(sync_interval, 0);
}

HRESULT LiveWindowDeviceResources::CheckUpload() { return Strike(Call::kUpload); }

HRESULT LiveWindowDeviceResources::RemovedReason() const {
  const HRESULT injected = injected_removal_.load();
  if (injected != S_OK) {
    return injected;
  }
  const ComPtr<ID3D11Device> device = SharedDevice();
  return device ? device->GetDeviceRemovedReason() : S_OK;
}

ComPtr<ID3D11Device> LiveWindowDeviceResources::SharedDevice() const {
  std::lock_guard<std::mutex> lock(swap_mutex_);
  return device_;
}

HRESULT LiveWindowDeviceResources::Strike(Call call) {
  if (g_injected_call.load() == static_cast<std::int32_t>(call)) {
    std::uint32_t left = g_injection_countdown.load();
    while (left != 0 && !g_injection_countdown.compare_exchange_weak(left, left - 1)) {
    }
    if (left == 1) {
      injected_removal_.store(g_injected_reason.load());
    }
  }
  return injected_removal_.load();
}

void LiveWindowDeviceResources::InjectLossForTesting(Call call, std::uint32_t countdown,
                                                     HRESULT reason) {
  g_injection_countdown.store(0);
  g_injected_reason.store(reason);
  g_injected_call.store(static_cast<std::int32_t>(call));
  g_injection_countdown.store(countdown);
}

void LiveWindowDeviceResources::SetCreationFilterForTesting(CreationFilter filter) {
  g_creation_filter.store(filter);
}

}  // namespace native_live_window
