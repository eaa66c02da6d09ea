// The control protocol's JSON: what it relies on in text, and the exact mapping to and from
// channel values (typed forms), checked through round trips.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
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

// Channel value -> JSON text -> channel value, as it travels on the connection.
EncodableValue ThroughText(const EncodableValue& value) {
  Json json;
  std::string error;
  EXPECT_TRUE(EncodableToJson(value, &json, &error)) << error;
  return FromText(JsonLine(json));
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

TEST(JsonTextTest, NumbersKeepTheirKind) {
  EXPECT_TRUE(Parsed("5").is_number_integer());
  EXPECT_TRUE(Parsed("5.0").is_number_float());
  EXPECT_TRUE(Parsed("5e0").is_number_float());
  EXPECT_EQ(Parsed("-9223372036854775808"), std::numeric_limits<int64_t>::min());
  // Beyond the signed 64-bit range an integer can only be a double.
  EXPECT_TRUE(Parsed("9223372036854775808").is_number_float());
  // Doubles are written so that they read back as the same doubles; JSON has no non-finite ones.
  for (double value : {3.0, -0.0, 0.1, 1e300, -2.5e-300, 123456789012345678.0,
                       std::numeric_limits<double>::denorm_min()}) {
    const std::string text = JsonLine(Json(value));
    const Json back = Parsed(text);
    ASSERT_TRUE(back.is_number_float()) << text;
    const double read = back.get<double>();
    EXPECT_EQ(std::memcmp(&value, &read, sizeof(double)), 0) << text;
  }
  EXPECT_EQ(JsonLine(Json(std::numeric_limits<double>::quiet_NaN())), "null");
}

TEST(JsonToEncodableTest, PlainAndTypedFormsGiveTheirKinds) {
  using Bytes8 = std::vector<uint8_t>;
  const std::pair<const char*, EncodableValue> cases[] = {
      // Plain integers are int32 when they fit; a fraction or an exponent makes a double.
      {"2147483647", EncodableValue(int32_t{2147483647})},
      {"-2147483648", EncodableValue(int32_t{-2147483647 - 1})},
      {"2147483648", EncodableValue(int64_t{2147483648})},
      {"-2147483649", EncodableValue(int64_t{-2147483649})},
      {"2.0", EncodableValue(2.0)},
      {"2e3", EncodableValue(2000.0)},
      // Typed forms say what plain JSON cannot.
      {R"({"int64":5})", EncodableValue(int64_t{5})},
      {R"({"int32":-5})", EncodableValue(int32_t{-5})},
      {R"({"double":5})", EncodableValue(5.0)},
      {R"({"double":"-Infinity"})", EncodableValue(-std::numeric_limits<double>::infinity())},
      {R"({"bytes":[0,1,255]})", EncodableValue(Bytes8{0, 1, 255})},
      {R"({"int32List":[1,-1]})", EncodableValue(std::vector<int32_t>{1, -1})},
      {R"({"int64List":[1,9007199254740993]})",
       EncodableValue(std::vector<int64_t>{1, 9007199254740993})},
      {R"({"float32List":[0.5,2]})", EncodableValue(std::vector<float>{0.5f, 2.0f})},
      {R"({"float64List":[0.5,2]})", EncodableValue(std::vector<double>{0.5, 2.0})},
      {R"({"map":[[1,"one"],[null,true]]})",
       EncodableValue(EncodableMap{{EncodableValue(int32_t{1}), EncodableValue("one")},
                                   {EncodableValue(), EncodableValue(true)}})},
      // Other objects are maps with string keys, including one that merely has a typed name
      // among several members.
      {R"({"int32":1,"b":2})",
       EncodableValue(EncodableMap{{EncodableValue("int32"), EncodableValue(int32_t{1})},
                                   {EncodableValue("b"), EncodableValue(int32_t{2})}})},
      // Bytes in standard base64; the padding may be left out.
      {R"({"bytes":"AAH/"})", EncodableValue(Bytes8{0, 1, 255})},
      {R"({"bytes":""})", EncodableValue(Bytes8{})},
      {R"({"bytes":"Zg=="})", EncodableValue(Bytes8{'f'})},
      {R"({"bytes":"Zm8="})", EncodableValue(Bytes8{'f', 'o'})},
      {R"({"bytes":"Zm8"})", EncodableValue(Bytes8{'f', 'o'})},
      {R"({"bytes":"Zm9vYmFy"})", EncodableValue(Bytes8{'f', 'o', 'o', 'b', 'a', 'r'})},
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

TEST(EncodableJsonRoundTripTest, EveryKindComesBackExactly) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinity = std::numeric_limits<double>::infinity();
  EncodableMap string_keyed{{EncodableValue("name"), EncodableValue("\xC3\xA9t\xC3\xA9")},
                            {EncodableValue("n"), EncodableValue(int32_t{7})}};
  const EncodableValue values[] = {
      EncodableValue(),
      EncodableValue(true),
      EncodableValue(int32_t{-1}),
      EncodableValue(int64_t{5}),  // fits int32: needs the typed form
      EncodableValue(int64_t{1} << 40),
      EncodableValue(3.0),
      EncodableValue(-0.0),
      EncodableValue(nan),
      EncodableValue(-infinity),
      EncodableValue(std::string()),
      EncodableValue(std::vector<uint8_t>{}),
      EncodableValue(std::vector<uint8_t>{0, 128, 255, 7}),
      EncodableValue(std::vector<int32_t>{std::numeric_limits<int32_t>::min(), 0}),
      EncodableValue(std::vector<int64_t>{std::numeric_limits<int64_t>::max(), 1}),
      EncodableValue(std::vector<double>{0.1, nan, infinity, -0.0}),
      EncodableValue(std::vector<float>{0.1f, -std::numeric_limits<float>::infinity(), 1e-45f,
                                        3.4028235e38f}),
      EncodableValue(EncodableList{}),
      EncodableValue(EncodableMap{}),
      EncodableValue(string_keyed),
      // Keys that are not strings, and a single member named like a typed form.
      EncodableValue(EncodableMap{{EncodableValue(int32_t{1}), EncodableValue("one")},
                                  {EncodableValue(2.5), EncodableValue(EncodableList{})}}),
      EncodableValue(EncodableMap{{EncodableValue("int32"), EncodableValue(int32_t{1})}}),
      EncodableValue(EncodableMap{{EncodableValue("map"), EncodableValue()}}),
      EncodableValue(EncodableList{EncodableValue(string_keyed),
                                   EncodableValue(EncodableList{EncodableValue(int64_t{2})})}),
  };
  for (const EncodableValue& value : values) {
    Json json;
    ASSERT_TRUE(EncodableToJson(value, &json));
    EXPECT_EQ(Bytes(ThroughText(value)), Bytes(value)) << JsonLine(json);
  }
}

TEST(EncodableJsonRoundTripTest, JsonTextComesBackExactly) {
  // JSON (in its canonical written form) -> channel value -> JSON text.
  for (const char* text :
       {R"({"a":[1,2.5,{"int64":3},{"bytes":"AQI="},null],"b":{"map":[[1,true]]}})",
        R"([{"double":"NaN"},{"int32List":[]},{"float32List":[0.5,"Infinity"]},4294967296])",
        R"({"map":[["int32",{"int64":-1}]]})"}) {
    EXPECT_EQ(JsonLine(ToJson(FromText(text))), text);
  }
}

TEST(EncodableJsonRoundTripTest, CustomValuesHaveNoJsonForm) {
  Json json;
  std::string error;
  EXPECT_FALSE(EncodableToJson(
      EncodableValue(EncodableList{EncodableValue(flutter::CustomEncodableValue(42))}), &json,
      &error));
  EXPECT_THAT(error, HasSubstr("custom"));
}

}  // namespace
}  // namespace kestrun_headless
