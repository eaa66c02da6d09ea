// The control protocol's JSON: what it relies on in reading and writing lines, and the exact
// mapping to and from channel values (typed forms), checked in both directions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "encodable_json.h"
#include "standard_message_codec.h"

namespace kestrun_headless {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::HasSubstr;

// Channel values compared as the codec writes them: bit-exact doubles (NaN, -0.0) and kinds.
std::vector<uint8_t> Bytes(const EncodableValue& value) {
  return *flutter::StandardMessageCodec::GetInstance().EncodeMessage(value);
}

Json Parsed(const std::string& text) {
  std::string error;
  std::optional<Json> value = ParseJsonLine(text, &error);
  EXPECT_TRUE(value.has_value()) << text << ": " << error;
  return value.value_or(Json());
}

EncodableValue FromText(const std::string& text) {
  EncodableValue value;
  std::string error;
  EXPECT_TRUE(JsonToEncodable(Parsed(text), &value, &error)) << text << ": " << error;
  return value;
}

// What the protocol relies on in reading and writing text (the rest is the library's own work).
TEST(JsonTextTest, ValuesKeepTheirShapeThroughText) {
  // Member order is kept, the last of repeated names wins, nesting comes back whole.
  const Json value =
      Parsed(R"({"z":[1,-2,[true,null,{"k":"\u00e9"}]],"a":{"b":{}},"z":"last","e":[]})");
  EXPECT_EQ(JsonLine(value), "{\"z\":\"last\",\"a\":{\"b\":{}},\"e\":[]}");
  // Invalid UTF-8 is written as U+FFFD so the line stays valid UTF-8.
  EXPECT_EQ(JsonLine(Json(std::string("a\xFF" "b"))), "\"a\xEF\xBF\xBD" "b\"");

  for (const char* text : {"", "{", "[1,]", "{\"a\" 1}", "01", "[1] 2", "nan"}) {
    std::string error;
    EXPECT_FALSE(ParseJsonLine(text, &error).has_value()) << text;
    EXPECT_THAT(error, HasSubstr("offset")) << text;
  }
  // Deep nesting is refused rather than overflowing the stack of copies, writing or the mapping.
  std::string error;
  EXPECT_FALSE(ParseJsonLine(std::string(100000, '['), &error).has_value());
  EXPECT_THAT(error, HasSubstr("nested too deeply"));
  EXPECT_TRUE(ParseJsonLine(std::string(150, '[') + std::string(150, ']')).has_value());
}

// Every kind of channel value with the text it is written as: the plain form whenever that reads
// back as the same kind, a typed form otherwise. Both directions are exact.
TEST(EncodableJsonTest, EveryKindIsWrittenAsItsFormAndReadBackExactly) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  using Bytes8 = std::vector<uint8_t>;
  const EncodableMap string_keyed{{EncodableValue("n"), EncodableValue(int32_t{7})},
                                  {EncodableValue("name"), EncodableValue("\xC3\xA9t\xC3\xA9")}};
  const std::pair<const char*, EncodableValue> cases[] = {
      {"null", EncodableValue()},
      {"true", EncodableValue(true)},
      {"2147483647", EncodableValue(int32_t{2147483647})},
      {"-2147483648", EncodableValue(int32_t{-2147483647 - 1})},
      {"2147483648", EncodableValue(int64_t{2147483648})},
      {"-2147483649", EncodableValue(int64_t{-2147483649})},
      {"-9223372036854775808", EncodableValue(std::numeric_limits<int64_t>::min())},
      {R"({"int64":5})", EncodableValue(int64_t{5})},
      {"3.0", EncodableValue(3.0)},
      {"-0.0", EncodableValue(-0.0)},
      // Doubles are written so that they read back as the same doubles.
      {"1e+300", EncodableValue(1e300)},
      {"-2.5e-300", EncodableValue(-2.5e-300)},
      {"1.2345678901234568e+17", EncodableValue(123456789012345678.0)},
      {"5e-324", EncodableValue(std::numeric_limits<double>::denorm_min())},
      {R"({"double":"NaN"})", EncodableValue(nan)},
      {R"({"double":"-Infinity"})", EncodableValue(-infinity)},
      {R"("")", EncodableValue(std::string())},
      {R"({"bytes":""})", EncodableValue(Bytes8{})},
      {R"({"bytes":"AID/Bw=="})", EncodableValue(Bytes8{0, 128, 255, 7})},
      {R"({"bytes":"Zm9vYmE="})", EncodableValue(Bytes8{'f', 'o', 'o', 'b', 'a'})},
      {R"({"int32List":[-2147483648,0]})",
       EncodableValue(std::vector<int32_t>{std::numeric_limits<int32_t>::min(), 0})},
      {R"({"int64List":[9223372036854775807,9007199254740993]})",
       EncodableValue(std::vector<int64_t>{std::numeric_limits<int64_t>::max(), 9007199254740993})},
      {R"({"float64List":[0.1,"NaN","Infinity",-0.0]})",
       EncodableValue(std::vector<double>{0.1, nan, infinity, -0.0})},
      {R"({"float32List":[0.10000000149011612,"-Infinity",)"
       R"(1.401298464324817e-45,3.4028234663852886e+38]})",
       EncodableValue(std::vector<float>{0.1f, -std::numeric_limits<float>::infinity(), 1e-45f,
                                         3.4028235e38f})},
      {"[]", EncodableValue(EncodableList{})},
      {"{}", EncodableValue(EncodableMap{})},
      {"{\"n\":7,\"name\":\"\xC3\xA9t\xC3\xA9\"}", EncodableValue(string_keyed)},
      // Keys that are not strings, and a single member named like a typed form.
      {R"({"map":[[null,true],[1,"one"],[2.5,[]]]})",
       EncodableValue(EncodableMap{{EncodableValue(), EncodableValue(true)},
                                   {EncodableValue(int32_t{1}), EncodableValue("one")},
                                   {EncodableValue(2.5), EncodableValue(EncodableList{})}})},
      {R"({"map":[["int32",{"int64":-1}]]})",
       EncodableValue(EncodableMap{{EncodableValue("int32"), EncodableValue(int64_t{-1})}})},
      {"[{\"n\":7,\"name\":\"\xC3\xA9t\xC3\xA9\"},[{\"int64\":2}]]",
       EncodableValue(EncodableList{EncodableValue(string_keyed),
                                    EncodableValue(EncodableList{EncodableValue(int64_t{2})})})},
  };
  for (const auto& [text, value] : cases) {
    Json json;
    ASSERT_TRUE(EncodableToJson(value, &json)) << text;
    EXPECT_EQ(JsonLine(json), text);
    EXPECT_EQ(Bytes(FromText(text)), Bytes(value)) << text;
  }
}

