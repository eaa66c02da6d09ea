#include "live_output/video/recording_composition_device.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

namespace native_live_window {

using Microsoft::WRL::ComPtr;

namespace {
class RecordingTarget;
class RecordingVisual;
class RecordingEffectGroup;
class RecordingTransform;
// DirectComposition binds at most one target per window and layer (topmost or not) in the whole
// system, until that target object is destroyed: a second one is refused with
// DCOMPOSITION_ERROR_WINDOW_ALREADY_COMPOSED, whichever device asks.
constexpr HRESULT kWindowAlreadyComposed = static_cast<HRESULT>(0x88980800L);

struct ComposedLayers {
  std::mutex mutex;
  std::vector<std::pair<HWND, bool>> bound;
};

ComposedLayers& Layers() {
  static ComposedLayers* layers = new ComposedLayers();  // outlives every target
  return *layers;
}

}  // namespace

// Shared by the device and every object it made; guards the whole recorded tree.
struct RecordingTree {
  RecordingTree() : change_event(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}
  ~RecordingTree() {
    if (change_event != nullptr) {
      CloseHandle(change_event);
    }
  }
  RecordingTree(const RecordingTree&) = delete;
  RecordingTree& operator=(const RecordingTree&) = delete;

  void Changed() const {
    if (change_event != nullptr) {
      SetEvent(change_event);
    }
  }

  const HANDLE change_event;
  mutable std::mutex mutex;
  std::vector<std::weak_ptr<RecordingTarget>> targets;
  std::vector<CommittedComposition> committed;
  std::uint64_t commits = 0;
  std::atomic<std::uint64_t> presents{0};
  std::atomic<std::uint64_t> present_calls{0};
  std::atomic<HRESULT> present_result{S_OK};
  std::atomic<bool> effect_groups_fail{false};
  std::atomic<bool> transforms_fail{false};
  // The thread of the last Present: the one that owns the immediate context.
  std::atomic<DWORD> presenting_thread{0};
};

namespace {

class RecordingEffectGroup : public CompositionEffectGroup {
 public:
  explicit RecordingEffectGroup(RecordingTree* tree) : tree_(tree) {}
  HRESULT SetOpacity(float opacity) override {
    std::lock_guard<std::mutex> lock(tree_->mutex);
    opacity_ = opacity;
    return S_OK;
  }
  float opacity_locked() const { return opacity_; }

 private:
  RecordingTree* tree_;
  float opacity_ = 1.0f;
};

class RecordingTransform : public CompositionTransform {
 public:
  explicit RecordingTransform(RecordingTree* tree) : tree_(tree) {}
  HRESULT SetMatrix(const CompositionMatrix& matrix) override {
    std::lock_guard<std::mutex> lock(tree_->mutex);
    matrix_ = matrix;
    return S_OK;
  }
  const CompositionMatrix& matrix_locked() const { return matrix_; }

 private:
  RecordingTree* tree_;
  CompositionMatrix matrix_;
};

class RecordingVisual : public CompositionVisual {
 public:
  explicit RecordingVisual(RecordingTree* tree) : tree_(tree) {}

  HRESULT SetContent(std::shared_ptr<CompositionSwapChain> content) override {
    std::shared_ptr<RecordingSwapChain> chain;
    if (content) {
      chain = std::dynamic_pointer_cast<RecordingSwapChain>(content);
      if (!chain) {
        return E_INVALIDARG;
      }
    }
    std::lock_guard<std::mutex> lock(tree_->mutex);
    content_ = std::move(chain);
    return S_OK;
  }
  HRESULT SetOffsetX(float offset) override { return Set(&offset_x_, offset); }
  HRESULT SetOffsetY(float offset) override { return Set(&offset_y_, offset); }
  HRESULT SetClip(const CompositionRect& clip) override {
    std::lock_guard<std::mutex> lock(tree_->mutex);
    clip_ = clip;
    has_clip_ = true;
    return S_OK;
  }
  HRESULT RemoveClip() override {
    std::lock_guard<std::mutex> lock(tree_->mutex);
    has_clip_ = false;
    return S_OK;
  }
  HRESULT SetTransform(std::shared_ptr<CompositionTransform> transform) override {
    std::shared_ptr<RecordingTransform> matrix;
    if (transform) {
      matrix = std::dynamic_pointer_cast<RecordingTransform>(transform);
      if (!matrix) {
        return E_INVALIDARG;
      }
    }
    std::lock_guard<std::mutex> lock(tree_->mutex);
    transform_ = std::move(matrix);
    return S_OK;
  }
  HRESULT SetEffect(std::shared_ptr<CompositionEffectGroup> effect) override {
    std::shared_ptr<RecordingEffectGroup> group;
    if (effect) {
      group = std::dynamic_pointer_cast<RecordingEffectGroup>(effect);
      if (!group) {
        return E_INVALIDARG;
      }
    }
    std::lock_guard<std::mutex> lock(tree_->mutex);
    effect_ = std::move(group);
    return S_OK;
  }

