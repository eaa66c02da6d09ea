#include "live_output/images/image_layout.h"

#include <algorithm>
#include <cmath>

namespace native_live_window {

namespace {

ImageQuad InvisibleQuad() { return ImageQuad{0, 0, 0, 0, 0, 0, 0, 0, false}; }

ImageQuad FullQuad() { return ImageQuad{-1.0f, 1.0f, 1.0f, -1.0f, 0.0f, 1.0f, 0.0f, 1.0f, true}; }

bool IsFinite(float value) { return std::isfinite(value); }

// The image fitted into the whole window.
ImageQuad QuadWithoutCrop(float ia, float wa, std::int32_t fit_mode) {
  ImageQuad quad = FullQuad();
  switch (static_cast<FitMode>(fit_mode)) {
    case FitMode::Contain:
      if (ia <= wa) {
        const float half = ia / wa;
        quad.x0 = -half;
        quad.x1 = half;
      } else {
        const float half = wa / ia;
        quad.y0 = half;
        quad.y1 = -half;
      }
      break;
    case FitMode::Cover:
      if (ia <= wa) {
        const float cut = (1.0f - ia / wa) / 2.0f;
        quad.vt = cut;
        quad.vb = 1.0f - cut;
      } else {
        const float cut = (1.0f - wa / ia) / 2.0f;
        quad.ul = cut;
        quad.ur = 1.0f - cut;
      }
      break;
    case FitMode::Stretch:
    default:
      break;
  }
  return quad;
}

// The image fitted onto the unit canvas, then the crop rectangle of the canvas stretched over the
// whole window.
ImageQuad QuadWithCrop(float ia, const CropRect& crop, std::int32_t fit_mode) {
  if (!IsFinite(crop.x) || !IsFinite(crop.y) || !IsFinite(crop.w) || !IsFinite(crop.h)) {
    return InvisibleQuad();
  }
  const float ca = static_cast<float>(crop.canvas_width) / static_cast<float>(crop.canvas_height);

  // 1. The image on the canvas.
  float px = 0.0f, py = 0.0f, pw = 1.0f, ph = 1.0f;
  float ul = 0.0f, ur = 1.0f, vt = 0.0f, vb = 1.0f;
  switch (static_cast<FitMode>(fit_mode)) {
    case FitMode::Contain:
      if (ca < ia) {
        ph = ca / ia;
        py = (1.0f - ca / ia) / 2.0f;
      } else {
        pw = ia / ca;
        px = (1.0f - ia / ca) / 2.0f;
      }
      break;
    case FitMode::Cover:
      if (ia <= ca) {
        vt = (1.0f - ia / ca) / 2.0f;
        vb = 1.0f - vt;
      } else {
        ul = (1.0f - ca / ia) / 2.0f;
        ur = 1.0f - ul;
      }
      break;
    case FitMode::Stretch:
    default:
      break;
  }

  // 2. The part of it inside the crop rectangle. A zero or negative crop size leaves nothing.
  const float ix0 = std::max(px, crop.x);
  const float ix1 = std::min(px + pw, crop.x + crop.w);
  const float iy0 = std::max(py, crop.y);
  const float iy1 = std::min(py + ph, crop.y + crop.h);
  if (ix0 >= ix1 || iy0 >= iy1) {
    return InvisibleQuad();
  }

  // 3. The crop rectangle fills the window.
  ImageQuad quad;
  quad.visible = true;
  quad.x0 = 2.0f * (ix0 - crop.x) / crop.w - 1.0f;
  quad.x1 = quad.x0 + 2.0f * (ix1 - ix0) / crop.w;
  quad.y0 = 1.0f - 2.0f * (iy0 - crop.y) / crop.h;
  quad.y1 = quad.y0 - 2.0f * (iy1 - iy0) / crop.h;

  // 4. The texture range of the visible part.
  quad.ul = ul + (ix0 - px) / pw * (ur - ul);
  quad.ur = ul + (ix1 - px) / pw * (ur - ul);
  quad.vt = vt + (iy0 - py) / ph * (vb - vt);
  quad.vb = vt + (iy1 - py) / ph * (vb - vt);
  return quad;
}

}  // namespace

ImageQuad ImageLayout::ComputeQuad(std::int32_t image_width, std::int32_t image_height,
                                   std::int32_t target_width, std::int32_t target_height,
                                   std::int32_t fit_mode, const CropRect& crop) {
  if (image_width < 1 || image_height < 1 || target_width < 1 || target_height < 1) {
    return InvisibleQuad();
  }
  const float ia = static_cast<float>(image_width) / static_cast<float>(image_height);
  if (crop.enabled && crop.canvas_width >= 1 && crop.canvas_height >= 1) {
    return QuadWithCrop(ia, crop, fit_mode);
  }
  const float wa = static_cast<float>(target_width) / static_cast<float>(target_height);
  return QuadWithoutCrop(ia, wa, fit_mode);
}

void ImageLayout::WriteVertices(const ImageQuad& quad, float out[kVertexFloatCount]) {
  if (!quad.visible) {
    std::fill(out, out + kVertexFloatCount, 0.0f);
    return;
  }
  const float vertices[kVertexFloatCount] = {
      quad.x0, quad.y0, quad.ul, quad.vt,  // top left
      quad.x1, quad.y0, quad.ur, quad.vt,  // top right
      quad.x0, quad.y1, quad.ul, quad.vb,  // bottom left
      quad.x1, quad.y0, quad.ur, quad.vt,  // top right
      quad.x1, quad.y1, quad.ur, quad.vb,  // bottom right
      quad.x0, quad.y1, quad.ul, quad.vb,  // bottom left
  };
  std::copy(vertices, vertices + kVertexFloatCount, out);
}

std::size_t ImageLayout::FrameIndexAt(const std::vector<std::uint32_t>& delays_ms,
                                      std::uint32_t total_ms, std::uint64_t elapsed_ms) {
  if (delays_ms.empty() || total_ms == 0) {
    return 0;
  }
  // The elapsed count wraps at 32 bits (about 49.7 days) before it is folded into the cycle.
  const std::uint32_t t = static_cast<std::uint32_t>(elapsed_ms) % total_ms;
  std::uint64_t running = 0;
  for (std::size_t i = 0; i < delays_ms.size(); ++i) {
    running += delays_ms[i];
    if (t < running) {
      return i;
    }
  }
  return delays_ms.size() - 1;
}

}  // namespace native_live_window
