#include "json_value.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <system_error>

#include "base64.h"

namespace kestrun_headless {
namespace {

// Deep enough for any channel value we meet, shallow enough for the parser's recursion.
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

// ---- Writing -------------------------------------------------------------------------------------

void AppendCodePoint(uint32_t code_point, std::string* out) {
  if (code_point < 0x80) {
    out->push_back(static_cast<char>(code_point));
  } else if (code_point < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (code_point >> 6)));
    out->push_back(static_cast<char>(0x80 | (code_point & 0x3F)));
  } else if (code_point < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (code_point >> 12)));
    out->push_back(static_cast<char>(0x80 | ((code_point >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code_point & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (code_point >> 18)));
    out->push_back(static_cast<char>(0x80 | ((code_point >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((code_point >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (code_point & 0x3F)));
  }
}

// Length of the well-formed UTF-8 sequence at `text[i]` (lead byte >= 0x80), or 0.
size_t Utf8SequenceLength(const std::string& text, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  size_t length = 0;
  uint32_t code_point = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    code_point = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    code_point = lead & 0x0F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    code_point = lead & 0x07;
  } else {
    return 0;
  }
  if (i + length > text.size()) {
    return 0;
  }
  for (size_t k = 1; k < length; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) {
      return 0;
    }
    code_point = (code_point << 6) | (byte(i + k) & 0x3F);
  }
  // No overlong forms, no surrogates, nothing past U+10FFFF.
  if ((length == 3 && code_point < 0x800) || (length == 4 && code_point < 0x10000) ||
      (code_point >= 0xD800 && code_point <= 0xDFFF) || code_point > 0x10FFFF) {
    return 0;
  }
  return length;
}

void WriteString(const std::string& text, std::string* out) {
  out->push_back('"');
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      const size_t length = Utf8SequenceLength(text, i);
      if (length == 0) {
        AppendCodePoint(0xFFFD, out);
        ++i;
      } else {
        out->append(text, i, length);
        i += length;
      }
      continue;
    }
    switch (c) {
      case '"':
        out->append("\\\"");
        break;
      case '\\':
        out->append("\\\\");
        break;
      case '\n':
        out->append("\\n");
        break;
      case '\r':
        out->append("\\r");
        break;
      case '\t':
        out->append("\\t");
        break;
      case '\b':
        out->append("\\b");
        break;
      case '\f':
        out->append("\\f");
        break;
      default:
        if (c < 0x20) {
          char escape[8];
          std::snprintf(escape, sizeof(escape), "\\u%04x", c);
          out->append(escape);
        } else {
          out->push_back(static_cast<char>(c));
        }
    }
    ++i;
  }
  out->push_back('"');
}

void WriteDouble(double value, std::string* out) {
  if (!std::isfinite(value)) {
    out->append("null");
    return;
  }
  char buffer[64];
  const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof(buffer), value);
  std::string_view text(buffer, static_cast<size_t>(result.ptr - buffer));
  out->append(text);
  if (text.find_first_of(".eE") == std::string_view::npos) {
    out->append(".0");
  }
}

