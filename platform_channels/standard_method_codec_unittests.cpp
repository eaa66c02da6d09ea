// The standard method codec: method calls and reply envelopes, their exact bytes, and what a
// decoded envelope does to the MethodResult it is handed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "codec_test_support.h"
#include "encodable_value.h"
#include "method_call.h"
#include "method_result_functions.h"
#include "standard_codec_serializer.h"
#include "standard_method_codec.h"

namespace flutter {
namespace {

using namespace codec_test;  // NOLINT(build/namespaces)

const StandardMethodCodec& Codec() { return StandardMethodCodec::GetInstance(); }

std::vector<uint8_t> EncodeCall(const std::string& name,
                                std::unique_ptr<EncodableValue> arguments) {
  return *Codec().EncodeMethodCall(MethodCall<>(name, std::move(arguments)));
}

struct DecodedCall {
  std::unique_ptr<MethodCall<>> call;
  std::string printed;
};
DecodedCall DecodeCallCapturing(const std::vector<uint8_t>& bytes) {
  testing::internal::CaptureStderr();
  DecodedCall decoded;
  decoded.call = Codec().DecodeMethodCall(bytes);
  decoded.printed = StripCarriageReturns(testing::internal::GetCapturedStderr());
  return decoded;
}

// Everything a MethodResult was told by one envelope.
struct Outcome {
  bool decoded = false;
  int successes = 0;
  int errors = 0;
  int not_implemented = 0;
  bool has_value = false;
  EncodableValue value;
  std::string code;
  std::string message;
  bool has_details = false;
  EncodableValue details;
  std::string printed;

