// The image of a live window on the GPU: one texture with its view, the shaders, sampler and
// vertex buffer that draw it as one fitted, cropped quad, the crop rectangle and the animation
// state of an animated image.
//
// Uploads and crop changes come from the platform thread; the render thread advances the
// animation and draws. Everything is guarded by `image_mutex_` (recursive), which the render loop
// holds across the whole draw so that an upload never frees the texture mid-draw. Methods that end
// in "Locked" expect the caller to hold it; the others take it themselves.
//
// The pixels shown are also kept in memory, so that after a lost device the same image (the same
// frame of an animation, with its timing, fit and crop) is made again on the new device.

#ifndef KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_PIPELINE_H_
#define KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_PIPELINE_H_

#include <d3d11.h>
#include <wrl/client.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "live_output/images/image_layout.h"
#include "live_output/window/recursive_lock.h"

namespace native_live_window {

class ImagePipeline {
 public:
  using FrameList = std::vector<std::vector<std::uint8_t>>;
  using TimePoint = std::chrono::steady_clock::time_point;

  ImagePipeline() = default;
  ~ImagePipeline() = default;

  ImagePipeline(const ImagePipeline&) = delete;
  ImagePipeline& operator=(const ImagePipeline&) = delete;

  RecursiveLock& mutex() { return image_mutex_; }

  // Replaces the image with width x height BGRA pixels (rows packed, at least width * height * 4
  // bytes). The previous image is dropped first. S_OK when the image is on the GPU. When the
  // device is lost (or null) the image is kept and the loss answered (DXGI_ERROR_DEVICE_REMOVED
  // for a null device): PrepareLocked puts it on the next whole device. Any other failure leaves
  // no image and is printed to standard output.
  HRESULT Upload(ID3D11Device* device, const std::uint8_t* pixels, std::int32_t width,
                 std::int32_t height, std::int32_t fit_mode);
  // Animates the image just uploaded from frames[0] through all frames, starting at `now`.
  // Delays all 0 leave it still.
  void StartAnimation(std::shared_ptr<const FrameList> frames,
                      const std::vector<std::uint32_t>& delays_ms, TimePoint now);
  // Drops the image and its animation; the shaders stay.
  void Clear();
  // Drops everything that holds the device: the image and the shaders.
  void ReleaseGpuObjects();

  void SetCrop(float x, float y, float w, float h, std::int32_t canvas_width,
               std::int32_t canvas_height);
  void ClearCrop();
  CropRect crop() const;

  // Render thread, with mutex() held.
  bool HasImageLocked() const { return image_width_ > 0; }
  // Makes the pipeline and the image on `device` again when they were made on another device (or
  // could not be made). S_OK when ready to draw; a device loss keeps the image for the next
  // device; any other failure drops it (printed).
  HRESULT PrepareLocked(ID3D11Device* device);
  // Puts the frame due at `now` into the texture when it differs from the one there.
  void AdvanceAnimationLocked(ID3D11DeviceContext* context, TimePoint now);
  // Draws the image into `target` of width x height pixels over a black background.
  void DrawLocked(ID3D11DeviceContext* context, ID3D11RenderTargetView* target, std::int32_t width,
                  std::int32_t height);

  // Makes `target` (width x height pixels) the render target, with a viewport over all of it.
  static void BindTarget(ID3D11DeviceContext* context, ID3D11RenderTargetView* target,
                         std::int32_t width, std::int32_t height);

  // Number of times an animation frame was written into the texture.
  std::uint64_t texture_update_count() const { return texture_update_count_.load(); }

 private:
  bool EnsureShadersLocked(ID3D11Device* device);
  // Texture and view of `pixels` (the current image's size) on `device`, with the pipeline.
  HRESULT MakeOnDeviceLocked(ID3D11Device* device, const std::uint8_t* pixels);
  void ReleaseDeviceObjectsLocked();
  void ClearLocked();

  mutable RecursiveLock image_mutex_;

  std::int32_t fit_mode_ = 0;
  CropRect crop_;

  // The device the GPU objects below were made on.
  Microsoft::WRL::ComPtr<ID3D11Device> device_;
  Microsoft::WRL::ComPtr<ID3D11Texture2D> image_texture_;
  Microsoft::WRL::ComPtr<ID3D11ShaderResourceView> image_srv_;
  Microsoft::WRL::ComPtr<ID3D11SamplerState> sampler_;
  Microsoft::WRL::ComPtr<ID3D11VertexShader> vertex_shader_;
  Microsoft::WRL::ComPtr<ID3D11PixelShader> pixel_shader_;
  Microsoft::WRL::ComPtr<ID3D11InputLayout> input_layout_;
  Microsoft::WRL::ComPtr<ID3D11Buffer> vertex_buffer_;
  std::int32_t image_width_ = 0;
  std::int32_t image_height_ = 0;
  bool shaders_ready_ = false;

  // The still image's pixels (an animation's are in frames_).
  std::vector<std::uint8_t> still_pixels_;
  bool animated_ = false;
  std::shared_ptr<const FrameList> frames_;
  std::vector<std::uint32_t> frame_delays_ms_;
  std::uint32_t total_duration_ms_ = 0;
  std::uint64_t current_frame_ = 0;
  TimePoint animation_start_;

  std::atomic<std::uint64_t> texture_update_count_{0};
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_PIPELINE_H_
