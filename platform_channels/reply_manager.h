// Holds the reply of one incoming method call and enforces that it is sent exactly once.
#ifndef KESTRUN_PLATFORM_CHANNELS_REPLY_MANAGER_H_
#define KESTRUN_PLATFORM_CHANNELS_REPLY_MANAGER_H_

#include <cstdint>
#include <vector>

#include "binary_messenger.h"

namespace flutter {

class ReplyManager {
 public:
  explicit ReplyManager(BinaryReply reply_handler);
  // A reply never sent is reported (the interface would wait for it forever).
  ~ReplyManager();

  ReplyManager(const ReplyManager&) = delete;
  ReplyManager& operator=(const ReplyManager&) = delete;

  // Sends `data`, or an empty reply when it is null. A second call is reported and ignored.
  void SendResponseData(const std::vector<uint8_t>* data);

 private:
  BinaryReply reply_handler_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_REPLY_MANAGER_H_