  int calls() const { return successes + errors + not_implemented; }
};

Outcome DecodeEnvelope(const std::vector<uint8_t>& bytes) {
  Outcome outcome;
  MethodResultFunctions<> result(
      [&outcome](const EncodableValue* value) {
        ++outcome.successes;
        if (value != nullptr) {
          outcome.has_value = true;
          outcome.value = *value;
        }
      },
      [&outcome](const std::string& code, const std::string& message,
                 const EncodableValue* details) {
        ++outcome.errors;
        outcome.code = code;
        outcome.message = message;
        if (details != nullptr) {
          outcome.has_details = true;
          outcome.details = *details;
        }
      },
      [&outcome]() { ++outcome.not_implemented; });
  testing::internal::CaptureStderr();
  outcome.decoded = Codec().DecodeAndProcessResponseEnvelope(bytes.data(), bytes.size(), &result);
  outcome.printed = StripCarriageReturns(testing::internal::GetCapturedStderr());
  return outcome;
}

EncodableValue SomeArguments() {
  return EncodableValue(EncodableMap{
      {EncodableValue("key"), EncodableValue("main")},
      {EncodableValue("volume"), EncodableValue(0.75)},
      {EncodableValue("rect"), EncodableValue(std::vector<double>{0, 0, 1920, 1080})},
      {EncodableValue("ids"), EncodableValue(std::vector<int64_t>{1, 2})},
      {EncodableValue("items"),
       EncodableValue(EncodableList{EncodableValue(true), EncodableValue(int32_t{-3}),
                                    EncodableValue(std::string(260, 'p'))})},
  });
}

// ---------------------------------------------------------------------------------------------
// Method calls

TEST(StandardMethodCodecTest, MethodCallBytes) {
  // Absent arguments go out as null.
  EXPECT_EQ(ToHex(EncodeCall("hello", nullptr)), "07 05 68 65 6c 6c 6f 00");
  // A double argument right after the name is padded from the start of the message.
  EXPECT_EQ(ToHex(EncodeCall("m", std::make_unique<EncodableValue>(1.5))),
            "07 01 6d 06 00 00 00 00 " + HexOf(1.5));
  EXPECT_EQ(
      ToHex(EncodeCall("setVolume", std::make_unique<EncodableValue>(EncodableMap{
                                        {EncodableValue("volume"), EncodableValue(0.5)}}))),
      "07 09 73 65 74 56 6f 6c 75 6d 65 0d 01 07 06 76 6f 6c 75 6d 65 06 00 00 " + HexOf(0.5));
}

TEST(StandardMethodCodecTest, MethodNameMustBeAString) {
  for (const char* hex : {"00 00", "01 00", "03 07 00 00 00 00", "0c 01 07 01 6d 00",
                          "0d 01 07 01 6d 07 01 6d 00", "08 01 6d 00"}) {
    SCOPED_TRACE(hex);
    const DecodedCall decoded = DecodeCallCapturing(FromHex(hex));
    EXPECT_EQ(decoded.call, nullptr);
    EXPECT_EQ(decoded.printed, "Invalid method call; method name is not a string.\n");
  }
}

TEST(StandardMethodCodecTest, MalformedMethodCallsAreRefused) {
  EXPECT_EQ(Codec().DecodeMethodCall(nullptr, 0), nullptr);

  const std::vector<uint8_t> whole =
      EncodeCall("setVideoTopology", std::make_unique<EncodableValue>(SomeArguments()));
  for (std::size_t cut = 1; cut < whole.size(); ++cut) {
    const DecodedCall decoded =
        DecodeCallCapturing(std::vector<uint8_t>(whole.begin(), whole.begin() + cut));
    EXPECT_EQ(decoded.call, nullptr) << "cut at " << cut;
    EXPECT_EQ(decoded.printed, kInvalidRead) << "cut at " << cut;
  }

  const DecodedCall bad_arguments = DecodeCallCapturing(FromHex("07 01 6d 0c 02 01 63"));
  EXPECT_EQ(bad_arguments.call, nullptr);
  EXPECT_EQ(bad_arguments.printed,
            "Unknown type in StandardCodecSerializer::ReadValueOfType: 99\n");
}

// ---------------------------------------------------------------------------------------------
// Envelopes

TEST(StandardMethodCodecTest, SuccessEnvelopeBytes) {
  EXPECT_EQ(ToHex(*Codec().EncodeSuccessEnvelope()), "00 00");
  const EncodableValue null_value;
  EXPECT_EQ(ToHex(*Codec().EncodeSuccessEnvelope(&null_value)), "00 00");
  const EncodableValue answer(42);
  EXPECT_EQ(ToHex(*Codec().EncodeSuccessEnvelope(&answer)), "00 03 2a 00 00 00");
  // The flag byte counts toward alignment.
  const EncodableValue real(1.5);
  EXPECT_EQ(ToHex(*Codec().EncodeSuccessEnvelope(&real)), "00 06 00 00 00 00 00 00 " + HexOf(1.5));
  const EncodableValue int64s(std::vector<int64_t>{7});
  EXPECT_EQ(ToHex(*Codec().EncodeSuccessEnvelope(&int64s)),
            "00 0a 01 00 00 00 00 00 07 00 00 00 00 00 00 00");
  const EncodableValue floats(std::vector<float>{2.0f});
  EXPECT_EQ(ToHex(*Codec().EncodeSuccessEnvelope(&floats)), "00 0e 01 00 00 00 00 40");
}

TEST(StandardMethodCodecTest, ErrorEnvelopeBytes) {
  // An empty message and absent details both go out as null.
  EXPECT_EQ(ToHex(*Codec().EncodeErrorEnvelope("code")), "01 07 04 63 6f 64 65 00 00");
  EXPECT_EQ(ToHex(*Codec().EncodeErrorEnvelope("c", "msg")), "01 07 01 63 07 03 6d 73 67 00");
  const EncodableValue null_details;
  EXPECT_EQ(ToHex(*Codec().EncodeErrorEnvelope("c", "", &null_details)), "01 07 01 63 00 00");
  // Details double: its type byte sits at offset 5, so two bytes of padding.
  const EncodableValue real(2.5);
  EXPECT_EQ(ToHex(*Codec().EncodeErrorEnvelope("c", "", &real)),
            "01 07 01 63 00 06 00 00 " + HexOf(2.5));
  const EncodableValue list(EncodableList{EncodableValue("why")});
  EXPECT_EQ(ToHex(*Codec().EncodeErrorEnvelope("c", "m", &list)),
            "01 07 01 63 07 01 6d 0c 01 07 03 77 68 79");
}

TEST(StandardMethodCodecTest, ErrorEnvelopesReachTheResult) {
  const Outcome bare = DecodeEnvelope(*Codec().EncodeErrorEnvelope("UNAVAILABLE"));
  EXPECT_TRUE(bare.decoded);
  EXPECT_EQ(bare.errors, 1);
  EXPECT_EQ(bare.calls(), 1);
  EXPECT_EQ(bare.code, "UNAVAILABLE");
  EXPECT_EQ(bare.message, "");  // null message
  EXPECT_FALSE(bare.has_details);

  const EncodableValue details = SomeArguments();
  const Outcome full =
      DecodeEnvelope(*Codec().EncodeErrorEnvelope("bad", "no such display", &details));
  EXPECT_TRUE(full.decoded);
  EXPECT_EQ(full.errors, 1);
  EXPECT_EQ(full.code, "bad");
  EXPECT_EQ(full.message, "no such display");
  EXPECT_TRUE(full.has_details);
  EXPECT_EQ(full.details, details);

  // Details that are present but null are not passed on.
  const EncodableValue null_details;
  const Outcome null_passed =
      DecodeEnvelope(*Codec().EncodeErrorEnvelope("bad", "m", &null_details));
  EXPECT_EQ(null_passed.errors, 1);
  EXPECT_FALSE(null_passed.has_details);

  // Falsy details are still details.
  const EncodableValue zero(0);
  const Outcome zero_details = DecodeEnvelope(*Codec().EncodeErrorEnvelope("bad", "", &zero));
  EXPECT_TRUE(zero_details.has_details);
  EXPECT_EQ(zero_details.details, zero);

  // Other senders write an empty message as a string, and may add a stack trace after the details.
  const Outcome from_dart = DecodeEnvelope(FromHex("01 07 01 63 07 00 00 07 05 74 72 61 63 65"));
  EXPECT_TRUE(from_dart.decoded);
  EXPECT_EQ(from_dart.errors, 1);
  EXPECT_EQ(from_dart.code, "c");
  EXPECT_EQ(from_dart.message, "");
  EXPECT_FALSE(from_dart.has_details);
}

TEST(StandardMethodCodecTest, EmptyTypedListsWithoutPaddingCountTheWholeMessage) {
  // The zeros after an unpadded empty list are read against every value the message holds: a
  // call's name and arguments, an envelope's flag and value, an error's code, message and details.
  const Outcome key = DecodeEnvelope(FromHex("00 0c 01 0d 01 09 00 00"));
  EXPECT_TRUE(key.decoded) << key.printed;
  EXPECT_EQ(key.value, EncodableValue(EncodableList{EncodableValue(EncodableMap{
                           {EncodableValue(std::vector<int32_t>{}), EncodableValue()}})}));
  const Outcome details = DecodeEnvelope(FromHex("01 07 01 63 00 0e 00 00"));
  EXPECT_TRUE(details.decoded) << details.printed;
  EXPECT_EQ(details.details, EncodableValue(std::vector<float>{}));
  for (const char* hex : {"07 01 6d 0b 00", "07 01 6d 0b 00 00 00 00"}) {
    const DecodedCall call = DecodeCallCapturing(FromHex(hex));
    ASSERT_NE(call.call, nullptr) << hex;
    EXPECT_EQ(*call.call->arguments(), EncodableValue(std::vector<double>{}));
  }
}

TEST(StandardMethodCodecTest, ValuesNestedTooDeepAreNotEncoded) {
  EncodableValue deep;
  for (int i = 0; i <= StandardCodecSerializer::kMaxNestingDepth; ++i) {
    deep = EncodableValue(EncodableList{std::move(deep)});
  }
  testing::internal::CaptureStderr();
  EXPECT_EQ(Codec().EncodeSuccessEnvelope(&deep), nullptr);
  EXPECT_EQ(Codec().EncodeErrorEnvelope("c", "m", &deep), nullptr);
  EXPECT_EQ(Codec().EncodeMethodCall(MethodCall<>("m", std::make_unique<EncodableValue>(deep))),
            nullptr);
  const std::string line = "Nesting deeper than 256 in StandardCodecSerializer::WriteValue\n";
  EXPECT_EQ(StripCarriageReturns(testing::internal::GetCapturedStderr()), line + line + line);
}

TEST(StandardMethodCodecTest, UndecodableEnvelopesLeaveTheResultAlone) {
  const EncodableValue details = SomeArguments();
  const EncodableValue value(std::vector<double>{1.0, 2.0});

  struct Case {
    std::string name;
    std::vector<uint8_t> bytes;
  };
  std::vector<Case> cases = {
      {"empty", {}},
      {"unknown flag 2", FromHex("02 00")},
      {"unknown flag 255", FromHex("ff 00")},
      // Well-formed error bodies behind a flag that is not the error flag.
      {"unknown flag 2, error body", FromHex("02 07 01 63 00 00")},
      {"unknown flag 128, error body", FromHex("80 07 01 63 07 01 6d 00")},
      {"code not a string", FromHex("01 03 01 00 00 00 00 00")},
      {"message not a string", FromHex("01 07 01 63 03 01 00 00 00 00")},
      {"unknown type", FromHex("00 0f")},
  };
  // Every cut through a success and an error envelope.
  for (const std::vector<uint8_t>& whole :
       {*Codec().EncodeSuccessEnvelope(&value),
        *Codec().EncodeErrorEnvelope("code", "message", &details)}) {
    for (std::size_t cut = 1; cut < whole.size(); ++cut) {
      cases.push_back({"flag " + std::to_string(whole[0]) + " cut at " + std::to_string(cut),
                       std::vector<uint8_t>(whole.begin(), whole.begin() + cut)});
    }
  }

  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome outcome = DecodeEnvelope(c.bytes);
    EXPECT_FALSE(outcome.decoded);
    EXPECT_EQ(outcome.calls(), 0);
    if (c.name.find("cut at") != std::string::npos) {
      EXPECT_EQ(outcome.printed, kInvalidRead);
    }
  }
}

}  // namespace
}  // namespace flutter
