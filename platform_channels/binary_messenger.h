// Sends and receives raw channel messages.
#ifndef KESTRUN_PLATFORM_CHANNELS_BINARY_MESSENGER_H_
#define KESTRUN_PLATFORM_CHANNELS_BINARY_MESSENGER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace flutter {

// Answers one incoming message. An empty reply (null, 0) means "not implemented".
using BinaryReply = std::function<void(const uint8_t* reply, size_t reply_size)>;

// Handles one incoming message; `reply` must be called exactly once, from any thread.
using BinaryMessageHandler =
    std::function<void(const uint8_t* message, size_t message_size, BinaryReply reply)>;

class BinaryMessenger {
 public:
  virtual ~BinaryMessenger() = default;

  // Sends a message; with a reply function, the interface's answer is passed to it.
  virtual void Send(const std::string& channel, const uint8_t* message, size_t message_size,
                    BinaryReply reply = nullptr) const = 0;

  // Installs the handler for a channel; an empty handler removes it.
  virtual void SetMessageHandler(const std::string& channel, BinaryMessageHandler handler) = 0;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_BINARY_MESSENGER_H_
