#include "live_output/images/image_decoder.h"

#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "live_output/images/gif_compositor.h"
#include "live_output/log/logger.h"

namespace native_live_window {

namespace {

using Microsoft::WRL::ComPtr;

// A PROPVARIANT that is cleared when it goes out of scope.
class ScopedPropVariant {
 public:
  ScopedPropVariant() { PropVariantInit(&value_); }
  ~ScopedPropVariant() { PropVariantClear(&value_); }
  ScopedPropVariant(const ScopedPropVariant&) = delete;
  ScopedPropVariant& operator=(const ScopedPropVariant&) = delete;
  PROPVARIANT* get() { return &value_; }
  const PROPVARIANT& value() const { return value_; }

 private:
  PROPVARIANT value_;
};

// Debugger line for a failed step of a decode.
void ReportFailure(const char* step, HRESULT hr) {
  wchar_t text[256];
  std::swprintf(text, sizeof(text) / sizeof(text[0]),
                L"Kestrun: Image decode failed: %hs hr=0x%08X\n", step, static_cast<unsigned>(hr));
  OutputDebugStringW(text);
}

bool Utf8ToWide(const std::string& utf8, std::wstring* wide) {
  if (utf8.empty() || utf8.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) ||
      utf8.find('\0') != std::string::npos) {
    return false;
  }
  const int length = static_cast<int>(utf8.size());
  const int needed = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
  if (needed <= 0) {
    return false;
  }
  wide->assign(static_cast<std::size_t>(needed), L'\0');
  return MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, &(*wide)[0], needed) == needed;
}

// A 16-bit unsigned metadata value, when the reader has it as one.
bool ReadUint16(IWICMetadataQueryReader* reader, const wchar_t* name, std::uint16_t* value) {
  if (reader == nullptr) {
    return false;
  }
  ScopedPropVariant variant;
  if (FAILED(reader->GetMetadataByName(name, variant.get())) || variant.value().vt != VT_UI2) {
    return false;
  }
  *value = variant.value().uiVal;
  return true;
}

bool ReadUint8(IWICMetadataQueryReader* reader, const wchar_t* name, std::uint8_t* value) {
  if (reader == nullptr) {
    return false;
  }
  ScopedPropVariant variant;
  if (FAILED(reader->GetMetadataByName(name, variant.get())) || variant.value().vt != VT_UI1) {
    return false;
  }
  *value = variant.value().bVal;
  return true;
}

}  // namespace

ImageDecoder::ImageDecoder() : ImageDecoder(Logger::Instance()) {}

ImageDecoder::ImageDecoder(Logger& logger) : logger_(logger) {}

bool ImageDecoder::OpenDecoder(const std::string& path, ComPtr<IWICBitmapDecoder>* decoder) {
  std::wstring wide_path;
  if (!Utf8ToWide(path, &wide_path)) {
    ReportFailure("path is not valid UTF-8", E_INVALIDARG);
    return false;
  }
  if (!factory_) {
    const HRESULT hr = CoCreateInstance(CLSID_WICImagingFactory2, nullptr, CLSCTX_INPROC_SERVER,
                                        IID_PPV_ARGS(&factory_));
    if (FAILED(hr)) {
      factory_.Reset();
      ReportFailure("CoCreateInstance(WICImagingFactory)", hr);
      return false;
    }
  }
  const HRESULT hr = factory_->CreateDecoderFromFilename(wide_path.c_str(), nullptr, GENERIC_READ,
                                                         WICDecodeMetadataCacheOnDemand,
                                                         decoder->ReleaseAndGetAddressOf());
  if (FAILED(hr)) {
    ReportFailure("CreateDecoderFromFilename", hr);
    return false;
  }
  if (wrap_decoder_) {
    *decoder = wrap_decoder_(decoder->Get());
  }
  return decoder->Get() != nullptr;
}

bool ImageDecoder::CopyBgra(IWICBitmapSource* source, UINT width, UINT height,
                            std::vector<std::uint8_t>* pixels) {
  const std::uint64_t stride = std::uint64_t{width} * 4;
  const std::uint64_t bytes = stride * height;
  if (bytes > std::numeric_limits<UINT>::max()) {
    ReportFailure("image too large", E_OUTOFMEMORY);
    return false;
  }
  ComPtr<IWICFormatConverter> converter;
  HRESULT hr = factory_->CreateFormatConverter(&converter);
  if (SUCCEEDED(hr)) {
    hr = converter->Initialize(source, GUID_WICPixelFormat32bppBGRA, WICBitmapDitherTypeNone,
                               nullptr, 0.0, WICBitmapPaletteTypeCustom);
  }
  if (FAILED(hr)) {
    ReportFailure("format conversion to BGRA", hr);
    return false;
  }
  try {
    pixels->resize(static_cast<std::size_t>(bytes));
  } catch (const std::bad_alloc&) {
    ReportFailure("pixel buffer allocation", E_OUTOFMEMORY);
    return false;
  }
  hr = converter->CopyPixels(nullptr, static_cast<UINT>(stride), static_cast<UINT>(bytes),
                             pixels->data());
  if (FAILED(hr)) {
    ReportFailure("CopyPixels", hr);
    return false;
  }
  return true;
}

