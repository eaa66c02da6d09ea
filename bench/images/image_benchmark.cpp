// What the host adds to the platform's image decoding.
//
//   image_benchmark [repetitions]     (default 7; medians are reported)
//
// 1. Still image: ImageDecoder::DecodeImage plus the live window's texture upload
//    (ImagePipeline::Upload, flushed and waited for) against bare WIC decoding of the same file
//    (decoder, frame 0, BGRA conversion, CopyPixels). Goal: the host adds under 20 %.
// 2. Animated GIF: per frame, the time WIC takes to hand over a frame (frame, metadata,
//    conversion, CopyPixels) against the time GifCompositor takes to compose it (draw, dispose,
//    copy the canvas out). Goal: composition under 10 % of decoding. Keeping every composed
//    frame needs fresh memory of canvas size per frame, whose first touch is timed apart. Two
//    files: full frames written by the WIC encoder, and patches with offsets, transparency and
//    disposal written byte by byte.
// 3. Reload: DecodeImage / DecodeAnimatedGif again on the cached path.
// Every decode alternates between two copies of the file so that the decoder's cache never hits
// where a real decode is meant.

#include <windows.h>

#include <d3d11.h>
#include <wincodec.h>
#include <wrl/client.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "live_output/images/gif_compositor.h"
#include "live_output/test_support/gif_test_file_writer.h"
#include "live_output/images/image_decoder.h"
#include "live_output/test_support/image_decoder_test_files.h"
#include "live_output/images/image_pipeline.h"
#include "live_output/log/logger.h"

namespace {

using Microsoft::WRL::ComPtr;
using native_live_window::GifCompositor;
using native_live_window::GifTestFileWriter;
using native_live_window::ImageDecoder;
using native_live_window::ImageDecoderTestFiles;
using native_live_window::ImagePipeline;
using Clock = std::chrono::steady_clock;

double MsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0.0 : values[values.size() / 2];
}

// A photograph-like picture: smooth gradients with a little deterministic noise.
std::vector<std::uint8_t> PhotoLike(std::uint32_t width, std::uint32_t height) {
  std::vector<std::uint8_t> bgra(std::size_t{width} * height * 4);
  std::uint32_t noise = 12345;
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      noise = noise * 1664525u + 1013904223u;
      const int n = static_cast<int>((noise >> 24) & 15) - 8;
      std::uint8_t* p = bgra.data() + (std::size_t{y} * width + x) * 4;
      p[0] = static_cast<std::uint8_t>(std::clamp(static_cast<int>(x * 255 / width) + n, 0, 255));
      p[1] = static_cast<std::uint8_t>(std::clamp(static_cast<int>(y * 255 / height) + n, 0, 255));
      p[2] = static_cast<std::uint8_t>(
          std::clamp(static_cast<int>((x + y) * 255 / (width + height)) + n, 0, 255));
      p[3] = 255;
    }
  }
  return bgra;
}

struct Wic {
  ComPtr<IWICImagingFactory> factory;

  bool Open(const std::wstring& path, ComPtr<IWICBitmapDecoder>* decoder) const {
    return SUCCEEDED(factory->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                                        WICDecodeMetadataCacheOnDemand,
                                                        decoder->ReleaseAndGetAddressOf()));
  }
  bool CopyBgra(IWICBitmapSource* source, UINT width, UINT height,
                std::vector<std::uint8_t>* pixels) const {
    ComPtr<IWICFormatConverter> converter;
    if (FAILED(factory->CreateFormatConverter(&converter)) ||
        FAILED(converter->Initialize(source, GUID_WICPixelFormat32bppBGRA, WICBitmapDitherTypeNone,
                                     nullptr, 0.0, WICBitmapPaletteTypeCustom))) {
      return false;
    }
    pixels->resize(std::size_t{width} * height * 4);
    return SUCCEEDED(converter->CopyPixels(nullptr, width * 4, static_cast<UINT>(pixels->size()),
                                           pixels->data()));
  }
  // Bare decode of frame 0, as the platform offers it.
  bool DecodeFirstFrame(const std::wstring& path, std::vector<std::uint8_t>* pixels) const {
    ComPtr<IWICBitmapDecoder> decoder;
    ComPtr<IWICBitmapFrameDecode> frame;
    UINT width = 0;
    UINT height = 0;
    return Open(path, &decoder) && SUCCEEDED(decoder->GetFrame(0, &frame)) &&
           SUCCEEDED(frame->GetSize(&width, &height)) &&
           CopyBgra(frame.Get(), width, height, pixels);
  }
};

