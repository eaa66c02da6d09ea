// A named channel carrying method calls in both directions.
#ifndef KESTRUN_PLATFORM_CHANNELS_METHOD_CHANNEL_H_
#define KESTRUN_PLATFORM_CHANNELS_METHOD_CHANNEL_H_

#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "binary_messenger.h"
#include "engine_method_result.h"
#include "method_call.h"
#include "method_codec.h"
#include "method_result.h"

namespace flutter {

template <typename T = EncodableValue>
using MethodCallHandler =
    std::function<void(const MethodCall<T>& call, std::unique_ptr<MethodResult<T>> result)>;

template <typename T = EncodableValue>
class MethodChannel {
 public:
  // The messenger and codec must outlive the channel.
  MethodChannel(BinaryMessenger* messenger, const std::string& name, const MethodCodec<T>* codec)
      : messenger_(messenger), name_(name), codec_(codec) {}

  MethodChannel(const MethodChannel&) = delete;
  MethodChannel& operator=(const MethodChannel&) = delete;

  const std::string& name() const { return name_; }

  // Calls a method of the interface. Without a result object nothing is awaited; with one, an
  // empty answer completes it as not implemented.
  void InvokeMethod(const std::string& method, std::unique_ptr<T> arguments = nullptr,
                    std::unique_ptr<MethodResult<T>> result = nullptr) const {
    MethodCall<T> call(method, std::move(arguments));
    std::unique_ptr<std::vector<uint8_t>> message = codec_->EncodeMethodCall(call);
    if (!message) {
      // The codec printed why; nothing is sent, and a waiting result learns it at once.
      if (result) {
        result->NotImplemented();
      }
      return;
    }
    if (!result) {
      messenger_->Send(name_, message->data(), message->size(), nullptr);
      return;
    }
    std::shared_ptr<MethodResult<T>> shared_result(std::move(result));
    const MethodCodec<T>* codec = codec_;
    const std::string channel = name_;
    BinaryReply on_reply = [shared_result, codec, channel](const uint8_t* reply,
                                                           size_t reply_size) {
      if (reply_size == 0) {
        shared_result->NotImplemented();
        return;
      }
      if (!codec->DecodeAndProcessResponseEnvelope(reply, reply_size, shared_result.get())) {
        std::cerr << "Unable to decode reply to method invocation on channel " << channel
                  << std::endl;
        shared_result->NotImplemented();
      }
    };
    messenger_->Send(name_, message->data(), message->size(), std::move(on_reply));
  }

  // Installs the handler for calls from the interface; an empty handler removes it. A message
  // that is not a method call is reported and answered empty.
  void SetMethodCallHandler(MethodCallHandler<T> handler) const {
    if (!handler) {
      messenger_->SetMessageHandler(name_, nullptr);
      return;
    }
    const MethodCodec<T>* codec = codec_;
    const std::string channel = name_;
    BinaryMessageHandler binary_handler = [handler = std::move(handler), codec, channel](
                                              const uint8_t* message, size_t message_size,
                                              BinaryReply reply) {
      auto result = std::make_unique<EngineMethodResult<T>>(std::move(reply), codec);
      std::unique_ptr<MethodCall<T>> call = codec->DecodeMethodCall(message, message_size);
      if (!call) {
        std::cerr << "Unable to construct method call from message on channel " << channel
                  << std::endl;
        result->NotImplemented();
        return;
      }
      handler(*call, std::move(result));
    };
    messenger_->SetMessageHandler(name_, std::move(binary_handler));
  }

 private:
  BinaryMessenger* messenger_;
  std::string name_;
  const MethodCodec<T>* codec_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_METHOD_CHANNEL_H_
