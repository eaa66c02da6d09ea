// Ends the test program when the code under test hangs, so that a hang fails the run instead of
// stalling it: the watched scope must end within the time given, or the process prints what hung
// and exits with code 3.

#ifndef KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_HANG_WATCHDOG_H_
#define KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_HANG_WATCHDOG_H_

#include <windows.h>

#include <string>
#include <thread>

namespace native_live_window {
namespace live_window_test {

class HangWatchdog {
 public:
  HangWatchdog(DWORD timeout_ms, std::string what);
  ~HangWatchdog();
  HangWatchdog(const HangWatchdog&) = delete;
  HangWatchdog& operator=(const HangWatchdog&) = delete;

 private:
  HANDLE done_;
  std::thread watcher_;
};

}  // namespace live_window_test
}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_HANG_WATCHDOG_H_
