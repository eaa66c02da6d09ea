// Keeps a fault inside a live window's render loop from ending the process.
//
// Run() calls a function under a structured-exception guard on the calling thread. An access
// violation, or any other structured exception that nothing inside handles, ends the function
// there and Run() reports the exception code instead of letting the process die; a C++ exception
// that leaves the function is reported the same way, with the code of a C++ exception
// (0xE06D7363). Destructors of the frames that a fault skips do not run, so locks taken inside the
// guarded function must be ScopedFrameLock (or HeldLocks::Scoped, as the logger's is): the guard
// releases those itself after a fault, so that recovery leaves no lock of the process held.
//
// With Visual C++ the guard is __try/__except; with MinGW-w64 on x86-64 it attaches the C
// runtime's scope-table handler (__C_specific_handler) to the guarding function's unwind data,
// which is what __try/__except compiles to.

#ifndef KESTRUN_LIVE_OUTPUT_WINDOW_RENDER_FAULT_GUARD_H_
#define KESTRUN_LIVE_OUTPUT_WINDOW_RENDER_FAULT_GUARD_H_

#include <cstdint>

#include "live_output/log/held_locks.h"
#include "live_output/window/recursive_lock.h"

namespace native_live_window {

class RenderFaultGuard {
 public:
  using Body = void (*)(void* context);

  // Exception code reported for a C++ exception that leaves the body.
  static constexpr std::uint32_t kCppExceptionCode = 0xE06D7363u;

  // Runs body(context). True when it returned; false when a fault ended it, with the exception
  // code in *exception_code. Guards may nest; a fault ends the innermost one.
  static bool Run(Body body, void* context, std::uint32_t* exception_code);

  // A scoped lock for code that runs inside Run(): if a fault ends the body while the lock is
  // held, the guard unlocks it before Run() returns. Outside Run() it is a plain scoped lock.
  class ScopedFrameLock {
   public:
    explicit ScopedFrameLock(RecursiveLock& lock);

    ScopedFrameLock(const ScopedFrameLock&) = delete;
    ScopedFrameLock& operator=(const ScopedFrameLock&) = delete;

   private:
    HeldLocks::Scoped<RecursiveLock> lock_;
  };
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_WINDOW_RENDER_FAULT_GUARD_H_
