#include "standard_message_codec.h"

namespace flutter {

const StandardMessageCodec& StandardMessageCodec::GetInstance() {
  static const StandardMessageCodec instance;
  return instance;
}

std::unique_ptr<EncodableValue> StandardMessageCodec::DecodeMessageInternal(
    const uint8_t* binary_message, size_t message_size) const {
  if (binary_message == nullptr || message_size == 0) {
    return std::make_unique<EncodableValue>();
  }
  ByteBufferStreamReader stream(binary_message, message_size);
  StandardCodecSerializer::GetInstance().PlanReading(&stream, 1);
  auto value = std::make_unique<EncodableValue>(
      StandardCodecSerializer::GetInstance().ReadValue(&stream));
  if (stream.failed()) {
    return nullptr;
  }
  return value;
}

std::unique_ptr<std::vector<uint8_t>> StandardMessageCodec::EncodeMessageInternal(
    const EncodableValue& message) const {
  auto encoded = std::make_unique<std::vector<uint8_t>>();
  ByteBufferStreamWriter stream(encoded.get());
  StandardCodecSerializer::GetInstance().WriteValue(message, &stream);
  if (stream.failed()) {
    return nullptr;
  }
  return encoded;
}

}  // namespace flutter
