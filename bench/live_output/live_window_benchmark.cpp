// Per-frame cost of a live window's render loop.
//
//   live_window_benchmark [frames-per-run]     (default 600)
//
// A real window (960 x 540) draws, with its own render thread:
//   - a still 1920 x 1080 image, fitted (contain);
//   - an animated image whose frame does not change (the clock of the window stands still), then
//     the same animation with the clock moved past one frame per rendered frame;
//   - a still image under a fade whose alpha changes every frame.
// Then the window's device is lost (the loss seam strikes at the next Present) ten times while the
// still image is shown; for each it reports the time from the injection to the first frame the
// new device presents, the image put back on it (goal: within one second).
// For each run it reports the wall time and the process CPU time per presented frame, the heap
// allocations made through operator new while the frames were drawn (the loop must make none), and
// for the animation the texture rewrites (none while the frame stays the same).
//
// Exit status 1 when a run allocated on the heap per frame or rewrote an unchanged texture, or a
// recovery failed or the median recovery took a second or more.

#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <algorithm>
#include <new>
#include <vector>

#include "live_output/window/display_record.h"
#include "live_output/window/live_window_clock.h"
#include "live_output/window/live_window_device_resources.h"
#include "live_output/window/native_live_window.h"

// ---------------------------------------------------------------------------------------------
// Counting allocator: every operator new of the process goes through here.

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
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }

namespace {

using native_live_window::DisplayRecord;
using native_live_window::LiveWindowClock;
using native_live_window::NativeLiveWindow;

// Real tick count, hand-moved animation and fade clocks.
class BenchmarkClock : public LiveWindowClock {
 public:
  std::int64_t PerformanceCounter() const override { return counter_us.load(); }
  std::int64_t PerformanceFrequency() const override { return 1000000; }
  std::chrono::steady_clock::time_point SteadyNow() const override {
    return std::chrono::steady_clock::time_point(std::chrono::milliseconds(steady_ms.load()));
  }
  std::atomic<std::int64_t> counter_us{0};
  std::atomic<std::int64_t> steady_ms{0};
};

double ProcessCpuSeconds() {
  FILETIME created, exited, kernel, user;
  GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
  auto seconds = [](const FILETIME& time) {
    ULARGE_INTEGER value;
    value.LowPart = time.dwLowDateTime;
    value.HighPart = time.dwHighDateTime;
    return static_cast<double>(value.QuadPart) / 1e7;
  };
  return seconds(kernel) + seconds(user);
}

// Pumps messages until the window has presented `frames` more times; calls `each_frame` after
// every present seen. Allocates nothing itself.
bool WaitFrames(const NativeLiveWindow& window, std::uint64_t frames, void (*each_frame)(void*),
                void* context) {
  const std::uint64_t target = window.present_count() + frames;
  HANDLE event = window.present_event();
  const ULONGLONG deadline = GetTickCount64() + 120000;
  while (window.present_count() < target) {
    if (GetTickCount64() > deadline) {
      return false;
    }
    MsgWaitForMultipleObjects(1, &event, FALSE, 1000, QS_ALLINPUT);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      DispatchMessageW(&message);
    }
    if (each_frame != nullptr) {
      each_frame(context);
    }
  }
  return true;
}

struct RunResult {
  const char* name;
  std::uint64_t frames;
  double wall_ms_per_frame;
  double cpu_us_per_frame;
  std::uint64_t allocations;
  std::uint64_t texture_updates;
};

RunResult Measure(const char* name, NativeLiveWindow& window, std::uint64_t frames,
                  void (*each_frame)(void*), void* context) {
  RunResult result = {name, frames, 0.0, 0.0, 0, 0};
  // Settle first: the first frames after a change create driver state.
  WaitFrames(window, 30, each_frame, context);
  const std::uint64_t presents = window.present_count();
  const std::uint64_t allocations = g_allocations.load();
  const std::uint64_t updates = window.texture_update_count();
  const double cpu = ProcessCpuSeconds();
  const auto start = std::chrono::steady_clock::now();
  if (!WaitFrames(window, frames, each_frame, context)) {
    std::printf("%s: the render loop stopped presenting\n", name);
  }
  const double wall =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const std::uint64_t presented = window.present_count() - presents;
  result.frames = presented;
  result.allocations = g_allocations.load() - allocations;
  result.texture_updates = window.texture_update_count() - updates;
  result.wall_ms_per_frame = wall * 1000.0 / static_cast<double>(presented);
  result.cpu_us_per_frame = (ProcessCpuSeconds() - cpu) * 1e6 / static_cast<double>(presented);
  return result;
}

std::vector<std::uint8_t> Gradient(int width, int height, std::uint8_t blue) {
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * height * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      std::uint8_t* pixel = &pixels[(static_cast<std::size_t>(y) * width + x) * 4];
      pixel[0] = blue;
      pixel[1] = static_cast<std::uint8_t>(y * 255 / height);
      pixel[2] = static_cast<std::uint8_t>(x * 255 / width);
      pixel[3] = 255;
    }
  }
  return pixels;
}

