#include "window_message_names.h"

#include <charconv>
#include <cstdio>

namespace kestrun_headless {
namespace {

struct NamedMessage {
  const char* name;
  uint32_t value;
};

// The messages a host's main window is told about by the system, which a test may want to fake.
constexpr NamedMessage kMessages[] = {
    {"WM_NULL", 0x0000},
    {"WM_SIZE", 0x0005},
    {"WM_ACTIVATE", 0x0006},
    {"WM_SETFOCUS", 0x0007},
    {"WM_KILLFOCUS", 0x0008},
    {"WM_CLOSE", 0x0010},
    {"WM_QUERYENDSESSION", 0x0011},
    {"WM_ENDSESSION", 0x0016},
    {"WM_SETTINGCHANGE", 0x001A},
    {"WM_FONTCHANGE", 0x001D},
    {"WM_DISPLAYCHANGE", 0x007E},
    {"WM_POWERBROADCAST", 0x0218},
    {"WM_DEVICECHANGE", 0x0219},
    {"WM_WTSSESSION_CHANGE", 0x02B1},
    {"WM_DPICHANGED", 0x02E0},
    {"WM_DWMCOLORIZATIONCOLORCHANGED", 0x0320},
    {"WM_USER", 0x0400},
    {"WM_APP", 0x8000},
};

}  // namespace

std::optional<uint32_t> WindowMessageFromText(std::string_view text) {
  for (const NamedMessage& message : kMessages) {
    if (text == message.name) {
      return message.value;
    }
  }
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    text.remove_prefix(2);
    base = 16;
  }
  uint32_t value = 0;
  const std::from_chars_result result =
      std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size() ||
      value >= 0x10000) {
    return std::nullopt;
  }
  return value;
}

std::string WindowMessageName(uint32_t message) {
  for (const NamedMessage& named : kMessages) {
    if (named.value == message) {
      return named.name;
    }
  }
  char text[16];
  std::snprintf(text, sizeof(text), "0x%04X", static_cast<unsigned>(message));
  return text;
}

}  // namespace kestrun_headless
