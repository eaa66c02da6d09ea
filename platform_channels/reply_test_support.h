// Method calls delivered to plugins through the engine stand-in, and their replies as the
// interface reads them; shared by the plugins' tests.
#ifndef KESTRUN_PLATFORM_CHANNELS_REPLY_TEST_SUPPORT_H_
#define KESTRUN_PLATFORM_CHANNELS_REPLY_TEST_SUPPORT_H_

#include <test_flutter_engine.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "encodable_value.h"
#include "method_call.h"
#include "method_result_functions.h"
#include "standard_method_codec.h"

namespace flutter {
namespace reply_test {

struct Outcome {
  // "success", "error", "not implemented" or "none" (no reply yet).
  std::string kind = "none";
  EncodableValue value;
  std::string code;
  std::string message;
  int replies = 0;
};

inline std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << outcome.kind << " " << outcome.code << " \"" << outcome.message << "\" ("
             << outcome.replies << " replies)";
}

inline EncodableValue Map(std::initializer_list<std::pair<const char*, EncodableValue>> entries) {
  EncodableMap map;
  for (const auto& entry : entries) {
    map[EncodableValue(entry.first)] = entry.second;
  }
  return EncodableValue(std::move(map));
}

// A method result that fills in `outcome` as replies come.
inline std::unique_ptr<MethodResult<EncodableValue>> RecordingResult(
    std::shared_ptr<Outcome> outcome) {
  return std::make_unique<MethodResultFunctions<>>(
      [outcome](const EncodableValue* value) {
        outcome->kind = "success";
        outcome->value = value != nullptr ? *value : EncodableValue();
        ++outcome->replies;
      },
      [outcome](const std::string& code, const std::string& message, const EncodableValue*) {
        outcome->kind = "error";
        outcome->code = code;
        outcome->message = message;
        ++outcome->replies;
      },
      [outcome] {
        outcome->kind = "not implemented";
        ++outcome->replies;
      });
}

// Sends the call on `channel` as the engine would; answers the stand-in's token for its reply.
inline int Deliver(FlutterDesktopMessengerRef messenger, const char* channel,
                   const std::string& method, const EncodableValue& arguments) {
  MethodCall<> call(method, std::make_unique<EncodableValue>(arguments));
  const std::vector<std::uint8_t> bytes =
      *StandardMethodCodec::GetInstance().EncodeMethodCall(call);
  return FlutterTestDeliverMessage(messenger, channel, bytes.data(), bytes.size());
}

// The replies the stand-in holds for `token`, decoded (an empty reply is "not implemented").
inline Outcome ReplyTo(int token) {
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;
  auto outcome = std::make_shared<Outcome>();
  const int replies = FlutterTestGetResponse(token, &data, &size);
  if (replies > 0 && size == 0) {
    outcome->kind = "not implemented";
  } else if (replies > 0) {
    StandardMethodCodec::GetInstance().DecodeAndProcessResponseEnvelope(
        data, size, RecordingResult(outcome).get());
  }
  outcome->replies = replies;
  return *outcome;
}

}  // namespace reply_test
}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_REPLY_TEST_SUPPORT_H_
