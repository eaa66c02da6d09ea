#include "reply_manager.h"

#include <iostream>
#include <utility>

namespace flutter {

ReplyManager::ReplyManager(BinaryReply reply_handler) : reply_handler_(std::move(reply_handler)) {}

ReplyManager::~ReplyManager() {
  if (reply_handler_) {
    std::cerr << "Warning: Failed to respond to a message. This is a memory leak." << std::endl;
  }
}

void ReplyManager::SendResponseData(const std::vector<uint8_t>* data) {
  if (!reply_handler_) {
    std::cerr << "Error: Only one of Success, Error, or NotImplemented can be called,"
              << " and it can be called exactly once. Ignoring duplicate result." << std::endl;
    return;
  }
  BinaryReply reply = std::move(reply_handler_);
  reply_handler_ = nullptr;
  if (data == nullptr || data->empty()) {
    reply(nullptr, 0);
  } else {
    reply(data->data(), data->size());
  }
}

}  // namespace flutter
