// The render loop's fault guard with real faults: access violations and other structured
// exceptions raised on a worker thread end only the guarded function, and the locks it held are
// released.
#include "live_output/window/render_fault_guard.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace native_live_window {
namespace {

// Writes through a null pointer; the compiler cannot see through the volatile.
void WriteThroughNull() {
  volatile int* volatile target = nullptr;
  *target = 42;
}

struct Outcome {
  bool returned = false;
  std::uint32_t code = 0xFFFFFFFFu;
  bool thread_went_on = false;
};

// Runs body under the guard on a thread of its own and reports what happened there.
Outcome RunOnWorker(RenderFaultGuard::Body body, void* context) {
  Outcome outcome;
  std::thread worker([&] {
    outcome.returned = RenderFaultGuard::Run(body, context, &outcome.code);
    outcome.thread_went_on = true;
  });
  worker.join();
  return outcome;
}

TEST(RenderFaultGuardTest, FaultsEndTheBodyWithTheirCodeAndTheThreadGoesOn) {
  const struct {
    const char* name;
    RenderFaultGuard::Body body;
    std::uint32_t code;
  } cases[] = {
      {"access violation", [](void*) { WriteThroughNull(); }, 0xC0000005u},
      {"division by zero",
       [](void*) {
         volatile int zero = 0;
         volatile int result = 10 / zero;
         (void)result;
       },
       0xC0000094u},
      {"raised exception", [](void*) { RaiseException(0xE0001234u, 0, 0, nullptr); }, 0xE0001234u},
      {"C++ exception", [](void*) { throw std::runtime_error("escaped the frame"); },
       RenderFaultGuard::kCppExceptionCode},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome outcome = RunOnWorker(c.body, nullptr);
    EXPECT_FALSE(outcome.returned);
    EXPECT_EQ(outcome.code, c.code);
    EXPECT_TRUE(outcome.thread_went_on);
  }
}

TEST(RenderFaultGuardTest, BodiesThatReturnOrHandleTheirExceptionsRunToTheEnd) {
  int handled = 0;
  const Outcome outcome = RunOnWorker(
      [](void* context) {
        try {
          throw std::runtime_error("handled");
        } catch (const std::runtime_error&) {
          ++*static_cast<int*>(context);
        }
        // The debugger output is delivered as an exception that the system handles itself.
        OutputDebugStringA("Kestrun: fault guard test line\n");
        OutputDebugStringW(L"Kestrun: fault guard test line\n");
        ++*static_cast<int*>(context);
      },
      &handled);
  EXPECT_TRUE(outcome.returned);
  EXPECT_EQ(outcome.code, 0u);
  EXPECT_EQ(handled, 2);
}

TEST(RenderFaultGuardTest, FrameLocksHeldAtTheFaultAreReleased) {
  RecursiveLock first;
  RecursiveLock second;
  struct Locks {
    RecursiveLock* first;
    RecursiveLock* second;
  } locks = {&first, &second};
  const Outcome outcome = RunOnWorker(
      [](void* context) {
        Locks* locks = static_cast<Locks*>(context);
        RenderFaultGuard::ScopedFrameLock outer(*locks->first);
        RenderFaultGuard::ScopedFrameLock again(*locks->first);  // recursive
        RenderFaultGuard::ScopedFrameLock inner(*locks->second);
        WriteThroughNull();
      },
      &locks);
  ASSERT_FALSE(outcome.returned);
  // Another thread can take both; a lock still owned by the ended body would block here.
  std::thread other([&] {
    EXPECT_TRUE(first.try_lock());
    EXPECT_TRUE(second.try_lock());
    first.unlock();
    second.unlock();
  });
  other.join();
}

TEST(RenderFaultGuardTest, OnlyLocksStillHeldThroughFrameLocksAreReleased) {
  RecursiveLock mutex;
  std::thread worker([&mutex] {
    std::uint32_t code = 0;
    const bool returned = RenderFaultGuard::Run(
        [](void* context) {
          RecursiveLock* mutex = static_cast<RecursiveLock*>(context);
          { RenderFaultGuard::ScopedFrameLock released(*mutex); }
          // Taken outside any frame lock: the guard must leave it alone.
          mutex->lock();
          WriteThroughNull();
        },
        &mutex, &code);
    EXPECT_FALSE(returned);
    // Still held exactly once by this thread.
    std::thread([&mutex] { EXPECT_FALSE(mutex.try_lock()); }).join();
    mutex.unlock();
    std::thread([&mutex] {
      EXPECT_TRUE(mutex.try_lock());
      mutex.unlock();
    }).join();
  });
  worker.join();
}

}  // namespace
}  // namespace native_live_window
