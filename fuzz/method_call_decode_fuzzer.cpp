// Decodes arbitrary bytes the two ways a channel does: as an incoming method call and as the reply
// envelope of an outgoing one. Neither may crash, leak or hit undefined behaviour. A decoded call
// must re-encode to a stable round trip; a decodable envelope must complete its result exactly
// once, and re-encoding that outcome must decode to the same outcome with stable bytes.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz_checks.h"
#include "method_call.h"
#include "method_result_functions.h"
#include "standard_method_codec.h"

namespace {

using flutter::EncodableValue;
using flutter::MethodCall;
using flutter::MethodResultFunctions;
using flutter::StandardMethodCodec;
using kestrun_fuzz::Require;

const StandardMethodCodec& Codec() { return StandardMethodCodec::GetInstance(); }

void CheckMethodCall(const uint8_t* data, size_t size) {
  const std::unique_ptr<MethodCall<>> call = Codec().DecodeMethodCall(data, size);
  if (call == nullptr) {
    return;
  }
  Require(call->arguments() != nullptr, "a decoded call has arguments, null at least");

  const std::unique_ptr<std::vector<uint8_t>> first = Codec().EncodeMethodCall(*call);
  const std::unique_ptr<MethodCall<>> again = Codec().DecodeMethodCall(*first);
  Require(again != nullptr, "a re-encoded call decodes");
  Require(again->method_name() == call->method_name(), "the method name survives");
  Require(*Codec().EncodeMethodCall(*again) == *first, "the call's round trip is stable");
}

// What one envelope told its result.
struct Outcome {
  int successes = 0;
  int errors = 0;
  int not_implemented = 0;
  std::optional<EncodableValue> value;
  std::string code;
  std::string message;
  std::optional<EncodableValue> details;
};

bool DecodeEnvelope(const uint8_t* data, size_t size, Outcome* outcome) {
  MethodResultFunctions<> result(
      [outcome](const EncodableValue* value) {
        ++outcome->successes;
        if (value != nullptr) {
          Require(!value->IsNull(), "a null result is passed as no value");
          outcome->value = *value;
        }
      },
      [outcome](const std::string& code, const std::string& message,
                const EncodableValue* details) {
        ++outcome->errors;
        outcome->code = code;
        outcome->message = message;
        if (details != nullptr) {
          Require(!details->IsNull(), "null details are passed as none");
          outcome->details = *details;
        }
      },
      [outcome]() { ++outcome->not_implemented; });
  return Codec().DecodeAndProcessResponseEnvelope(data, size, &result);
}

std::vector<uint8_t> Reencode(const Outcome& outcome) {
  if (outcome.successes > 0) {
    return *Codec().EncodeSuccessEnvelope(outcome.value ? &*outcome.value : nullptr);
  }
  return *Codec().EncodeErrorEnvelope(outcome.code, outcome.message,
                                      outcome.details ? &*outcome.details : nullptr);
}

void CheckEnvelope(const uint8_t* data, size_t size) {
  Outcome outcome;
  const bool decoded = DecodeEnvelope(data, size, &outcome);
  const int calls = outcome.successes + outcome.errors + outcome.not_implemented;
  Require(outcome.not_implemented == 0, "an envelope never means not implemented");
  Require(calls == (decoded ? 1 : 0), "a decoded envelope completes its result exactly once");
  if (!decoded) {
    return;
  }

  const std::vector<uint8_t> first = Reencode(outcome);
  Outcome again;
  const bool decoded_again = DecodeEnvelope(first.data(), first.size(), &again);
  Require(decoded_again, "a re-encoded envelope decodes");
  Require(again.successes == outcome.successes && again.errors == outcome.errors,
          "the outcome survives");
  Require(again.code == outcome.code && again.message == outcome.message,
          "error code and message survive");
  Require(again.value.has_value() == outcome.value.has_value() &&
              again.details.has_value() == outcome.details.has_value(),
          "presence of value and details survives");
  Require(Reencode(again) == first, "the envelope's round trip is stable");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kestrun_fuzz::SilenceCodecDiagnostics();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CheckMethodCall(data, size);
  CheckEnvelope(data, size);
  return 0;
}
