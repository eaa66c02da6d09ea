// Replies of the live output plugin that are sent later, when work finished on another thread
// (a fade on a window's render thread) reports back.
//
// A method result parked here gets a request id. The work's completion, which may run on any
// thread, only posts message WM_USER + 100 with that id to a hidden message-only window
// ("KestrunCallbackWindow") made on the platform thread; that window's procedure then sends the
// reply on the platform thread. A result whose completion never comes is dropped unanswered when
// this object goes.

#ifndef KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_DEFERRED_REPLIES_H_
#define KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_DEFERRED_REPLIES_H_

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include "encodable_value.h"
#include "method_result.h"

namespace native_live_window {

class DeferredReplies {
 public:
  using Result = flutter::MethodResult<flutter::EncodableValue>;

  // The message that brings a completion back to the platform thread.
  static constexpr UINT kCompletionMessage = WM_USER + 100;

  // Makes the callback window on the calling (platform) thread. When that fails, parked results
  // are never answered; everything else works.
  DeferredReplies();
  // Destroys the callback window; results still parked are dropped without a reply.
  ~DeferredReplies();

  DeferredReplies(const DeferredReplies&) = delete;
  DeferredReplies& operator=(const DeferredReplies&) = delete;

  // Parks a result and answers its request id.
  std::int32_t Park(std::unique_ptr<Result> result);
  // A completion that, after `calls_needed` calls from any threads, has the result of
  // request_id answered `true` on the platform thread. Calls beyond that do nothing.
  std::function<void()> CompletionAfter(std::int32_t request_id,
                                        std::int32_t calls_needed = 1) const;

  // Null when the window could not be made.
  HWND window() const { return window_; }
  // Results parked and not yet answered.
  std::size_t pending_count() const;

 private:
  static LRESULT CALLBACK WindowProc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam);
  // Answers and forgets the result of request_id; an unknown id is ignored.
  void Complete(std::int32_t request_id);

  HWND window_ = nullptr;
  std::atomic<std::int32_t> next_request_id_{1};
  // Guards pending_ only.
  mutable std::mutex pending_mutex_;
  std::map<std::int32_t, std::unique_ptr<Result>> pending_;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_NATIVE_LIVE_WINDOW_PLUGIN_DEFERRED_REPLIES_H_
