#include "live_output/window/render_fault_guard.h"

#include <windows.h>

#include "live_output/log/held_locks.h"

namespace native_live_window {
namespace {

struct GuardedThreadState {
  // Set by the exception filter (or the C++ catch) of the innermost guard.
  bool faulted = false;
  std::uint32_t fault_code = 0;
};

thread_local GuardedThreadState t_state;

struct BodyCall {
  RenderFaultGuard::Body body;
  void* context;
};

void RecordFault(std::uint32_t code) {
  t_state.faulted = true;
  t_state.fault_code = code;
}

// Runs the body and turns a C++ exception that leaves it into a reported fault. Kept apart from
// (and never inlined into) the guarding function, which must have no C++ handler of its own.
#if defined(_MSC_VER)
__declspec(noinline)
#else
__attribute__((noinline))
#endif
void CallBody(BodyCall* call) noexcept {
  try {
    call->body(call->context);
  } catch (...) {
    RecordFault(RenderFaultGuard::kCppExceptionCode);
  }
}

}  // namespace
}  // namespace native_live_window

#if defined(_MSC_VER)

namespace native_live_window {
namespace {

int FilterFault(unsigned long code) {
  RecordFault(static_cast<std::uint32_t>(code));
  return EXCEPTION_EXECUTE_HANDLER;
}

void RunGuarded(BodyCall* call) {
  __try {
    CallBody(call);
  } __except (FilterFault(GetExceptionCode())) {
  }
}

}  // namespace
}  // namespace native_live_window

#elif defined(__GNUC__) && defined(__x86_64__) && defined(__SEH__)

// Filter of the scope table below; __C_specific_handler calls it during the search for a handler
// with the exception and the guarding frame. Unmangled so that the table can name it.
extern "C" LONG kestrun_render_fault_filter(EXCEPTION_POINTERS* pointers, void* frame);

extern "C" LONG kestrun_render_fault_filter(EXCEPTION_POINTERS* pointers, void* /*frame*/) {
  native_live_window::RecordFault(
      static_cast<std::uint32_t>(pointers->ExceptionRecord->ExceptionCode));
  return EXCEPTION_EXECUTE_HANDLER;
}

namespace native_live_window {
namespace {

// The guarding function. Its unwind data gets __C_specific_handler with one scope that covers the
// call of the body; the scope's handler target is the instruction after that call. When the filter
// accepts an exception, the handler unwinds every frame below this one and resumes here just after
// the call, with this frame's registers restored, so the function returns normally and Run() finds
// the fault recorded. The function must stay out of line, without a C++ handler of its own and in
// the plain .text section that the directives switch back to.
__attribute__((noinline, noclone)) void RunGuarded(BodyCall* call) {
  __asm__ __volatile__(
      "61001:\n"
      "\t.seh_handler __C_specific_handler, @except\n"
      "\t.seh_handlerdata\n"
      "\t.long 1\n"
      "\t.rva 61001b, 61002f, kestrun_render_fault_filter, 61002f\n"
      "\t.text\n" ::: "memory");
  CallBody(call);
  __asm__ __volatile__(
      "\tnop\n"
      "61002:\n"
      "\tnop\n" ::: "memory");
}

}  // namespace
}  // namespace native_live_window

#else
#error "The render loop's fault guard needs structured exceptions (Visual C++ or x86-64 MinGW-w64)"
#endif

namespace native_live_window {

bool RenderFaultGuard::Run(Body body, void* context, std::uint32_t* exception_code) {
  GuardedThreadState& state = t_state;
  const int depth = HeldLocks::EnterGuard();
  state.faulted = false;
  state.fault_code = 0;

  BodyCall call = {body, context};
  RunGuarded(&call);

  const bool faulted = state.faulted;
  const std::uint32_t code = state.fault_code;
  state.faulted = false;
  state.fault_code = 0;
  // The fault skipped the destructors of the body's scoped locks (the logger's among them, when it
  // struck inside a log call): they are released here, on the thread that took them.
  HeldLocks::LeaveGuard(depth, faulted);
  if (exception_code != nullptr) {
    *exception_code = faulted ? code : 0;
  }
  return !faulted;
}

RenderFaultGuard::ScopedFrameLock::ScopedFrameLock(RecursiveLock& lock) : lock_(lock) {}

}  // namespace native_live_window
