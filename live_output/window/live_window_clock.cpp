#include "live_output/window/live_window_clock.h"

#include <windows.h>

namespace native_live_window {

std::uint32_t LiveWindowClock::TickCountMs() const {
  return static_cast<std::uint32_t>(GetTickCount());
}

std::int64_t LiveWindowClock::PerformanceCounter() const {
  LARGE_INTEGER value;
  QueryPerformanceCounter(&value);
  return value.QuadPart;
}

std::int64_t LiveWindowClock::PerformanceFrequency() const {
  LARGE_INTEGER value;
  QueryPerformanceFrequency(&value);
  return value.QuadPart;
}

std::chrono::steady_clock::time_point LiveWindowClock::SteadyNow() const {
  return std::chrono::steady_clock::now();
}

std::shared_ptr<const LiveWindowClock> LiveWindowClock::System() {
  static const std::shared_ptr<const LiveWindowClock> system = std::make_shared<LiveWindowClock>();
  return system;
}

}  // namespace native_live_window
