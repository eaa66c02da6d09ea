#include "command_line_arguments.h"

#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <memory>

namespace kestrun_shell {

namespace {

struct LocalFreeDeleter {
  void operator()(wchar_t** arguments) const { LocalFree(arguments); }
};

}  // namespace

std::string Utf8FromUtf16(const wchar_t* utf16) {
  if (utf16 == nullptr) {
    return std::string();
  }
  // The length asked for includes the terminator; the string holds only the text.
  const int length_with_terminator =
      WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, utf16, -1, nullptr, 0, nullptr, nullptr);
  const int length = length_with_terminator - 1;
  if (length <= 0) {
    return std::string();
  }
  std::string utf8(static_cast<size_t>(length), '\0');
  // Writing the terminator into the string's own terminator slot is allowed since C++11.
  const int converted = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, utf16, -1, &utf8[0],
                                            length_with_terminator, nullptr, nullptr);
  if (converted == 0) {
    return std::string();
  }
  return utf8;
}

std::vector<std::string> ArgumentsFromCommandLine(const wchar_t* command_line) {
  std::vector<std::string> arguments;
  int count = 0;
  std::unique_ptr<wchar_t*, LocalFreeDeleter> split(CommandLineToArgvW(command_line, &count));
  if (!split) {
    return arguments;
  }
  // Argument 0 is the program's own path.
  for (int i = 1; i < count; ++i) {
    arguments.push_back(Utf8FromUtf16(split.get()[i]));
  }
  return arguments;
}

std::vector<std::string> GetCommandLineArguments() {
  return ArgumentsFromCommandLine(GetCommandLineW());
}

}  // namespace kestrun_shell
