#include "base64.h"

#include <utility>

namespace kestrun_headless {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int DigitValue(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

}  // namespace

std::string Base64Encode(const uint8_t* data, size_t size) {
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    const uint32_t group = (uint32_t{data[i]} << 16) | (uint32_t{data[i + 1]} << 8) | data[i + 2];
    out.push_back(kAlphabet[(group >> 18) & 63]);
    out.push_back(kAlphabet[(group >> 12) & 63]);
    out.push_back(kAlphabet[(group >> 6) & 63]);
    out.push_back(kAlphabet[group & 63]);
  }
  const size_t rest = size - i;
  if (rest == 1) {
    const uint32_t group = uint32_t{data[i]} << 16;
    out.push_back(kAlphabet[(group >> 18) & 63]);
    out.push_back(kAlphabet[(group >> 12) & 63]);
    out.append("==");
  } else if (rest == 2) {
    const uint32_t group = (uint32_t{data[i]} << 16) | (uint32_t{data[i + 1]} << 8);
    out.push_back(kAlphabet[(group >> 18) & 63]);
    out.push_back(kAlphabet[(group >> 12) & 63]);
    out.push_back(kAlphabet[(group >> 6) & 63]);
    out.push_back('=');
  }
  return out;
}

bool Base64Decode(std::string_view text, std::vector<uint8_t>* out) {
  size_t length = text.size();
  size_t padding = 0;
  while (length > 0 && text[length - 1] == '=' && padding < 2) {
    --length;
    ++padding;
  }
  if (padding > 0 && text.size() % 4 != 0) {
    return false;
  }
  if (length % 4 == 1) {
    return false;
  }
  std::vector<uint8_t> bytes;
  bytes.reserve(length / 4 * 3 + 2);
  uint32_t group = 0;
  int bits = 0;
  for (size_t i = 0; i < length; ++i) {
    const int digit = DigitValue(text[i]);
    if (digit < 0) {
      return false;
    }
    group = (group << 6) | static_cast<uint32_t>(digit);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<uint8_t>((group >> bits) & 0xFF));
    }
  }
  // Leftover bits of the last digit must be zero in a canonical encoding.
  if (bits > 0 && (group & ((1u << bits) - 1)) != 0) {
    return false;
  }
  *out = std::move(bytes);
  return true;
}

}  // namespace kestrun_headless
