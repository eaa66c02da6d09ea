// The process's command line as UTF-8 arguments for the interface's entry point.
#ifndef KESTRUN_APP_SHELL_COMMAND_LINE_ARGUMENTS_H_
#define KESTRUN_APP_SHELL_COMMAND_LINE_ARGUMENTS_H_

#include <string>
#include <vector>

namespace kestrun_shell {

// UTF-8 form of a null-terminated UTF-16 string. Null input, or text that is not valid UTF-16
// (an unpaired surrogate), gives an empty string rather than a replaced text.
std::string Utf8FromUtf16(const wchar_t* utf16);

// Splits `command_line` as Windows does and converts every argument after the first (the
// program's path) to UTF-8; an invalid argument becomes "" at its position. A command line that
// cannot be split gives an empty list.
std::vector<std::string> ArgumentsFromCommandLine(const wchar_t* command_line);

// ArgumentsFromCommandLine of this process's command line.
std::vector<std::string> GetCommandLineArguments();

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_COMMAND_LINE_ARGUMENTS_H_
