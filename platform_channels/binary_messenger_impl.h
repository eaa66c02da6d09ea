// BinaryMessenger over the engine's messenger.
#ifndef KESTRUN_PLATFORM_CHANNELS_BINARY_MESSENGER_IMPL_H_
#define KESTRUN_PLATFORM_CHANNELS_BINARY_MESSENGER_IMPL_H_

#include <flutter_messenger.h>

#include <map>
#include <string>

#include "binary_messenger.h"

namespace flutter {

// Replies it hands to handlers keep the engine messenger referenced, take its lock and answer
// only while it is still available, so a reply completed on another thread after the engine has
// shut down is dropped silently.
class BinaryMessengerImpl : public BinaryMessenger {
 public:
  explicit BinaryMessengerImpl(FlutterDesktopMessengerRef core_messenger);
  ~BinaryMessengerImpl() override;

  BinaryMessengerImpl(const BinaryMessengerImpl&) = delete;
  BinaryMessengerImpl& operator=(const BinaryMessengerImpl&) = delete;

  void Send(const std::string& channel, const uint8_t* message, size_t message_size,
            BinaryReply reply = nullptr) const override;
  void SetMessageHandler(const std::string& channel, BinaryMessageHandler handler) override;

  FlutterDesktopMessengerRef core_messenger() const { return messenger_; }

 private:
  FlutterDesktopMessengerRef messenger_;
  // Handlers by channel; map nodes stay put, so the engine keeps a pointer to each handler.
  std::map<std::string, BinaryMessageHandler> handlers_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_BINARY_MESSENGER_IMPL_H_
