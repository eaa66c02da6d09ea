// The pixel records that image decoding hands to image presentation: 32-bit BGRA, straight
// (not premultiplied) alpha, rows top to bottom without padding (stride = width x 4).

#ifndef KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_DECODER_RECORDS_H_
#define KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_DECODER_RECORDS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace native_live_window {

// The first frame of an image. Invalid (empty path and pixels, size 0 x 0) after a failed
// decode.
struct DecodedImage {
  // The path exactly as requested (UTF-8); the cache key.
  std::string path;
  // width x height x 4 bytes.
  std::vector<std::uint8_t> pixels;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

// Every frame of an animated GIF, each fully composed on the logical screen.
struct AnimatedImage {
  using FrameList = std::vector<std::vector<std::uint8_t>>;

  // The path exactly as requested (UTF-8); the cache key.
  std::string path;
  // Each frame canvas_width x canvas_height x 4 bytes. Shared with the windows that show it, so
  // they keep the frames when the decoder moves on to another file.
  std::shared_ptr<const FrameList> frames;
  // Display time of each frame in milliseconds, same order as frames.
  std::vector<std::uint32_t> delays_ms;
  std::uint32_t canvas_width = 0;
  std::uint32_t canvas_height = 0;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_DECODER_RECORDS_H_
