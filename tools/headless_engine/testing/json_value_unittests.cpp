// The control protocol's JSON: what it relies on in text, and the exact mapping to and from
// channel values (typed forms), checked through round trips.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "base64.h"
#include "json_value.h"
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

JsonValue Parsed(const std::string& text) {
  std::string error;
  std::optional<JsonValue> value = JsonValue::Parse(text, &error);
  EXPECT_TRUE(value.has_value()) << text << ": " << error;
  return value.value_or(JsonValue());
}

EncodableValue FromText(const std::string& text) {
  EncodableValue value;
  std::string error;
  EXPECT_TRUE(JsonToEncodable(Parsed(text), &value, &error)) << text << ": " << error;
  return value;
}

// Channel value -> JSON text -> channel value, as it travels on the connection.
EncodableValue ThroughText(const EncodableValue& value) {
  JsonValue json;
  std::string error;
  EXPECT_TRUE(EncodableToJson(value, &json, &error)) << error;
  return FromText(json.Serialize());
}

// What the protocol relies on in reading and writing text (the rest is the library's own work).
TEST(JsonTextTest, ValuesKeepTheirShapeThroughText) {
  // Member order is kept, the last of repeated names wins, nesting comes back whole.
  const JsonValue value =
      Parsed(R"({"z":[1,-2,[true,null,{"k":"\u00e9"}]],"a":{"b":{}},"z":"last","e":[]})");
  EXPECT_EQ(value.Serialize(), "{\"z\":\"last\",\"a\":{\"b\":{}},\"e\":[]}");
  // Invalid UTF-8 is written as U+FFFD so the line stays valid UTF-8.
  EXPECT_EQ(JsonValue(std::string("a\xFF" "b")).Serialize(), "\"a\xEF\xBF\xBD" "b\"");

  for (const char* text : {"", "{", "[1,]", "{\"a\" 1}", "01", "[1] 2", "nan"}) {
    std::string error;
    EXPECT_FALSE(JsonValue::Parse(text, &error).has_value()) << text;
    EXPECT_THAT(error, HasSubstr("offset")) << text;
  }
  // Deep nesting is refused rather than overflowing the stack of the value's own copies.
  std::string error;
  EXPECT_FALSE(JsonValue::Parse(std::string(100000, '['), &error).has_value());
  EXPECT_THAT(error, HasSubstr("nested too deeply"));
}

TEST(JsonTextTest, NumbersKeepTheirKind) {
  EXPECT_TRUE(Parsed("5").IsInteger());
  EXPECT_TRUE(Parsed("5.0").IsDouble());
  EXPECT_TRUE(Parsed("5e0").IsDouble());
  EXPECT_EQ(Parsed("-9223372036854775808").AsInteger(), std::numeric_limits<int64_t>::min());
  // Beyond the 64-bit range an integer can only be a double.
  EXPECT_TRUE(Parsed("9223372036854775808").IsDouble());
  // Doubles are written so that they read back as the same doubles; JSON has no non-finite ones.
  for (double value : {3.0, -0.0, 0.1, 1e300, -2.5e-300, 123456789012345678.0,
                       std::numeric_limits<double>::denorm_min()}) {
    JsonValue back = Parsed(JsonValue(value).Serialize());
    ASSERT_TRUE(back.IsDouble()) << JsonValue(value).Serialize();
    const double read = back.AsDouble();
    EXPECT_EQ(std::memcmp(&value, &read, sizeof(double)), 0) << JsonValue(value).Serialize();
  }
  EXPECT_EQ(JsonValue(std::numeric_limits<double>::quiet_NaN()).Serialize(), "null");
}

TEST(JsonToEncodableTest, PlainIntegersAreInt32WhenTheyFit) {
  EXPECT_EQ(FromText("2147483647"), EncodableValue(int32_t{2147483647}));
  EXPECT_EQ(FromText("-2147483648"), EncodableValue(int32_t{-2147483647 - 1}));
  EXPECT_EQ(FromText("2147483648"), EncodableValue(int64_t{2147483648}));
  EXPECT_EQ(FromText("-2147483649"), EncodableValue(int64_t{-2147483649}));
  EXPECT_EQ(FromText("2.0"), EncodableValue(2.0));
  EXPECT_EQ(FromText("2e3"), EncodableValue(2000.0));
}

