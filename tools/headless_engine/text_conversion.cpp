#include "text_conversion.h"

#include <windows.h>

namespace kestrun_headless {

std::string WideToUtf8(std::wstring_view text) {
  if (text.empty()) {
    return std::string();
  }
  const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
  if (length <= 0) {
    return std::string();
  }
  std::string out(static_cast<size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), length,
                      nullptr, nullptr);
  return out;
}

std::wstring Utf8ToWide(std::string_view text) {
  if (text.empty()) {
    return std::wstring();
  }
  const int length =
      MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  if (length <= 0) {
    return std::wstring();
  }
  std::wstring out(static_cast<size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), length);
  return out;
}

}  // namespace kestrun_headless
