#include "json_value.h"

#include <cmath>
#include <limits>

#include <nlohmann/json.hpp>

#include "base64.h"

namespace kestrun_headless {
namespace {

// Deep enough for any channel value we meet, shallow enough for the recursion of copies.
constexpr int kMaxDepth = 200;

const std::string& EmptyString() {
  static const std::string empty;
  return empty;
}
const JsonValue::Array& EmptyArray() {
  static const JsonValue::Array empty;
  return empty;
}
const JsonValue::Object& EmptyObject() {
  static const JsonValue::Object empty;
  return empty;
}
const JsonValue& NullValue() {
  static const JsonValue null_value;
  return null_value;
}

// ---- Reading and writing text (nlohmann-json) -----------------------------------------------------

using Text = nlohmann::ordered_json;

// Builds a JsonValue straight from the library's parser events, refusing nests deeper than
// kMaxDepth (the value's own copies and comparisons recurse).
class ValueBuilder : public nlohmann::json_sax<Text> {
 public:
  bool null() override { return Add(JsonValue()); }
  bool boolean(bool value) override { return Add(JsonValue(value)); }
  bool number_integer(number_integer_t value) override { return Add(JsonValue(value)); }
  // Positive integers beyond the int64 range become doubles.
  bool number_unsigned(number_unsigned_t value) override { return Add(JsonValue(value)); }
  bool number_float(number_float_t value, const string_t&) override {
    return Add(JsonValue(value));
  }
  bool string(string_t& value) override { return Add(JsonValue(std::move(value))); }
  bool binary(binary_t&) override { return Fail("binary values are not JSON"); }
  bool start_object(std::size_t) override { return Open(JsonValue::MakeObject()); }
  bool key(string_t& name) override {
    key_ = std::move(name);
    return true;
  }
  bool end_object() override { return Close(); }
  bool start_array(std::size_t) override { return Open(JsonValue::MakeArray()); }
  bool end_array() override { return Close(); }
  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception& fault) override {
    // The library's text names the byte; keep just its reason.
    std::string reason = fault.what();
    const size_t colon = reason.rfind(": ");
    if (colon != std::string::npos) {
      reason = reason.substr(colon + 2);
    }
    return Fail(reason, position);
  }

  std::optional<JsonValue> Finish(bool parsed, std::string* error) {
    if (parsed && error_.empty() && open_.empty()) {
      return std::move(root_);
    }
    if (error != nullptr) {
      *error = error_.empty() ? "unexpected end of text" : error_;
    }
    return std::nullopt;
  }

 private:
  struct Container {
    JsonValue value;
    std::string name;  // its member name in the enclosing object, if that is one
  };

  bool Add(JsonValue value) {
    if (static_cast<int>(open_.size()) > kMaxDepth) {
      return Fail("nested too deeply");
    }
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (open_.back().value.IsObject()) {
      // The last of repeated names wins, as most readers do.
      open_.back().value.Set(key_, std::move(value));
    } else {
      open_.back().value.Append(std::move(value));
    }
    return true;
  }
  bool Open(JsonValue container) {
    if (static_cast<int>(open_.size()) > kMaxDepth) {
      return Fail("nested too deeply");
    }
    open_.push_back({std::move(container), std::move(key_)});
    return true;
  }
  bool Close() {
    Container done = std::move(open_.back());
    open_.pop_back();
    key_ = std::move(done.name);
    return Add(std::move(done.value));
  }
  bool Fail(const std::string& reason, size_t position = std::string::npos) {
    if (error_.empty()) {
      error_ = position == std::string::npos ? reason
                                             : reason + " at offset " + std::to_string(position);
    }
    return false;
  }

