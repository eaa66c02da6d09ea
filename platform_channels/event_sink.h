// Where a stream handler sends its events.
#ifndef KESTRUN_PLATFORM_CHANNELS_EVENT_SINK_H_
#define KESTRUN_PLATFORM_CHANNELS_EVENT_SINK_H_

#include <string>

#include "encodable_value.h"

namespace flutter {

template <typename T = EncodableValue>
class EventSink {
 public:
  EventSink() = default;
  virtual ~EventSink() = default;

  EventSink(const EventSink&) = delete;
  EventSink& operator=(const EventSink&) = delete;

  void Success(const T& event) { SuccessInternal(&event); }
  void Success() { SuccessInternal(nullptr); }

  void Error(const std::string& error_code, const std::string& error_message,
             const T& error_details) {
    ErrorInternal(error_code, error_message, &error_details);
  }
  void Error(const std::string& error_code, const std::string& error_message = "") {
    ErrorInternal(error_code, error_message, nullptr);
  }

  // Tells the interface that no more events follow.
  void EndOfStream() { EndOfStreamInternal(); }

 protected:
  virtual void SuccessInternal(const T* event = nullptr) = 0;
  virtual void ErrorInternal(const std::string& error_code, const std::string& error_message,
                             const T* error_details) = 0;
  virtual void EndOfStreamInternal() = 0;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_EVENT_SINK_H_
