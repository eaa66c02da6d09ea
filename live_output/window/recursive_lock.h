// A recursive mutex over a Win32 critical section, usable with std::lock_guard.
//
// The live window's locks are taken by the platform thread and the render thread at once, so they
// are contended. std::recursive_mutex on MinGW-w64 (winpthreads) creates an event on first
// contention and never frees it, because libstdc++ does not destroy statically initialisable
// mutexes; a window made and closed many times would leak one event per lock each time. A
// critical section gives its resources back when it is deleted.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_RECURSIVE_LOCK_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_RECURSIVE_LOCK_H_

#include <windows.h>

namespace native_live_window {

class RecursiveLock {
 public:
  RecursiveLock();
  ~RecursiveLock();

  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

  void lock();
  bool try_lock();
  void unlock();

 private:
  CRITICAL_SECTION section_;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_RECURSIVE_LOCK_H_