struct Stepper {
  BenchmarkClock* clock;
  std::int64_t step;
};

void MoveAnimation(void* context) {
  Stepper* stepper = static_cast<Stepper*>(context);
  stepper->clock->steady_ms.fetch_add(stepper->step);
}

void MoveFade(void* context) {
  Stepper* stepper = static_cast<Stepper*>(context);
  stepper->clock->counter_us.fetch_add(stepper->step);
}

// Milliseconds from a loss injected at the next Present to the first frame presented by the new
// device; negative when the window did not recover within ten seconds.
double MeasureRecovery(NativeLiveWindow& window) {
  using native_live_window::LiveWindowDeviceResources;
  const std::uint64_t recovered = window.recovered_count();
  const auto start = std::chrono::steady_clock::now();
  LiveWindowDeviceResources::InjectLossForTesting(LiveWindowDeviceResources::Call::kPresent, 1,
                                                  DXGI_ERROR_DEVICE_REMOVED);
  HANDLE event = window.present_event();
  while (window.recovered_count() == recovered) {
    if (std::chrono::steady_clock::now() - start > std::chrono::seconds(10)) {
      return -1.0;
    }
    MsgWaitForMultipleObjects(1, &event, FALSE, 100, QS_ALLINPUT);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      DispatchMessageW(&message);
    }
  }
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

}  // namespace

int main(int argc, char** argv) {
  const std::uint64_t frames = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 600;
  auto clock = std::make_shared<BenchmarkClock>();
  NativeLiveWindow window(clock);
  DisplayRecord display;
  display.id = "benchmark";
  display.name = "Benchmark display";
  display.x = 100;
  display.y = 100;
  display.width = 960;
  display.height = 540;
  bool shown = false;
  window.CreateOnDisplays({display}, [&shown](bool success, const std::string&) { shown = success; });
  if (!shown) {
    std::printf("could not create the live window\n");
    return 2;
  }

  std::vector<RunResult> results;

  const std::vector<std::uint8_t> still = Gradient(1920, 1080, 64);
  window.ShowImageFromPixels(still, 1920, 1080, 1);
  results.push_back(Measure("still image (contain)", window, frames, nullptr, nullptr));

  auto animation = std::make_shared<NativeLiveWindow::FrameList>();
  for (std::uint8_t blue : {0, 85, 170, 255}) {
    animation->push_back(Gradient(480, 270, blue));
  }
  window.ShowAnimatedImage(animation, {40, 40, 40, 40}, 480, 270, 0);
  results.push_back(Measure("animation, frame unchanged", window, frames, nullptr, nullptr));
  Stepper animation_stepper = {clock.get(), 40};
  results.push_back(
      Measure("animation, new frame each frame", window, frames, &MoveAnimation, &animation_stepper));

  window.ShowImageFromPixels(still, 1920, 1080, 1);
  clock->counter_us.store(0);
  window.FadeToBlack(1000000, nullptr);  // a thousand seconds: it runs through the whole run
  Stepper fade_stepper = {clock.get(), 1000000};  // one second of fade per frame seen
  results.push_back(Measure("still image under a fade", window, frames, &MoveFade, &fade_stepper));

  window.FadeFromBlack(0, nullptr);
  window.ShowImageFromPixels(still, 1920, 1080, 1);
  WaitFrames(window, 30, nullptr, nullptr);
  std::vector<double> recoveries;
  for (int i = 0; i < 10; ++i) {
    recoveries.push_back(MeasureRecovery(window));
    WaitFrames(window, 30, nullptr, nullptr);
  }
  window.Close();

  std::printf("%-34s %8s %14s %14s %12s %16s\n", "run", "frames", "wall ms/frame",
              "cpu us/frame", "allocations", "texture updates");
  int status = 0;
  for (const RunResult& result : results) {
    std::printf("%-34s %8llu %14.3f %14.1f %12llu %16llu\n", result.name,
                static_cast<unsigned long long>(result.frames), result.wall_ms_per_frame,
                result.cpu_us_per_frame, static_cast<unsigned long long>(result.allocations),
                static_cast<unsigned long long>(result.texture_updates));
    if (result.allocations != 0) {
      status = 1;
    }
  }
  if (results[1].texture_updates != 0) {
    std::printf("FAIL: the texture was rewritten while the animation frame stayed the same\n");
    status = 1;
  }
  if (status != 0) {
    std::printf("FAIL: the render loop allocated on the heap\n");
  }

  std::sort(recoveries.begin(), recoveries.end());
  std::printf("\ndevice loss to first presented frame (1920x1080 image put back), %zu losses: "
              "min %.1f ms, median %.1f ms, max %.1f ms\n",
              recoveries.size(), recoveries.front(), recoveries[recoveries.size() / 2],
              recoveries.back());
  // The median is judged: on a machine shared with other work single losses can wait for the CPU.
  if (recoveries.front() < 0.0 || recoveries[recoveries.size() / 2] >= 1000.0) {
    std::printf("FAIL: a window took a second or more to come back from a lost device\n");
    status = 1;
  }
  return status;
}
