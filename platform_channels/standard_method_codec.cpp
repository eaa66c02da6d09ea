#include "standard_method_codec.h"

#include <iostream>

#include "byte_stream_reader.h"
#include "byte_stream_writer.h"
#include "standard_codec_serializer.h"

namespace flutter {

namespace {
constexpr uint8_t kSuccessEnvelope = 0;
constexpr uint8_t kErrorEnvelope = 1;

const StandardCodecSerializer& Serializer() { return StandardCodecSerializer::GetInstance(); }

// The encoded message, or null when the serializer refused a value (nothing is to be sent).
std::unique_ptr<std::vector<uint8_t>> Finished(std::unique_ptr<std::vector<uint8_t>> encoded,
                                               const ByteBufferStreamWriter& stream) {
  return stream.failed() ? nullptr : std::move(encoded);
}
}  // namespace

const StandardMethodCodec& StandardMethodCodec::GetInstance() {
  static const StandardMethodCodec instance;
  return instance;
}

std::unique_ptr<MethodCall<EncodableValue>> StandardMethodCodec::DecodeMethodCallInternal(
    const uint8_t* message, size_t message_size) const {
  if (message == nullptr || message_size == 0) {
    return nullptr;
  }
  ByteBufferStreamReader stream(message, message_size);
  Serializer().PlanReading(&stream, 2);
  EncodableValue method_name = Serializer().ReadValue(&stream);
  if (stream.failed()) {
    return nullptr;
  }
  const auto* name = std::get_if<std::string>(&method_name);
  if (name == nullptr) {
    std::cerr << "Invalid method call; method name is not a string." << std::endl;
    return nullptr;
  }
  auto arguments = std::make_unique<EncodableValue>(Serializer().ReadValue(&stream));
  if (stream.failed()) {
    return nullptr;
  }
  return std::make_unique<MethodCall<EncodableValue>>(*name, std::move(arguments));
}

std::unique_ptr<std::vector<uint8_t>> StandardMethodCodec::EncodeMethodCallInternal(
    const MethodCall<EncodableValue>& method_call) const {
  auto encoded = std::make_unique<std::vector<uint8_t>>();
  ByteBufferStreamWriter stream(encoded.get());
  Serializer().WriteValue(EncodableValue(method_call.method_name()), &stream);
  if (method_call.arguments() != nullptr) {
    Serializer().WriteValue(*method_call.arguments(), &stream);
  } else {
    Serializer().WriteValue(EncodableValue(), &stream);
  }
  return Finished(std::move(encoded), stream);
}

std::unique_ptr<std::vector<uint8_t>> StandardMethodCodec::EncodeSuccessEnvelopeInternal(
    const EncodableValue* result) const {
  auto encoded = std::make_unique<std::vector<uint8_t>>();
  ByteBufferStreamWriter stream(encoded.get());
  stream.WriteByte(kSuccessEnvelope);
  if (result != nullptr) {
    Serializer().WriteValue(*result, &stream);
  } else {
    Serializer().WriteValue(EncodableValue(), &stream);
  }
  return Finished(std::move(encoded), stream);
}

std::unique_ptr<std::vector<uint8_t>> StandardMethodCodec::EncodeErrorEnvelopeInternal(
    const std::string& error_code, const std::string& error_message,
    const EncodableValue* error_details) const {
  auto encoded = std::make_unique<std::vector<uint8_t>>();
  ByteBufferStreamWriter stream(encoded.get());
  stream.WriteByte(kErrorEnvelope);
  Serializer().WriteValue(EncodableValue(error_code), &stream);
  if (error_message.empty()) {
    Serializer().WriteValue(EncodableValue(), &stream);
  } else {
    Serializer().WriteValue(EncodableValue(error_message), &stream);
  }
  if (error_details != nullptr) {
    Serializer().WriteValue(*error_details, &stream);
  } else {
    Serializer().WriteValue(EncodableValue(), &stream);
  }
  return Finished(std::move(encoded), stream);
}

bool StandardMethodCodec::DecodeAndProcessResponseEnvelopeInternal(
    const uint8_t* response, size_t response_size, MethodResult<EncodableValue>* result) const {
  if (response == nullptr || response_size == 0) {
    return false;
  }
  ByteBufferStreamReader stream(response, response_size);
  const uint8_t flag = stream.ReadByte();
  if (flag == kSuccessEnvelope) {
    Serializer().PlanReading(&stream, 1);
    EncodableValue value = Serializer().ReadValue(&stream);
    if (stream.failed()) {
      return false;
    }
    if (value.IsNull()) {
      result->Success();
    } else {
      result->Success(value);
    }
    return true;
  }
  if (flag == kErrorEnvelope) {
    // Code, message and details; a stack trace some senders add after them is not read.
    Serializer().PlanReading(&stream, 3);
    EncodableValue code = Serializer().ReadValue(&stream);
    EncodableValue message = Serializer().ReadValue(&stream);
    EncodableValue details = Serializer().ReadValue(&stream);
    const auto* code_text = std::get_if<std::string>(&code);
    const auto* message_text = std::get_if<std::string>(&message);
    if (stream.failed() || code_text == nullptr || (message_text == nullptr && !message.IsNull())) {
      return false;
    }
    const std::string message_or_empty = message_text != nullptr ? *message_text : std::string();
    if (details.IsNull()) {
      result->Error(*code_text, message_or_empty);
    } else {
      result->Error(*code_text, message_or_empty, details);
    }
    return true;
  }
  return false;
}

}  // namespace flutter
