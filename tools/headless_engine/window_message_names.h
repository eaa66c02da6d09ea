// Window messages named on the control connection: "WM_CLOSE" and friends, or numbers.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_WINDOW_MESSAGE_NAMES_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_WINDOW_MESSAGE_NAMES_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestrun_headless {

// A known name (exact, upper case, e.g. "WM_CLOSE"), or a number in decimal or 0x hex below
// 0x10000. Nothing for anything else.
std::optional<uint32_t> WindowMessageFromText(std::string_view text);

// The known name of `message`, or its number as "0x%04X".
std::string WindowMessageName(uint32_t message);

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_WINDOW_MESSAGE_NAMES_H_
