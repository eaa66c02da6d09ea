#include "headless_messenger.h"

#include <utility>

#include "engine_log.h"

namespace kestrun_headless {

HeadlessMessenger::HeadlessMessenger(std::shared_ptr<PlatformTaskRunner> runner)
    : runner_(std::move(runner)) {}

void HeadlessMessenger::AddRef() { references_.fetch_add(1); }

void HeadlessMessenger::Release() {
  if (references_.fetch_sub(1) == 1) {
    delete this;
  }
}

void HeadlessMessenger::Lock() { mutex_.lock(); }

void HeadlessMessenger::Unlock() { mutex_.unlock(); }

bool HeadlessMessenger::IsAvailable() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return available_;
}

void HeadlessMessenger::SetCallback(const std::string& channel,
                                    FlutterDesktopMessageCallback callback, void* user_data) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  if (!available_) {
    return;
  }
  if (callback == nullptr) {
    handlers_.erase(channel);
  } else {
    handlers_[channel] = Handler{callback, user_data};
  }
}

bool HeadlessMessenger::Send(const std::string& channel, const uint8_t* data, size_t size,
                             FlutterDesktopBinaryReply reply, void* user_data) {
  std::shared_ptr<MessengerOutlet> outlet;
  std::shared_ptr<PlatformTaskRunner> runner;
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (!available_) {
      return false;
    }
    outlet = outlet_;
    runner = runner_;
  }
  if (reply != nullptr && !runner->Post([reply, user_data] { reply(nullptr, 0, user_data); })) {
    return false;
  }
  if (outlet) {
    outlet->OnHostMessage(channel, data, size, reply != nullptr);
  }
  return true;
}

void HeadlessMessenger::SendResponse(const FlutterDesktopMessageResponseHandle* handle,
                                     const uint8_t* data, size_t size) {
  std::shared_ptr<MessengerOutlet> outlet;
  uint64_t token = 0;
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    auto pending = pending_responses_.find(reinterpret_cast<uintptr_t>(handle));
    if (pending == pending_responses_.end()) {
      if (available_) {
        EngineLog("reply with an unknown or already used response handle ignored");
      }
      return;
    }
    token = pending->second;
    pending_responses_.erase(pending);
    outlet = outlet_;
  }
  if (outlet) {
    outlet->OnResponse(token, data, size);
  }
}

void HeadlessMessenger::SetOutlet(std::shared_ptr<MessengerOutlet> outlet) {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  outlet_ = std::move(outlet);
}

void HeadlessMessenger::Deliver(const std::string& channel, const std::vector<uint8_t>& message,
                                uint64_t token) {
  Handler handler;
  const FlutterDesktopMessageResponseHandle* handle = nullptr;
  std::shared_ptr<MessengerOutlet> outlet;
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (!available_) {
      return;
    }
    auto found = handlers_.find(channel);
    if (found == handlers_.end()) {
      outlet = outlet_;
    } else {
      handler = found->second;
      const uintptr_t number = next_handle_++;
      handle = reinterpret_cast<const FlutterDesktopMessageResponseHandle*>(number);
      pending_responses_.emplace(number, token);
    }
  }
  if (handler.callback == nullptr) {
    if (outlet) {
      outlet->OnResponse(token, nullptr, 0);
    }
    return;
  }
  FlutterDesktopMessage desktop_message = {};
  desktop_message.struct_size = sizeof(desktop_message);
  desktop_message.channel = channel.c_str();
  desktop_message.message = message.empty() ? nullptr : message.data();
  desktop_message.message_size = message.size();
  desktop_message.response_handle = handle;
  // The handler may shut the engine down; the messenger stays alive until it returns.
  AddRef();
  handler.callback(ref(), &desktop_message, handler.user_data);
  Release();
}

void HeadlessMessenger::Shutdown() {
  std::map<std::string, Handler> handlers;
  std::map<uintptr_t, uint64_t> pending;
  std::shared_ptr<MessengerOutlet> outlet;
  {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    available_ = false;
    handlers.swap(handlers_);
    pending.swap(pending_responses_);
    outlet.swap(outlet_);
  }
}

std::vector<std::string> HeadlessMessenger::ChannelsWithHandlers() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  std::vector<std::string> channels;
  for (const auto& entry : handlers_) {
    channels.push_back(entry.first);
  }
  return channels;
}

size_t HeadlessMessenger::pending_response_count() const {
  std::lock_guard<std::recursive_mutex> lock(mutex_);
  return pending_responses_.size();
}

}  // namespace kestrun_headless
