// Composition of an animated GIF's frames on its logical screen.
//
// A GIF stores each frame as a patch (a rectangle of the logical screen at an offset) with a
// disposal method that says what becomes of the patch before the next frame is drawn. The
// compositor keeps the canvas, draws each patch on it and hands back a copy of the complete
// picture per frame, then disposes of the patch:
//   0, 1 and other values: leave the canvas as it is;
//   2 (restore to background): clear the patch's rectangle to transparent black;
//   3 (restore to previous): put back the canvas as it was before the patch was drawn.
// Patch pixels with alpha 0 are transparent and leave the canvas unchanged; every other pixel is
// written fully opaque (no blending). Whatever of a patch lies beyond the canvas is cut off.
//
// Also holds the GIF timing and memory rules used by the animated decode: frame delays and the
// memory budget of one decoded animation. Portable: no platform headers.

#ifndef KESTRUN_LIVE_OUTPUT_IMAGES_GIF_COMPOSITOR_H_
#define KESTRUN_LIVE_OUTPUT_IMAGES_GIF_COMPOSITOR_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace native_live_window {

class GifCompositor {
 public:
  // Upper bound of frame count x canvas width x canvas height x 4 bytes for one animation.
  static constexpr std::uint64_t kAnimationBudgetBytes = 268435456;
  // The same bound in megabytes, as reported.
  static constexpr std::size_t kAnimationBudgetMegabytes = 256;
  // Delay of a frame without one, or with one below kMinimumDelayMs.
  static constexpr std::uint32_t kDefaultDelayMs = 100;
  static constexpr std::uint32_t kMinimumDelayMs = 20;
  // The GIF delay field counts hundredths of a second.
  static constexpr std::uint32_t kDelayUnitMs = 10;

  static constexpr std::uint8_t kDisposeRestoreBackground = 2;
  static constexpr std::uint8_t kDisposeRestorePrevious = 3;

  // A canvas of canvas_width x canvas_height, all transparent black.
  GifCompositor(std::uint32_t canvas_width, std::uint32_t canvas_height);

  GifCompositor(const GifCompositor&) = delete;
  GifCompositor& operator=(const GifCompositor&) = delete;

  // Display time of a frame whose delay field is `field` (has_field false: no delay in the
  // frame's metadata).
  static std::uint32_t FrameDelayMs(bool has_field, std::uint16_t field);
  // Whether frame_count frames of the given canvas fit the animation budget. A zero-sized canvas
  // never fits.
  static bool FitsBudget(std::uint32_t canvas_width, std::uint32_t canvas_height,
                         std::uint32_t frame_count);

  // Draws one frame's patch (patch_width x patch_height BGRA pixels, rows packed, at least
  // patch_width * patch_height * 4 bytes) at (left, top), copies the complete canvas into
  // *composed (resized to canvas_bytes()), then applies the patch's disposal. Returns false, with
  // the canvas untouched, when the patch holds fewer bytes than its size needs.
  bool AddFrame(const std::uint8_t* patch, std::size_t patch_bytes, std::uint32_t patch_width,
                std::uint32_t patch_height, std::uint32_t left, std::uint32_t top,
                std::uint8_t disposal, std::vector<std::uint8_t>* composed);

  // The canvas as it stands for the next frame.
  const std::vector<std::uint8_t>& canvas() const { return canvas_; }
  std::size_t canvas_bytes() const { return canvas_.size(); }
  std::uint32_t canvas_width() const { return canvas_width_; }
  std::uint32_t canvas_height() const { return canvas_height_; }

 private:
  // The part of a patch that lies on the canvas, in canvas pixels; empty when it misses.
  struct Span {
    std::uint32_t x0 = 0, x1 = 0, y0 = 0, y1 = 0;
    bool empty() const { return x0 >= x1 || y0 >= y1; }
  };
  Span ClipToCanvas(std::uint32_t left, std::uint32_t top, std::uint32_t width,
                    std::uint32_t height) const;
  void Draw(const std::uint8_t* patch, std::uint32_t patch_width, std::uint32_t left,
            std::uint32_t top, const Span& span);
  void Clear(const Span& span);
  // Saves the span of the canvas into saved_, or puts it back from there.
  void CopyRect(const Span& span, bool save);

  std::uint32_t canvas_width_;
  std::uint32_t canvas_height_;
  std::vector<std::uint8_t> canvas_;
  // The rectangle under the last "restore to previous" patch as it was before the patch was
  // drawn, rows packed; reused between frames.
  std::vector<std::uint8_t> saved_;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_IMAGES_GIF_COMPOSITOR_H_
