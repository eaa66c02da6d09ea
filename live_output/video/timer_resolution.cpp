#include "live_output/video/timer_resolution.h"

#include <windows.h>
#include <timeapi.h>

#include <atomic>

namespace native_live_window {
namespace {

constexpr UINT kPeriodMs = 1;
std::atomic<int> g_active{0};

}  // namespace

TimerResolution::TimerResolution() : raised_(timeBeginPeriod(kPeriodMs) == TIMERR_NOERROR) {
  if (raised_) {
    g_active.fetch_add(1);
  }
}

TimerResolution::~TimerResolution() {
  if (raised_) {
    timeEndPeriod(kPeriodMs);
    g_active.fetch_sub(1);
  }
}

int TimerResolution::ActiveCount() { return g_active.load(); }

}  // namespace native_live_window