  JsonValue root_;
  std::vector<Container> open_;
  std::string key_;
  std::string error_;
};

Text ToText(const JsonValue& value) {
  switch (value.type()) {
    case JsonValue::Type::kNull:
      return nullptr;
    case JsonValue::Type::kBool:
      return value.AsBool();
    case JsonValue::Type::kInteger:
      return value.AsInteger();
    case JsonValue::Type::kDouble:
      return value.AsDouble();  // the library writes non-finite numbers as null
    case JsonValue::Type::kString:
      return value.AsString();
    case JsonValue::Type::kArray: {
      Text array = Text::array();
      for (const JsonValue& element : value.AsArray()) {
        array.push_back(ToText(element));
      }
      return array;
    }
    case JsonValue::Type::kObject: {
      Text object = Text::object();
      for (const JsonValue::Member& member : value.AsObject()) {
        object[member.first] = ToText(member.second);
      }
      return object;
    }
  }
  return nullptr;
}

// ---- JSON to channel value ---------------------------------------------------------------------

bool SetError(std::string* error, const std::string& text) {
  if (error != nullptr && error->empty()) {
    *error = text;
  }
  return false;
}

bool ReadNonFinite(const JsonValue& json, double* out) {
  const std::string& text = json.AsString();
  if (text == "NaN") {
    *out = std::numeric_limits<double>::quiet_NaN();
  } else if (text == "Infinity") {
    *out = std::numeric_limits<double>::infinity();
  } else if (text == "-Infinity") {
    *out = -std::numeric_limits<double>::infinity();
  } else {
    return false;
  }
  return true;
}

bool ReadDouble(const JsonValue& json, double* out) {
  if (json.IsNumber()) {
    *out = json.AsDouble();
    return true;
  }
  return json.IsString() && ReadNonFinite(json, out);
}

bool ReadInt32(const JsonValue& json, int32_t* out) {
  if (!json.IsInteger()) {
    return false;
  }
  const int64_t value = json.AsInteger();
  if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max()) {
    return false;
  }
  *out = static_cast<int32_t>(value);
  return true;
}

constexpr const char* kTypedNames[] = {"int32",     "int64",       "double",
                                       "bytes",     "int32List",   "int64List",
                                       "float32List", "float64List", "map"};

bool IsTypedName(const std::string& key) {
  for (const char* name : kTypedNames) {
    if (key == name) {
      return true;
    }
  }
  return false;
}

bool ConvertToEncodable(const JsonValue& json, flutter::EncodableValue* out, std::string* error,
                        int depth);

bool ConvertTyped(const std::string& kind, const JsonValue& body, flutter::EncodableValue* out,
                  std::string* error, int depth) {
  const std::string shape_error = "bad {\"" + kind + "\": ...} value";
  if (kind == "int32") {
    int32_t value = 0;
    if (!ReadInt32(body, &value)) return SetError(error, shape_error);
    *out = value;
    return true;
  }
  if (kind == "int64") {
    if (!body.IsInteger()) return SetError(error, shape_error);
    *out = static_cast<int64_t>(body.AsInteger());
    return true;
  }
  if (kind == "double") {
    double value = 0.0;
    if (!ReadDouble(body, &value)) return SetError(error, shape_error);
    *out = value;
    return true;
  }
  if (kind == "bytes") {
    std::vector<uint8_t> bytes;
    if (body.IsString()) {
      if (!Base64Decode(body.AsString(), &bytes)) return SetError(error, "bad base64 in bytes");
    } else if (body.IsArray()) {
      for (const JsonValue& element : body.AsArray()) {
        if (!element.IsInteger() || element.AsInteger() < 0 || element.AsInteger() > 255) {
          return SetError(error, shape_error);
        }
        bytes.push_back(static_cast<uint8_t>(element.AsInteger()));
      }
    } else {
      return SetError(error, shape_error);
    }
    *out = std::move(bytes);
    return true;
  }
  if (!body.IsArray()) {
    return SetError(error, shape_error);
  }
  const JsonValue::Array& elements = body.AsArray();
  if (kind == "int32List") {
    std::vector<int32_t> list;
    for (const JsonValue& element : elements) {
      int32_t value = 0;
      if (!ReadInt32(element, &value)) return SetError(error, shape_error);
      list.push_back(value);
    }
    *out = std::move(list);
    return true;
  }
  if (kind == "int64List") {
    std::vector<int64_t> list;
    for (const JsonValue& element : elements) {
      if (!element.IsInteger()) return SetError(error, shape_error);
      list.push_back(element.AsInteger());
    }
    *out = std::move(list);
    return true;
  }
  if (kind == "float64List") {
    std::vector<double> list;
    for (const JsonValue& element : elements) {
      double value = 0.0;
      if (!ReadDouble(element, &value)) return SetError(error, shape_error);
      list.push_back(value);
    }
    *out = std::move(list);
    return true;
  }
  if (kind == "float32List") {
    std::vector<float> list;
    for (const JsonValue& element : elements) {
      double value = 0.0;
      if (!ReadDouble(element, &value)) return SetError(error, shape_error);
      if (std::isfinite(value) && std::fabs(value) > std::numeric_limits<float>::max()) {
        return SetError(error, "float32List value out of range");
      }
      list.push_back(static_cast<float>(value));
    }
    *out = std::move(list);
    return true;
  }
  // "map"
  flutter::EncodableMap map;
  for (const JsonValue& entry : elements) {
    if (!entry.IsArray() || entry.size() != 2) {
      return SetError(error, "map entries must be [key, value] pairs");
    }
    flutter::EncodableValue key;
    flutter::EncodableValue value;
    if (!ConvertToEncodable(entry.AsArray()[0], &key, error, depth + 1) ||
        !ConvertToEncodable(entry.AsArray()[1], &value, error, depth + 1)) {
      return false;
    }
    if (!map.emplace(std::move(key), std::move(value)).second) {
      return SetError(error, "repeated key in map");
    }
  }
  *out = std::move(map);
  return true;
}

