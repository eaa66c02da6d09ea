#include "live_output/video/dcomp_coordinator.h"

#include <dxgi1_2.h>
#include <wrl/client.h>

#include <mutex>
#include <utility>

#include "live_output/log/logger.h"

namespace native_live_window {

namespace {

using Microsoft::WRL::ComPtr;

constexpr char kCategory[] = "DCOMP";

unsigned Hr(HRESULT hr) { return static_cast<unsigned>(hr); }

}  // namespace

DCompCoordinator::DCompCoordinator() : DCompCoordinator(nullptr, nullptr) {}

DCompCoordinator::DCompCoordinator(Clock clock, CompositionDeviceFactory composition_factory)
    : clock_(std::move(clock)), composition_factory_(std::move(composition_factory)) {
  if (!clock_) {
    clock_ = [] { return std::chrono::steady_clock::now(); };
  }
  if (!composition_factory_) {
    composition_factory_ = DefaultCompositionDeviceFactory();
  }
  tick_entries_.reserve(16);
}

DCompCoordinator::~DCompCoordinator() {
  {
    std::lock_guard<RecursiveLock> lock(fade_mutex_);
    fade_complete_ = nullptr;
  }
  Shutdown();
}

bool DCompCoordinator::Initialize(ID3D11Device* device, ID3D11DeviceContext* context) {
  Logger& log = Logger::Instance();
  if (device == nullptr || context == nullptr) {
    log.Error(kCategory, "Initialize called with null device or context");
    return false;
  }
  device_ = device;
  context_ = context;
  ComPtr<IDXGIDevice> dxgi_device;
  HRESULT hr = device->QueryInterface(IID_PPV_ARGS(&dxgi_device));
  if (FAILED(hr)) {
    log.Error(kCategory, "Failed to get IDXGIDevice, hr=0x%08X", Hr(hr));
    return false;
  }
  std::shared_ptr<CompositionDevice> composition;
  hr = composition_factory_(dxgi_device.Get(), &composition);
  if (FAILED(hr) || !composition) {
    log.Error(kCategory, "DCompositionCreateDevice failed, hr=0x%08X",
              Hr(FAILED(hr) ? hr : E_FAIL));
    return false;
  }
  dcomp_device_ = std::move(composition);
  log.Info(kCategory, "Initialized");
  return true;
}

void DCompCoordinator::CommitLogged() {
  if (!dcomp_device_) {
    return;
  }
  const HRESULT hr = dcomp_device_->Commit();
  if (FAILED(hr)) {
    Logger::Instance().Error(kCategory, "DComp Commit failed, hr=0x%08X", Hr(hr));
  }
}

void DCompCoordinator::ReleaseDisplayLocked(DisplayEntry& display) {
  display.effect_group.reset();
  display.visual.reset();
  display.target.reset();
}

bool DCompCoordinator::AddDisplay(HWND hwnd, const std::string& display_id, int width, int height,
                                  bool is_primary) {
  Logger& log = Logger::Instance();
  if (!dcomp_device_) {
    log.Error(kCategory, "AddDisplay called before Initialize");
    return false;
  }
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    const auto existing = displays_.find(display_id);
    if (existing != displays_.end()) {
      ReleaseDisplayLocked(existing->second);
      displays_.erase(existing);
    }
    DisplayEntry entry;
    entry.display_id = display_id;
    entry.hwnd = hwnd;
    entry.width = width;
    entry.height = height;
    entry.is_primary = is_primary;
    HRESULT hr = dcomp_device_->CreateTargetForHwnd(hwnd, true, &entry.target);
    if (FAILED(hr)) {
      log.Error(kCategory, "CreateTargetForHwnd failed for %s, hr=0x%08X", display_id.c_str(),
                Hr(hr));
      return false;
    }
    hr = dcomp_device_->CreateVisual(&entry.visual);
    if (FAILED(hr)) {
      log.Error(kCategory, "CreateVisual failed for %s, hr=0x%08X", display_id.c_str(), Hr(hr));
      entry.target.reset();
      return false;
    }
    hr = dcomp_device_->CreateEffectGroup(&entry.effect_group);
    if (FAILED(hr)) {
      log.Warning(kCategory, "CreateEffectGroup failed for '%s' (hr=0x%08X) — fade will be instant",
                  display_id.c_str(), Hr(hr));
      entry.effect_group.reset();
    } else {
      // Invisible until a fade-in or SetOpacity raises it.
      entry.effect_group->SetOpacity(0.0f);
      entry.visual->SetEffect(entry.effect_group);
      entry.applied_opacity = 0.0f;
    }
    entry.target->SetRoot(entry.visual);
    displays_.emplace(display_id, std::move(entry));
  }
  CommitLogged();
  log.Info(kCategory, "Added display '%s' (%dx%d, primary=%d)", display_id.c_str(), width, height,
           is_primary ? 1 : 0);
  return true;
}

