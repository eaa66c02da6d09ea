// The reply handle of one method call: exactly one of success, error or not implemented.
#ifndef KESTRUN_PLATFORM_CHANNELS_METHOD_RESULT_H_
#define KESTRUN_PLATFORM_CHANNELS_METHOD_RESULT_H_

#include <string>

#include "encodable_value.h"

namespace flutter {

template <typename T = EncodableValue>
class MethodResult {
 public:
  MethodResult() = default;
  virtual ~MethodResult() = default;

  MethodResult(const MethodResult&) = delete;
  MethodResult& operator=(const MethodResult&) = delete;

  void Success(const T& result) { SuccessInternal(&result); }
  void Success() { SuccessInternal(nullptr); }

  void Error(const std::string& error_code, const std::string& error_message,
             const T& error_details) {
    ErrorInternal(error_code, error_message, &error_details);
  }
  void Error(const std::string& error_code, const std::string& error_message = "") {
    ErrorInternal(error_code, error_message, nullptr);
  }

  void NotImplemented() { NotImplementedInternal(); }

 protected:
  virtual void SuccessInternal(const T* result) = 0;
  virtual void ErrorInternal(const std::string& error_code, const std::string& error_message,
                             const T* error_details) = 0;
  virtual void NotImplementedInternal() = 0;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_METHOD_RESULT_H_