bool ConvertToEncodable(const JsonValue& json, flutter::EncodableValue* out, std::string* error,
                        int depth) {
  if (depth > kMaxDepth) {
    return SetError(error, "nested too deeply");
  }
  switch (json.type()) {
    case JsonValue::Type::kNull:
      *out = flutter::EncodableValue();
      return true;
    case JsonValue::Type::kBool:
      *out = json.AsBool();
      return true;
    case JsonValue::Type::kInteger: {
      const int64_t value = json.AsInteger();
      if (value >= std::numeric_limits<int32_t>::min() &&
          value <= std::numeric_limits<int32_t>::max()) {
        *out = static_cast<int32_t>(value);
      } else {
        *out = value;
      }
      return true;
    }
    case JsonValue::Type::kDouble:
      *out = json.AsDouble();
      return true;
    case JsonValue::Type::kString:
      *out = json.AsString();
      return true;
    case JsonValue::Type::kArray: {
      flutter::EncodableList list;
      list.reserve(json.size());
      for (const JsonValue& element : json.AsArray()) {
        flutter::EncodableValue value;
        if (!ConvertToEncodable(element, &value, error, depth + 1)) {
          return false;
        }
        list.push_back(std::move(value));
      }
      *out = std::move(list);
      return true;
    }
    case JsonValue::Type::kObject: {
      const JsonValue::Object& members = json.AsObject();
      if (members.size() == 1 && IsTypedName(members[0].first)) {
        return ConvertTyped(members[0].first, members[0].second, out, error, depth);
      }
      flutter::EncodableMap map;
      for (const JsonValue::Member& member : members) {
        flutter::EncodableValue value;
        if (!ConvertToEncodable(member.second, &value, error, depth + 1)) {
          return false;
        }
        map[flutter::EncodableValue(member.first)] = std::move(value);
      }
      *out = std::move(map);
      return true;
    }
  }
  return SetError(error, "unknown JSON value");
}

// ---- Channel value to JSON ---------------------------------------------------------------------

JsonValue DoubleToJson(double value) {
  if (std::isnan(value)) return JsonValue("NaN");
  if (std::isinf(value)) return JsonValue(value > 0 ? "Infinity" : "-Infinity");
  return JsonValue(value);
}

JsonValue Typed(const char* kind, JsonValue body) {
  JsonValue typed = JsonValue::MakeObject();
  typed.Set(kind, std::move(body));
  return typed;
}