HRESULT DCompCoordinator::CreatePipelineSwapChain(int width, int height,
                                                  std::shared_ptr<CompositionSwapChain>* chain) {
  Logger& log = Logger::Instance();
  ComPtr<IDXGIDevice> dxgi_device;
  ComPtr<IDXGIAdapter> adapter;
  ComPtr<IDXGIFactory2> factory;
  HRESULT hr = device_->QueryInterface(IID_PPV_ARGS(&dxgi_device));
  if (SUCCEEDED(hr)) {
    hr = dxgi_device->GetAdapter(&adapter);
  }
  if (SUCCEEDED(hr)) {
    hr = adapter->GetParent(IID_PPV_ARGS(&factory));
  }
  if (FAILED(hr)) {
    log.Error(kCategory, "CreatePipelineSwapChain: GetParent failed, hr=0x%08X", Hr(hr));
    return hr;
  }
  DXGI_SWAP_CHAIN_DESC1 description = {};
  description.Width = static_cast<UINT>(width);
  description.Height = static_cast<UINT>(height);
  description.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  description.Stereo = FALSE;
  description.SampleDesc.Count = 1;
  description.SampleDesc.Quality = 0;
  description.BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT;
  description.BufferCount = 2;
  description.Scaling = DXGI_SCALING_STRETCH;
  description.SwapEffect = DXGI_SWAP_EFFECT_FLIP_SEQUENTIAL;
  description.AlphaMode = DXGI_ALPHA_MODE_IGNORE;
  description.Flags = 0;
  hr = dcomp_device_->CreateSwapChainForComposition(factory.Get(), device_, description, chain);
  if (FAILED(hr)) {
    log.Error(kCategory, "CreatePipelineSwapChain failed, hr=0x%08X", Hr(hr));
  }
  return hr;
}

bool DCompCoordinator::AddDecoderPipeline(const std::string& decoder_key, VideoDecoder* decoder,
                                          int width, int height) {
  Logger& log = Logger::Instance();
  if (!dcomp_device_) {
    log.Error(kCategory, "AddDecoderPipeline before Initialize");
    return false;
  }
  if (decoder_key.empty()) {
    log.Error(kCategory, "AddDecoderPipeline: decoder_key is empty");
    return false;
  }
  if (decoder == nullptr) {
    log.Error(kCategory, "AddDecoderPipeline: decoder is null (key='%s')", decoder_key.c_str());
    return false;
  }
  if (width < 1 || height < 1) {
    log.Error(kCategory, "AddDecoderPipeline: invalid canvas size %dx%d (key='%s')", width, height,
              decoder_key.c_str());
    return false;
  }
  DecoderPipeline pipeline;
  if (FAILED(CreatePipelineSwapChain(width, height, &pipeline.swap_chain))) {
    return false;
  }
  pipeline.decoder = decoder;
  pipeline.width = width;
  pipeline.height = height;
  std::shared_ptr<CompositionSwapChain> replaced;
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    auto& slot = pipelines_[decoder_key];
    replaced = std::move(slot.swap_chain);
    slot = std::move(pipeline);
  }
  replaced.reset();
  log.Info(kCategory, "Added decoder pipeline '%s' (%dx%d)", decoder_key.c_str(), width, height);
  return true;
}

