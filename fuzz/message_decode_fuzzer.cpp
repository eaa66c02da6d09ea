// Decodes arbitrary bytes as one standard-codec message. Malformed input must be refused without
// a crash, a leak or undefined behaviour; anything that decodes must encode to bytes that decode
// again and encode to the very same bytes (a stable round trip).
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "fuzz_checks.h"
#include "standard_message_codec.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kestrun_fuzz::SilenceCodecDiagnostics();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const flutter::StandardMessageCodec& codec = flutter::StandardMessageCodec::GetInstance();
  const std::unique_ptr<flutter::EncodableValue> value = codec.DecodeMessage(data, size);
  if (value == nullptr) {
    return 0;
  }

  const std::unique_ptr<std::vector<uint8_t>> first = codec.EncodeMessage(*value);
  kestrun_fuzz::Require(first != nullptr && !first->empty(), "a decoded value encodes");
  const std::unique_ptr<flutter::EncodableValue> again = codec.DecodeMessage(*first);
  kestrun_fuzz::Require(again != nullptr, "re-encoded bytes decode");
  const std::unique_ptr<std::vector<uint8_t>> second = codec.EncodeMessage(*again);
  kestrun_fuzz::Require(*second == *first, "the round trip is stable");
  return 0;
}
