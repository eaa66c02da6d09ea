// The time sources of a live output window: the tick count of the render loop's heartbeat, the
// performance counter that times fades and the steady clock that times animated images. Tests
// derive from it to move time by hand.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_LIVE_WINDOW_CLOCK_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_LIVE_WINDOW_CLOCK_H_

#include <chrono>
#include <cstdint>
#include <memory>

namespace native_live_window {

class LiveWindowClock {
 public:
  LiveWindowClock() = default;
  LiveWindowClock(const LiveWindowClock&) = delete;
  LiveWindowClock& operator=(const LiveWindowClock&) = delete;
  virtual ~LiveWindowClock() = default;

  // Milliseconds since system start, wrapping at 2^32 (GetTickCount).
  virtual std::uint32_t TickCountMs() const;
  // QueryPerformanceCounter and QueryPerformanceFrequency.
  virtual std::int64_t PerformanceCounter() const;
  virtual std::int64_t PerformanceFrequency() const;
  virtual std::chrono::steady_clock::time_point SteadyNow() const;

  // The real clocks, shared by every window that is not given another.
  static std::shared_ptr<const LiveWindowClock> System();
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_LIVE_WINDOW_CLOCK_H_
