// Hex helpers shared by the codec's tests.
#ifndef KESTRUN_PLATFORM_CHANNELS_CODEC_TEST_SUPPORT_H_
#define KESTRUN_PLATFORM_CHANNELS_CODEC_TEST_SUPPORT_H_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace flutter {
namespace codec_test {

inline const char kInvalidRead[] = "Invalid read in StandardCodecByteStreamReader\n";

// "0c 02 ff" -> {0x0c, 0x02, 0xff}.
inline std::vector<uint8_t> FromHex(const std::string& hex) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < hex.size();) {
    if (hex[i] == ' ') {
      ++i;
      continue;
    }
    bytes.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    i += 2;
  }
  return bytes;
}

inline std::string ToHex(const std::vector<uint8_t>& bytes) {
  std::string hex;
  char digits[4];
  for (uint8_t byte : bytes) {
    std::snprintf(digits, sizeof(digits), "%02x ", byte);
    hex += digits;
  }
  if (!hex.empty()) {
    hex.pop_back();
  }
  return hex;
}

inline std::string HexOf(double value) {
  std::vector<uint8_t> bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return ToHex(bytes);
}

inline std::string Zeros(size_t count) { return ToHex(std::vector<uint8_t>(count, 0)); }

// Joins hex fragments, skipping empty ones.
inline std::string Join(std::initializer_list<std::string> parts) {
  std::string joined;
  for (const std::string& part : parts) {
    if (!part.empty()) {
      joined += (joined.empty() ? "" : " ") + part;
    }
  }
  return joined;
}

inline std::string StripCarriageReturns(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  return text;
}

}  // namespace codec_test
}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_CODEC_TEST_SUPPORT_H_