bool ReadUint16(IWICMetadataQueryReader* reader, const wchar_t* name, std::uint16_t* value) {
  PROPVARIANT variant;
  PropVariantInit(&variant);
  const bool ok = SUCCEEDED(reader->GetMetadataByName(name, &variant)) && variant.vt == VT_UI2;
  if (ok) *value = variant.uiVal;
  PropVariantClear(&variant);
  return ok;
}

struct GifSplit {
  double wic_ms = 0;
  // Drawing, disposal and the copy of the canvas into memory already in use.
  double compose_ms = 0;
  // Of compose_ms, what copying the canvas out alone costs (every kept frame needs that pass).
  double copy_ms = 0;
  // Keeping each composed frame: a fresh canvas-sized buffer per frame, filled.
  double store_ms = 0;
  std::size_t frames = 0;
};

// One pass over an animated GIF, timing WIC's part and the composition's part of every frame
// separately (the same steps ImageDecoder::DecodeAnimatedGif takes).
bool SplitGifDecode(const Wic& wic, const std::wstring& path, GifSplit* split) {
  const auto open_start = Clock::now();
  ComPtr<IWICBitmapDecoder> decoder;
  UINT count = 0;
  ComPtr<IWICMetadataQueryReader> screen;
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  if (!wic.Open(path, &decoder) || FAILED(decoder->GetFrameCount(&count)) ||
      FAILED(decoder->GetMetadataQueryReader(&screen)) ||
      !ReadUint16(screen.Get(), L"/logscrdesc/Width", &width) ||
      !ReadUint16(screen.Get(), L"/logscrdesc/Height", &height)) {
    return false;
  }
  split->wic_ms += MsSince(open_start);

  GifCompositor compositor(width, height);
  std::vector<std::vector<std::uint8_t>> frames;
  frames.reserve(count);
  std::vector<std::uint8_t> patch;
  // One composed frame, reused, so that composition is timed apart from fresh memory.
  std::vector<std::uint8_t> composed(compositor.canvas_bytes());
  std::vector<std::uint8_t> copy_target(compositor.canvas_bytes());
  for (UINT i = 0; i < count; ++i) {
    const auto wic_start = Clock::now();
    ComPtr<IWICBitmapFrameDecode> frame;
    ComPtr<IWICMetadataQueryReader> reader;
    UINT frame_width = 0;
    UINT frame_height = 0;
    std::uint16_t left = 0;
    std::uint16_t top = 0;
    if (FAILED(decoder->GetFrame(i, &frame)) ||
        FAILED(frame->GetSize(&frame_width, &frame_height)) ||
        FAILED(frame->GetMetadataQueryReader(&reader))) {
      return false;
    }
    ReadUint16(reader.Get(), L"/imgdesc/Left", &left);
    ReadUint16(reader.Get(), L"/imgdesc/Top", &top);
    std::uint8_t disposal = 0;
    PROPVARIANT variant;
    PropVariantInit(&variant);
    if (SUCCEEDED(reader->GetMetadataByName(L"/grctlext/Disposal", &variant)) &&
        variant.vt == VT_UI1) {
      disposal = variant.bVal;
    }
    PropVariantClear(&variant);
    std::uint16_t delay = 0;
    ReadUint16(reader.Get(), L"/grctlext/Delay", &delay);
    if (!wic.CopyBgra(frame.Get(), frame_width, frame_height, &patch)) {
      return false;
    }
    split->wic_ms += MsSince(wic_start);

    const auto compose_start = Clock::now();
    if (!compositor.AddFrame(patch.data(), patch.size(), frame_width, frame_height, left, top,
                             disposal, &composed)) {
      return false;
    }
    split->compose_ms += MsSince(compose_start);
    const auto copy_start = Clock::now();
    std::copy(compositor.canvas().begin(), compositor.canvas().end(), copy_target.begin());
    split->copy_ms += MsSince(copy_start);
    const auto store_start = Clock::now();
    frames.emplace_back(composed.begin(), composed.end());
    split->store_ms += MsSince(store_start);
  }
  split->frames = count;
  return true;
}

