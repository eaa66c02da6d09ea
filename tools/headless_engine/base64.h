// Standard base64 (RFC 4648 alphabet, with padding) for byte lists on the control connection.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_BASE64_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_BASE64_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrun_headless {

std::string Base64Encode(const uint8_t* data, size_t size);
inline std::string Base64Encode(const std::vector<uint8_t>& bytes) {
  return Base64Encode(bytes.data(), bytes.size());
}

// False for characters outside the alphabet, a bad length or misplaced padding. Padding may be
// left out.
bool Base64Decode(std::string_view text, std::vector<uint8_t>* out);

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_BASE64_H_
