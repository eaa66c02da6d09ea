// A StreamHandler whose listen and cancel are function objects.
#ifndef KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_FUNCTIONS_H_
#define KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_FUNCTIONS_H_

#include <functional>
#include <memory>
#include <utility>

#include "stream_handler.h"

namespace flutter {

template <typename T = EncodableValue>
using StreamHandlerListen = std::function<std::unique_ptr<StreamHandlerError<T>>(
    const T* arguments, std::unique_ptr<EventSink<T>>&& events)>;

template <typename T = EncodableValue>
using StreamHandlerCancel =
    std::function<std::unique_ptr<StreamHandlerError<T>>(const T* arguments)>;

// A missing function answers the error "error" / "No OnListen handler set" (or OnCancel).
template <typename T = EncodableValue>
class StreamHandlerFunctions : public StreamHandler<T> {
 public:
  StreamHandlerFunctions(StreamHandlerListen<T> on_listen, StreamHandlerCancel<T> on_cancel)
      : on_listen_(std::move(on_listen)), on_cancel_(std::move(on_cancel)) {}

 protected:
  std::unique_ptr<StreamHandlerError<T>> OnListenInternal(
      const T* arguments, std::unique_ptr<EventSink<T>>&& events) override {
    if (!on_listen_) {
      return std::make_unique<StreamHandlerError<T>>("error", "No OnListen handler set", nullptr);
    }
    return on_listen_(arguments, std::move(events));
  }

  std::unique_ptr<StreamHandlerError<T>> OnCancelInternal(const T* arguments) override {
    if (!on_cancel_) {
      return std::make_unique<StreamHandlerError<T>>("error", "No OnCancel handler set", nullptr);
    }
    return on_cancel_(arguments);
  }

 private:
  StreamHandlerListen<T> on_listen_;
  StreamHandlerCancel<T> on_cancel_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_STREAM_HANDLER_FUNCTIONS_H_
