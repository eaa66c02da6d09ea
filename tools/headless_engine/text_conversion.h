// UTF-16 and UTF-8 conversions for paths, titles and class names crossing the control connection.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_TEXT_CONVERSION_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_TEXT_CONVERSION_H_

#include <string>
#include <string_view>

namespace kestrun_headless {

// Unpaired surrogates become U+FFFD; empty on failure.
std::string WideToUtf8(std::wstring_view text);
// Invalid sequences become U+FFFD; empty on failure.
std::wstring Utf8ToWide(std::string_view text);

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_TEXT_CONVERSION_H_
