// Passes per second of both render loops: an output window's (image drawn and presented each
// pass) and the composition's (one playing pipeline, new frames only now and then), each with the
// process timer at its default resolution and then raised to 1 ms as the live output plugin keeps
// it. Both loops rest with Sleep(1) between passes: at Windows' default 15.6 ms resolution that
// caps a loop near 64 passes a second; at 1 ms a loop runs as fast as presenting allows (with
// vertical sync, the display's refresh rate).
//
//   render_pacing_benchmark [seconds-per-run]     (default 2)

#include <windows.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "live_output/video/dcomp_coordinator.h"
#include "live_output/video/recording_composition_device.h"
#include "live_output/video/timer_resolution.h"
#include "live_output/video/video_decoder.h"
#include "live_output/window/display_record.h"
#include "live_output/window/native_live_window.h"
#include "testing/mdk/mdk_standin.h"

namespace {

using native_live_window::DCompCoordinator;
using native_live_window::DisplayRecord;
using native_live_window::FitMode;
using native_live_window::NativeLiveWindow;
using native_live_window::RecordingCompositionDevice;
using native_live_window::TimerResolution;
using native_live_window::VideoDecoder;

double WindowPassesPerSecond(int seconds) {
  NativeLiveWindow window;
  DisplayRecord display;
  display.id = "bench";
  display.width = 640;
  display.height = 360;
  bool created = false;
  window.CreateOnDisplays({display}, [&created](bool ok, const std::string&) { created = ok; });
  if (!created) {
    return -1.0;
  }
  std::vector<std::uint8_t> pixels(640 * 360 * 4, 0x80);
  window.ShowImageFromPixels(pixels, 640, 360, 1);
  window.RestartRenderLoop();
  const std::uint64_t first = window.present_count();
  const auto start = std::chrono::steady_clock::now();
  MSG message;
  while (std::chrono::steady_clock::now() - start < std::chrono::seconds(seconds)) {
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      DispatchMessageW(&message);
    }
    Sleep(20);
  }
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double passes = static_cast<double>(window.present_count() - first) / elapsed;
  window.Close();
  return passes;
}

double CompositionPassesPerSecond(int seconds, ID3D11Device* device, ID3D11DeviceContext* context,
                                  const std::string& media) {
  DCompCoordinator coordinator(nullptr, [](IDXGIDevice*, auto* out) {
    *out = std::make_shared<RecordingCompositionDevice>();
    return S_OK;
  });
  VideoDecoder decoder;
  HWND hwnd = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 320, 180, nullptr, nullptr,
                              GetModuleHandleW(nullptr), nullptr);
  if (!coordinator.Initialize(device, context) || !decoder.Initialize(device, context) ||
      !decoder.PlayVideo(media, FitMode::Cover, true, {}, 640, 360) ||
      !coordinator.AddDecoderPipeline("video", &decoder, 640, 360) ||
      !coordinator.AddDisplay(hwnd, "display", 320, 180, false) ||
      !coordinator.AssignDisplayToDecoder("display", "video")) {
    return -1.0;
  }
  coordinator.StartRenderLoop();
  const auto start = std::chrono::steady_clock::now();
  Sleep(static_cast<DWORD>(seconds) * 1000);
  const double elapsed =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double passes = static_cast<double>(coordinator.loop_pass_count()) / elapsed;
  coordinator.Shutdown();
  decoder.Shutdown();
  DestroyWindow(hwnd);
  return passes;
}

}  // namespace

int main(int argc, char** argv) {
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 2;
  MdkStandin_Reset();
  MdkStandin_SetFrameIntervalMs(16);  // about 60 frames a second of video
  const std::string media =
      (std::filesystem::temp_directory_path() / "kestrun-pacing-benchmark.mp4").string();
  std::ofstream(media) << "stand-in media";
  Microsoft::WRL::ComPtr<ID3D11Device> device;
  Microsoft::WRL::ComPtr<ID3D11DeviceContext> context;
  const D3D_FEATURE_LEVEL level = D3D_FEATURE_LEVEL_11_0;
  if (FAILED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr,
                               D3D11_CREATE_DEVICE_BGRA_SUPPORT, &level, 1, D3D11_SDK_VERSION,
                               &device, nullptr, &context))) {
    std::printf("render_pacing_benchmark: no Direct3D 11 device\n");
    return 1;
  }
  std::printf("render loop passes per second (%d s per run)\n", seconds);
  for (const bool raised : {false, true}) {
    std::unique_ptr<TimerResolution> resolution;
    if (raised) {
      resolution = std::make_unique<TimerResolution>();
    }
    const char* label = raised ? (resolution->raised() ? "1 ms timer" : "1 ms refused")
                               : "default timer";
    std::printf("  %-13s: output window %7.1f passes/s, composition %7.1f passes/s\n", label,
                WindowPassesPerSecond(seconds),
                CompositionPassesPerSecond(seconds, device.Get(), context.Get(), media));
  }
  return 0;
}