// Texture upload through the live window's own code, waited for on the GPU.
struct Gpu {
  ComPtr<ID3D11Device> device;
  ComPtr<ID3D11DeviceContext> context;
  ComPtr<ID3D11Query> query;

  bool Create() {
    D3D11_QUERY_DESC desc = {D3D11_QUERY_EVENT, 0};
    return SUCCEEDED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                                       D3D11_SDK_VERSION, &device, nullptr, &context)) &&
           SUCCEEDED(device->CreateQuery(&desc, &query));
  }
  bool Upload(ImagePipeline* pipeline, const std::vector<std::uint8_t>& pixels, std::uint32_t width,
              std::uint32_t height) {
    if (!pipeline->Upload(device.Get(), pixels.data(), static_cast<std::int32_t>(width),
                          static_cast<std::int32_t>(height), 0)) {
      return false;
    }
    context->End(query.Get());
    context->Flush();
    BOOL done = FALSE;
    while (context->GetData(query.Get(), &done, sizeof(done), 0) != S_OK || !done) {
      SwitchToThread();
    }
    return true;
  }
};

void Report(const char* name, double host_ms, double base_ms, double goal_percent) {
  const double added = base_ms > 0 ? (host_ms - base_ms) / base_ms * 100.0 : 0.0;
  std::printf("  %-44s host %9.2f ms   WIC %9.2f ms   added %6.1f %%   goal < %.0f %%  %s\n", name,
              host_ms, base_ms, added, goal_percent, added < goal_percent ? "met" : "NOT MET");
}

bool StillImage(const Wic& wic, Gpu* gpu, ImageDecoderTestFiles* files, const char* label,
                const std::string& a, const std::string& b, int repetitions) {
  ImageDecoder decoder;
  ImagePipeline pipeline;
  std::vector<double> host_total, host_decode, host_upload, bare;
  std::vector<std::uint8_t> pixels;
  // One warm-up of each, so that the factory, codecs and shaders exist before timing.
  if (!wic.DecodeFirstFrame(ImageDecoderTestFiles::Widen(a), &pixels) || !decoder.DecodeImage(b) ||
      !gpu->Upload(&pipeline, decoder.decoded_image().pixels, decoder.decoded_image().width,
                   decoder.decoded_image().height)) {
    std::printf("  %s: decode or upload failed\n", label);
    return false;
  }
  for (int i = 0; i < repetitions; ++i) {
    const std::string& path = i % 2 == 0 ? a : b;
    auto start = Clock::now();
    wic.DecodeFirstFrame(ImageDecoderTestFiles::Widen(path), &pixels);
    bare.push_back(MsSince(start));

    start = Clock::now();
    decoder.DecodeImage(path);
    const double decode_ms = MsSince(start);
    const auto upload_start = Clock::now();
    gpu->Upload(&pipeline, decoder.decoded_image().pixels, decoder.decoded_image().width,
                decoder.decoded_image().height);
    host_upload.push_back(MsSince(upload_start));
    host_decode.push_back(decode_ms);
    host_total.push_back(MsSince(start));
  }
  (void)files;
  Report(label, Median(host_total), Median(bare), 20.0);
  std::printf("  %-44s   of which ImageDecoder %.2f ms, texture upload %.2f ms\n", "",
              Median(host_decode), Median(host_upload));
  return true;
}

