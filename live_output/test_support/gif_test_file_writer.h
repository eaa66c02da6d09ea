// Writes GIF files byte by byte for the image tests and benchmarks, with full control over what
// the decoder must honour: the logical screen size, each frame's offset, disposal, delay and
// transparency. (The GIF encoder of the Windows Imaging Component under Wine writes no frame
// metadata, so these files cannot come from it.)
//
// Colours are 0xAARRGGBB; a colour with alpha 0 is written as the transparent index of its frame.
// At most 255 distinct opaque colours per file. The pixel data is LZW-coded without compression
// (a clear code before the code size would grow), which every decoder reads.

#ifndef KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_GIF_TEST_FILE_WRITER_H_
#define KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_GIF_TEST_FILE_WRITER_H_

#include <cstdint>
#include <string>
#include <vector>

namespace native_live_window {

class GifTestFileWriter {
 public:
  struct Frame {
    std::uint16_t left = 0;
    std::uint16_t top = 0;
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    // false: the frame has no graphic control extension (no delay, disposal or transparency).
    bool has_control = true;
    std::uint8_t disposal = 0;
    // Hundredths of a second.
    std::uint16_t delay = 10;
    // width x height colours, rows top to bottom.
    std::vector<std::uint32_t> argb;
  };

  // A frame of one colour.
  static Frame SolidFrame(std::uint16_t left, std::uint16_t top, std::uint16_t width,
                          std::uint16_t height, std::uint32_t argb);

  // The bytes of a GIF89a file with the given logical screen and frames; empty when the frames
  // use more than 255 opaque colours or a frame's pixel count does not match its size.
  static std::vector<std::uint8_t> Build(std::uint16_t screen_width, std::uint16_t screen_height,
                                         const std::vector<Frame>& frames);
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_GIF_TEST_FILE_WRITER_H_
