// One method call on a method channel: a method name and its arguments.
#ifndef KESTRUN_PLATFORM_CHANNELS_METHOD_CALL_H_
#define KESTRUN_PLATFORM_CHANNELS_METHOD_CALL_H_

#include <memory>
#include <string>
#include <utility>

#include "encodable_value.h"

namespace flutter {

template <typename T = EncodableValue>
class MethodCall {
 public:
  // `arguments` may be null when the call carries none.
  MethodCall(const std::string& method_name, std::unique_ptr<T> arguments)
      : method_name_(method_name), arguments_(std::move(arguments)) {}

  MethodCall(const MethodCall&) = delete;
  MethodCall& operator=(const MethodCall&) = delete;

  const std::string& method_name() const { return method_name_; }
  const T* arguments() const { return arguments_.get(); }

 private:
  std::string method_name_;
  std::unique_ptr<T> arguments_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_METHOD_CALL_H_
