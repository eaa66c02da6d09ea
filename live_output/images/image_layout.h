// Layout of an image on a live window: where the textured quad lies in device coordinates and
// which part of the texture it shows, for each fit mode, with or without a crop rectangle on a
// larger logical canvas; and which frame of an animated image is due at a given moment.
//
// Pure arithmetic in 32-bit floats, no platform headers, so that the rules are tested natively.

#ifndef KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_LAYOUT_H_
#define KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_LAYOUT_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "live_output/images/fit_mode.h"

namespace native_live_window {

// A region of a logical canvas in canvas units (the canvas is 1 x 1). Only the canvas's aspect
// ratio matters; a canvas side below 1 means "no crop".
struct CropRect {
  bool enabled = false;
  float x = 0, y = 0, w = 1, h = 1;
  std::int32_t canvas_width = 0, canvas_height = 0;
};

// The quad to draw: edges in device coordinates (x0 left, x1 right, y0 top, y1 bottom; x runs -1
// to +1 left to right, y +1 to -1 top to bottom) and its texture range (ul..ur left to right,
// vt..vb top to bottom, 0..1 from the top-left texel). visible=false: nothing is drawn and all
// six vertices are (0, 0, 0, 0).
struct ImageQuad {
  float x0, x1, y0, y1;
  float ul, ur, vt, vb;
  bool visible;
};

class ImageLayout {
 public:
  // Number of floats WriteVertices writes: six vertices of (x, y, u, v).
  static constexpr std::size_t kVertexFloatCount = 24;

  // The quad of an image_width x image_height image in a target_width x target_height window.
  // A zero or negative image or window size gives an invisible quad.
  static ImageQuad ComputeQuad(std::int32_t image_width, std::int32_t image_height,
                               std::int32_t target_width, std::int32_t target_height,
                               std::int32_t fit_mode, const CropRect& crop);
  // Six (x, y, u, v) vertices in draw order: two triangles, top-left, top-right, bottom-left and
  // top-right, bottom-right, bottom-left.
  static void WriteVertices(const ImageQuad& quad, float out[kVertexFloatCount]);
  // Index of the frame shown elapsed_ms after the animation started: the elapsed time (as an
  // unsigned 32-bit count) modulo total_ms falls in the first frame whose running sum of delays
  // exceeds it; the last frame when none does. 0 for an empty list or a zero total.
  static std::size_t FrameIndexAt(const std::vector<std::uint32_t>& delays_ms,
                                  std::uint32_t total_ms, std::uint64_t elapsed_ms);
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_LAYOUT_H_