void DCompCoordinator::ApplyVisualScaleLocked(CompositionVisual* visual, int source_width,
                                              int source_height, int destination_width,
                                              int destination_height) {
  if (visual == nullptr || !dcomp_device_ || source_width <= 0 || source_height <= 0 ||
      destination_width <= 0 || destination_height <= 0) {
    return;
  }
  const float sx = static_cast<float>(destination_width) / static_cast<float>(source_width);
  const float sy = static_cast<float>(destination_height) / static_cast<float>(source_height);
  if (sx == 1.0f && sy == 1.0f) {
    visual->SetTransform(nullptr);
    return;
  }
  std::shared_ptr<CompositionTransform> transform;
  const HRESULT hr = dcomp_device_->CreateMatrixTransform(&transform);
  if (FAILED(hr) || !transform) {
    Logger::Instance().Warning(kCategory,
                               "CreateMatrixTransform failed (hr=0x%08X) — visual will draw 1:1",
                               Hr(FAILED(hr) ? hr : E_FAIL));
    return;
  }
  CompositionMatrix matrix;
  matrix.m11 = sx;
  matrix.m22 = sy;
  transform->SetMatrix(matrix);
  visual->SetTransform(std::move(transform));
}

void DCompCoordinator::ResetCropLocked(DisplayEntry& display) {
  if (!display.has_crop) {
    return;
  }
  if (display.visual) {
    display.visual->SetOffsetX(0.0f);
    display.visual->SetOffsetY(0.0f);
    display.visual->RemoveClip();
  }
  display.has_crop = false;
}

void DCompCoordinator::ClearDisplayLocked(DisplayEntry& display) {
  display.decoder_key.clear();
  if (display.visual) {
    display.visual->SetContent(nullptr);
  }
  ResetCropLocked(display);
}

bool DCompCoordinator::AssignDisplayToDecoder(const std::string& display_id,
                                              const std::string& decoder_key) {
  Logger& log = Logger::Instance();
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    const auto display = displays_.find(display_id);
    if (display == displays_.end()) {
      log.Warning(kCategory, "AssignDisplayToDecoder: unknown display '%s'", display_id.c_str());
      return false;
    }
    const auto pipeline = pipelines_.find(decoder_key);
    if (pipeline == pipelines_.end()) {
      log.Warning(kCategory, "AssignDisplayToDecoder: unknown decoder key '%s'",
                  decoder_key.c_str());
      return false;
    }
    DisplayEntry& entry = display->second;
    if (entry.visual) {
      ResetCropLocked(entry);
      entry.visual->SetContent(pipeline->second.swap_chain);
      ApplyVisualScaleLocked(entry.visual.get(), pipeline->second.width, pipeline->second.height,
                             entry.width, entry.height);
    }
    entry.decoder_key = decoder_key;
  }
  CommitLogged();
  log.Info(kCategory, "Assigned display '%s' to decoder '%s'", display_id.c_str(),
           decoder_key.c_str());
  return true;
}