  // Copies the visual's state into `out`. Caller holds the tree's mutex.
  void RecordLocked(CommittedComposition* out) const {
    out->content = content_;
    out->offset_x = offset_x_;
    out->offset_y = offset_y_;
    out->has_clip = has_clip_;
    out->clip = clip_;
    out->has_transform = transform_ != nullptr;
    out->transform = transform_ ? transform_->matrix_locked() : CompositionMatrix();
    out->has_effect = effect_ != nullptr;
    out->opacity = effect_ ? effect_->opacity_locked() : 1.0f;
  }

 private:
  HRESULT Set(float* field, float value) {
    if (!std::isfinite(value)) {
      return E_INVALIDARG;
    }
    std::lock_guard<std::mutex> lock(tree_->mutex);
    *field = value;
    return S_OK;
  }

  RecordingTree* tree_;
  std::shared_ptr<RecordingSwapChain> content_;
  float offset_x_ = 0.0f;
  float offset_y_ = 0.0f;
  bool has_clip_ = false;
  CompositionRect clip_;
  std::shared_ptr<RecordingTransform> transform_;
  std::shared_ptr<RecordingEffectGroup> effect_;
};

class RecordingTarget : public CompositionTarget {
 public:
  RecordingTarget(RecordingTree* tree, HWND hwnd, bool topmost)
      : tree_(tree), hwnd_(hwnd), topmost_(topmost) {}
  ~RecordingTarget() override {
    ComposedLayers& layers = Layers();
    std::lock_guard<std::mutex> lock(layers.mutex);
    auto& bound = layers.bound;
    bound.erase(std::remove(bound.begin(), bound.end(), std::make_pair(hwnd_, topmost_)),
                bound.end());
  }
  HRESULT SetRoot(std::shared_ptr<CompositionVisual> visual) override {
    std::shared_ptr<RecordingVisual> root;
    if (visual) {
      root = std::dynamic_pointer_cast<RecordingVisual>(visual);
      if (!root) {
        return E_INVALIDARG;
      }
    }
    std::lock_guard<std::mutex> lock(tree_->mutex);
    root_ = std::move(root);
    return S_OK;
  }
  void RecordLocked(CommittedComposition* out) const {
    out->hwnd = hwnd_;
    out->topmost = topmost_;
    out->has_root = root_ != nullptr;
    if (root_) {
      root_->RecordLocked(out);
    }
  }

 private:
  RecordingTree* tree_;
  HWND hwnd_;
  bool topmost_;
  std::shared_ptr<RecordingVisual> root_;
};

// The shown buffer of `chain` as 0xAARRGGBB rows.
bool ReadBack(const RecordingSwapChain& chain, ID3D11DeviceContext* context,
              std::vector<std::uint32_t>* pixels) {
  ID3D11Texture2D* front = chain.front_buffer();
  if (front == nullptr || context == nullptr) {
    return false;
  }
  ComPtr<ID3D11Device> device;
  front->GetDevice(&device);
  D3D11_TEXTURE2D_DESC desc = {};
  front->GetDesc(&desc);
  desc.Usage = D3D11_USAGE_STAGING;
  desc.BindFlags = 0;
  desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
  desc.MiscFlags = 0;
  ComPtr<ID3D11Texture2D> staging;
  if (FAILED(device->CreateTexture2D(&desc, nullptr, &staging))) {
    return false;
  }
  context->CopyResource(staging.Get(), front);
  D3D11_MAPPED_SUBRESOURCE mapped = {};
  if (FAILED(context->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &mapped))) {
    return false;
  }
  pixels->resize(static_cast<std::size_t>(desc.Width) * desc.Height);
  for (UINT y = 0; y < desc.Height; ++y) {
    std::memcpy(pixels->data() + static_cast<std::size_t>(y) * desc.Width,
                static_cast<const std::uint8_t*>(mapped.pData) + y * mapped.RowPitch,
                desc.Width * 4);
  }
  context->Unmap(staging.Get(), 0);
  return true;
}

std::uint32_t Scale(std::uint32_t pixel, float opacity) {
  std::uint32_t out = 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8) {
    const float channel = static_cast<float>((pixel >> shift) & 0xFFu) * opacity;
    out |= static_cast<std::uint32_t>(std::lround(channel < 0.0f ? 0.0f : channel)) << shift;
  }
  return out;
}

