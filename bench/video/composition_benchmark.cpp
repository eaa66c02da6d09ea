// Cost of one composition render tick when no decoder has a new frame: the checks only.
//
//   composition_benchmark [ticks-per-run]     (default 20000)
//
// For N = 1, 4 and 16 pipelines, each with a playing decoder (the stand-in media library, which
// here delivers no frames) and one display, it runs render ticks on this thread and reports the
// time per tick, the heap allocations made through operator new during the ticks (there must be
// none) and the presents (none: a pipeline without a new frame is not presented). Frames that do
// arrive are copied on the GPU into the swap chain; the tick never maps or reads a texture.
//
// Exit status 1 when a run allocated or presented.

#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "live_output/video/dcomp_coordinator.h"
#include "live_output/video/recording_composition_device.h"
#include "live_output/video/video_decoder.h"
#include "testing/mdk/mdk_standin.h"

namespace {
std::atomic<std::uint64_t> g_allocations{0};

void* Allocate(std::size_t size) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}
}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }

namespace {

using native_live_window::DCompCoordinator;
using native_live_window::FitMode;
using native_live_window::RecordingCompositionDevice;
using native_live_window::VideoDecoder;

struct Figures {
  double ns_per_tick;
  double allocations_per_tick;
  std::uint64_t presents;
};

bool Run(int pipelines, int ticks, ID3D11Device* device, ID3D11DeviceContext* context,
         const std::string& media, Figures* figures) {
  std::shared_ptr<RecordingCompositionDevice> recording;
  DCompCoordinator coordinator(nullptr, [&recording](IDXGIDevice*, auto* out) {
    recording = std::make_shared<RecordingCompositionDevice>();
    *out = recording;
    return S_OK;
  });
  if (!coordinator.Initialize(device, context)) {
    return false;
  }
  std::vector<std::unique_ptr<VideoDecoder>> decoders;
  std::vector<HWND> windows;
  for (int i = 0; i < pipelines; ++i) {
    const std::string key = "pipeline-with-a-long-name-" + std::to_string(i);
    decoders.push_back(std::make_unique<VideoDecoder>());
    if (!decoders.back()->Initialize(device, context) ||
        !decoders.back()->PlayVideo(media, FitMode::Cover, true, {}, 640, 360) ||
        !coordinator.AddDecoderPipeline(key, decoders.back().get(), 640, 360)) {
      return false;
    }
    windows.push_back(CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 320, 180, nullptr, nullptr,
                                      GetModuleHandleW(nullptr), nullptr));
    const std::string display = "display-" + std::to_string(i);
    coordinator.AddDisplay(windows.back(), display, 320, 180, false);
    coordinator.AssignDisplayToDecoder(display, key);
  }
  MdkStandin_Settle();
  for (int i = 0; i < 100; ++i) {
    coordinator.RenderTickForBenchmark();  // warm up
  }
  const std::uint64_t allocations = g_allocations.load();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < ticks; ++i) {
    coordinator.RenderTickForBenchmark();
  }
  const auto elapsed = std::chrono::steady_clock::now() - start;
  figures->allocations_per_tick =
      static_cast<double>(g_allocations.load() - allocations) / static_cast<double>(ticks);
  figures->ns_per_tick =
      static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count()) /
      static_cast<double>(ticks);
  figures->presents = recording->present_calls();
  coordinator.Shutdown();
  decoders.clear();
  for (HWND window : windows) {
    DestroyWindow(window);
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const int ticks = argc > 1 ? std::atoi(argv[1]) : 20000;
  MdkStandin_Reset();
  MdkStandin_SetFrameIntervalMs(0);  // frames only on request: none in this benchmark
  const std::string media =
      (std::filesystem::temp_directory_path() / "kestrun-composition-benchmark.mp4").string();
  std::ofstream(media) << "stand-in media";

  Microsoft::WRL::ComPtr<ID3D11Device> device;
  Microsoft::WRL::ComPtr<ID3D11DeviceContext> context;
  const D3D_FEATURE_LEVEL level = D3D_FEATURE_LEVEL_11_0;
  if (FAILED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr,
                               D3D11_CREATE_DEVICE_BGRA_SUPPORT, &level, 1, D3D11_SDK_VERSION,
                               &device, nullptr, &context))) {
    std::printf("composition_benchmark: no Direct3D 11 device\n");
    return 1;
  }
  int status = 0;
  std::printf("composition render tick, no new frames (%d ticks per run)\n", ticks);
  for (const int pipelines : {1, 4, 16}) {
    Figures figures = {};
    if (!Run(pipelines, ticks, device.Get(), context.Get(), media, &figures)) {
      std::printf("  %2d pipelines: set-up failed\n", pipelines);
      status = 1;
      continue;
    }
    std::printf(
        "  %2d pipelines: %8.1f ns per tick (%6.1f ns per pipeline), %.3f heap "
        "allocations per tick, %llu presents\n",
        pipelines, figures.ns_per_tick, figures.ns_per_tick / pipelines,
        figures.allocations_per_tick, static_cast<unsigned long long>(figures.presents));
    if (figures.allocations_per_tick != 0.0 || figures.presents != 0) {
      status = 1;
    }
  }
  return status;
}
