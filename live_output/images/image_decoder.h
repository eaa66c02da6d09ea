// Decoding of image files into BGRA pixels through the Windows Imaging Component.
//
// Two decoders side by side, each keeping its last result keyed by the path so that showing the
// same file again (on the same or another display) costs nothing:
//   DecodeAnimatedGif accepts only GIF files of two or more frames and composes every frame on
//     the logical screen (GifCompositor). Over-budget animations are refused with one warning
//     under "GIF"; the caller then shows the first frame through DecodeImage.
//   DecodeImage takes the first frame of any format WIC reads (for a GIF, frame 0 as stored).
//
// Paths are UTF-8. Runs on the platform thread, whose COM apartment is already initialised; the
// records are touched only there. A failed decode leaves its record empty, so the next request
// for the same path decodes again. Nothing throws to the caller.

#ifndef KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_DECODER_H_
#define KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_DECODER_H_

#include <windows.h>

#include <wincodec.h>
#include <wrl/client.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "live_output/images/image_decoder_records.h"

namespace native_live_window {

class Logger;

class ImageDecoder {
 public:
  // Reports to the process-wide logger.
  ImageDecoder();
  // Reports to `logger`, which must outlive the decoder.
  explicit ImageDecoder(Logger& logger);
  ~ImageDecoder() = default;

  ImageDecoder(const ImageDecoder&) = delete;
  ImageDecoder& operator=(const ImageDecoder&) = delete;

  // True when animated_image() now holds an animation of path with at least two frames; false
  // for anything else (not a GIF, one frame, over budget, any read failure), silently except for
  // the budget warning.
  bool DecodeAnimatedGif(const std::string& path);
  // True when decoded_image() now holds the first frame of path.
  bool DecodeImage(const std::string& path);

  const DecodedImage& decoded_image() const { return decoded_; }
  const AnimatedImage& animated_image() const { return animated_; }

  // Every WIC decoder opened from now on is handed to wrap, and the file is read through what it
  // returns. Lets tests fail a step that no file they can write makes WIC fail (a later frame
  // that cannot be read).
  using DecoderWrapper =
      std::function<Microsoft::WRL::ComPtr<IWICBitmapDecoder>(IWICBitmapDecoder* opened)>;
  void SetDecoderWrapperForTesting(DecoderWrapper wrap) { wrap_decoder_ = std::move(wrap); }

  // How many times each decoder opened a file; cache hits do not count.
  std::uint64_t static_decode_count() const { return static_decode_count_; }
  std::uint64_t animated_decode_count() const { return animated_decode_count_; }

 private:
  // Opens path with a WIC decoder (creating the factory on first use).
  bool OpenDecoder(const std::string& path, Microsoft::WRL::ComPtr<IWICBitmapDecoder>* decoder);
  // Converts source to 32-bit BGRA into *pixels (width x height x 4 bytes, reusing its storage).
  bool CopyBgra(IWICBitmapSource* source, UINT width, UINT height,
                std::vector<std::uint8_t>* pixels);
  bool DecodeAnimatedFrames(IWICBitmapDecoder* decoder, UINT frame_count, UINT canvas_width,
                            UINT canvas_height, AnimatedImage::FrameList* frames,
                            std::vector<std::uint32_t>* delays_ms);

  Logger& logger_;
  Microsoft::WRL::ComPtr<IWICImagingFactory> factory_;
  DecoderWrapper wrap_decoder_;
  DecodedImage decoded_;
  AnimatedImage animated_;
  std::uint64_t static_decode_count_ = 0;
  std::uint64_t animated_decode_count_ = 0;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_IMAGES_IMAGE_DECODER_H_
