// A small JSON value, read and written as text by nlohmann-json, and the exact mapping between JSON
// and the channel value flutter::EncodableValue used by the headless engine's control protocol.
// The value's readers are lenient (a missing member or another kind reads as null, empty or the
// fallback), which the protocol's handling of its operations relies on.
//
// JSON to EncodableValue:
//   null, true/false, strings and arrays map to their obvious counterparts;
//   a plain integer becomes int32 when it fits, else int64;
//   a number with a fraction or an exponent becomes double;
//   an object becomes a map with string keys, except the typed forms, which are objects with
//   exactly one member named
//     "int32": n | "int64": n | "double": x (or "NaN", "Infinity", "-Infinity")
//     "bytes": "<base64>" or [0..255, ...]
//     "int32List": [...] | "int64List": [...] | "float32List": [...] | "float64List": [...]
//       (list elements of the float lists may also be "NaN", "Infinity", "-Infinity")
//     "map": [[key, value], ...]   (a map with keys of any kind, in the order given)
//   A typed form with a value of the wrong shape is an error, never a map.
// EncodableValue to JSON writes the same forms, choosing the plain form whenever reading it back
// gives the same kind, so that a round trip in either direction is exact.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_JSON_VALUE_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_JSON_VALUE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "encodable_value.h"

namespace kestrun_headless {

class JsonValue {
 public:
  enum class Type { kNull, kBool, kInteger, kDouble, kString, kArray, kObject };

  using Array = std::vector<JsonValue>;
  using Member = std::pair<std::string, JsonValue>;
  // Members in the order they were added or read; keys are unique (Set replaces).
  using Object = std::vector<Member>;

  JsonValue() = default;
  JsonValue(std::nullptr_t) {}
  JsonValue(bool value) : data_(value) {}
  JsonValue(int value) : data_(static_cast<int64_t>(value)) {}
  JsonValue(unsigned int value) : data_(static_cast<int64_t>(value)) {}
  JsonValue(long value) : data_(static_cast<int64_t>(value)) {}
  JsonValue(long long value) : data_(static_cast<int64_t>(value)) {}
  // Unsigned values beyond the int64 range become doubles.
  JsonValue(unsigned long value) : JsonValue(static_cast<unsigned long long>(value)) {}
  JsonValue(unsigned long long value);
  JsonValue(double value) : data_(value) {}
  JsonValue(const char* value) : data_(std::string(value)) {}
  JsonValue(std::string value) : data_(std::move(value)) {}
  JsonValue(std::string_view value) : data_(std::string(value)) {}
  JsonValue(Array value) : data_(std::move(value)) {}
  JsonValue(Object value) : data_(std::move(value)) {}

  static JsonValue MakeArray() { return JsonValue(Array{}); }
  static JsonValue MakeObject() { return JsonValue(Object{}); }

  Type type() const { return static_cast<Type>(data_.index()); }
  bool IsNull() const { return type() == Type::kNull; }
  bool IsBool() const { return type() == Type::kBool; }
  bool IsInteger() const { return type() == Type::kInteger; }
  bool IsDouble() const { return type() == Type::kDouble; }
  bool IsNumber() const { return IsInteger() || IsDouble(); }
  bool IsString() const { return type() == Type::kString; }
  bool IsArray() const { return type() == Type::kArray; }
  bool IsObject() const { return type() == Type::kObject; }

  // Readers answer `fallback` (or an empty string, array or object) for a value of another kind.
  bool AsBool(bool fallback = false) const;
  // An integer, or a double with an integral value in range.
  int64_t AsInteger(int64_t fallback = 0) const;
  // A double or an integer.
  double AsDouble(double fallback = 0.0) const;
  const std::string& AsString() const;
  const Array& AsArray() const;
  const Object& AsObject() const;

  // Object members. Find answers null when the value is no object or has no such member;
  // operator[] answers a null value then.
  const JsonValue* Find(std::string_view key) const;
  const JsonValue& operator[](std::string_view key) const;
  bool Has(std::string_view key) const { return Find(key) != nullptr; }
  // Makes the value an object if it is not one, then adds or replaces the member.
  JsonValue& Set(std::string_view key, JsonValue value);
  // Makes the value an array if it is not one, then appends.
  JsonValue& Append(JsonValue value);

  // Number of array elements or object members; 0 for anything else.
  size_t size() const;

  // Compact JSON text on one line (no line breaks, non-ASCII written as UTF-8; invalid UTF-8 in
  // strings is written as U+FFFD). Doubles always carry a fraction or an exponent so they read back
  // as doubles; non-finite doubles, which JSON cannot write, are written as null.
  std::string Serialize() const;

  // Parses one JSON text (surrounding white space allowed, nothing else after it). On failure
  // answers nothing and, when `error` is given, a description with the byte offset.
  static std::optional<JsonValue> Parse(std::string_view text, std::string* error = nullptr);

  friend bool operator==(const JsonValue& lhs, const JsonValue& rhs) {
    return lhs.data_ == rhs.data_;
  }
  friend bool operator!=(const JsonValue& lhs, const JsonValue& rhs) { return !(lhs == rhs); }

 private:
  std::variant<std::monostate, bool, int64_t, double, std::string, Array, Object> data_;
};

// JSON to channel value (see the top of this file). False, with the reason in `error` when given,
// for a typed form of the wrong shape.
bool JsonToEncodable(const JsonValue& json, flutter::EncodableValue* out,
                     std::string* error = nullptr);

// Channel value to JSON (see the top of this file). False only for a custom value, which has no
// JSON form.
bool EncodableToJson(const flutter::EncodableValue& value, JsonValue* out,
                     std::string* error = nullptr);

// Conveniences that answer a null value (JSON or channel) on failure.
JsonValue ToJson(const flutter::EncodableValue& value);
flutter::EncodableValue ToEncodable(const JsonValue& json);

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_JSON_VALUE_H_
