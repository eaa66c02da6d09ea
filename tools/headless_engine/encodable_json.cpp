#include "encodable_json.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "base64.h"

namespace kestrun_headless {
namespace {

// Deep enough for any channel value we meet, shallow enough for the recursion of copies, of
// writing and of the mapping below.
constexpr int kMaxDepth = 200;

// ---- Reading a line ----------------------------------------------------------------------------

// The library's own document builder, behind a guard on the depth of nesting and with integers
// beyond the signed 64-bit range read as doubles.
class LineReader : public nlohmann::json_sax<Json> {
 public:
  explicit LineReader(Json* root) : builder_(*root, false) {}

  bool null() override { return Value() && builder_.null(); }
  bool boolean(bool value) override { return Value() && builder_.boolean(value); }
  bool number_integer(number_integer_t value) override {
    return Value() && builder_.number_integer(value);
  }
  bool number_unsigned(number_unsigned_t value) override {
    if (!Value()) {
      return false;
    }
    if (value > static_cast<number_unsigned_t>(std::numeric_limits<int64_t>::max())) {
      return builder_.number_float(static_cast<double>(value), string_t());
    }
    return builder_.number_integer(static_cast<number_integer_t>(value));
  }
  bool number_float(number_float_t value, const string_t& text) override {
    return Value() && builder_.number_float(value, text);
  }
  bool string(string_t& value) override { return Value() && builder_.string(value); }
  bool binary(binary_t&) override { return Fail("binary values are not JSON"); }
  bool start_object(std::size_t size) override { return Open() && builder_.start_object(size); }
  bool key(string_t& name) override { return builder_.key(name); }
  bool end_object() override {
    --depth_;
    return builder_.end_object();
  }
  bool start_array(std::size_t size) override { return Open() && builder_.start_array(size); }
  bool end_array() override {
    --depth_;
    return builder_.end_array();
  }
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

  const std::string& error() const { return error_; }

 private:
  bool Value() { return depth_ <= kMaxDepth || Fail("nested too deeply"); }
  bool Open() {
    if (!Value()) {
      return false;
    }
    ++depth_;
    return true;
  }
  bool Fail(const std::string& reason, size_t position = std::string::npos) {
    if (error_.empty()) {
      error_ = position == std::string::npos ? reason
                                             : reason + " at offset " + std::to_string(position);
    }
    return false;
  }

