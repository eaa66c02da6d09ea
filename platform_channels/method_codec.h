// Turns method calls and their reply envelopes into bytes and back.
#ifndef KESTRUN_PLATFORM_CHANNELS_METHOD_CODEC_H_
#define KESTRUN_PLATFORM_CHANNELS_METHOD_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "method_call.h"
#include "method_result.h"

namespace flutter {

template <typename T>
class MethodCodec {
 public:
  MethodCodec() = default;
  virtual ~MethodCodec() = default;

  MethodCodec(const MethodCodec&) = delete;
  MethodCodec& operator=(const MethodCodec&) = delete;

  // Null when the message is not a method call.
  std::unique_ptr<MethodCall<T>> DecodeMethodCall(const uint8_t* message,
                                                  size_t message_size) const {
    return DecodeMethodCallInternal(message, message_size);
  }
  std::unique_ptr<MethodCall<T>> DecodeMethodCall(const std::vector<uint8_t>& message) const {
    return DecodeMethodCallInternal(message.data(), message.size());
  }

  // Each encoder answers null when a value cannot be written (nested too deep); the reason has
  // been printed, and nothing is to be sent.
  std::unique_ptr<std::vector<uint8_t>> EncodeMethodCall(const MethodCall<T>& method_call) const {
    return EncodeMethodCallInternal(method_call);
  }

  // `result` may be null: the envelope then carries a null value.
  std::unique_ptr<std::vector<uint8_t>> EncodeSuccessEnvelope(const T* result = nullptr) const {
    return EncodeSuccessEnvelopeInternal(result);
  }

  std::unique_ptr<std::vector<uint8_t>> EncodeErrorEnvelope(const std::string& error_code,
                                                            const std::string& error_message = "",
                                                            const T* error_details = nullptr) const {
    return EncodeErrorEnvelopeInternal(error_code, error_message, error_details);
  }

  // Decodes a reply envelope and completes `result` with it. False when the envelope cannot be
  // decoded (the result is then left untouched).
  bool DecodeAndProcessResponseEnvelope(const uint8_t* response, size_t response_size,
                                        MethodResult<T>* result) const {
    return DecodeAndProcessResponseEnvelopeInternal(response, response_size, result);
  }

 protected:
  virtual std::unique_ptr<MethodCall<T>> DecodeMethodCallInternal(const uint8_t* message,
                                                                  size_t message_size) const = 0;
  virtual std::unique_ptr<std::vector<uint8_t>> EncodeMethodCallInternal(
      const MethodCall<T>& method_call) const = 0;
  virtual std::unique_ptr<std::vector<uint8_t>> EncodeSuccessEnvelopeInternal(
      const T* result) const = 0;
  virtual std::unique_ptr<std::vector<uint8_t>> EncodeErrorEnvelopeInternal(
      const std::string& error_code, const std::string& error_message,
      const T* error_details) const = 0;
  virtual bool DecodeAndProcessResponseEnvelopeInternal(const uint8_t* response,
                                                        size_t response_size,
                                                        MethodResult<T>* result) const = 0;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_METHOD_CODEC_H_
