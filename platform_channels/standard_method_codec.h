// Flutter's standard method codec: calls and envelopes over the standard message codec.
#ifndef KESTRUN_PLATFORM_CHANNELS_STANDARD_METHOD_CODEC_H_
#define KESTRUN_PLATFORM_CHANNELS_STANDARD_METHOD_CODEC_H_

#include "encodable_value.h"
#include "method_codec.h"

namespace flutter {

// Call: method name (string) then arguments. Success envelope: 0 then the result. Error
// envelope: 1, code (string), message (string, or null when empty), details.
class StandardMethodCodec : public MethodCodec<EncodableValue> {
 public:
  // The one instance shared by every channel of the program.
  static const StandardMethodCodec& GetInstance();

 protected:
  std::unique_ptr<MethodCall<EncodableValue>> DecodeMethodCallInternal(
      const uint8_t* message, size_t message_size) const override;
  std::unique_ptr<std::vector<uint8_t>> EncodeMethodCallInternal(
      const MethodCall<EncodableValue>& method_call) const override;
  std::unique_ptr<std::vector<uint8_t>> EncodeSuccessEnvelopeInternal(
      const EncodableValue* result) const override;
  std::unique_ptr<std::vector<uint8_t>> EncodeErrorEnvelopeInternal(
      const std::string& error_code, const std::string& error_message,
      const EncodableValue* error_details) const override;
  bool DecodeAndProcessResponseEnvelopeInternal(
      const uint8_t* response, size_t response_size,
      MethodResult<EncodableValue>* result) const override;

 private:
  StandardMethodCodec() = default;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_STANDARD_METHOD_CODEC_H_