bool ConvertToJson(const flutter::EncodableValue& value, JsonValue* out, std::string* error,
                   int depth) {
  if (depth > kMaxDepth) {
    return SetError(error, "nested too deeply");
  }
  if (std::holds_alternative<std::monostate>(value)) {
    *out = JsonValue();
  } else if (const auto* b = std::get_if<bool>(&value)) {
    *out = JsonValue(*b);
  } else if (const auto* i32 = std::get_if<int32_t>(&value)) {
    *out = JsonValue(static_cast<int64_t>(*i32));
  } else if (const auto* i64 = std::get_if<int64_t>(&value)) {
    const bool fits_int32 = *i64 >= std::numeric_limits<int32_t>::min() &&
                            *i64 <= std::numeric_limits<int32_t>::max();
    *out = fits_int32 ? Typed("int64", JsonValue(*i64)) : JsonValue(*i64);
  } else if (const auto* d = std::get_if<double>(&value)) {
    *out = std::isfinite(*d) ? JsonValue(*d) : Typed("double", DoubleToJson(*d));
  } else if (const auto* s = std::get_if<std::string>(&value)) {
    *out = JsonValue(*s);
  } else if (const auto* bytes = std::get_if<std::vector<uint8_t>>(&value)) {
    *out = Typed("bytes", JsonValue(Base64Encode(*bytes)));
  } else if (const auto* list32 = std::get_if<std::vector<int32_t>>(&value)) {
    JsonValue::Array elements;
    for (int32_t element : *list32) elements.emplace_back(static_cast<int64_t>(element));
    *out = Typed("int32List", JsonValue(std::move(elements)));
  } else if (const auto* list64 = std::get_if<std::vector<int64_t>>(&value)) {
    JsonValue::Array elements;
    for (int64_t element : *list64) elements.emplace_back(element);
    *out = Typed("int64List", JsonValue(std::move(elements)));
  } else if (const auto* doubles = std::get_if<std::vector<double>>(&value)) {
    JsonValue::Array elements;
    for (double element : *doubles) elements.push_back(DoubleToJson(element));
    *out = Typed("float64List", JsonValue(std::move(elements)));
  } else if (const auto* floats = std::get_if<std::vector<float>>(&value)) {
    JsonValue::Array elements;
    for (float element : *floats) elements.push_back(DoubleToJson(static_cast<double>(element)));
    *out = Typed("float32List", JsonValue(std::move(elements)));
  } else if (const auto* list = std::get_if<flutter::EncodableList>(&value)) {
    JsonValue::Array elements;
    elements.reserve(list->size());
    for (const flutter::EncodableValue& element : *list) {
      JsonValue converted;
      if (!ConvertToJson(element, &converted, error, depth + 1)) {
        return false;
      }
      elements.push_back(std::move(converted));
    }
    *out = JsonValue(std::move(elements));
  } else if (const auto* map = std::get_if<flutter::EncodableMap>(&value)) {
    bool string_keys = true;
    for (const auto& entry : *map) {
      string_keys = string_keys && std::holds_alternative<std::string>(entry.first);
    }
    // A single member named like a typed form would read back as that form.
    if (string_keys && map->size() == 1 &&
        IsTypedName(std::get<std::string>(map->begin()->first))) {
      string_keys = false;
    }
    if (string_keys) {
      JsonValue::Object members;
      members.reserve(map->size());
      for (const auto& entry : *map) {
        JsonValue converted;
        if (!ConvertToJson(entry.second, &converted, error, depth + 1)) {
          return false;
        }
        members.emplace_back(std::get<std::string>(entry.first), std::move(converted));
      }
      *out = JsonValue(std::move(members));
    } else {
      JsonValue::Array entries;
      entries.reserve(map->size());
      for (const auto& entry : *map) {
        JsonValue key;
        JsonValue converted;
        if (!ConvertToJson(entry.first, &key, error, depth + 1) ||
            !ConvertToJson(entry.second, &converted, error, depth + 1)) {
          return false;
        }
        entries.push_back(JsonValue(JsonValue::Array{std::move(key), std::move(converted)}));
      }
      *out = Typed("map", JsonValue(std::move(entries)));
    }
  } else {
    return SetError(error, "custom values have no JSON form");
  }
  return true;
}

}  // namespace

JsonValue::JsonValue(unsigned long long value) {
  if (value <= static_cast<unsigned long long>(std::numeric_limits<int64_t>::max())) {
    data_ = static_cast<int64_t>(value);
  } else {
    data_ = static_cast<double>(value);
  }
}

