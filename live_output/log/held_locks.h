// The locks each thread holds inside fault-guarded code, so that recovering from a fault can give
// them back.
//
// A live window's render loop survives a hardware fault in a frame: its fault guard ends the frame
// where the fault struck, and the destructors of the frames it skips never run. A lock taken in
// there (the window's image or fade lock, or the logger's mutex when the fault strikes inside a log
// call) would stay held for good, and the next thread to take it (the platform thread logging its
// next line, say) would hang. Every lock that guarded code can take is therefore taken through
// HeldLocks::Scoped, which records it on its thread while a guard is active; the guard releases
// whatever is still recorded after a fault, innermost first, on the thread that took it.
//
// Outside a guard, Scoped is a plain scoped lock and records nothing.

#ifndef KESTRUN_LIVE_OUTPUT_LOG_HELD_LOCKS_H_
#define KESTRUN_LIVE_OUTPUT_LOG_HELD_LOCKS_H_

namespace native_live_window {

class HeldLocks {
 public:
  using Unlock = void (*)(void* lock);

  // A fault guard begins on this thread; answers its depth (1 for the outermost).
  static int EnterGuard();
  // The guard of `depth` ends. After a fault, every lock recorded inside it is unlocked first.
  static void LeaveGuard(int depth, bool faulted);

  // Records a lock this thread has just taken; false (nothing recorded) outside a guard or when
  // the thread already records as many locks as it can.
  static bool Add(void* lock, Unlock unlock);
  // Forgets the innermost record of the lock, just before it is unlocked.
  static void Remove(void* lock);

  template <typename Lockable>
  class Scoped {
   public:
    explicit Scoped(Lockable& lock) : lock_(lock) {
      lock_.lock();
      recorded_ = Add(&lock_, &UnlockLockable);
    }
    ~Scoped() {
      if (recorded_) {
        Remove(&lock_);
      }
      lock_.unlock();
    }
    Scoped(const Scoped&) = delete;
    Scoped& operator=(const Scoped&) = delete;

   private:
    static void UnlockLockable(void* lock) { static_cast<Lockable*>(lock)->unlock(); }

    Lockable& lock_;
    bool recorded_ = false;
  };
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_LOG_HELD_LOCKS_H_
