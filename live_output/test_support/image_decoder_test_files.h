// A private temporary folder of image files for the image decoding tests and benchmarks. Files
// are written with the Windows Imaging Component's encoders (PNG, JPEG, GIF without metadata)
// or as given bytes. The folder and everything in it are removed on destruction.
//
// The calling thread must have COM initialised.

#ifndef KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_IMAGE_DECODER_TEST_FILES_H_
#define KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_IMAGE_DECODER_TEST_FILES_H_

#include <windows.h>

#include <wincodec.h>

#include <cstdint>
#include <string>
#include <vector>

namespace native_live_window {

class ImageDecoderTestFiles {
 public:
  ImageDecoderTestFiles();
  ~ImageDecoderTestFiles();

  ImageDecoderTestFiles(const ImageDecoderTestFiles&) = delete;
  ImageDecoderTestFiles& operator=(const ImageDecoderTestFiles&) = delete;

  // False when the folder could not be made.
  bool ok() const { return !folder_.empty(); }
  // UTF-8 path of a file in the folder (name is UTF-8).
  std::string Path(const std::string& name) const;

  bool WriteBytes(const std::string& name, const std::vector<std::uint8_t>& bytes) const;
  // width x height BGRA pixels (straight alpha), rows packed.
  bool WritePng(const std::string& name, std::uint32_t width, std::uint32_t height,
                const std::vector<std::uint8_t>& bgra) const;
  // As WritePng; alpha is ignored. quality 0..1.
  bool WriteJpeg(const std::string& name, std::uint32_t width, std::uint32_t height,
                 const std::vector<std::uint8_t>& bgra, float quality) const;
  // A GIF of full-size frames of palette indices, with no frame metadata.
  bool WriteWicGif(const std::string& name, std::uint32_t width, std::uint32_t height,
                   const std::vector<WICColor>& palette,
                   const std::vector<std::vector<std::uint8_t>>& frames) const;

  // A whole file as UTF-8 text ("" when it cannot be read).
  static std::string ReadText(const std::wstring& path);
  // Wide form of a UTF-8 path.
  static std::wstring Widen(const std::string& utf8);

  const std::wstring& folder() const { return folder_; }

 private:
  bool Encode(const std::string& name, const GUID& container, const WICPixelFormatGUID& format,
              std::uint32_t width, std::uint32_t height, std::uint32_t bytes_per_pixel,
              const std::vector<const std::vector<std::uint8_t>*>& frames,
              const std::vector<WICColor>* palette, float jpeg_quality) const;

  std::wstring folder_;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_IMAGE_DECODER_TEST_FILES_H_
