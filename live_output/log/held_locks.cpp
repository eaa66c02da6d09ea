#include "live_output/log/held_locks.h"

namespace native_live_window {
namespace {

// More than any guarded code nests (a frame takes two locks, a log call one more).
constexpr int kMaxHeldLocks = 16;

struct HeldLock {
  void* lock;
  HeldLocks::Unlock unlock;
  int depth;  // of the guard that was innermost when it was taken
};

struct ThreadLocks {
  int depth = 0;
  int count = 0;
  HeldLock held[kMaxHeldLocks] = {};
};

thread_local ThreadLocks t_locks;

}  // namespace

int HeldLocks::EnterGuard() { return ++t_locks.depth; }

void HeldLocks::LeaveGuard(int depth, bool faulted) {
  ThreadLocks& locks = t_locks;
  // Records left at this depth or deeper belong to frames the fault skipped; without a fault none
  // are left, since every Scoped removes its own.
  while (locks.count > 0 && locks.held[locks.count - 1].depth >= depth) {
    --locks.count;
    const HeldLock held = locks.held[locks.count];
    locks.held[locks.count] = HeldLock{};
    if (faulted) {
      held.unlock(held.lock);
    }
  }
  locks.depth = depth - 1;
}

bool HeldLocks::Add(void* lock, Unlock unlock) {
  ThreadLocks& locks = t_locks;
  if (locks.depth == 0 || locks.count == kMaxHeldLocks) {
    return false;
  }
  locks.held[locks.count] = HeldLock{lock, unlock, locks.depth};
  ++locks.count;
  return true;
}

void HeldLocks::Remove(void* lock) {
  ThreadLocks& locks = t_locks;
  for (int i = locks.count - 1; i >= 0; --i) {
    if (locks.held[i].lock == lock) {
      for (int j = i; j + 1 < locks.count; ++j) {
        locks.held[j] = locks.held[j + 1];
      }
      --locks.count;
      locks.held[locks.count] = HeldLock{};
      return;
    }
  }
}

}  // namespace native_live_window
