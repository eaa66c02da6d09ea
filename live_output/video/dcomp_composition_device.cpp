#include "live_output/video/dcomp_composition_device.h"

#include <dcomp.h>

#include <utility>

namespace native_live_window {

namespace {

using Microsoft::WRL::ComPtr;

class DCompSwapChain : public CompositionSwapChain {
 public:
  explicit DCompSwapChain(ComPtr<IDXGISwapChain1> chain) : chain_(std::move(chain)) {}

  HRESULT GetBackBuffer(ComPtr<ID3D11Texture2D>* buffer) override {
    return chain_->GetBuffer(0, IID_PPV_ARGS(buffer->ReleaseAndGetAddressOf()));
  }
  HRESULT Present(UINT sync_interval, UINT flags) override {
    return chain_->Present(sync_interval, flags);
  }
  IUnknown* system_object() const { return chain_.Get(); }

 private:
  ComPtr<IDXGISwapChain1> chain_;
};

class DCompEffectGroup : public CompositionEffectGroup {
 public:
  explicit DCompEffectGroup(ComPtr<IDCompositionEffectGroup> group) : group_(std::move(group)) {}
  HRESULT SetOpacity(float opacity) override { return group_->SetOpacity(opacity); }
  IDCompositionEffectGroup* system_object() const { return group_.Get(); }

 private:
  ComPtr<IDCompositionEffectGroup> group_;
};

class DCompTransform : public CompositionTransform {
 public:
  explicit DCompTransform(ComPtr<IDCompositionMatrixTransform> transform)
      : transform_(std::move(transform)) {}
  HRESULT SetMatrix(const CompositionMatrix& m) override {
    D2D_MATRIX_3X2_F matrix = {};
    matrix._11 = m.m11;
    matrix._12 = m.m12;
    matrix._21 = m.m21;
    matrix._22 = m.m22;
    matrix._31 = m.dx;
    matrix._32 = m.dy;
    return transform_->SetMatrix(matrix);
  }
  IDCompositionMatrixTransform* system_object() const { return transform_.Get(); }

 private:
  ComPtr<IDCompositionMatrixTransform> transform_;
};

class DCompVisual : public CompositionVisual {
 public:
  explicit DCompVisual(ComPtr<IDCompositionVisual> visual) : visual_(std::move(visual)) {}

  HRESULT SetContent(std::shared_ptr<CompositionSwapChain> content) override {
    if (!content) {
      content_.reset();
      return visual_->SetContent(nullptr);
    }
    auto* chain = dynamic_cast<DCompSwapChain*>(content.get());
    if (chain == nullptr) {
      return E_INVALIDARG;
    }
    const HRESULT hr = visual_->SetContent(chain->system_object());
    if (SUCCEEDED(hr)) {
      content_ = std::move(content);
    }
    return hr;
  }
  HRESULT SetOffsetX(float offset) override { return visual_->SetOffsetX(offset); }
  HRESULT SetOffsetY(float offset) override { return visual_->SetOffsetY(offset); }
  HRESULT SetClip(const CompositionRect& clip) override {
    D2D_RECT_F rect = {clip.left, clip.top, clip.right, clip.bottom};
    return visual_->SetClip(rect);
  }
  HRESULT RemoveClip() override {
    return visual_->SetClip(static_cast<IDCompositionClip*>(nullptr));
  }
  HRESULT SetTransform(std::shared_ptr<CompositionTransform> transform) override {
    if (!transform) {
      return visual_->SetTransform(static_cast<IDCompositionTransform*>(nullptr));
    }
    auto* matrix = dynamic_cast<DCompTransform*>(transform.get());
    return matrix != nullptr ? visual_->SetTransform(matrix->system_object()) : E_INVALIDARG;
  }
  HRESULT SetEffect(std::shared_ptr<CompositionEffectGroup> effect) override {
    if (!effect) {
      return visual_->SetEffect(nullptr);
    }
    auto* group = dynamic_cast<DCompEffectGroup*>(effect.get());
    return group != nullptr ? visual_->SetEffect(group->system_object()) : E_INVALIDARG;
  }
  IDCompositionVisual* system_object() const { return visual_.Get(); }

