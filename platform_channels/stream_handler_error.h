// The error a stream handler answers to listen or cancel.
#ifndef KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_ERROR_H_
#define KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_ERROR_H_

#include <memory>
#include <string>
#include <utility>

#include "encodable_value.h"

namespace flutter {

template <typename T = EncodableValue>
struct StreamHandlerError {
  StreamHandlerError(const std::string& code, const std::string& message,
                     std::unique_ptr<T> details)
      : error_code(code), error_message(message), error_details(std::move(details)) {}

  const std::string error_code;
  const std::string error_message;
  const std::unique_ptr<T> error_details;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_ERROR_H_
