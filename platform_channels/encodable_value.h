// EncodableValue: the value that crosses every platform channel, one alternative per kind of
// Flutter's standard message codec.
#ifndef KESTRUN_PLATFORM_CHANNELS_ENCODABLE_VALUE_H_
#define KESTRUN_PLATFORM_CHANNELS_ENCODABLE_VALUE_H_

#include <algorithm>
#include <any>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
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
  // No user-declared destructor or copy operations: the implicit move stays noexcept, which keeps
  // EncodableValue nothrow-movable so that a growing EncodableList moves its elements instead of
  // deep-copying them.

  const std::any& value() const { return value_; }
  const std::type_info& type() const { return value_.type(); }

  // Custom values have no natural order; identity keeps map ordering strict and stable.
  bool operator<(const CustomEncodableValue& other) const {
    return std::less<const CustomEncodableValue*>()(this, &other);
  }
  bool operator==(const CustomEncodableValue& other) const { return this == &other; }

 private:
  std::any value_;
};

namespace internal {
// Floating-point order for map keys: numbers by value, every NaN after all numbers and equivalent
// to any other NaN. Plain `<` makes NaN equivalent to every number, which is not a strict weak
// order and lets a std::map keyed by double lists disagree with itself.
template <typename F>
bool FloatLess(F lhs, F rhs) {
  if (std::isnan(lhs)) {
    return false;
  }
  if (std::isnan(rhs)) {
    return true;
  }
  return lhs < rhs;
}

template <typename F>
bool FloatListLess(const std::vector<F>& lhs, const std::vector<F>& rhs) {
  return std::lexicographical_compare(lhs.begin(), lhs.end(), rhs.begin(), rhs.end(),
                                      [](F left, F right) { return FloatLess(left, right); });
}

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

  // Kind first (the alternative order above), then value. Floating-point values use
  // internal::FloatLess so that keys holding NaN still order strictly.
  friend bool operator<(const EncodableValue& lhs, const EncodableValue& rhs) {
    if (rhs.valueless_by_exception()) {
      return false;
    }
    if (lhs.valueless_by_exception()) {
      return true;
    }
    if (lhs.index() != rhs.index()) {
      return lhs.index() < rhs.index();
    }
    return std::visit(
        [&rhs](const auto& left) -> bool {
          using T = std::decay_t<decltype(left)>;
          const T& right = std::get<T>(static_cast<const super&>(rhs));
          if constexpr (std::is_same_v<T, double>) {
            return internal::FloatLess(left, right);
          } else if constexpr (std::is_same_v<T, std::vector<double>> ||
                               std::is_same_v<T, std::vector<float>>) {
            return internal::FloatListLess(left, right);
          } else {
            return left < right;
          }
        },
        static_cast<const super&>(lhs));
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
