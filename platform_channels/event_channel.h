// A named channel on which the host streams events to the interface after it listens.
#ifndef KESTRUN_PLATFORM_CHANNELS_EVENT_CHANNEL_H_
#define KESTRUN_PLATFORM_CHANNELS_EVENT_CHANNEL_H_

#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "binary_messenger.h"
#include "event_sink.h"
#include "method_codec.h"
#include "stream_handler.h"

namespace flutter {

// The interface sends "listen" and "cancel" as method calls on the channel; events go back on
// the same channel as success or error envelopes, end of stream as an empty message.
template <typename T = EncodableValue>
class EventChannel {
 public:
  // The messenger and codec must outlive the channel.
  EventChannel(BinaryMessenger* messenger, const std::string& name, const MethodCodec<T>* codec)
      : messenger_(messenger), name_(name), codec_(codec) {}

  EventChannel(const EventChannel&) = delete;
  EventChannel& operator=(const EventChannel&) = delete;

  // Installs the stream handler; null removes the channel's handler.
  void SetStreamHandler(std::unique_ptr<StreamHandler<T>> handler) {
    if (!handler) {
      messenger_->SetMessageHandler(name_, nullptr);
      return;
    }
    std::shared_ptr<StreamHandler<T>> shared_handler(std::move(handler));
    const MethodCodec<T>* codec = codec_;
    BinaryMessenger* messenger = messenger_;
    const std::string channel = name_;
    // Whether the interface is listening; lives as long as the installed handler.
    auto listening = std::make_shared<bool>(false);

    BinaryMessageHandler binary_handler = [shared_handler, codec, messenger, channel, listening](
                                              const uint8_t* message, size_t message_size,
                                              BinaryReply reply) {
      std::unique_ptr<MethodCall<T>> call = codec->DecodeMethodCall(message, message_size);
      if (!call) {
        std::cerr << "Unable to construct method call from message on channel: " << channel
                  << std::endl;
        reply(nullptr, 0);
        return;
      }
      const std::string& method = call->method_name();
      std::unique_ptr<std::vector<uint8_t>> response;
      if (method == "listen") {
        if (*listening) {
          std::unique_ptr<StreamHandlerError<T>> error = shared_handler->OnCancel(nullptr);
          if (error) {
            std::cerr << "Failed to cancel existing stream: " << error->error_code << ", "
                      << error->error_message << ", "
                      << static_cast<const void*>(error->error_details.get()) << std::endl;
          }
        }
        *listening = true;
        auto sink = std::make_unique<EventSinkImplementation>(messenger, channel, codec);
        std::unique_ptr<StreamHandlerError<T>> error =
            shared_handler->OnListen(call->arguments(), std::move(sink));
        response = error ? codec->EncodeErrorEnvelope(error->error_code, error->error_message,
                                                      error->error_details.get())
                         : codec->EncodeSuccessEnvelope();
      } else if (method == "cancel") {
        if (*listening) {
          *listening = false;
          std::unique_ptr<StreamHandlerError<T>> error =
              shared_handler->OnCancel(call->arguments());
          response = error ? codec->EncodeErrorEnvelope(error->error_code, error->error_message,
                                                        error->error_details.get())
                           : codec->EncodeSuccessEnvelope();
        } else {
          response = codec->EncodeErrorEnvelope("error", "No active stream to cancel");
        }
      }
      if (!response) {
        reply(nullptr, 0);  // another method, or a reply the codec refused to write
        return;
      }
      reply(response->data(), response->size());
    };
    messenger_->SetMessageHandler(name_, std::move(binary_handler));
  }

 private:
  // Sends each event straight on the channel (main thread only).
  class EventSinkImplementation : public EventSink<T> {
   public:
    EventSinkImplementation(const BinaryMessenger* messenger, const std::string& name,
                            const MethodCodec<T>* codec)
        : messenger_(messenger), name_(name), codec_(codec) {}

   private:
    void SuccessInternal(const T* event = nullptr) override {
      std::unique_ptr<std::vector<uint8_t>> message = codec_->EncodeSuccessEnvelope(event);
      if (message) {  // else the codec printed why the event cannot be sent
        messenger_->Send(name_, message->data(), message->size());
      }
    }
    void ErrorInternal(const std::string& error_code, const std::string& error_message,
                       const T* error_details) override {
      std::unique_ptr<std::vector<uint8_t>> message =
          codec_->EncodeErrorEnvelope(error_code, error_message, error_details);
      if (message) {
        messenger_->Send(name_, message->data(), message->size());
      }
    }
    void EndOfStreamInternal() override { messenger_->Send(name_, nullptr, 0); }

    const BinaryMessenger* messenger_;
    const std::string name_;
    const MethodCodec<T>* codec_;
  };

  BinaryMessenger* messenger_;
  std::string name_;
  const MethodCodec<T>* codec_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_EVENT_CHANNEL_H_
