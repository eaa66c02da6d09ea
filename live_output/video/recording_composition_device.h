// Composition services that record instead of composing, for the tests and the demo under Wine
// (which has no DirectComposition).
//
// Swap chains are pairs of real D3D11 textures of the requested size: GetBackBuffer gives the
// texture to draw into and Present makes it the shown one, so the copies and presents of the
// composition render loop run on the GPU as they do with DirectComposition. The composition tree
// (per window: root visual, content, offset, clip, transform, effect opacity) is recorded; Commit
// publishes a copy of it, as DirectComposition publishes a batch. ComposeWindow draws on the CPU
// what a window's committed composition would show over the window's black background: the clip
// is taken in the visual's own (content) coordinates, then the offset and then the transform move
// content and clip together, as DirectComposition orders them. A topmost target is drawn above the
// window's child windows (the fade overlay cannot darken it), any other target below them, where a
// layered child window's alpha darkens it. As with DirectComposition, a window takes one target
// per layer (topmost or not) process-wide until that target is destroyed; another is refused with
// DCOMPOSITION_ERROR_WINDOW_ALREADY_COMPOSED.
//
// When made with an image folder, commits made on the thread that presents (the render loop)
// write each window's composition there, at most five times a second, as
// "composition-<x>-<y>.bmp" after the window's screen position.

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_RECORDING_COMPOSITION_DEVICE_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_RECORDING_COMPOSITION_DEVICE_H_

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "live_output/video/composition_services.h"

namespace native_live_window {

class RecordingSwapChain;
struct RecordingTree;

// What a window's composition shows, as of the last commit.
struct CommittedComposition {
  HWND hwnd = nullptr;
  // Drawn above the window's child windows (true) or below them.
  bool topmost = true;
  bool has_root = false;
  // The root visual's content; null when it has none.
  std::shared_ptr<RecordingSwapChain> content;
  float offset_x = 0.0f;
  float offset_y = 0.0f;
  bool has_clip = false;
  CompositionRect clip;
  bool has_transform = false;
  CompositionMatrix transform;
  bool has_effect = false;
  float opacity = 1.0f;
};

class RecordingSwapChain : public CompositionSwapChain {
 public:
  RecordingSwapChain(RecordingTree* tree, Microsoft::WRL::ComPtr<ID3D11Texture2D> first,
                     Microsoft::WRL::ComPtr<ID3D11Texture2D> second, UINT width, UINT height);

  HRESULT GetBackBuffer(Microsoft::WRL::ComPtr<ID3D11Texture2D>* buffer) override;
  HRESULT Present(UINT sync_interval, UINT flags) override;

  UINT width() const { return width_; }
  UINT height() const { return height_; }
  std::uint64_t present_count() const { return presents_.load(); }
  // The texture shown since the last Present.
  ID3D11Texture2D* front_buffer() const;

 private:
  RecordingTree* tree_;
  Microsoft::WRL::ComPtr<ID3D11Texture2D> buffers_[2];
  UINT width_;
  UINT height_;
  std::atomic<int> back_{0};
  std::atomic<std::uint64_t> presents_{0};
};

class RecordingCompositionDevice : public CompositionDevice {
 public:
  // `image_folder` empty: no images are written.
  explicit RecordingCompositionDevice(std::string image_folder = std::string());
  ~RecordingCompositionDevice() override;

  HRESULT CreateTargetForHwnd(HWND hwnd, bool topmost,
                              std::shared_ptr<CompositionTarget>* target) override;
  HRESULT CreateVisual(std::shared_ptr<CompositionVisual>* visual) override;
  HRESULT CreateEffectGroup(std::shared_ptr<CompositionEffectGroup>* effect) override;
  HRESULT CreateMatrixTransform(std::shared_ptr<CompositionTransform>* transform) override;
  HRESULT CreateSwapChainForComposition(IDXGIFactory2* factory, ID3D11Device* device,
                                        const DXGI_SWAP_CHAIN_DESC1& description,
                                        std::shared_ptr<CompositionSwapChain>* chain) override;
  HRESULT Commit() override;

  // Committed compositions of the windows that still have a target, in the order the targets
  // were made.
  std::vector<CommittedComposition> Committed() const;
  // The committed composition of `hwnd`'s newest target; hwnd null when it has none.
  CommittedComposition CommittedFor(HWND hwnd) const;
  std::uint64_t commit_count() const;
  std::uint64_t present_count() const;
  // Present calls, including those answered with a failure.
  std::uint64_t present_calls() const;

  // An auto-reset event set by every Present call and every commit, for waiting on the loop.
  HANDLE change_event() const;

  // Every Present answers `result` instead of presenting (S_OK: present normally).
  void SetPresentResult(HRESULT result);
  // Effect groups (or matrix transforms) cannot be made while set.
  void SetEffectGroupsFail(bool fail);
  void SetTransformsFail(bool fail);

  // Draws what the window's committed composition shows, in 0xAARRGGBB pixels of the window's
  // client size. Uses `context` to read the shown buffer back: call it on the thread that owns
  // the context (the render loop's, or any while the loop is stopped). False without a target.
  bool ComposeWindow(HWND hwnd, ID3D11DeviceContext* context, std::vector<std::uint32_t>* pixels,
                     int* width, int* height) const;
  // Writes every window's composition into `folder` (see the top of this file).
  void WriteImages(const std::string& folder, ID3D11DeviceContext* context) const;

 private:
  std::shared_ptr<RecordingTree> tree_;
  std::string image_folder_;
  std::chrono::steady_clock::time_point last_images_;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_RECORDING_COMPOSITION_DEVICE_H_
