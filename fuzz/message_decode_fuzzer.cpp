// Decodes arbitrary bytes as one standard-codec message. Malformed input must be refused without
// a crash, a leak or undefined behaviour; anything that decodes must encode to bytes that decode
// again and encode to the very same bytes (a stable round trip). Small inputs are also read every
// way their empty typed lists allow (padding or values), padded first, list by list: the codec's
// answer must be the first of those readings that completes, or none when none does.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "byte_stream_reader.h"
#include "fuzz_checks.h"
#include "standard_codec_serializer.h"
#include "standard_message_codec.h"

namespace {

using flutter::ByteBufferStreamReader;
using flutter::EncodableValue;

constexpr size_t kMaxExhaustiveSize = 64;
constexpr size_t kMaxExhaustiveChoices = 10;

// The element size of a padded typed list whose zero count, in any of the size forms (one byte,
// 254 + uint16, 255 + uint32), ends just before `at`; 0 when there is none.
size_t AlignmentBeforeZeroCount(const uint8_t* data, size_t at) {
  static const std::vector<uint8_t> kZeroCounts[] = {{0}, {254, 0, 0}, {255, 0, 0, 0, 0}};
  for (const std::vector<uint8_t>& count : kZeroCounts) {
    if (at > count.size() && std::equal(count.begin(), count.end(), data + at - count.size())) {
      const uint8_t type = data[at - count.size() - 1];
      if (type == 9 || type == 14) {
        return 4;
      }
      if (type == 10 || type == 11) {
        return 8;
      }
    }
  }
  return 0;
}

// Positions just past a zero count of a padded typed list, followed by the zeros its padding
// would be. Some may not be token boundaries at all; the reader never asks about those.
std::vector<size_t> Candidates(const uint8_t* data, size_t size) {
  std::vector<size_t> candidates;
  for (size_t at = 2; at < size; ++at) {
    const size_t alignment = AlignmentBeforeZeroCount(data, at);
    if (alignment == 0 || at % alignment == 0) {
      continue;
    }
    const size_t padding = alignment - at % alignment;
    bool zeros = at + padding <= size;
    for (size_t i = 0; zeros && i < padding; ++i) {
      zeros = data[at + i] == 0;
    }
    if (zeros) {
      candidates.push_back(at);
    }
  }
  return candidates;
}

// Depth first over the candidates in message order, padding before values.
std::optional<EncodableValue> FirstCompleteReading(const uint8_t* data, size_t size,
                                                   const std::vector<size_t>& candidates,
                                                   size_t next, std::vector<size_t>* unpadded) {
  if (next == candidates.size()) {
    ByteBufferStreamReader reader(data, size);
    reader.SetUnpaddedEmptyLists(*unpadded);
    EncodableValue value = flutter::StandardCodecSerializer::GetInstance().ReadValue(&reader);
    if (reader.failed()) {
      return std::nullopt;
    }
    return value;
  }
  if (auto padded = FirstCompleteReading(data, size, candidates, next + 1, unpadded)) {
    return padded;
  }
  unpadded->push_back(candidates[next]);
  auto value = FirstCompleteReading(data, size, candidates, next + 1, unpadded);
  unpadded->pop_back();
  return value;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kestrun_fuzz::SilenceCodecDiagnostics();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const flutter::StandardMessageCodec& codec = flutter::StandardMessageCodec::GetInstance();
  const std::unique_ptr<EncodableValue> value = codec.DecodeMessage(data, size);

  if (size > 0 && size <= kMaxExhaustiveSize) {
    const std::vector<size_t> candidates = Candidates(data, size);
    if (candidates.size() <= kMaxExhaustiveChoices) {
      std::vector<size_t> unpadded;
      const std::optional<EncodableValue> expected =
          FirstCompleteReading(data, size, candidates, 0, &unpadded);
      kestrun_fuzz::Require(expected.has_value() == (value != nullptr),
                            "decodes exactly when some reading completes");
      if (expected) {
        kestrun_fuzz::Require(*codec.EncodeMessage(*expected) == *codec.EncodeMessage(*value),
                              "the first complete reading, padded first, is the one taken");
      }
    }
  }
  if (value == nullptr) {
    return 0;
  }

  const std::unique_ptr<std::vector<uint8_t>> first = codec.EncodeMessage(*value);
  kestrun_fuzz::Require(first != nullptr && !first->empty(), "a decoded value encodes");
  const std::unique_ptr<EncodableValue> again = codec.DecodeMessage(*first);
  kestrun_fuzz::Require(again != nullptr, "re-encoded bytes decode");
  const std::unique_ptr<std::vector<uint8_t>> second = codec.EncodeMessage(*again);
  kestrun_fuzz::Require(*second == *first, "the round trip is stable");
  return 0;
}