// Child windows drawn over a composition that is not topmost: each visible layered child (the
// black fade overlay) darkens what lies below it by its whole-window alpha.
void DarkenUnderChildren(HWND parent, int width, int height, std::vector<std::uint32_t>* pixels) {
  for (HWND child = GetWindow(parent, GW_CHILD); child != nullptr;
       child = GetWindow(child, GW_HWNDNEXT)) {
    BYTE alpha = 0;
    DWORD flags = 0;
    RECT rect = {};
    if (!IsWindowVisible(child) || (GetWindowLongW(child, GWL_EXSTYLE) & WS_EX_LAYERED) == 0 ||
        !GetLayeredWindowAttributes(child, nullptr, &alpha, &flags) ||
        (flags & LWA_ALPHA) == 0 || !GetWindowRect(child, &rect)) {
      continue;
    }
    MapWindowPoints(HWND_DESKTOP, parent, reinterpret_cast<POINT*>(&rect), 2);
    const float keep = 1.0f - static_cast<float>(alpha) / 255.0f;
    for (int y = std::max(0L, rect.top); y < std::min<long>(height, rect.bottom); ++y) {
      for (int x = std::max(0L, rect.left); x < std::min<long>(width, rect.right); ++x) {
        std::uint32_t& pixel = (*pixels)[static_cast<std::size_t>(y) * width + x];
        pixel = Scale(pixel, keep);
      }
    }
  }
}