 private:
  ComPtr<IDCompositionVisual> visual_;
  // DirectComposition keeps its own reference to the swap chain; this one keeps our wrapper.
  std::shared_ptr<CompositionSwapChain> content_;
};

class DCompTarget : public CompositionTarget {
 public:
  explicit DCompTarget(ComPtr<IDCompositionTarget> target) : target_(std::move(target)) {}
  HRESULT SetRoot(std::shared_ptr<CompositionVisual> visual) override {
    if (!visual) {
      return target_->SetRoot(nullptr);
    }
    auto* root = dynamic_cast<DCompVisual*>(visual.get());
    return root != nullptr ? target_->SetRoot(root->system_object()) : E_INVALIDARG;
  }

 private:
  ComPtr<IDCompositionTarget> target_;
};

class DCompDevice : public CompositionDevice {
 public:
  explicit DCompDevice(ComPtr<IDCompositionDevice> device) : device_(std::move(device)) {}

  HRESULT CreateTargetForHwnd(HWND hwnd, bool topmost,
                              std::shared_ptr<CompositionTarget>* target) override {
    ComPtr<IDCompositionTarget> created;
    const HRESULT hr = device_->CreateTargetForHwnd(hwnd, topmost ? TRUE : FALSE, &created);
    if (SUCCEEDED(hr)) {
      *target = std::make_shared<DCompTarget>(std::move(created));
    }
    return hr;
  }
  HRESULT CreateVisual(std::shared_ptr<CompositionVisual>* visual) override {
    ComPtr<IDCompositionVisual> created;
    const HRESULT hr = device_->CreateVisual(&created);
    if (SUCCEEDED(hr)) {
      *visual = std::make_shared<DCompVisual>(std::move(created));
    }
    return hr;
  }
  HRESULT CreateEffectGroup(std::shared_ptr<CompositionEffectGroup>* effect) override {
    ComPtr<IDCompositionEffectGroup> created;
    const HRESULT hr = device_->CreateEffectGroup(&created);
    if (SUCCEEDED(hr)) {
      *effect = std::make_shared<DCompEffectGroup>(std::move(created));
    }
    return hr;
  }
  HRESULT CreateMatrixTransform(std::shared_ptr<CompositionTransform>* transform) override {
    ComPtr<IDCompositionMatrixTransform> created;
    const HRESULT hr = device_->CreateMatrixTransform(&created);
    if (SUCCEEDED(hr)) {
      *transform = std::make_shared<DCompTransform>(std::move(created));
    }
    return hr;
  }
  HRESULT CreateSwapChainForComposition(IDXGIFactory2* factory, ID3D11Device* device,
                                        const DXGI_SWAP_CHAIN_DESC1& description,
                                        std::shared_ptr<CompositionSwapChain>* chain) override {
    ComPtr<IDXGISwapChain1> created;
    const HRESULT hr =
        factory->CreateSwapChainForComposition(device, &description, nullptr, &created);
    if (SUCCEEDED(hr)) {
      *chain = std::make_shared<DCompSwapChain>(std::move(created));
    }
    return hr;
  }
  HRESULT Commit() override { return device_->Commit(); }

 private:
  ComPtr<IDCompositionDevice> device_;
};

}  // namespace

HRESULT CreateDCompCompositionDevice(IDXGIDevice* device, std::shared_ptr<CompositionDevice>* out) {
  ComPtr<IDCompositionDevice> created;
  const HRESULT hr = DCompositionCreateDevice(device, __uuidof(IDCompositionDevice),
                                              reinterpret_cast<void**>(created.GetAddressOf()));
  if (SUCCEEDED(hr)) {
    *out = std::make_shared<DCompDevice>(std::move(created));
  }
  return hr;
}

}  // namespace native_live_window