bool AnimatedGif(const Wic& wic, const char* label, const std::string& a, const std::string& b,
                 int repetitions) {
  std::vector<double> wic_ms, compose_ms, copy_ms, store_ms, decoder_ms;
  ImageDecoder decoder;
  std::size_t frames = 0;
  if (!decoder.DecodeAnimatedGif(b)) {
    std::printf("  %s: animated decode failed\n", label);
    return false;
  }
  for (int i = 0; i < repetitions; ++i) {
    GifSplit split;
    if (!SplitGifDecode(wic, ImageDecoderTestFiles::Widen(i % 2 == 0 ? a : b), &split)) {
      std::printf("  %s: split decode failed\n", label);
      return false;
    }
    wic_ms.push_back(split.wic_ms);
    compose_ms.push_back(split.compose_ms);
    copy_ms.push_back(split.copy_ms);
    store_ms.push_back(split.store_ms);
    frames = split.frames;
    const auto start = Clock::now();
    decoder.DecodeAnimatedGif(i % 2 == 0 ? a : b);
    decoder_ms.push_back(MsSince(start));
  }
  const double wic_median = Median(wic_ms);
  const double compose_median = Median(compose_ms);
  const double share = wic_median > 0 ? compose_median / wic_median * 100.0 : 0.0;
  std::printf(
      "  %-44s WIC %9.2f ms   composition %8.2f ms   = %5.1f %% of WIC   goal < 10 %%  %s\n", label,
      wic_median, compose_median, share, share < 10.0 ? "met" : "NOT MET");
  const double draw_median = std::max(0.0, compose_median - Median(copy_ms));
  std::printf("  %-44s   %zu frames; drawing and disposal alone %.2f ms = %.1f %% of WIC\n", "",
              frames, draw_median, wic_median > 0 ? draw_median / wic_median * 100.0 : 0.0);
  std::printf(
      "  %-44s   keeping the composed frames (fresh memory) %.2f ms;"
      " whole DecodeAnimatedGif %.2f ms\n",
      "", Median(store_ms), Median(decoder_ms));
  return true;
}

template <typename Decode>
void Reload(const char* label, Decode decode) {
  constexpr int kCalls = 100000;
  const auto start = Clock::now();
  bool all = true;
  for (int i = 0; i < kCalls; ++i) all = decode() && all;
  const double ns = MsSince(start) * 1e6 / kCalls;
  std::printf("  %-44s %8.1f ns per call%s\n", label, ns, all ? "" : "  (a call FAILED)");
}

}  // namespace