// ---- Parsing -------------------------------------------------------------------------------------

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  std::optional<JsonValue> ParseDocument(std::string* error) {
    SkipWhiteSpace();
    std::optional<JsonValue> value = ParseValue(0);
    if (value) {
      SkipWhiteSpace();
      if (position_ != text_.size()) {
        Fail("unexpected text after the value");
        value.reset();
      }
    }
    if (!value && error != nullptr) {
      *error = error_ + " at offset " + std::to_string(error_position_);
    }
    return value;
  }

 private:
  std::optional<JsonValue> Fail(const char* message) {
    if (error_.empty()) {
      error_ = message;
      error_position_ = position_;
    }
    return std::nullopt;
  }

  void SkipWhiteSpace() {
    while (position_ < text_.size()) {
      const char c = text_[position_];
      if (c != ' ' && c != '\t' && c != '\r' && c != '\n') {
        break;
      }
      ++position_;
    }
  }

  bool Consume(std::string_view word) {
    if (text_.substr(position_, word.size()) == word) {
      position_ += word.size();
      return true;
    }
    return false;
  }

  std::optional<JsonValue> ParseValue(int depth) {
    if (depth > kMaxDepth) {
      return Fail("nested too deeply");
    }
    if (position_ >= text_.size()) {
      return Fail("unexpected end of text");
    }
    const char c = text_[position_];
    switch (c) {
      case '{':
        return ParseObject(depth);
      case '[':
        return ParseArray(depth);
      case '"': {
        std::string text;
        if (!ParseString(&text)) {
          return std::nullopt;
        }
        return JsonValue(std::move(text));
      }
      case 't':
        if (Consume("true")) return JsonValue(true);
        break;
      case 'f':
        if (Consume("false")) return JsonValue(false);
        break;
      case 'n':
        if (Consume("null")) return JsonValue();
        break;
      default:
        if (c == '-' || (c >= '0' && c <= '9')) {
          return ParseNumber();
        }
    }
    return Fail("unexpected character");
  }

  std::optional<JsonValue> ParseObject(int depth) {
    ++position_;  // '{'
    JsonValue::Object members;
    SkipWhiteSpace();
    if (position_ < text_.size() && text_[position_] == '}') {
      ++position_;
      return JsonValue(std::move(members));
    }
    while (true) {
      SkipWhiteSpace();
      if (position_ >= text_.size() || text_[position_] != '"') {
        return Fail("expected a member name");
      }
      std::string key;
      if (!ParseString(&key)) {
        return std::nullopt;
      }
      SkipWhiteSpace();
      if (position_ >= text_.size() || text_[position_] != ':') {
        return Fail("expected ':'");
      }
      ++position_;
      SkipWhiteSpace();
      std::optional<JsonValue> value = ParseValue(depth + 1);
      if (!value) {
        return std::nullopt;
      }
      bool replaced = false;
      for (JsonValue::Member& member : members) {
        if (member.first == key) {
          // The last of repeated names wins, as most readers do.
          member.second = std::move(*value);
          replaced = true;
          break;
        }
      }
      if (!replaced) {
        members.emplace_back(std::move(key), std::move(*value));
      }
      SkipWhiteSpace();
      if (position_ < text_.size() && text_[position_] == ',') {
        ++position_;
        continue;
      }
      if (position_ < text_.size() && text_[position_] == '}') {
        ++position_;
        return JsonValue(std::move(members));
      }
      return Fail("expected ',' or '}'");
    }
  }

  std::optional<JsonValue> ParseArray(int depth) {
    ++position_;  // '['
    JsonValue::Array elements;
    SkipWhiteSpace();
    if (position_ < text_.size() && text_[position_] == ']') {
      ++position_;
      return JsonValue(std::move(elements));
    }
    while (true) {
      SkipWhiteSpace();
      std::optional<JsonValue> value = ParseValue(depth + 1);
      if (!value) {
        return std::nullopt;
      }
      elements.push_back(std::move(*value));
      SkipWhiteSpace();
      if (position_ < text_.size() && text_[position_] == ',') {
        ++position_;
        continue;
      }
      if (position_ < text_.size() && text_[position_] == ']') {
        ++position_;
        return JsonValue(std::move(elements));
      }
      return Fail("expected ',' or ']'");
    }
  }

  bool ParseHex4(uint32_t* value) {
    if (position_ + 4 > text_.size()) {
      Fail("short \\u escape");
      return false;
    }
    uint32_t result = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = text_[position_++];
      result <<= 4;
      if (c >= '0' && c <= '9') {
        result |= static_cast<uint32_t>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        result |= static_cast<uint32_t>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        result |= static_cast<uint32_t>(c - 'A' + 10);
      } else {
        Fail("bad \\u escape");
        return false;
      }
    }
    *value = result;
    return true;
  }

  bool ParseString(std::string* out) {
    ++position_;  // '"'
    while (true) {
      if (position_ >= text_.size()) {
        Fail("unterminated string");
        return false;
      }
      const char c = text_[position_];
      if (c == '"') {
        ++position_;
        return true;
      }
      if (static_cast<unsigned char>(c) < 0x20) {
        Fail("control character in string");
        return false;
      }
      if (c != '\\') {
        out->push_back(c);
        ++position_;
        continue;
      }
      ++position_;
      if (position_ >= text_.size()) {
        Fail("unterminated escape");
        return false;
      }
      const char escape = text_[position_++];
      switch (escape) {
        case '"':
          out->push_back('"');
          break;
        case '\\':
          out->push_back('\\');
          break;
        case '/':
          out->push_back('/');
          break;
        case 'b':
          out->push_back('\b');
          break;
        case 'f':
          out->push_back('\f');
          break;
        case 'n':
          out->push_back('\n');
          break;
        case 'r':
          out->push_back('\r');
          break;
        case 't':
          out->push_back('\t');
          break;
        case 'u': {
          uint32_t code_point = 0;
          if (!ParseHex4(&code_point)) {
            return false;
          }
          if (code_point >= 0xD800 && code_point <= 0xDBFF &&
              text_.substr(position_, 2) == "\\u") {
            const size_t saved = position_;
            position_ += 2;
            uint32_t low = 0;
            if (!ParseHex4(&low)) {
              return false;
            }
            if (low >= 0xDC00 && low <= 0xDFFF) {
              code_point = 0x10000 + ((code_point - 0xD800) << 10) + (low - 0xDC00);
            } else {
              position_ = saved;  // not a pair: the high half stands alone
            }
          }
          if (code_point >= 0xD800 && code_point <= 0xDFFF) {
            code_point = 0xFFFD;  // a lone surrogate has no UTF-8 form
          }
          AppendCodePoint(code_point, out);
          break;
        }
        default:
          Fail("unknown escape");
          return false;
      }
    }
  }

  std::optional<JsonValue> ParseNumber() {
    const size_t start = position_;
    bool integral = true;
    if (text_[position_] == '-') {
      ++position_;
    }
    const auto digits = [&]() {
      const size_t first = position_;
      while (position_ < text_.size() && text_[position_] >= '0' && text_[position_] <= '9') {
        ++position_;
      }
      return position_ - first;
    };
    if (position_ >= text_.size()) {
      return Fail("bad number");
    }
    if (text_[position_] == '0') {
      ++position_;
    } else if (digits() == 0) {
      return Fail("bad number");
    }
    if (position_ < text_.size() && text_[position_] == '.') {
      integral = false;
      ++position_;
      if (digits() == 0) {
        return Fail("bad number");
      }
    }
    if (position_ < text_.size() && (text_[position_] == 'e' || text_[position_] == 'E')) {
      integral = false;
      ++position_;
      if (position_ < text_.size() && (text_[position_] == '+' || text_[position_] == '-')) {
        ++position_;
      }
      if (digits() == 0) {
        return Fail("bad number");
      }
    }
    const char* first = text_.data() + start;
    const char* last = text_.data() + position_;
    if (integral) {
      int64_t integer = 0;
      const std::from_chars_result result = std::from_chars(first, last, integer);
      if (result.ec == std::errc() && result.ptr == last) {
        return JsonValue(integer);
      }
      // Beyond the int64 range: read as a double below.
    }
    double number = 0.0;
    const std::from_chars_result result = std::from_chars(first, last, number);
    if (result.ptr != last || (result.ec != std::errc() && result.ec != std::errc::result_out_of_range)) {
      return Fail("bad number");
    }
    if (result.ec == std::errc::result_out_of_range) {
      return Fail("number out of range");
    }
    return JsonValue(number);
  }

  std::string_view text_;
  size_t position_ = 0;
  std::string error_;
  size_t error_position_ = 0;
};

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
  std::string out;
  SerializeTo(&out);
  return out;
}

