// Runs work on the engine's platform thread (the thread that created the engine): any thread
// posts a task, which runs from that thread's message loop through a hidden message-only window.
//
// Each task goes through the thread's message queue in order with the thread's other posted
// messages: a task posted on the platform thread right after PostMessageW to some window runs
// after that message has been dispatched.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_PLATFORM_TASK_RUNNER_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_PLATFORM_TASK_RUNNER_H_

#include <windows.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace kestrun_headless {

class PlatformTaskRunner : public std::enable_shared_from_this<PlatformTaskRunner> {
 public:
  // Creates the runner's window on the calling thread, which becomes the platform thread. Null
  // (with a logged reason) if the window cannot be created.
  static std::shared_ptr<PlatformTaskRunner> Create();
  ~PlatformTaskRunner();

  PlatformTaskRunner(const PlatformTaskRunner&) = delete;
  PlatformTaskRunner& operator=(const PlatformTaskRunner&) = delete;

  // Any thread. False (the task is dropped) after Shutdown.
  bool Post(std::function<void()> task);

  // Platform thread: runs every task queued so far, without waiting for their messages.
  void RunPending();

  // Platform thread: destroys the window and drops the tasks not yet run. Later posts fail.
  void Shutdown();

  bool RunsOnPlatformThread() const { return GetCurrentThreadId() == thread_id_; }

 private:
  PlatformTaskRunner();

  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  // Runs the queued tasks numbered up to `sequence`, in order.
  void RunUpTo(uint64_t sequence);

  const DWORD thread_id_;
  std::mutex mutex_;
  HWND window_ = nullptr;
  uint64_t next_sequence_ = 1;
  std::deque<std::pair<uint64_t, std::function<void()>>> tasks_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_PLATFORM_TASK_RUNNER_H_
