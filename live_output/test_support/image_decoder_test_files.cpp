#include "live_output/test_support/image_decoder_test_files.h"

#include <oleauto.h>
#include <wrl/client.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace native_live_window {

namespace {

using Microsoft::WRL::ComPtr;

std::string Narrow(const std::wstring& wide) {
  if (wide.empty()) {
    return std::string();
  }
  const int length = static_cast<int>(wide.size());
  const int needed =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<std::size_t>(needed > 0 ? needed : 0), '\0');
  if (needed > 0) {
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, &out[0], needed, nullptr, nullptr);
  }
  return out;
}

}  // namespace

ImageDecoderTestFiles::ImageDecoderTestFiles() {
  static std::atomic<unsigned> counter{0};
  wchar_t base[MAX_PATH + 1] = {};
  const DWORD length = GetTempPathW(MAX_PATH + 1, base);
  if (length == 0 || length > MAX_PATH) {
    return;
  }
  const std::wstring folder = std::wstring(base) + L"kestrun_images_" +
                              std::to_wstring(GetCurrentProcessId()) + L"_" +
                              std::to_wstring(counter.fetch_add(1));
  std::error_code error;
  std::filesystem::remove_all(folder, error);
  if (std::filesystem::create_directories(folder, error)) {
    folder_ = folder;
  }
}

ImageDecoderTestFiles::~ImageDecoderTestFiles() {
  if (!folder_.empty()) {
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }
}

std::wstring ImageDecoderTestFiles::Widen(const std::string& utf8) {
  if (utf8.empty()) {
    return std::wstring();
  }
  const int length = static_cast<int>(utf8.size());
  const int needed = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
  std::wstring out(static_cast<std::size_t>(needed > 0 ? needed : 0), L'\0');
  if (needed > 0) {
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, &out[0], needed);
  }
  return out;
}

std::string ImageDecoderTestFiles::Path(const std::string& name) const {
  return Narrow(folder_) + "\\" + name;
}

bool ImageDecoderTestFiles::WriteBytes(const std::string& name,
                                       const std::vector<std::uint8_t>& bytes) const {
  std::ofstream file(std::filesystem::path(Widen(Path(name))), std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(file);
}

std::string ImageDecoderTestFiles::ReadText(const std::wstring& path) {
  std::ifstream file(std::filesystem::path(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

bool ImageDecoderTestFiles::WritePng(const std::string& name, std::uint32_t width,
                                     std::uint32_t height,
                                     const std::vector<std::uint8_t>& bgra) const {
  return Encode(name, GUID_ContainerFormatPng, GUID_WICPixelFormat32bppBGRA, width, height, 4,
                {&bgra}, nullptr, 0.0f);
}

bool ImageDecoderTestFiles::WriteJpeg(const std::string& name, std::uint32_t width,
                                      std::uint32_t height, const std::vector<std::uint8_t>& bgra,
                                      float quality) const {
  // JPEG has no alpha: hand the encoder 24-bit BGR.
  std::vector<std::uint8_t> bgr;
  bgr.reserve(std::size_t{width} * height * 3);
  for (std::size_t i = 0; i + 3 < bgra.size(); i += 4) {
    bgr.insert(bgr.end(), {bgra[i], bgra[i + 1], bgra[i + 2]});
  }
  return Encode(name, GUID_ContainerFormatJpeg, GUID_WICPixelFormat24bppBGR, width, height, 3,
                {&bgr}, nullptr, quality);
}

bool ImageDecoderTestFiles::WriteWicGif(
    const std::string& name, std::uint32_t width, std::uint32_t height,
    const std::vector<WICColor>& palette,
    const std::vector<std::vector<std::uint8_t>>& frames) const {
  std::vector<const std::vector<std::uint8_t>*> pointers;
  for (const auto& frame : frames) {
    pointers.push_back(&frame);
  }
  return Encode(name, GUID_ContainerFormatGif, GUID_WICPixelFormat8bppIndexed, width, height, 1,
                pointers, &palette, 0.0f);
}

bool ImageDecoderTestFiles::Encode(const std::string& name, const GUID& container,
                                   const WICPixelFormatGUID& format, std::uint32_t width,
                                   std::uint32_t height, std::uint32_t bytes_per_pixel,
                                   const std::vector<const std::vector<std::uint8_t>*>& frames,
                                   const std::vector<WICColor>* palette, float jpeg_quality) const {
  ComPtr<IWICImagingFactory> factory;
  ComPtr<IWICStream> stream;
  ComPtr<IWICBitmapEncoder> encoder;
  const std::wstring path = Widen(Path(name));
  if (FAILED(CoCreateInstance(CLSID_WICImagingFactory2, nullptr, CLSCTX_INPROC_SERVER,
                              IID_PPV_ARGS(&factory))) ||
      FAILED(factory->CreateStream(&stream)) ||
      FAILED(stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE)) ||
      FAILED(factory->CreateEncoder(container, nullptr, &encoder)) ||
      FAILED(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache))) {
    return false;
  }
  ComPtr<IWICPalette> wic_palette;
  if (palette != nullptr) {
    if (FAILED(factory->CreatePalette(&wic_palette)) ||
        FAILED(wic_palette->InitializeCustom(const_cast<WICColor*>(palette->data()),
                                             static_cast<UINT>(palette->size())))) {
      return false;
    }
  }
  const UINT stride = width * bytes_per_pixel;
  for (const std::vector<std::uint8_t>* pixels : frames) {
    ComPtr<IWICBitmapFrameEncode> frame;
    ComPtr<IPropertyBag2> options;
    if (FAILED(encoder->CreateNewFrame(&frame, &options))) {
      return false;
    }
    if (jpeg_quality > 0.0f && options) {
      PROPBAG2 option = {};
      wchar_t option_name[] = L"ImageQuality";
      option.pstrName = option_name;
      VARIANT value;
      VariantInit(&value);
      value.vt = VT_R4;
      value.fltVal = jpeg_quality;
      options->Write(1, &option, &value);
    }
    WICPixelFormatGUID actual = format;
    if (FAILED(frame->Initialize(options.Get())) || FAILED(frame->SetSize(width, height)) ||
        FAILED(frame->SetPixelFormat(&actual)) || actual != format) {
      return false;
    }
    if (wic_palette && FAILED(frame->SetPalette(wic_palette.Get()))) {
      return false;
    }
    if (pixels->size() < std::size_t{stride} * height ||
        FAILED(frame->WritePixels(height, stride, static_cast<UINT>(pixels->size()),
                                  const_cast<BYTE*>(pixels->data()))) ||
        FAILED(frame->Commit())) {
      return false;
    }
  }
  return SUCCEEDED(encoder->Commit());
}

}  // namespace native_live_window
