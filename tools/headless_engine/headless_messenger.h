// The engine's messenger (FlutterDesktopMessengerRef): per-channel handlers installed by the host,
// messages from the interface delivered to them with response handles, their replies, and the
// host's own messages to the interface, both passed on to a MessengerOutlet.
//
// Reference counted: the engine holds one reference and drops it when it shuts down; host code
// that may outlive the engine holds its own (FlutterDesktopMessengerAddRef). After shutdown the
// messenger is unavailable: sends fail, replies are dropped, handlers are forgotten.
// Lock/Unlock is the lock the host takes around replies from other threads; it is recursive, and
// shutdown takes it too, so a reply made under it either goes out or sees the messenger
// unavailable.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_MESSENGER_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_MESSENGER_H_

#include <flutter_messenger.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "messenger_outlet.h"
#include "platform_task_runner.h"

namespace kestrun_headless {

class HeadlessMessenger {
 public:
  // `runner` runs the empty replies to the host's messages that await one. Reference count 1.
  explicit HeadlessMessenger(std::shared_ptr<PlatformTaskRunner> runner);

  HeadlessMessenger(const HeadlessMessenger&) = delete;
  HeadlessMessenger& operator=(const HeadlessMessenger&) = delete;

  static HeadlessMessenger* FromRef(FlutterDesktopMessengerRef ref) {
    return reinterpret_cast<HeadlessMessenger*>(ref);
  }
  FlutterDesktopMessengerRef ref() { return reinterpret_cast<FlutterDesktopMessengerRef>(this); }

  // Thread-safe; the last Release deletes the messenger.
  void AddRef();
  void Release();

  void Lock();
  void Unlock();
  bool IsAvailable() const;

  // ---- Host side (the C API) ----

  // Replaces the channel's handler; a null callback removes it.
  void SetCallback(const std::string& channel, FlutterDesktopMessageCallback callback,
                   void* user_data);
  // A message from the host to the interface. With `reply`, the interface's answer is an empty
  // reply (nobody on the interface side answers host calls), run later on the platform thread.
  // False when unavailable.
  bool Send(const std::string& channel, const uint8_t* data, size_t size,
            FlutterDesktopBinaryReply reply, void* user_data);
  // The host's reply to a delivered message; each handle answers once, later or unknown handles
  // are logged and ignored.
  void SendResponse(const FlutterDesktopMessageResponseHandle* handle, const uint8_t* data,
                    size_t size);

  // ---- Engine side ----

  void SetOutlet(std::shared_ptr<MessengerOutlet> outlet);
  // Platform thread. Delivers a message from the interface to the channel's handler; its reply
  // reaches the outlet with `token`. A channel without handler is answered empty at once, as the
  // engine does.
  void Deliver(const std::string& channel, const std::vector<uint8_t>& message, uint64_t token);
  // Makes the messenger unavailable and forgets handlers, pending replies and the outlet.
  void Shutdown();

  std::vector<std::string> ChannelsWithHandlers() const;
  size_t pending_response_count() const;

 private:
  ~HeadlessMessenger() = default;

  struct Handler {
    FlutterDesktopMessageCallback callback = nullptr;
    void* user_data = nullptr;
  };

  std::atomic<int> references_{1};
  std::shared_ptr<PlatformTaskRunner> runner_;
  mutable std::recursive_mutex mutex_;
  bool available_ = true;
  std::map<std::string, Handler> handlers_;
  // Response handles are numbers never used twice (not addresses, which a late duplicate reply
  // could find reused), mapped to the token of their message.
  uintptr_t next_handle_ = 1;
  std::map<uintptr_t, uint64_t> pending_responses_;
  std::shared_ptr<MessengerOutlet> outlet_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_MESSENGER_H_