// Reading also takes forms the engine does not write.
TEST(JsonToEncodableTest, OtherFormsReadAsTheKindTheyName) {
  using Bytes8 = std::vector<uint8_t>;
  const std::pair<const char*, EncodableValue> cases[] = {
      {"2", EncodableValue(int32_t{2})},
      {"2e3", EncodableValue(2000.0)},
      {"5e0", EncodableValue(5.0)},
      // Beyond the signed 64-bit range an integer can only be a double.
      {"9223372036854775808", EncodableValue(9223372036854775808.0)},
      {R"({"int32":-5})", EncodableValue(int32_t{-5})},
      {R"({"double":5})", EncodableValue(5.0)},
      {R"({"bytes":[0,1,255]})", EncodableValue(Bytes8{0, 1, 255})},
      {R"({"bytes":"AAH/"})", EncodableValue(Bytes8{0, 1, 255})},
      {R"({"bytes":"Zm8"})", EncodableValue(Bytes8{'f', 'o'})},  // padding left out
      {R"({"float32List":[0.5,2]})", EncodableValue(std::vector<float>{0.5f, 2.0f})},
      // Other objects are maps with string keys, including one that merely has a typed name
      // among several members.
      {R"({"int32":1,"b":2})",
       EncodableValue(EncodableMap{{EncodableValue("int32"), EncodableValue(int32_t{1})},
                                   {EncodableValue("b"), EncodableValue(int32_t{2})}})},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(Bytes(FromText(text)), Bytes(expected)) << text;
  }
}

TEST(JsonToEncodableTest, TypedFormsOfTheWrongShapeAreErrors) {
  for (const char* text :
       {R"({"int32":2147483648})", R"({"int32":1.5})", R"({"int64":"5"})", R"({"double":"nan"})",
        R"({"bytes":"A"})", R"({"bytes":"a*=="})", R"({"bytes":"Zm9=v"})", R"({"bytes":"Zh=="})",
        R"({"bytes":"Zm 8"})", R"({"bytes":[256]})", R"({"int32List":[1.0]})",
        R"({"int64List":{}})", R"({"float32List":[1e39]})", R"({"map":[[1]]})",
        R"({"map":[[1,2],[1,3]]})", R"([1,{"int32":"x"}])"}) {
    EncodableValue value;
    std::string error;
    EXPECT_FALSE(JsonToEncodable(Parsed(text), &value, &error)) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
}

TEST(EncodableJsonTest, CustomValuesHaveNoJsonForm) {
  Json json;
  std::string error;
  EXPECT_FALSE(EncodableToJson(
      EncodableValue(EncodableList{EncodableValue(flutter::CustomEncodableValue(42))}), &json,
      &error));
  EXPECT_THAT(error, HasSubstr("custom"));
}

}  // namespace
}  // namespace kestrun_headless
