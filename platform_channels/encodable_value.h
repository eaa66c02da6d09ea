// EncodableValue: the value that crosses every platform channel, one alternative per kind of
// Flutter's standard message codec.
#ifndef KESTRUN_PLATFORM_CHANNELS_ENCODABLE_VALUE_H_
#define KESTRUN_PLATFORM_CHANNELS_ENCODABLE_VALUE_H_

#include <any>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace flutter {

class EncodableValue;

using EncodableList = std::vector<EncodableValue>;
// Ordered by key: first by kind, then by value, so a map is always written in key order.
using EncodableMap = std::map<EncodableValue, EncodableValue>;

// A value of a type the standard codec does not know. It can be carried in an EncodableValue but
// only a codec extension could write it; the standard serializer refuses it.
class CustomEncodableValue {
 public:
  explicit CustomEncodableValue(const std::any& value) : value_(value) {}
  ~CustomEncodableValue() = default;

  const std::any& value() const { return value_; }
  const std::type_info& type() const { return value_.type(); }

  // Custom values have no natural order; identity keeps map ordering strict and stable.
  bool operator<(const CustomEncodableValue& other) const { return this < &other; }
  bool operator==(const CustomEncodableValue& other) const { return this == &other; }

 private:
  std::any value_;
};

namespace internal {
// The alternative order is the kind order used for map keys and must not change:
// 0 null, 1 bool, 2 int32, 3 int64, 4 double, 5 string, 6 bytes, 7 int32 list, 8 int64 list,
// 9 double list, 10 list, 11 map, 12 custom, 13 float32 list.
using EncodableValueVariant = std::variant<std::monostate, bool, int32_t, int64_t, double,
                                           std::string, std::vector<uint8_t>,
                                           std::vector<int32_t>, std::vector<int64_t>,
                                           std::vector<double>, EncodableList, EncodableMap,
                                           CustomEncodableValue, std::vector<float>>;
}  // namespace internal

// Reading an alternative the value does not hold (std::get) is a programming fault: the
// std::bad_variant_access it raises is never caught, so the process ends. No conversion is made.
class EncodableValue : public internal::EncodableValueVariant {
 public:
  using super = internal::EncodableValueVariant;
  using super::super;
  using super::operator=;

  EncodableValue() = default;

  // A string literal is a string, never a bool.
  explicit EncodableValue(const char* string) : super(std::string(string)) {}
  EncodableValue& operator=(const char* other) {
    *this = std::string(other);
    return *this;
  }

  // Avoids the variant's own (deleted in C++17) converting constructors picking the wrong kind.
  EncodableValue(const CustomEncodableValue& v) : super(v) {}

  bool IsNull() const { return std::holds_alternative<std::monostate>(*this); }

  // The integer of an int32 or int64 value, widened to 64 bits. Any other kind is a fault.
  int64_t LongValue() const {
    if (std::holds_alternative<int32_t>(*this)) {
      return std::get<int32_t>(*this);
    }
    return std::get<int64_t>(*this);
  }

  friend bool operator<(const EncodableValue& lhs, const EncodableValue& rhs) {
    return static_cast<const super&>(lhs) < static_cast<const super&>(rhs);
  }
  friend bool operator==(const EncodableValue& lhs, const EncodableValue& rhs) {
    return static_cast<const super&>(lhs) == static_cast<const super&>(rhs);
  }
  friend bool operator!=(const EncodableValue& lhs, const EncodableValue& rhs) {
    return !(lhs == rhs);
  }
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_ENCODABLE_VALUE_H_
