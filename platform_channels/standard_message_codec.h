// Flutter's standard message codec over EncodableValue.
#ifndef KESTRUN_PLATFORM_CHANNELS_STANDARD_MESSAGE_CODEC_H_
#define KESTRUN_PLATFORM_CHANNELS_STANDARD_MESSAGE_CODEC_H_

#include "encodable_value.h"
#include "message_codec.h"
#include "standard_codec_serializer.h"

namespace flutter {

class StandardMessageCodec : public MessageCodec<EncodableValue> {
 public:
  // One shared instance.
  static const StandardMessageCodec& GetInstance();

 protected:
  // A null or empty message decodes as a null value; malformed input answers null.
  std::unique_ptr<EncodableValue> DecodeMessageInternal(const uint8_t* binary_message,
                                                        size_t message_size) const override;
  std::unique_ptr<std::vector<uint8_t>> EncodeMessageInternal(
      const EncodableValue& message) const override;

 private:
  StandardMessageCodec() = default;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_STANDARD_MESSAGE_CODEC_H_
