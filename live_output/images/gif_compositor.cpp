#include "live_output/images/gif_compositor.h"

#include <algorithm>
#include <cstring>

// The row blend uses SSE2 where the target has it (every x86-64 processor does).
#if defined(__SSE2__) || defined(_M_X64) || (defined(_M_IX86_FP) && _M_IX86_FP >= 2)
#define KESTRUN_GIF_COMPOSITOR_SSE2 1
#include <emmintrin.h>
#endif

namespace native_live_window {

namespace {

// Draws `count` BGRA pixels of `source` over `target`: pixels with alpha 0 leave the target,
// every other pixel is written with alpha 255.
void DrawRow(const std::uint8_t* source, std::uint8_t* target, std::size_t count) {
  std::size_t i = 0;
#if defined(KESTRUN_GIF_COMPOSITOR_SSE2)
  const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
  const __m128i zero = _mm_setzero_si128();
  for (; i + 4 <= count; i += 4) {
    const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + i * 4));
    const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(target + i * 4));
    const __m128i transparent = _mm_cmpeq_epi32(_mm_and_si128(s, alpha), zero);
    const __m128i drawn = _mm_or_si128(_mm_and_si128(transparent, d),
                                       _mm_andnot_si128(transparent, _mm_or_si128(s, alpha)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i * 4), drawn);
  }
#endif
  for (; i < count; ++i) {
    const std::uint8_t* p = source + i * 4;
    if (p[3] != 0) {
      std::uint8_t* q = target + i * 4;
      q[0] = p[0];
      q[1] = p[1];
      q[2] = p[2];
      q[3] = 255;
    }
  }
}

}  // namespace

GifCompositor::GifCompositor(std::uint32_t canvas_width, std::uint32_t canvas_height)
    : canvas_width_(canvas_width),
      canvas_height_(canvas_height),
      canvas_(static_cast<std::size_t>(canvas_width) * canvas_height * 4, 0) {}

std::uint32_t GifCompositor::FrameDelayMs(bool has_field, std::uint16_t field) {
  if (!has_field) {
    return kDefaultDelayMs;
  }
  const std::uint32_t delay = static_cast<std::uint32_t>(field) * kDelayUnitMs;
  return delay < kMinimumDelayMs ? kDefaultDelayMs : delay;
}

bool GifCompositor::FitsBudget(std::uint32_t canvas_width, std::uint32_t canvas_height,
                               std::uint32_t frame_count) {
  const std::uint64_t frame_bytes = static_cast<std::uint64_t>(canvas_width) * canvas_height * 4;
  if (frame_bytes == 0) {
    return false;
  }
  return frame_count <= kAnimationBudgetBytes / frame_bytes;
}

GifCompositor::Span GifCompositor::ClipToCanvas(std::uint32_t left, std::uint32_t top,
                                                std::uint32_t width, std::uint32_t height) const {
  Span span;
  span.x0 = std::min(left, canvas_width_);
  span.y0 = std::min(top, canvas_height_);
  span.x1 = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(std::uint64_t{left} + width, canvas_width_));
  span.y1 = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(std::uint64_t{top} + height, canvas_height_));
  return span;
}

bool GifCompositor::AddFrame(const std::uint8_t* patch, std::size_t patch_bytes,
                             std::uint32_t patch_width, std::uint32_t patch_height,
                             std::uint32_t left, std::uint32_t top, std::uint8_t disposal,
                             std::vector<std::uint8_t>* composed) {
  const std::uint64_t needed = std::uint64_t{patch_width} * patch_height * 4;
  if (patch_bytes < needed || (needed != 0 && patch == nullptr) || composed == nullptr) {
    return false;
  }
  const Span span = ClipToCanvas(left, top, patch_width, patch_height);
  // Drawing changes only the patch's rectangle, so that is all "restore to previous" keeps.
  const bool restore_previous = disposal == kDisposeRestorePrevious && !span.empty();
  if (restore_previous) {
    CopyRect(span, /*save=*/true);
  }
  if (!span.empty()) {
    Draw(patch, patch_width, left, top, span);
  }
  composed->assign(canvas_.begin(), canvas_.end());

  if (disposal == kDisposeRestoreBackground && !span.empty()) {
    Clear(span);
  } else if (restore_previous) {
    CopyRect(span, /*save=*/false);
  }
  return true;
}

void GifCompositor::Draw(const std::uint8_t* patch, std::uint32_t patch_width, std::uint32_t left,
                         std::uint32_t top, const Span& span) {
  const std::size_t canvas_stride = static_cast<std::size_t>(canvas_width_) * 4;
  const std::size_t patch_stride = static_cast<std::size_t>(patch_width) * 4;
  for (std::uint32_t y = span.y0; y < span.y1; ++y) {
    const std::uint8_t* source = patch + static_cast<std::size_t>(y - top) * patch_stride +
                                 static_cast<std::size_t>(span.x0 - left) * 4;
    std::uint8_t* target = canvas_.data() + y * canvas_stride + std::size_t{span.x0} * 4;
    DrawRow(source, target, span.x1 - span.x0);
  }
}

void GifCompositor::CopyRect(const Span& span, bool save) {
  const std::size_t canvas_stride = static_cast<std::size_t>(canvas_width_) * 4;
  const std::size_t row_bytes = static_cast<std::size_t>(span.x1 - span.x0) * 4;
  if (save) {
    saved_.resize(row_bytes * (span.y1 - span.y0));
  }
  std::uint8_t* kept = saved_.data();
  for (std::uint32_t y = span.y0; y < span.y1; ++y, kept += row_bytes) {
    std::uint8_t* row = canvas_.data() + y * canvas_stride + std::size_t{span.x0} * 4;
    if (save) {
      std::memcpy(kept, row, row_bytes);
    } else {
      std::memcpy(row, kept, row_bytes);
    }
  }
}

void GifCompositor::Clear(const Span& span) {
  const std::size_t canvas_stride = static_cast<std::size_t>(canvas_width_) * 4;
  const std::size_t row_bytes = static_cast<std::size_t>(span.x1 - span.x0) * 4;
  for (std::uint32_t y = span.y0; y < span.y1; ++y) {
    std::memset(canvas_.data() + y * canvas_stride + std::size_t{span.x0} * 4, 0, row_bytes);
  }
}

}  // namespace native_live_window