TEST(JsonToEncodableTest, TypedFormsSayWhatJsonCannot) {
  EXPECT_EQ(FromText(R"({"int64":5})"), EncodableValue(int64_t{5}));
  EXPECT_EQ(FromText(R"({"int32":-5})"), EncodableValue(int32_t{-5}));
  EXPECT_EQ(FromText(R"({"double":5})"), EncodableValue(5.0));
  EXPECT_TRUE(std::isinf(std::get<double>(FromText(R"({"double":"-Infinity"})"))));
  EXPECT_EQ(FromText(R"({"bytes":"AAH/"})"), EncodableValue(std::vector<uint8_t>{0, 1, 255}));
  EXPECT_EQ(FromText(R"({"bytes":[0,1,255]})"), EncodableValue(std::vector<uint8_t>{0, 1, 255}));
  EXPECT_EQ(FromText(R"({"int32List":[1,-1]})"), EncodableValue(std::vector<int32_t>{1, -1}));
  EXPECT_EQ(FromText(R"({"int64List":[1,9007199254740993]})"),
            EncodableValue(std::vector<int64_t>{1, 9007199254740993}));
  EXPECT_EQ(FromText(R"({"float32List":[0.5,2]})"), EncodableValue(std::vector<float>{0.5f, 2.0f}));
  EXPECT_EQ(FromText(R"({"float64List":[0.5,2]})"), EncodableValue(std::vector<double>{0.5, 2.0}));
  EXPECT_EQ(FromText(R"({"map":[[1,"one"],[null,true]]})"),
            EncodableValue(EncodableMap{{EncodableValue(int32_t{1}), EncodableValue("one")},
                                        {EncodableValue(), EncodableValue(true)}}));
  // Other objects are maps with string keys, including one that merely has a typed name among
  // several members.
  EXPECT_EQ(FromText(R"({"int32":1,"b":2})"),
            EncodableValue(EncodableMap{{EncodableValue("int32"), EncodableValue(int32_t{1})},
                                        {EncodableValue("b"), EncodableValue(int32_t{2})}}));
}

TEST(JsonToEncodableTest, TypedFormsOfTheWrongShapeAreErrors) {
  for (const char* text :
       {R"({"int32":2147483648})", R"({"int32":1.5})", R"({"int64":"5"})", R"({"double":"nan"})",
        R"({"bytes":"A"})", R"({"bytes":"a*=="})", R"({"bytes":[256]})", R"({"int32List":[1.0]})",
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
    JsonValue json;
    ASSERT_TRUE(EncodableToJson(value, &json));
    EXPECT_EQ(Bytes(ThroughText(value)), Bytes(value)) << json.Serialize();
  }
}

TEST(EncodableJsonRoundTripTest, JsonTextComesBackExactly) {
  // JSON (in its canonical written form) -> channel value -> JSON text.
  for (const char* text :
       {R"({"a":[1,2.5,{"int64":3},{"bytes":"AQI="},null],"b":{"map":[[1,true]]}})",
        R"([{"double":"NaN"},{"int32List":[]},{"float32List":[0.5,"Infinity"]},4294967296])",
        R"({"map":[["int32",{"int64":-1}]]})"}) {
    EXPECT_EQ(ToJson(FromText(text)).Serialize(), text);
  }
}

TEST(EncodableJsonRoundTripTest, CustomValuesHaveNoJsonForm) {
  JsonValue json;
  std::string error;
  EXPECT_FALSE(EncodableToJson(
      EncodableValue(EncodableList{EncodableValue(flutter::CustomEncodableValue(42))}), &json,
      &error));
  EXPECT_THAT(error, HasSubstr("custom"));
}

TEST(Base64Test, StandardVectorsAndStrictDecoding) {
  const std::pair<const char*, const char*> vectors[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : vectors) {
    const std::vector<uint8_t> bytes(plain, plain + std::strlen(plain));
    EXPECT_EQ(Base64Encode(bytes), encoded);
    std::vector<uint8_t> decoded;
    ASSERT_TRUE(Base64Decode(encoded, &decoded)) << encoded;
    EXPECT_EQ(decoded, bytes);
  }
  std::vector<uint8_t> decoded;
  EXPECT_TRUE(Base64Decode("Zm8", &decoded));  // padding may be left out
  EXPECT_EQ(decoded, (std::vector<uint8_t>{'f', 'o'}));
  EXPECT_FALSE(Base64Decode("Zm9=v", &decoded));  // padding inside
  EXPECT_FALSE(Base64Decode("Zh==", &decoded));   // bits beyond the last byte
  EXPECT_FALSE(Base64Decode("Z", &decoded));
  EXPECT_FALSE(Base64Decode("Zm 8", &decoded));
}

}  // namespace
}  // namespace kestrun_headless