int main(int argc, char** argv) {
  const int repetitions = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
  if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return 1;
  int status = 0;
  {
    Wic wic;
    Gpu gpu;
    ImageDecoderTestFiles files;
    if (!files.ok() ||
        FAILED(CoCreateInstance(CLSID_WICImagingFactory2, nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(&wic.factory))) ||
        !gpu.Create()) {
      std::printf("setup failed (temp folder, WIC or Direct3D 11)\n");
      return 1;
    }

    std::printf(
        "Still image: ImageDecoder + texture upload against bare WIC decode (median of %d)\n",
        repetitions);
    struct Still {
      const char* label;
      std::uint32_t width, height;
      bool jpeg;
    } stills[] = {{"PNG 1920x1080", 1920, 1080, false},
                  {"JPEG 1920x1080", 1920, 1080, true},
                  {"PNG 3840x2160", 3840, 2160, false},
                  {"JPEG 3840x2160", 3840, 2160, true}};
    for (const Still& still : stills) {
      const std::vector<std::uint8_t> pixels = PhotoLike(still.width, still.height);
      const std::string ext = still.jpeg ? ".jpg" : ".png";
      const std::string a = std::string("still_a_") + std::to_string(still.width) + ext;
      const std::string b = std::string("still_b_") + std::to_string(still.width) + ext;
      const bool written = still.jpeg
                               ? files.WriteJpeg(a, still.width, still.height, pixels, 0.9f) &&
                                     files.WriteJpeg(b, still.width, still.height, pixels, 0.9f)
                               : files.WritePng(a, still.width, still.height, pixels) &&
                                     files.WritePng(b, still.width, still.height, pixels);
      if (!written ||
          !StillImage(wic, &gpu, &files, still.label, files.Path(a), files.Path(b), repetitions)) {
        status = 1;
      }
    }

    std::printf("\nAnimated GIF: composition against WIC frame decoding (median of %d)\n",
                repetitions);
    {
      // Full frames of a moving pattern, LZW-compressed by the WIC encoder.
      const std::uint32_t width = 1280, height = 720, count = 24;
      std::vector<WICColor> palette(256);
      for (std::uint32_t i = 0; i < 256; ++i) {
        palette[i] = 0xFF000000u | (i << 16) | ((255 - i) << 8) | ((i * 7) & 0xFF);
      }
      std::vector<std::vector<std::uint8_t>> frames(count);
      for (std::uint32_t f = 0; f < count; ++f) {
        frames[f].resize(std::size_t{width} * height);
        for (std::uint32_t y = 0; y < height; ++y) {
          for (std::uint32_t x = 0; x < width; ++x) {
            frames[f][std::size_t{y} * width + x] =
                static_cast<std::uint8_t>(((x + f * 8) / 16 + (y / 16) * 3) & 0xFF);
          }
        }
      }
      if (!files.WriteWicGif("full_a.gif", width, height, palette, frames) ||
          !files.WriteWicGif("full_b.gif", width, height, palette, frames) ||
          !AnimatedGif(wic, "1280x720 x 24 full frames (WIC encoder)", files.Path("full_a.gif"),
                       files.Path("full_b.gif"), repetitions)) {
        status = 1;
      }
    }
    {
      // Patches: a 480x270 sprite moving over a 1280x720 screen, with transparent pixels,
      // alternating restore-to-background and restore-to-previous.
      std::vector<GifTestFileWriter::Frame> frames;
      frames.push_back(GifTestFileWriter::SolidFrame(0, 0, 1280, 720, 0xFF203040));
      for (std::uint16_t f = 1; f < 24; ++f) {
        GifTestFileWriter::Frame frame = GifTestFileWriter::SolidFrame(
            static_cast<std::uint16_t>(f * 30), static_cast<std::uint16_t>(f * 15), 480, 270,
            0xFF000000u | (f * 10u) << 16 | 0x80u);
        for (std::size_t i = 0; i < frame.argb.size(); i += 7) frame.argb[i] = 0;
        frame.disposal = static_cast<std::uint8_t>(f % 2 == 0 ? 2 : 3);
        frame.delay = 4;
        frames.push_back(std::move(frame));
      }
      const std::vector<std::uint8_t> bytes = GifTestFileWriter::Build(1280, 720, frames);
      if (!files.WriteBytes("patch_a.gif", bytes) || !files.WriteBytes("patch_b.gif", bytes) ||
          !AnimatedGif(wic, "1280x720 x 24, 480x270 patches + transparency",
                       files.Path("patch_a.gif"), files.Path("patch_b.gif"), repetitions)) {
        status = 1;
      }
    }

    std::printf("\nReload of the cached path\n");
    {
      ImageDecoder decoder;
      const std::string png = files.Path("still_a_1920.png");
      const std::string gif = files.Path("full_a.gif");
      auto start = Clock::now();
      decoder.DecodeImage(png);
      std::printf("  %-44s %8.2f ms\n", "first DecodeImage, PNG 1920x1080", MsSince(start));
      Reload("DecodeImage again, same path", [&] { return decoder.DecodeImage(png); });
      start = Clock::now();
      decoder.DecodeAnimatedGif(gif);
      std::printf("  %-44s %8.2f ms\n", "first DecodeAnimatedGif, 1280x720 x 24", MsSince(start));
      Reload("DecodeAnimatedGif again, same path", [&] { return decoder.DecodeAnimatedGif(gif); });
      std::printf("  decodes performed: still %llu, animated %llu\n",
                  static_cast<unsigned long long>(decoder.static_decode_count()),
                  static_cast<unsigned long long>(decoder.animated_decode_count()));
    }
  }
  CoUninitialize();
  return status;
}
