// Starts and stops the events of an event channel.
#ifndef KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_H_
#define KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_H_

#include <memory>
#include <utility>

#include "event_sink.h"
#include "stream_handler_error.h"

namespace flutter {

// Both operations answer null on success or the error to send back.
template <typename T = EncodableValue>
class StreamHandler {
 public:
  StreamHandler() = default;
  virtual ~StreamHandler() = default;

  StreamHandler(const StreamHandler&) = delete;
  StreamHandler& operator=(const StreamHandler&) = delete;

  std::unique_ptr<StreamHandlerError<T>> OnListen(const T* arguments,
                                                  std::unique_ptr<EventSink<T>>&& events) {
    return OnListenInternal(arguments, std::move(events));
  }

  std::unique_ptr<StreamHandlerError<T>> OnCancel(const T* arguments) {
    return OnCancelInternal(arguments);
  }

 protected:
  virtual std::unique_ptr<StreamHandlerError<T>> OnListenInternal(
      const T* arguments, std::unique_ptr<EventSink<T>>&& events) = 0;
  virtual std::unique_ptr<StreamHandlerError<T>> OnCancelInternal(const T* arguments) = 0;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_H_
