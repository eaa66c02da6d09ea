#include "live_output/test_support/hang_watchdog.h"

#include <cstdio>
#include <utility>

namespace native_live_window {
namespace live_window_test {

HangWatchdog::HangWatchdog(DWORD timeout_ms, std::string what)
    : done_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  HANDLE done = done_;
  watcher_ = std::thread([done, timeout_ms, what = std::move(what)] {
    if (WaitForSingleObject(done, timeout_ms) == WAIT_TIMEOUT) {
      std::fprintf(stderr, "HANG: %s did not finish within %lu ms\n", what.c_str(),
                   static_cast<unsigned long>(timeout_ms));
      std::fflush(stderr);
      TerminateProcess(GetCurrentProcess(), 3);
    }
  });
}

HangWatchdog::~HangWatchdog() {
  SetEvent(done_);
  watcher_.join();
  CloseHandle(done_);
}

}  // namespace live_window_test
}  // namespace native_live_window
