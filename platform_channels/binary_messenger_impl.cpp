#include "binary_messenger_impl.h"

#include <iostream>
#include <memory>
#include <utility>

namespace flutter {

namespace {

// Called by the engine for each message on a channel that has a handler.
void ForwardToHandler(FlutterDesktopMessengerRef messenger, const FlutterDesktopMessage* message,
                      void* user_data) {
  auto* handler = static_cast<BinaryMessageHandler*>(user_data);
  // The reply may outlive the engine (it can be completed on any thread later), so it holds its
  // own reference to the messenger.
  std::shared_ptr<FlutterDesktopMessenger> held(FlutterDesktopMessengerAddRef(messenger),
                                                &FlutterDesktopMessengerRelease);
  const FlutterDesktopMessageResponseHandle* response_handle = message->response_handle;
  BinaryReply reply = [held, response_handle](const uint8_t* reply_data,
                                              size_t reply_size) mutable {
    if (response_handle == nullptr) {
      std::cerr << "Error: Response can be set only once. Ignoring duplicate response."
                << std::endl;
      return;
    }
    FlutterDesktopMessengerRef core = held.get();
    FlutterDesktopMessengerLock(core);
    if (FlutterDesktopMessengerIsAvailable(core)) {
      FlutterDesktopMessengerSendResponse(core, response_handle, reply_data, reply_size);
    }
    FlutterDesktopMessengerUnlock(core);
    response_handle = nullptr;
  };
  (*handler)(message->message, message->message_size, std::move(reply));
}

// Called by the engine with the answer to a message sent with a reply.
void ForwardReply(const uint8_t* data, size_t data_size, void* user_data) {
  std::unique_ptr<BinaryReply> reply(static_cast<BinaryReply*>(user_data));
  (*reply)(data, data_size);
}

}  // namespace

BinaryMessengerImpl::BinaryMessengerImpl(FlutterDesktopMessengerRef core_messenger)
    : messenger_(core_messenger) {}

BinaryMessengerImpl::~BinaryMessengerImpl() = default;

void BinaryMessengerImpl::Send(const std::string& channel, const uint8_t* message,
                               size_t message_size, BinaryReply reply) const {
  if (!reply) {
    FlutterDesktopMessengerSend(messenger_, channel.c_str(), message, message_size);
    return;
  }
  auto captured = std::make_unique<BinaryReply>(std::move(reply));
  if (FlutterDesktopMessengerSendWithReply(messenger_, channel.c_str(), message, message_size,
                                           &ForwardReply, captured.get())) {
    captured.release();  // owned by the pending reply now
  }
}

void BinaryMessengerImpl::SetMessageHandler(const std::string& channel,
                                            BinaryMessageHandler handler) {
  if (!handler) {
    handlers_.erase(channel);
    FlutterDesktopMessengerSetCallback(messenger_, channel.c_str(), nullptr, nullptr);
    return;
  }
  BinaryMessageHandler& stored = handlers_[channel];
  stored = std::move(handler);
  FlutterDesktopMessengerSetCallback(messenger_, channel.c_str(), &ForwardToHandler, &stored);
}

}  // namespace flutter
