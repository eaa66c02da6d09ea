#include "channel_json.h"

#include <memory>

#include "base64.h"
#include "method_result.h"
#include "standard_method_codec.h"

namespace kestrun_headless {
namespace {

// Keeps what a reply envelope says.
class CapturedResult : public flutter::MethodResult<flutter::EncodableValue> {
 public:
  bool success = false;
  flutter::EncodableValue value;
  std::string code;
  std::string message;
  flutter::EncodableValue details;

 protected:
  void SuccessInternal(const flutter::EncodableValue* result) override {
    success = true;
    if (result != nullptr) value = *result;
  }
  void ErrorInternal(const std::string& error_code, const std::string& error_message,
                     const flutter::EncodableValue* error_details) override {
    code = error_code;
    message = error_message;
    if (error_details != nullptr) details = *error_details;
  }
  void NotImplementedInternal() override {}
};

bool DecodeEnvelope(const uint8_t* data, size_t size, CapturedResult* result) {
  return flutter::StandardMethodCodec::GetInstance().DecodeAndProcessResponseEnvelope(data, size,
                                                                                     result);
}

std::string Raw(const uint8_t* data, size_t size) {
  return data == nullptr ? std::string() : Base64Encode(data, size);
}

}  // namespace

Json ReplyToJson(const uint8_t* data, size_t size) {
  Json json = Json::object();
  if (size == 0) {
    json["reply"] = "notImplemented";
    return json;
  }
  CapturedResult result;
  if (!DecodeEnvelope(data, size, &result)) {
    json["reply"] = "invalid";
    json["raw"] = Raw(data, size);
  } else if (result.success) {
    json["reply"] = "success";
    json["value"] = ToJson(result.value);
  } else {
    json["reply"] = "error";
    json["code"] = result.code;
    json["message"] = result.message;
    json["details"] = ToJson(result.details);
  }
  return json;
}

Json HostMessageToJson(const std::string& channel, const uint8_t* data, size_t size,
                            bool event_channel) {
  Json json = Json::object();
  if (event_channel) {
    if (size == 0) {
      json["event"] = "endOfStream";
      json["channel"] = channel;
      return json;
    }
    CapturedResult result;
    if (DecodeEnvelope(data, size, &result)) {
      json["event"] = result.success ? "stream" : "streamError";
      json["channel"] = channel;
      if (result.success) {
        json["value"] = ToJson(result.value);
      } else {
        json["code"] = result.code;
        json["message"] = result.message;
        json["details"] = ToJson(result.details);
      }
      return json;
    }
  }
  json["event"] = "message";
  json["channel"] = channel;
  std::unique_ptr<flutter::MethodCall<flutter::EncodableValue>> call =
      size == 0 ? nullptr
                : flutter::StandardMethodCodec::GetInstance().DecodeMethodCall(data, size);
  if (call) {
    json["method"] = call->method_name();
    json["args"] = call->arguments() != nullptr ? ToJson(*call->arguments()) : Json();
  } else {
    json["raw"] = Raw(data, size);
  }
  return json;
}

}  // namespace kestrun_headless
