// Turns whole channel messages into values and back.
#ifndef KESTRUN_PLATFORM_CHANNELS_MESSAGE_CODEC_H_
#define KESTRUN_PLATFORM_CHANNELS_MESSAGE_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace flutter {

template <typename T>
class MessageCodec {
 public:
  MessageCodec() = default;
  virtual ~MessageCodec() = default;

  MessageCodec(const MessageCodec&) = delete;
  MessageCodec& operator=(const MessageCodec&) = delete;

  // Null when the message cannot be decoded.
  std::unique_ptr<T> DecodeMessage(const uint8_t* binary_message, size_t message_size) const {
    return DecodeMessageInternal(binary_message, message_size);
  }
  std::unique_ptr<T> DecodeMessage(const std::vector<uint8_t>& binary_message) const {
    return DecodeMessageInternal(binary_message.data(), binary_message.size());
  }
  // Null when the message cannot be written (the reason is printed).
  std::unique_ptr<std::vector<uint8_t>> EncodeMessage(const T& message) const {
    return EncodeMessageInternal(message);
  }

 protected:
  virtual std::unique_ptr<T> DecodeMessageInternal(const uint8_t* binary_message,
                                                   size_t message_size) const = 0;
  virtual std::unique_ptr<std::vector<uint8_t>> EncodeMessageInternal(
      const T& message) const = 0;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_MESSAGE_CODEC_H_