bool WriteBmp(const std::string& path, const std::vector<std::uint32_t>& pixels, int width,
              int height) {
  BITMAPFILEHEADER file = {};
  BITMAPINFOHEADER info = {};
  info.biSize = sizeof(info);
  info.biWidth = width;
  info.biHeight = -height;  // top-down rows
  info.biPlanes = 1;
  info.biBitCount = 32;
  info.biCompression = BI_RGB;
  const DWORD bytes = static_cast<DWORD>(pixels.size() * 4);
  file.bfType = 0x4D42;
  file.bfOffBits = sizeof(file) + sizeof(info);
  file.bfSize = file.bfOffBits + bytes;
  const std::string temporary = path + ".part";
  FILE* out = std::fopen(temporary.c_str(), "wb");
  if (out == nullptr) {
    return false;
  }
  const bool written = std::fwrite(&file, sizeof(file), 1, out) == 1 &&
                       std::fwrite(&info, sizeof(info), 1, out) == 1 &&
                       std::fwrite(pixels.data(), 1, bytes, out) == bytes;
  std::fclose(out);
  return written && MoveFileExA(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING) != 0;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Swap chain

RecordingSwapChain::RecordingSwapChain(RecordingTree* tree, ComPtr<ID3D11Texture2D> first,
                                       ComPtr<ID3D11Texture2D> second, UINT width, UINT height)
    : tree_(tree), width_(width), height_(height) {
  buffers_[0] = std::move(first);
  buffers_[1] = std::move(second);
}

HRESULT RecordingSwapChain::GetBackBuffer(ComPtr<ID3D11Texture2D>* buffer) {
  *buffer = buffers_[back_.load()];
  return S_OK;
}

HRESULT RecordingSwapChain::Present(UINT /*sync_interval*/, UINT /*flags*/) {
  tree_->present_calls.fetch_add(1);
  const HRESULT result = tree_->present_result.load();
  if (FAILED(result)) {
    tree_->Changed();
    return result;
  }
  back_.store(1 - back_.load());
  presents_.fetch_add(1);
  tree_->presents.fetch_add(1);
  tree_->presenting_thread.store(GetCurrentThreadId());
  tree_->Changed();
  return S_OK;
}

ID3D11Texture2D* RecordingSwapChain::front_buffer() const {
  return presents_.load() == 0 ? nullptr : buffers_[1 - back_.load()].Get();
}

// ---------------------------------------------------------------------------------------------
// Device

RecordingCompositionDevice::RecordingCompositionDevice(std::string image_folder)
    : tree_(std::make_shared<RecordingTree>()), image_folder_(std::move(image_folder)) {}

RecordingCompositionDevice::~RecordingCompositionDevice() = default;

HRESULT RecordingCompositionDevice::CreateTargetForHwnd(
    HWND hwnd, bool topmost, std::shared_ptr<CompositionTarget>* target) {
  if (hwnd == nullptr || !IsWindow(hwnd)) {
    return E_INVALIDARG;
  }
  {
    ComposedLayers& layers = Layers();
    std::lock_guard<std::mutex> lock(layers.mutex);
    const auto layer = std::make_pair(hwnd, topmost);
    if (std::find(layers.bound.begin(), layers.bound.end(), layer) != layers.bound.end()) {
      return kWindowAlreadyComposed;
    }
    layers.bound.push_back(layer);
  }
  auto created = std::make_shared<RecordingTarget>(tree_.get(), hwnd, topmost);
  {
    std::lock_guard<std::mutex> lock(tree_->mutex);
    auto& targets = tree_->targets;
    for (auto it = targets.begin(); it != targets.end();) {
      it = it->expired() ? targets.erase(it) : it + 1;
    }
    targets.push_back(created);
  }
  *target = std::move(created);
  return S_OK;
}

HRESULT RecordingCompositionDevice::CreateVisual(std::shared_ptr<CompositionVisual>* visual) {
  *visual = std::make_shared<RecordingVisual>(tree_.get());
  return S_OK;
}

HRESULT RecordingCompositionDevice::CreateEffectGroup(
    std::shared_ptr<CompositionEffectGroup>* effect) {
  if (tree_->effect_groups_fail.load()) {
    return E_OUTOFMEMORY;
  }
  *effect = std::make_shared<RecordingEffectGroup>(tree_.get());
  return S_OK;
}

HRESULT RecordingCompositionDevice::CreateMatrixTransform(
    std::shared_ptr<CompositionTransform>* transform) {
  if (tree_->transforms_fail.load()) {
    return E_OUTOFMEMORY;
  }
  *transform = std::make_shared<RecordingTransform>(tree_.get());
  return S_OK;
}

HRESULT RecordingCompositionDevice::CreateSwapChainForComposition(
    IDXGIFactory2* /*factory*/, ID3D11Device* device, const DXGI_SWAP_CHAIN_DESC1& description,
    std::shared_ptr<CompositionSwapChain>* chain) {
  if (device == nullptr || description.Width == 0 || description.Height == 0 ||
      description.BufferCount < 2) {
    return DXGI_ERROR_INVALID_CALL;
  }
  D3D11_TEXTURE2D_DESC desc = {};
  desc.Width = description.Width;
  desc.Height = description.Height;
  desc.MipLevels = 1;
  desc.ArraySize = 1;
  desc.Format = description.Format;
  desc.SampleDesc = description.SampleDesc;
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE;
  ComPtr<ID3D11Texture2D> first;
  ComPtr<ID3D11Texture2D> second;
  HRESULT hr = device->CreateTexture2D(&desc, nullptr, &first);
  if (SUCCEEDED(hr)) {
    hr = device->CreateTexture2D(&desc, nullptr, &second);
  }
  if (FAILED(hr)) {
    return hr;
  }
  *chain = std::make_shared<RecordingSwapChain>(tree_.get(), std::move(first), std::move(second),
                                                description.Width, description.Height);
  return S_OK;
}

HRESULT RecordingCompositionDevice::Commit() {
  {
    std::lock_guard<std::mutex> lock(tree_->mutex);
    tree_->committed.clear();
    for (const auto& weak : tree_->targets) {
      if (auto target = weak.lock()) {
        CommittedComposition entry;
        target->RecordLocked(&entry);
        tree_->committed.push_back(std::move(entry));
      }
    }
    tree_->commits += 1;
  }
  tree_->Changed();
  if (!image_folder_.empty() && GetCurrentThreadId() == tree_->presenting_thread.load()) {
    const auto now = std::chrono::steady_clock::now();
    if (now - last_images_ >= std::chrono::milliseconds(200)) {
      last_images_ = now;
      ComPtr<ID3D11DeviceContext> context;
      std::shared_ptr<RecordingSwapChain> any_chain;
      for (const CommittedComposition& entry : Committed()) {
        if (entry.content) {
          any_chain = entry.content;
        }
      }
      if (any_chain && any_chain->front_buffer() != nullptr) {
        ComPtr<ID3D11Device> device;
        any_chain->front_buffer()->GetDevice(&device);
        device->GetImmediateContext(&context);
        WriteImages(image_folder_, context.Get());
      }
    }
  }
  return S_OK;
}

std::vector<CommittedComposition> RecordingCompositionDevice::Committed() const {
  std::lock_guard<std::mutex> lock(tree_->mutex);
  return tree_->committed;
}

CommittedComposition RecordingCompositionDevice::CommittedFor(HWND hwnd) const {
  CommittedComposition found;
  for (const CommittedComposition& entry : Committed()) {
    if (entry.hwnd == hwnd) {
      found = entry;
    }
  }
  return found;
}

std::uint64_t RecordingCompositionDevice::commit_count() const {
  std::lock_guard<std::mutex> lock(tree_->mutex);
  return tree_->commits;
}

std::uint64_t RecordingCompositionDevice::present_count() const { return tree_->presents.load(); }

HANDLE RecordingCompositionDevice::change_event() const { return tree_->change_event; }

std::uint64_t RecordingCompositionDevice::present_calls() const {
  return tree_->present_calls.load();
}

void RecordingCompositionDevice::SetPresentResult(HRESULT result) {
  tree_->present_result.store(result);
}

void RecordingCompositionDevice::SetEffectGroupsFail(bool fail) {
  tree_->effect_groups_fail.store(fail);
}

void RecordingCompositionDevice::SetTransformsFail(bool fail) {
  tree_->transforms_fail.store(fail);
}

bool RecordingCompositionDevice::ComposeWindow(HWND hwnd, ID3D11DeviceContext* context,
                                               std::vector<std::uint32_t>* pixels, int* width,
                                               int* height) const {
  const CommittedComposition entry = CommittedFor(hwnd);
  RECT client = {};
  if (entry.hwnd == nullptr || !GetClientRect(hwnd, &client)) {
    return false;
  }
  *width = client.right - client.left;
  *height = client.bottom - client.top;
  pixels->assign(static_cast<std::size_t>(*width) * static_cast<std::size_t>(*height), 0xFF000000u);
  std::vector<std::uint32_t> source;
  if (!entry.has_root || !entry.content || !ReadBack(*entry.content, context, &source)) {
    return true;
  }
  const int source_width = static_cast<int>(entry.content->width());
  const int source_height = static_cast<int>(entry.content->height());
  // Window point = transform(local point + offset); invert the transform once.
  const CompositionMatrix& m = entry.transform;
  const float det = entry.has_transform ? m.m11 * m.m22 - m.m12 * m.m21 : 1.0f;
  if (det == 0.0f) {
    return true;
  }
  for (int y = 0; y < *height; ++y) {
    for (int x = 0; x < *width; ++x) {
      float px = static_cast<float>(x) + 0.5f;
      float py = static_cast<float>(y) + 0.5f;
      if (entry.has_transform) {
        const float tx = px - m.dx;
        const float ty = py - m.dy;
        px = (tx * m.m22 - ty * m.m21) / det;
        py = (ty * m.m11 - tx * m.m12) / det;
      }
      px -= entry.offset_x;
      py -= entry.offset_y;
      if (entry.has_clip && (px < entry.clip.left || px >= entry.clip.right ||
                             py < entry.clip.top || py >= entry.clip.bottom)) {
        continue;
      }
      const int sx = static_cast<int>(std::floor(px));
      const int sy = static_cast<int>(std::floor(py));
      if (sx < 0 || sy < 0 || sx >= source_width || sy >= source_height) {
        continue;
      }
      const std::uint32_t pixel = source[static_cast<std::size_t>(sy) * source_width + sx];
      (*pixels)[static_cast<std::size_t>(y) * *width + x] =
          Scale(pixel, entry.has_effect ? entry.opacity : 1.0f);
    }
  }
  if (!entry.topmost) {
    DarkenUnderChildren(hwnd, *width, *height, pixels);
  }
  return true;
}

void RecordingCompositionDevice::WriteImages(const std::string& folder,
                                             ID3D11DeviceContext* context) const {
  for (const CommittedComposition& entry : Committed()) {
    std::vector<std::uint32_t> pixels;
    int width = 0;
    int height = 0;
    RECT window = {};
    if (!GetWindowRect(entry.hwnd, &window) ||
        !ComposeWindow(entry.hwnd, context, &pixels, &width, &height) || pixels.empty()) {
      continue;
    }
    char name[64];
    std::snprintf(name, sizeof(name), "composition-%ld-%ld.bmp", window.left, window.top);
    WriteBmp(folder + "\\" + name, pixels, width, height);
  }
}

}  // namespace native_live_window