void JsonValue::SerializeTo(std::string* out) const {
  switch (type()) {
    case Type::kNull:
      out->append("null");
      break;
    case Type::kBool:
      out->append(std::get<bool>(data_) ? "true" : "false");
      break;
    case Type::kInteger:
      out->append(std::to_string(std::get<int64_t>(data_)));
      break;
    case Type::kDouble:
      WriteDouble(std::get<double>(data_), out);
      break;
    case Type::kString:
      WriteString(std::get<std::string>(data_), out);
      break;
    case Type::kArray: {
      out->push_back('[');
      bool first = true;
      for (const JsonValue& element : std::get<Array>(data_)) {
        if (!first) out->push_back(',');
        first = false;
        element.SerializeTo(out);
      }
      out->push_back(']');
      break;
    }
    case Type::kObject: {
      out->push_back('{');
      bool first = true;
      for (const Member& member : std::get<Object>(data_)) {
        if (!first) out->push_back(',');
        first = false;
        WriteString(member.first, out);
        out->push_back(':');
        member.second.SerializeTo(out);
      }
      out->push_back('}');
      break;
    }
  }
}

std::optional<JsonValue> JsonValue::Parse(std::string_view text, std::string* error) {
  Parser parser(text);
  return parser.ParseDocument(error);
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
