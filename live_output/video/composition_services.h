// The two system services that bring decoded video onto the output windows: the composition
// tree (device, per-window target, visual, opacity effect, matrix transform, commit) and the
// composition swap chain. DCompCoordinator talks only to these interfaces.
//
// The program uses DirectComposition (DCompCompositionDevice). Wine answers E_NOTIMPL for
// DirectComposition and for composition swap chains, so the tests and the demo select a
// recording implementation instead (RecordingCompositionDevice): its swap chains are real D3D11
// textures, so copies, presents and commits run for real, and it records what each window's
// composition would show.
//
// Objects are shared: a visual keeps its content, effect and transform alive, as the COM objects
// behind them do. Every call answers an HRESULT, as the system calls do.

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_COMPOSITION_SERVICES_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_COMPOSITION_SERVICES_H_

#include <d3d11.h>
#include <dxgi1_2.h>
#include <windows.h>
#include <wrl/client.h>

#include <functional>
#include <memory>

namespace native_live_window {

// A 3 x 2 affine matrix: x' = x * m11 + y * m21 + dx, y' = x * m12 + y * m22 + dy.
struct CompositionMatrix {
  float m11 = 1.0f;
  float m12 = 0.0f;
  float m21 = 0.0f;
  float m22 = 1.0f;
  float dx = 0.0f;
  float dy = 0.0f;
};

struct CompositionRect {
  float left = 0.0f;
  float top = 0.0f;
  float right = 0.0f;
  float bottom = 0.0f;
};

// A swap chain whose buffers are composed onto windows instead of owning one.
class CompositionSwapChain {
 public:
  virtual ~CompositionSwapChain() = default;
  // The buffer to draw the next frame into (buffer 0).
  virtual HRESULT GetBackBuffer(Microsoft::WRL::ComPtr<ID3D11Texture2D>* buffer) = 0;
  virtual HRESULT Present(UINT sync_interval, UINT flags) = 0;
};

// Opacity applied to a visual and everything below it.
class CompositionEffectGroup {
 public:
  virtual ~CompositionEffectGroup() = default;
  virtual HRESULT SetOpacity(float opacity) = 0;
};

class CompositionTransform {
 public:
  virtual ~CompositionTransform() = default;
  virtual HRESULT SetMatrix(const CompositionMatrix& matrix) = 0;
};

// One node of a window's composition. The content is placed at the offset, clipped by the clip
// rectangle (in the visual's own coordinates, before the offset), then transformed.
class CompositionVisual {
 public:
  virtual ~CompositionVisual() = default;
  // Null removes the content.
  virtual HRESULT SetContent(std::shared_ptr<CompositionSwapChain> content) = 0;
  virtual HRESULT SetOffsetX(float offset) = 0;
  virtual HRESULT SetOffsetY(float offset) = 0;
  virtual HRESULT SetClip(const CompositionRect& clip) = 0;
  virtual HRESULT RemoveClip() = 0;
  // Null removes the transform.
  virtual HRESULT SetTransform(std::shared_ptr<CompositionTransform> transform) = 0;
  virtual HRESULT SetEffect(std::shared_ptr<CompositionEffectGroup> effect) = 0;
};

// The composition of one window.
class CompositionTarget {
 public:
  virtual ~CompositionTarget() = default;
  // Null empties the window's composition.
  virtual HRESULT SetRoot(std::shared_ptr<CompositionVisual> visual) = 0;
};

class CompositionDevice {
 public:
  virtual ~CompositionDevice() = default;
  virtual HRESULT CreateTargetForHwnd(HWND hwnd, bool topmost,
                                      std::shared_ptr<CompositionTarget>* target) = 0;
  virtual HRESULT CreateVisual(std::shared_ptr<CompositionVisual>* visual) = 0;
  virtual HRESULT CreateEffectGroup(std::shared_ptr<CompositionEffectGroup>* effect) = 0;
  virtual HRESULT CreateMatrixTransform(std::shared_ptr<CompositionTransform>* transform) = 0;
  // A swap chain for composition of `device`'s frames, made through `factory`.
  virtual HRESULT CreateSwapChainForComposition(IDXGIFactory2* factory, ID3D11Device* device,
                                                const DXGI_SWAP_CHAIN_DESC1& description,
                                                std::shared_ptr<CompositionSwapChain>* chain) = 0;
  // Publishes every change made since the last commit, atomically.
  virtual HRESULT Commit() = 0;
};

// Makes the composition device of a Direct3D device (given as its DXGI device).
using CompositionDeviceFactory =
    std::function<HRESULT(IDXGIDevice* device, std::shared_ptr<CompositionDevice>* out)>;

// Names the environment variable that selects the recording implementation; only the demo and
// the tests set it. Its value is a folder that receives an image of each window's composition
// (empty: no images).
constexpr const char kRecordingCompositionVariable[] = "KESTRUN_RECORDING_COMPOSITION";

// DirectComposition, or the recording implementation when the variable above is set.
CompositionDeviceFactory DefaultCompositionDeviceFactory();

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_COMPOSITION_SERVICES_H_
