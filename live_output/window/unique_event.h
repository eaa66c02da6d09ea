// Owns one Win32 event handle and closes it on destruction.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_UNIQUE_EVENT_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_UNIQUE_EVENT_H_

#include <windows.h>

namespace native_live_window {

class UniqueEvent {
 public:
  // An unnamed auto-reset event, initially not signalled. get() is null if it could not be made.
  UniqueEvent();
  ~UniqueEvent();

  UniqueEvent(const UniqueEvent&) = delete;
  UniqueEvent& operator=(const UniqueEvent&) = delete;

  HANDLE get() const { return handle_; }
  void Signal() const;

 private:
  HANDLE handle_ = nullptr;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_UNIQUE_EVENT_H_