  nlohmann::detail::json_sax_dom_parser<Json> builder_;
  int depth_ = 0;
  std::string error_;
};

// ---- JSON to channel value ---------------------------------------------------------------------

bool SetError(std::string* error, const std::string& text) {
  if (error != nullptr && error->empty()) {
    *error = text;
  }
  return false;
}

// An integer within the signed 64-bit range (the library keeps non-negative ones unsigned).
bool ReadInt64(const Json& json, int64_t* out) {
  if (json.is_number_unsigned()) {
    const uint64_t value = json.get<uint64_t>();
    if (value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
      return false;
    }
    *out = static_cast<int64_t>(value);
    return true;
  }
  if (json.is_number_integer()) {
    *out = json.get<int64_t>();
    return true;
  }
  return false;
}

bool ReadInt32(const Json& json, int32_t* out) {
  int64_t value = 0;
  if (!ReadInt64(json, &value) || value < std::numeric_limits<int32_t>::min() ||
      value > std::numeric_limits<int32_t>::max()) {
    return false;
  }
  *out = static_cast<int32_t>(value);
  return true;
}

bool ReadDouble(const Json& json, double* out) {
  if (json.is_number()) {
    *out = json.get<double>();
    return true;
  }
  if (!json.is_string()) {
    return false;
  }
  const std::string& text = json.get_ref<const std::string&>();
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

constexpr const char* kTypedNames[] = {"int32",       "int64",       "double",
                                       "bytes",       "int32List",   "int64List",
                                       "float32List", "float64List", "map"};

bool IsTypedName(const std::string& key) {
  for (const char* name : kTypedNames) {
    if (key == name) {
      return true;
    }
  }
  return false;
}

bool ConvertToEncodable(const Json& json, flutter::EncodableValue* out, std::string* error,
                        int depth);

// Reads every element of a typed list with `read`; false on the first that does not fit.
template <typename Element, typename Read>
bool ReadList(const Json& body, Read read, std::vector<Element>* list) {
  for (const Json& element : body) {
    Element value{};
    if (!read(element, &value)) {
      return false;
    }
    list->push_back(value);
  }
  return true;
}

bool ReadByte(const Json& json, uint8_t* out) {
  int64_t value = 0;
  if (!ReadInt64(json, &value) || value < 0 || value > 255) {
    return false;
  }
  *out = static_cast<uint8_t>(value);
  return true;
}

bool ConvertTyped(const std::string& kind, const Json& body, flutter::EncodableValue* out,
                  std::string* error, int depth) {
  const std::string shape_error = "bad {\"" + kind + "\": ...} value";
  if (kind == "int32") {
    int32_t value = 0;
    if (!ReadInt32(body, &value)) return SetError(error, shape_error);
    *out = value;
    return true;
  }
  if (kind == "int64") {
    int64_t value = 0;
    if (!ReadInt64(body, &value)) return SetError(error, shape_error);
    *out = value;
    return true;
  }
  if (kind == "double") {
    double value = 0.0;
    if (!ReadDouble(body, &value)) return SetError(error, shape_error);
    *out = value;
    return true;
  }
  if (kind == "bytes" && body.is_string()) {
    std::vector<uint8_t> bytes;
    if (!Base64Decode(body.get_ref<const std::string&>(), &bytes)) {
      return SetError(error, "bad base64 in bytes");
    }
    *out = std::move(bytes);
    return true;
  }
  if (!body.is_array()) {
    return SetError(error, shape_error);
  }
  if (kind == "bytes") {
    std::vector<uint8_t> bytes;
    if (!ReadList(body, ReadByte, &bytes)) return SetError(error, shape_error);
    *out = std::move(bytes);
    return true;
  }
  if (kind == "int32List") {
    std::vector<int32_t> list;
    if (!ReadList(body, ReadInt32, &list)) return SetError(error, shape_error);
    *out = std::move(list);
    return true;
  }
  if (kind == "int64List") {
    std::vector<int64_t> list;
    if (!ReadList(body, ReadInt64, &list)) return SetError(error, shape_error);
    *out = std::move(list);
    return true;
  }
  if (kind == "float64List") {
    std::vector<double> list;
    if (!ReadList(body, ReadDouble, &list)) return SetError(error, shape_error);
    *out = std::move(list);
    return true;
  }
  if (kind == "float32List") {
    std::vector<double> values;
    if (!ReadList(body, ReadDouble, &values)) return SetError(error, shape_error);
    std::vector<float> list;
    for (double value : values) {
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
  for (const Json& entry : body) {
    if (!entry.is_array() || entry.size() != 2) {
      return SetError(error, "map entries must be [key, value] pairs");
    }
    flutter::EncodableValue key;
    flutter::EncodableValue value;
    if (!ConvertToEncodable(entry[0], &key, error, depth + 1) ||
        !ConvertToEncodable(entry[1], &value, error, depth + 1)) {
      return false;
    }
    if (!map.emplace(std::move(key), std::move(value)).second) {
      return SetError(error, "repeated key in map");
    }
  }
  *out = std::move(map);
  return true;
}

bool ConvertToEncodable(const Json& json, flutter::EncodableValue* out, std::string* error,
                        int depth) {
  if (depth > kMaxDepth) {
    return SetError(error, "nested too deeply");
  }
  switch (json.type()) {
    case Json::value_t::null:
      *out = flutter::EncodableValue();
      return true;
    case Json::value_t::boolean:
      *out = json.get<bool>();
      return true;
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned: {
      int64_t value = 0;
      if (!ReadInt64(json, &value)) {
        *out = json.get<double>();  // beyond the signed range an integer can only be a double
      } else if (value >= std::numeric_limits<int32_t>::min() &&
                 value <= std::numeric_limits<int32_t>::max()) {
        *out = static_cast<int32_t>(value);
      } else {
        *out = value;
      }
      return true;
    }
    case Json::value_t::number_float:
      *out = json.get<double>();
      return true;
    case Json::value_t::string:
      *out = json.get<std::string>();
      return true;
    case Json::value_t::array: {
      flutter::EncodableList list;
      list.reserve(json.size());
      for (const Json& element : json) {
        flutter::EncodableValue value;
        if (!ConvertToEncodable(element, &value, error, depth + 1)) {
          return false;
        }
        list.push_back(std::move(value));
      }
      *out = std::move(list);
      return true;
    }
    case Json::value_t::object: {
      if (json.size() == 1 && IsTypedName(json.begin().key())) {
        return ConvertTyped(json.begin().key(), json.begin().value(), out, error, depth);
      }
      flutter::EncodableMap map;
      for (const auto& member : json.items()) {
        flutter::EncodableValue value;
        if (!ConvertToEncodable(member.value(), &value, error, depth + 1)) {
          return false;
        }
        map[flutter::EncodableValue(member.key())] = std::move(value);
      }
      *out = std::move(map);
      return true;
    }
    default:
      break;
  }
  return SetError(error, "unknown JSON value");
}

// ---- Channel value to JSON ---------------------------------------------------------------------

Json DoubleToJson(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "Infinity" : "-Infinity";
  return value;
}

Json Typed(const char* kind, Json body) {
  Json typed = Json::object();
  typed[kind] = std::move(body);
  return typed;
}

template <typename Element, typename Convert>
Json TypedList(const char* kind, const std::vector<Element>& list, Convert convert) {
  Json elements = Json::array();
  for (const Element& element : list) {
    elements.push_back(convert(element));
  }
  return Typed(kind, std::move(elements));
}

bool ConvertToJson(const flutter::EncodableValue& value, Json* out, std::string* error,
                   int depth) {
  if (depth > kMaxDepth) {
    return SetError(error, "nested too deeply");
  }
  const auto as_integer = [](auto element) { return Json(static_cast<int64_t>(element)); };
  const auto as_double = [](auto element) { return DoubleToJson(static_cast<double>(element)); };
  if (std::holds_alternative<std::monostate>(value)) {
    *out = nullptr;
  } else if (const auto* b = std::get_if<bool>(&value)) {
    *out = *b;
  } else if (const auto* i32 = std::get_if<int32_t>(&value)) {
    *out = static_cast<int64_t>(*i32);
  } else if (const auto* i64 = std::get_if<int64_t>(&value)) {
    const bool fits_int32 = *i64 >= std::numeric_limits<int32_t>::min() &&
                            *i64 <= std::numeric_limits<int32_t>::max();
    *out = fits_int32 ? Typed("int64", *i64) : Json(*i64);
  } else if (const auto* d = std::get_if<double>(&value)) {
    *out = std::isfinite(*d) ? Json(*d) : Typed("double", DoubleToJson(*d));
  } else if (const auto* s = std::get_if<std::string>(&value)) {
    *out = *s;
  } else if (const auto* bytes = std::get_if<std::vector<uint8_t>>(&value)) {
    *out = Typed("bytes", Base64Encode(*bytes));
  } else if (const auto* list32 = std::get_if<std::vector<int32_t>>(&value)) {
    *out = TypedList("int32List", *list32, as_integer);
  } else if (const auto* list64 = std::get_if<std::vector<int64_t>>(&value)) {
    *out = TypedList("int64List", *list64, as_integer);
  } else if (const auto* doubles = std::get_if<std::vector<double>>(&value)) {
    *out = TypedList("float64List", *doubles, as_double);
  } else if (const auto* floats = std::get_if<std::vector<float>>(&value)) {
    *out = TypedList("float32List", *floats, as_double);
  } else if (const auto* list = std::get_if<flutter::EncodableList>(&value)) {
    Json elements = Json::array();
    for (const flutter::EncodableValue& element : *list) {
      Json converted;
      if (!ConvertToJson(element, &converted, error, depth + 1)) {
        return false;
      }
      elements.push_back(std::move(converted));
    }
    *out = std::move(elements);
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
    Json converted_map = string_keys ? Json::object() : Json::array();
    for (const auto& entry : *map) {
      Json key;
      Json converted;
      if (!ConvertToJson(entry.first, &key, error, depth + 1) ||
          !ConvertToJson(entry.second, &converted, error, depth + 1)) {
        return false;
      }
      if (string_keys) {
        converted_map[key.get<std::string>()] = std::move(converted);
      } else {
        converted_map.push_back(Json::array({std::move(key), std::move(converted)}));
      }
    }
    *out = string_keys ? std::move(converted_map) : Typed("map", std::move(converted_map));
  } else {
    return SetError(error, "custom values have no JSON form");
  }
  return true;
}

}  // namespace

std::optional<Json> ParseJsonLine(std::string_view text, std::string* error) {
  Json root;
  LineReader reader(&root);
  const bool parsed = Json::sax_parse(text.begin(), text.end(), &reader);
  if (parsed && reader.error().empty()) {
    return root;
  }
  if (error != nullptr) {
    *error = reader.error().empty() ? "unexpected end of text" : reader.error();
  }
  return std::nullopt;
}

std::string JsonLine(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

const Json& JsonMember(const Json& object, const std::string& key) {
  static const Json kNull;
  const auto member = object.find(key);
  return member != object.end() ? *member : kNull;
}

int64_t JsonInteger(const Json& value) {
  int64_t integer = 0;
  if (ReadInt64(value, &integer)) {
    return integer;
  }
  if (value.is_number_float()) {
    const double number = value.get<double>();
    // 2^63 is exactly representable; anything at or beyond it is out of range.
    if (std::isfinite(number) && std::trunc(number) == number &&
        number >= -9223372036854775808.0 && number < 9223372036854775808.0) {
      return static_cast<int64_t>(number);
    }
  }
  return 0;
}

bool JsonToEncodable(const Json& json, flutter::EncodableValue* out, std::string* error) {
  return ConvertToEncodable(json, out, error, 0);
}

bool EncodableToJson(const flutter::EncodableValue& value, Json* out, std::string* error) {
  return ConvertToJson(value, out, error, 0);
}

Json ToJson(const flutter::EncodableValue& value) {
  Json json;
  if (!EncodableToJson(value, &json)) {
    return nullptr;
  }
  return json;
}

flutter::EncodableValue ToEncodable(const Json& json) {
  flutter::EncodableValue value;
  if (!JsonToEncodable(json, &value)) {
    return flutter::EncodableValue();
  }
  return value;
}

}  // namespace kestrun_headless