bool JsonValue::AsBool(bool fallback) const {
  const bool* value = std::get_if<bool>(&data_);
  return value != nullptr ? *value : fallback;
}

int64_t JsonValue::AsInteger(int64_t fallback) const {
  if (const auto* integer = std::get_if<int64_t>(&data_)) {
    return *integer;
  }
  if (const auto* number = std::get_if<double>(&data_)) {
    // 2^63 is exactly representable; anything at or beyond it is out of range.
    if (std::isfinite(*number) && std::trunc(*number) == *number && *number >= -9223372036854775808.0 &&
        *number < 9223372036854775808.0) {
      return static_cast<int64_t>(*number);
    }
  }
  return fallback;
}

double JsonValue::AsDouble(double fallback) const {
  if (const auto* number = std::get_if<double>(&data_)) {
    return *number;
  }
  if (const auto* integer = std::get_if<int64_t>(&data_)) {
    return static_cast<double>(*integer);
  }
  return fallback;
}

const std::string& JsonValue::AsString() const {
  const auto* text = std::get_if<std::string>(&data_);
  return text != nullptr ? *text : EmptyString();
}

const JsonValue::Array& JsonValue::AsArray() const {
  const auto* array = std::get_if<Array>(&data_);
  return array != nullptr ? *array : EmptyArray();
}

const JsonValue::Object& JsonValue::AsObject() const {
  const auto* object = std::get_if<Object>(&data_);
  return object != nullptr ? *object : EmptyObject();
}

const JsonValue* JsonValue::Find(std::string_view key) const {
  const auto* object = std::get_if<Object>(&data_);
  if (object == nullptr) {
    return nullptr;
  }
  for (const Member& member : *object) {
    if (member.first == key) {
      return &member.second;
    }
  }
  return nullptr;
}

const JsonValue& JsonValue::operator[](std::string_view key) const {
  const JsonValue* value = Find(key);
  return value != nullptr ? *value : NullValue();
}

JsonValue& JsonValue::Set(std::string_view key, JsonValue value) {
  if (!IsObject()) {
    data_ = Object{};
  }
  Object& object = std::get<Object>(data_);
  for (Member& member : object) {
    if (member.first == key) {
      member.second = std::move(value);
      return *this;
    }
  }
  object.emplace_back(std::string(key), std::move(value));
  return *this;
}

JsonValue& JsonValue::Append(JsonValue value) {
  if (!IsArray()) {
    data_ = Array{};
  }
  std::get<Array>(data_).push_back(std::move(value));
  return *this;
}

size_t JsonValue::size() const {
  if (const auto* array = std::get_if<Array>(&data_)) {
    return array->size();
  }
  if (const auto* object = std::get_if<Object>(&data_)) {
    return object->size();
  }
  return 0;
}

std::string JsonValue::Serialize() const {
  // One line, UTF-8 as it is, invalid UTF-8 replaced by U+FFFD.
  return ToText(*this).dump(-1, ' ', false, Text::error_handler_t::replace);
}

std::optional<JsonValue> JsonValue::Parse(std::string_view text, std::string* error) {
  ValueBuilder builder;
  const bool parsed = Text::sax_parse(text.begin(), text.end(), &builder);
  return builder.Finish(parsed, error);
}

bool JsonToEncodable(const JsonValue& json, flutter::EncodableValue* out, std::string* error) {
  return ConvertToEncodable(json, out, error, 0);
}

bool EncodableToJson(const flutter::EncodableValue& value, JsonValue* out, std::string* error) {
  return ConvertToJson(value, out, error, 0);
}

JsonValue ToJson(const flutter::EncodableValue& value) {
  JsonValue json;
  if (!EncodableToJson(value, &json)) {
    return JsonValue();
  }
  return json;
}

flutter::EncodableValue ToEncodable(const JsonValue& json) {
  flutter::EncodableValue value;
  if (!JsonToEncodable(json, &value)) {
    return flutter::EncodableValue();
  }
  return value;
}

}  // namespace kestrun_headless
