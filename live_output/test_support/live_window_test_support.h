// Helpers shared by the live window tests: a clock moved by hand, the process's log and standard
// output as text, waiting for the render loop while pumping messages, and reading the screen.

#ifndef KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_LIVE_WINDOW_TEST_SUPPORT_H_
#define KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_LIVE_WINDOW_TEST_SUPPORT_H_

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "live_output/window/display_record.h"
#include "live_output/window/live_window_clock.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {
namespace live_window_test {

// Every time source of a window, moved only by the test. The performance counter runs at 1 MHz.
class ManualClock : public LiveWindowClock {
 public:
  static constexpr std::int64_t kFrequency = 1000000;

  std::uint32_t TickCountMs() const override { return tick_ms.load(); }
  std::int64_t PerformanceCounter() const override { return counter.load(); }
  std::int64_t PerformanceFrequency() const override { return kFrequency; }
  std::chrono::steady_clock::time_point SteadyNow() const override {
    return std::chrono::steady_clock::time_point(std::chrono::milliseconds(steady_ms.load()));
  }

  void SetFadeTimeMs(std::int64_t ms) { counter.store(ms * (kFrequency / 1000)); }
  // Moves the fade and animation clocks on together.
  void AdvanceMs(std::int64_t ms) {
    counter.fetch_add(ms * (kFrequency / 1000));
    steady_ms.fetch_add(ms);
  }

  std::atomic<std::uint32_t> tick_ms{100000};
  std::atomic<std::int64_t> counter{0};
  std::atomic<std::int64_t> steady_ms{0};
};

DisplayRecord Display(const std::string& name, std::int32_t x, std::int32_t y, std::int32_t width,
                      std::int32_t height);

// Creates the window over the displays; true when the creation callback reported success.
bool Show(NativeLiveWindow& window, const std::vector<DisplayRecord>& displays);

// Everything the process's logger has written so far (the logger writes below a temporary folder
// chosen on first use).
std::string LogText();
std::size_t CountOf(const std::string& text, const std::string& needle);

// Redirects standard output into a file for its lifetime.
class CapturedStdout {
 public:
  CapturedStdout();
  ~CapturedStdout();
  CapturedStdout(const CapturedStdout&) = delete;
  CapturedStdout& operator=(const CapturedStdout&) = delete;
  std::string Text() const;

 private:
  std::wstring path_;
  int saved_fd_ = -1;
};

// Pumps this thread's messages until `done` answers true, waking on `event` (may be null) or
// any message; false after timeout_ms.
bool PumpUntil(const std::function<bool()>& done, HANDLE event, DWORD timeout_ms = 30000);
// Waits until the window's render loop has made `count` more Present calls.
bool WaitForPresents(const NativeLiveWindow& window, std::uint64_t count);
// Dispatches the messages already queued.
void PumpPending();

// Colour of one screen pixel as 0xRRGGBB.
std::uint32_t ScreenPixel(int x, int y);
// True when each channel of two 0xRRGGBB colours differs by at most `tolerance`.
bool ColorNear(std::uint32_t actual, std::uint32_t expected, int tolerance = 12);
std::string ColorText(std::uint32_t color);

// A width x height BGRA image whose pixel (x, y) has colour color_at(x, y) (0xRRGGBB, opaque).
std::vector<std::uint8_t> MakeImage(std::int32_t width, std::int32_t height,
                                    const std::function<std::uint32_t(int, int)>& color_at);

// Screen colours as 0xRRGGBB.
namespace colors {
constexpr std::uint32_t kBlack = 0x000000, kRed = 0xFF0000, kGreen = 0x00FF00, kBlue = 0x0000FF,
                        kYellow = 0xFFFF00, kMagenta = 0xFF00FF, kCyan = 0x00FFFF,
                        kWhite = 0xFFFFFF, kOrange = 0xFF8000;
}  // namespace colors

// 200 x 200: four horizontal bands, different in the left and the right half.
//   left:  magenta, red,   blue,  cyan
//   right: yellow,  green, white, orange
std::vector<std::uint8_t> BandedImage();

// Handles and threads of this process.
DWORD ProcessHandleCount();
DWORD ProcessThreadCount();
// Pumps messages (up to ten seconds) until the process holds at most these threads, and at most
// two handles more than these: helper threads of the graphics stack end a little after the work
// that started them, and the system may keep a handle of its own made on a later cycle. A leak
// per cycle of a stress loop shows as many handles as cycles.
::testing::AssertionResult ProcessSettlesTo(DWORD handles, DWORD threads);

}  // namespace live_window_test
}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_LIVE_WINDOW_TEST_SUPPORT_H_
