// A MethodResult whose three outcomes are function objects; handy for outgoing calls.
#ifndef KESTRUN_PLATFORM_CHANNELS_METHOD_RESULT_FUNCTIONS_H_
#define KESTRUN_PLATFORM_CHANNELS_METHOD_RESULT_FUNCTIONS_H_

#include <functional>
#include <string>
#include <utility>

#include "method_result.h"

namespace flutter {

template <typename T = EncodableValue>
class MethodResultFunctions : public MethodResult<T> {
 public:
  using ResultHandlerSuccess = std::function<void(const T* result)>;
  using ResultHandlerError = std::function<void(
      const std::string& error_code, const std::string& error_message, const T* error_details)>;
  using ResultHandlerNotImplemented = std::function<void()>;

  // Any of the handlers may be empty; the outcome is then ignored.
  MethodResultFunctions(ResultHandlerSuccess on_success, ResultHandlerError on_error,
                        ResultHandlerNotImplemented on_not_implemented)
      : on_success_(std::move(on_success)),
        on_error_(std::move(on_error)),
        on_not_implemented_(std::move(on_not_implemented)) {}

 protected:
  void SuccessInternal(const T* result) override {
    if (on_success_) {
      on_success_(result);
    }
  }
  void ErrorInternal(const std::string& error_code, const std::string& error_message,
                     const T* error_details) override {
    if (on_error_) {
      on_error_(error_code, error_message, error_details);
    }
  }
  void NotImplementedInternal() override {
    if (on_not_implemented_) {
      on_not_implemented_();
    }
  }

 private:
  ResultHandlerSuccess on_success_;
  ResultHandlerError on_error_;
  ResultHandlerNotImplemented on_not_implemented_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_METHOD_RESULT_FUNCTIONS_H_
