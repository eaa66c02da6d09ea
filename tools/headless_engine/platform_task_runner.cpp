#include "platform_task_runner.h"

#include "engine_log.h"
#include "module_handle.h"

namespace kestrun_headless {
namespace {

constexpr wchar_t kWindowClass[] = L"KestrunHeadlessEngineTasks";
// wParam: the sequence number of the newest task the message stands for.
constexpr UINT kRunTasksMessage = WM_APP + 1;

}  // namespace

PlatformTaskRunner::PlatformTaskRunner() : thread_id_(GetCurrentThreadId()) {}

PlatformTaskRunner::~PlatformTaskRunner() {
  // Normally shut down already; a window left over would call into a destroyed object.
  if (window_ != nullptr && RunsOnPlatformThread()) {
    DestroyWindow(window_);
  }
}

std::shared_ptr<PlatformTaskRunner> PlatformTaskRunner::Create() {
  HINSTANCE module = CurrentModule();
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &PlatformTaskRunner::WindowProc;
  window_class.hInstance = module;
  window_class.lpszClassName = kWindowClass;
  if (RegisterClassExW(&window_class) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
    EngineLog("cannot register the task window class, error %lu", GetLastError());
    return nullptr;
  }
  std::shared_ptr<PlatformTaskRunner> runner(new PlatformTaskRunner());
  HWND window = CreateWindowExW(0, kWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, module,
                                runner.get());
  if (window == nullptr) {
    EngineLog("cannot create the task window, error %lu", GetLastError());
    return nullptr;
  }
  std::lock_guard<std::mutex> lock(runner->mutex_);
  runner->window_ = window;
  return runner;
}

bool PlatformTaskRunner::Post(std::function<void()> task) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (window_ == nullptr) {
    return false;
  }
  const uint64_t sequence = next_sequence_++;
  tasks_.emplace_back(sequence, std::move(task));
  // If this post fails (a full queue), the task runs with the next message that gets through.
  if (!PostMessageW(window_, kRunTasksMessage, static_cast<WPARAM>(sequence), 0)) {
    EngineLog("cannot post to the platform thread, error %lu", GetLastError());
  }
  return true;
}

void PlatformTaskRunner::RunPending() { RunUpTo(UINT64_MAX); }

void PlatformTaskRunner::Shutdown() {
  HWND window = nullptr;
  std::deque<std::pair<uint64_t, std::function<void()>>> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    window = window_;
    window_ = nullptr;
    dropped.swap(tasks_);
  }
  if (window != nullptr) {
    DestroyWindow(window);
  }
  // `dropped` goes here, outside the lock: tasks may own objects with work in their destructors.
}

void PlatformTaskRunner::RunUpTo(uint64_t sequence) {
  // A task may shut the runner down and drop the last reference to it.
  std::shared_ptr<PlatformTaskRunner> keep_alive = shared_from_this();
  while (true) {
    std::function<void()> task;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (tasks_.empty() || tasks_.front().first > sequence) {
        return;
      }
      task = std::move(tasks_.front().second);
      tasks_.pop_front();
    }
    if (task) {
      task();
    }
  }
}

LRESULT CALLBACK PlatformTaskRunner::WindowProc(HWND window, UINT message, WPARAM wparam,
                                                LPARAM lparam) {
  if (message == WM_NCCREATE) {
    const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lparam);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(create->lpCreateParams));
  } else if (message == WM_NCDESTROY) {
    SetWindowLongPtrW(window, GWLP_USERDATA, 0);
  } else if (message == kRunTasksMessage) {
    auto* runner = reinterpret_cast<PlatformTaskRunner*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (runner != nullptr) {
      runner->RunUpTo(static_cast<uint64_t>(wparam));
    }
    return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

}  // namespace kestrun_headless
