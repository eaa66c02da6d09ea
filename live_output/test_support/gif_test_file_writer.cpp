#include "live_output/test_support/gif_test_file_writer.h"

#include <algorithm>
#include <cstddef>
#include <map>

namespace native_live_window {

namespace {

constexpr std::uint8_t kTransparentIndex = 255;
constexpr int kMinimumCodeSize = 8;

void PutUint16(std::vector<std::uint8_t>* out, std::uint16_t value) {
  out->push_back(static_cast<std::uint8_t>(value & 0xFF));
  out->push_back(static_cast<std::uint8_t>(value >> 8));
}

// Packs codes least significant bit first, as GIF does.
class BitPacker {
 public:
  void Put(std::uint32_t code, int width) {
    buffer_ |= code << bits_;
    bits_ += width;
    while (bits_ >= 8) {
      bytes_.push_back(static_cast<std::uint8_t>(buffer_ & 0xFF));
      buffer_ >>= 8;
      bits_ -= 8;
    }
  }
  std::vector<std::uint8_t> Finish() {
    if (bits_ > 0) {
      bytes_.push_back(static_cast<std::uint8_t>(buffer_ & 0xFF));
    }
    return bytes_;
  }

 private:
  std::uint32_t buffer_ = 0;
  int bits_ = 0;
  std::vector<std::uint8_t> bytes_;
};

// LZW data of literal codes only: a clear code every 254 literals keeps the code width at 9.
std::vector<std::uint8_t> EncodeIndices(const std::vector<std::uint8_t>& indices) {
  const std::uint32_t clear = 1u << kMinimumCodeSize;
  const std::uint32_t end = clear + 1;
  const int width = kMinimumCodeSize + 1;
  const std::size_t run = (1u << kMinimumCodeSize) - 2;
  BitPacker packer;
  for (std::size_t i = 0; i < indices.size(); ++i) {
    if (i % run == 0) {
      packer.Put(clear, width);
    }
    packer.Put(indices[i], width);
  }
  packer.Put(end, width);
  return packer.Finish();
}

}  // namespace

GifTestFileWriter::Frame GifTestFileWriter::SolidFrame(std::uint16_t left, std::uint16_t top,
                                                       std::uint16_t width, std::uint16_t height,
                                                       std::uint32_t argb) {
  Frame frame;
  frame.left = left;
  frame.top = top;
  frame.width = width;
  frame.height = height;
  frame.argb.assign(std::size_t{width} * height, argb);
  return frame;
}

std::vector<std::uint8_t> GifTestFileWriter::Build(std::uint16_t screen_width,
                                                   std::uint16_t screen_height,
                                                   const std::vector<Frame>& frames) {
  // One global palette of every opaque colour; index 255 is the transparent one.
  std::map<std::uint32_t, std::uint8_t> palette;
  for (const Frame& frame : frames) {
    if (frame.argb.size() != std::size_t{frame.width} * frame.height) {
      return {};
    }
    for (std::uint32_t colour : frame.argb) {
      if ((colour >> 24) != 0 && palette.count(colour & 0xFFFFFFu) == 0) {
        if (palette.size() == kTransparentIndex) {
          return {};
        }
        const auto index = static_cast<std::uint8_t>(palette.size());
        palette.emplace(colour & 0xFFFFFFu, index);
      }
    }
  }

  std::vector<std::uint8_t> out = {'G', 'I', 'F', '8', '9', 'a'};
  PutUint16(&out, screen_width);
  PutUint16(&out, screen_height);
  out.push_back(0xF7);  // global colour table of 256 entries, 8 bits per primary
  out.push_back(0);     // background colour index
  out.push_back(0);     // no aspect ratio
  std::vector<std::uint8_t> table(256 * 3, 0);
  for (const auto& entry : palette) {
    table[entry.second * 3 + 0] = static_cast<std::uint8_t>(entry.first >> 16);
    table[entry.second * 3 + 1] = static_cast<std::uint8_t>(entry.first >> 8);
    table[entry.second * 3 + 2] = static_cast<std::uint8_t>(entry.first);
  }
  out.insert(out.end(), table.begin(), table.end());

  for (const Frame& frame : frames) {
    std::vector<std::uint8_t> indices;
    indices.reserve(frame.argb.size());
    bool transparent = false;
    for (std::uint32_t colour : frame.argb) {
      if ((colour >> 24) == 0) {
        indices.push_back(kTransparentIndex);
        transparent = true;
      } else {
        indices.push_back(palette[colour & 0xFFFFFFu]);
      }
    }
    if (frame.has_control) {
      out.insert(out.end(), {0x21, 0xF9, 0x04});
      out.push_back(
          static_cast<std::uint8_t>(((frame.disposal & 0x07) << 2) | (transparent ? 0x01 : 0x00)));
      PutUint16(&out, frame.delay);
      out.push_back(kTransparentIndex);
      out.push_back(0);
    }
    out.push_back(0x2C);
    PutUint16(&out, frame.left);
    PutUint16(&out, frame.top);
    PutUint16(&out, frame.width);
    PutUint16(&out, frame.height);
    out.push_back(0);  // no local colour table, not interlaced
    out.push_back(kMinimumCodeSize);
    const std::vector<std::uint8_t> data = EncodeIndices(indices);
    for (std::size_t offset = 0; offset < data.size(); offset += 255) {
      const std::size_t length = std::min<std::size_t>(255, data.size() - offset);
      out.push_back(static_cast<std::uint8_t>(length));
      out.insert(out.end(), data.begin() + static_cast<std::ptrdiff_t>(offset),
                 data.begin() + static_cast<std::ptrdiff_t>(offset + length));
    }
    out.push_back(0);
  }
  out.push_back(0x3B);
  return out;
}

}  // namespace native_live_window