bool ImageDecoder::DecodeImage(const std::string& path) {
  if (!decoded_.path.empty() && path == decoded_.path && !decoded_.pixels.empty()) {
    return true;
  }
  // The previous picture's buffer is kept for this one: the pictures of a show are mostly of one
  // size, and fresh memory costs a page fault every 4 KB on first touch.
  std::vector<std::uint8_t> pixels = std::move(decoded_.pixels);
  decoded_ = DecodedImage();
  ++static_decode_count_;

  ComPtr<IWICBitmapDecoder> decoder;
  if (!OpenDecoder(path, &decoder)) {
    return false;
  }
  ComPtr<IWICBitmapFrameDecode> frame;
  HRESULT hr = decoder->GetFrame(0, &frame);
  UINT width = 0;
  UINT height = 0;
  if (SUCCEEDED(hr)) {
    hr = frame->GetSize(&width, &height);
  }
  if (FAILED(hr) || width == 0 || height == 0) {
    ReportFailure("first frame", hr);
    return false;
  }
  // A buffer far larger than this picture is given back rather than kept.
  if (pixels.capacity() / 2 > std::uint64_t{width} * height * 4) {
    std::vector<std::uint8_t>().swap(pixels);
  }
  if (!CopyBgra(frame.Get(), width, height, &pixels)) {
    return false;
  }
  decoded_.path = path;
  decoded_.pixels = std::move(pixels);
  decoded_.width = width;
  decoded_.height = height;
  return true;
}

bool ImageDecoder::DecodeAnimatedGif(const std::string& path) {
  if (!animated_.path.empty() && path == animated_.path && animated_.frames &&
      animated_.frames->size() > 1) {
    return true;
  }
  animated_ = AnimatedImage();
  ++animated_decode_count_;

  ComPtr<IWICBitmapDecoder> decoder;
  if (!OpenDecoder(path, &decoder)) {
    return false;
  }
  GUID container = {};
  UINT frame_count = 0;
  if (FAILED(decoder->GetContainerFormat(&container)) || container != GUID_ContainerFormatGif ||
      FAILED(decoder->GetFrameCount(&frame_count)) || frame_count <= 1) {
    return false;
  }

  // The logical screen, or frame 0's size where the screen descriptor gives none.
  std::uint16_t screen_width = 0;
  std::uint16_t screen_height = 0;
  ComPtr<IWICMetadataQueryReader> screen_reader;
  if (SUCCEEDED(decoder->GetMetadataQueryReader(&screen_reader))) {
    ReadUint16(screen_reader.Get(), L"/logscrdesc/Width", &screen_width);
    ReadUint16(screen_reader.Get(), L"/logscrdesc/Height", &screen_height);
  }
  UINT canvas_width = screen_width;
  UINT canvas_height = screen_height;
  if (canvas_width == 0 || canvas_height == 0) {
    ComPtr<IWICBitmapFrameDecode> first;
    if (FAILED(decoder->GetFrame(0, &first)) ||
        FAILED(first->GetSize(&canvas_width, &canvas_height))) {
      return false;
    }
  }
  if (canvas_width == 0 || canvas_height == 0) {
    return false;
  }

  if (!GifCompositor::FitsBudget(canvas_width, canvas_height, frame_count)) {
    logger_.Warning(
        "GIF", "Animated GIF exceeds %zu MB budget (%ux%u x %u frames); using static frame",
        GifCompositor::kAnimationBudgetMegabytes, canvas_width, canvas_height, frame_count);
    return false;
  }

  auto frames = std::make_shared<AnimatedImage::FrameList>();
  std::vector<std::uint32_t> delays_ms;
  bool decoded = false;
  try {
    decoded = DecodeAnimatedFrames(decoder.Get(), frame_count, canvas_width, canvas_height,
                                   frames.get(), &delays_ms);
  } catch (const std::bad_alloc&) {
    ReportFailure("animation frame allocation", E_OUTOFMEMORY);
    decoded = false;
  }
  if (!decoded || frames->size() <= 1) {
    return false;
  }
  animated_.path = path;
  animated_.frames = std::move(frames);
  animated_.delays_ms = std::move(delays_ms);
  animated_.canvas_width = canvas_width;
  animated_.canvas_height = canvas_height;
  return true;
}

bool ImageDecoder::DecodeAnimatedFrames(IWICBitmapDecoder* decoder, UINT frame_count,
                                        UINT canvas_width, UINT canvas_height,
                                        AnimatedImage::FrameList* frames,
                                        std::vector<std::uint32_t>* delays_ms) {
  GifCompositor compositor(canvas_width, canvas_height);
  frames->reserve(frame_count);
  delays_ms->reserve(frame_count);
  std::vector<std::uint8_t> patch;
  for (UINT index = 0; index < frame_count; ++index) {
    ComPtr<IWICBitmapFrameDecode> frame;
    UINT width = 0;
    UINT height = 0;
    HRESULT hr = decoder->GetFrame(index, &frame);
    if (SUCCEEDED(hr)) {
      hr = frame->GetSize(&width, &height);
    }
    if (FAILED(hr)) {
      ReportFailure("GIF frame", hr);
      return false;
    }

    std::uint16_t left = 0;
    std::uint16_t top = 0;
    std::uint8_t disposal = 0;
    std::uint16_t delay_field = 0;
    bool has_delay = false;
    ComPtr<IWICMetadataQueryReader> reader;
    if (SUCCEEDED(frame->GetMetadataQueryReader(&reader))) {
      ReadUint16(reader.Get(), L"/imgdesc/Left", &left);
      ReadUint16(reader.Get(), L"/imgdesc/Top", &top);
      ReadUint8(reader.Get(), L"/grctlext/Disposal", &disposal);
      has_delay = ReadUint16(reader.Get(), L"/grctlext/Delay", &delay_field);
    }

    if (!CopyBgra(frame.Get(), width, height, &patch)) {
      return false;
    }
    std::vector<std::uint8_t> composed;
    if (!compositor.AddFrame(patch.data(), patch.size(), width, height, left, top, disposal,
                             &composed)) {
      return false;
    }
    frames->push_back(std::move(composed));
    delays_ms->push_back(GifCompositor::FrameDelayMs(has_delay, delay_field));
  }
  return true;
}

}  // namespace native_live_window