void DCompCoordinator::SetDisplayCrop(const std::string& display_id, int x, int y, int crop_width,
                                      int crop_height) {
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    const auto display = displays_.find(display_id);
    if (display == displays_.end()) {
      return;
    }
    DisplayEntry& entry = display->second;
    entry.crop_x = x;
    entry.crop_y = y;
    entry.crop_width = crop_width;
    entry.crop_height = crop_height;
    entry.has_crop = true;
    if (entry.visual) {
      entry.visual->SetOffsetX(static_cast<float>(-x));
      entry.visual->SetOffsetY(static_cast<float>(-y));
      CompositionRect clip;
      clip.left = static_cast<float>(x);
      clip.top = static_cast<float>(y);
      // The clip is in the content's own coordinates, before the offset and the scale: it keeps
      // exactly the crop, which the scale then fits to the display whatever their sizes.
      clip.right = static_cast<float>(x + crop_width);
      clip.bottom = static_cast<float>(y + crop_height);
      entry.visual->SetClip(clip);
      ApplyVisualScaleLocked(entry.visual.get(), crop_width, crop_height, entry.width,
                             entry.height);
    }
  }
  // While the render loop runs, its next commit publishes the crop; otherwise no commit may come
  // (a video without frames), so publish it now.
  if (!running_.load()) {
    CommitLogged();
  }
}

void DCompCoordinator::UnassignDisplay(const std::string& display_id) {
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    const auto display = displays_.find(display_id);
    if (display == displays_.end() || display->second.decoder_key.empty()) {
      return;
    }
    ClearDisplayLocked(display->second);
  }
  CommitLogged();
  Logger::Instance().Info(kCategory, "Unassigned display '%s'", display_id.c_str());
}

void DCompCoordinator::SetDisplayAudienceLevel(const std::string& display_id,
                                               AudienceLevel level) {
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    const auto display = displays_.find(display_id);
    if (display == displays_.end()) {
      return;
    }
    display->second.audience_level = std::move(level);
    ApplyOpacityLocked(display->second);
  }
  CommitLogged();
}

std::string DCompCoordinator::GetAssignedDecoderKey(const std::string& display_id) {
  std::lock_guard<RecursiveLock> lock(mutex_);
  const auto display = displays_.find(display_id);
  return display != displays_.end() ? display->second.decoder_key : std::string();
}

void DCompCoordinator::RemoveDecoderPipeline(const std::string& decoder_key) {
  std::shared_ptr<CompositionSwapChain> released;
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    const auto pipeline = pipelines_.find(decoder_key);
    if (pipeline == pipelines_.end()) {
      return;
    }
    released = std::move(pipeline->second.swap_chain);
    pipelines_.erase(pipeline);
    for (auto& display : displays_) {
      if (display.second.decoder_key == decoder_key) {
        ClearDisplayLocked(display.second);
      }
    }
  }
  CommitLogged();
  released.reset();
  Logger::Instance().Info(kCategory, "Removed decoder pipeline '%s'", decoder_key.c_str());
}

void DCompCoordinator::RemoveAllDecoderPipelines() {
  std::vector<std::shared_ptr<CompositionSwapChain>> released;
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    for (auto& display : displays_) {
      if (!display.second.decoder_key.empty()) {
        ClearDisplayLocked(display.second);
      }
    }
    for (auto& pipeline : pipelines_) {
      released.push_back(std::move(pipeline.second.swap_chain));
    }
    pipelines_.clear();
  }
  CommitLogged();
  const std::size_t count = released.size();
  released.clear();
  Logger::Instance().Info(kCategory, "Removed all decoder pipelines (%zu)", count);
}

void DCompCoordinator::RemoveAllDisplays() {
  {
    std::lock_guard<RecursiveLock> lock(mutex_);
    for (auto& display : displays_) {
      DisplayEntry& entry = display.second;
      if (entry.target) {
        entry.target->SetRoot(nullptr);
      }
      entry.target.reset();
      if (entry.visual) {
        entry.visual->SetContent(nullptr);
      }
      entry.visual.reset();
      entry.effect_group.reset();
    }
    displays_.clear();
  }
  CommitLogged();
  Logger::Instance().Info(kCategory, "Removed all displays");
}

void DCompCoordinator::Shutdown() {
  CancelFade();
  StopRenderLoop();
  RemoveAllDecoderPipelines();
  RemoveAllDisplays();
  dcomp_device_.reset();
  device_ = nullptr;
  context_ = nullptr;
  Logger::Instance().Info(kCategory, "Shutdown");
}

}  // namespace native_live_window
