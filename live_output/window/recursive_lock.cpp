#include "live_output/window/recursive_lock.h"

namespace native_live_window {

RecursiveLock::RecursiveLock() { InitializeCriticalSection(&section_); }

RecursiveLock::~RecursiveLock() { DeleteCriticalSection(&section_); }

void RecursiveLock::lock() { EnterCriticalSection(&section_); }

bool RecursiveLock::try_lock() { return TryEnterCriticalSection(&section_) != FALSE; }

void RecursiveLock::unlock() { LeaveCriticalSection(&section_); }

}  // namespace native_live_window
