// headless_client: runs a program under the headless engine's control and drives it with commands
// read from a script or the standard input (client_script.h lists them), printing every answer
// and event as one JSON line.
//
//   headless_client [--script <file>] [--transcript <file>] [--cwd <dir>] [--env NAME=VALUE]...
//                   [--timeout <ms>] [--exit-timeout <ms>] -- <program> [<argument>...]
//
// Exits with the program's exit code. At the end of the commands it waits up to --exit-timeout
// (default 10000 ms) for the program to exit, then ends it (exit code 1). Exit code 2: bad usage,
// or the program could not be started or did not connect.
#include <windows.h>
#include <shellapi.h>
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client_script.h"
#include "headless_session.h"
#include "text_conversion.h"

namespace {

using kestrun_headless::ClientScript;
using kestrun_headless::HeadlessEvent;
using kestrun_headless::HeadlessSession;
using kestrun_headless::Json;
using kestrun_headless::JsonLine;
using kestrun_headless::SessionOptions;
using kestrun_headless::WideToUtf8;

constexpr int kUsageExitCode = 2;

struct Options {
  std::wstring script;
  std::wstring transcript;
  std::chrono::milliseconds timeout{30000};
  std::chrono::milliseconds exit_timeout{10000};
  SessionOptions session;
};

void PrintUsage() {
  std::fputs(
      "usage: headless_client [--script <file>] [--transcript <file>] [--cwd <dir>]\n"
      "                       [--env NAME=VALUE]... [--timeout <ms>] [--exit-timeout <ms>]\n"
      "                       -- <program> [<argument>...]\n",
      stderr);
}

std::optional<Options> ParseOptions(int count, wchar_t** arguments) {
  Options options;
  int i = 1;
  for (; i < count; ++i) {
    const std::wstring argument = arguments[i];
    if (argument == L"--") {
      ++i;
      break;
    }
    if (i + 1 >= count) {
      return std::nullopt;
    }
    const std::wstring value = arguments[++i];
    if (argument == L"--script") {
      options.script = value;
    } else if (argument == L"--transcript") {
      options.transcript = value;
    } else if (argument == L"--cwd") {
      options.session.working_directory = value;
    } else if (argument == L"--env") {
      const size_t equals = value.find(L'=');
      if (equals == std::wstring::npos || equals == 0) {
        return std::nullopt;
      }
      options.session.environment.emplace_back(value.substr(0, equals), value.substr(equals + 1));
    } else if (argument == L"--timeout") {
      options.timeout = std::chrono::milliseconds(_wtoi(value.c_str()));
    } else if (argument == L"--exit-timeout") {
      options.exit_timeout = std::chrono::milliseconds(_wtoi(value.c_str()));
    } else {
      return std::nullopt;
    }
  }
  if (i >= count) {
    return std::nullopt;
  }
  options.session.program = arguments[i++];
  for (; i < count; ++i) {
    options.session.arguments.emplace_back(arguments[i]);
  }
  options.session.connect_timeout = options.timeout;
  return options;
}

// Prints lines to the standard output and the transcript, whole lines at a time from any thread.
class Printer {
 public:
  explicit Printer(const std::wstring& transcript_path) {
    if (!transcript_path.empty()) {
      transcript_.open(transcript_path.c_str(), std::ios::binary | std::ios::trunc);
    }
  }
  bool transcript_ok() const { return !transcript_.is_open() || transcript_.good(); }

  void Print(const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
    if (transcript_.is_open()) {
      transcript_ << line << '\n';
      transcript_.flush();
    }
  }

  // Commands go to the transcript only.
  void Record(const std::string& command) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (transcript_.is_open()) {
      transcript_ << JsonLine(Json{{"command", command}}) << '\n';
      transcript_.flush();
    }
  }

 private:
  std::mutex mutex_;
  std::ofstream transcript_;
};

}  // namespace

int main() {
  // Lines end in "\n" only, as the protocol writes them.
  _setmode(_fileno(stdout), _O_BINARY);
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  std::optional<Options> options =
      arguments != nullptr ? ParseOptions(count, arguments) : std::nullopt;
  if (arguments != nullptr) {
    LocalFree(arguments);
  }
  if (!options) {
    PrintUsage();
    return kUsageExitCode;
  }

  Printer printer(options->transcript);
  if (!printer.transcript_ok()) {
    std::fprintf(stderr, "headless_client: cannot write the transcript\n");
    return kUsageExitCode;
  }
  std::ifstream script_file;
  if (!options->script.empty()) {
    script_file.open(options->script.c_str(), std::ios::binary);
    if (!script_file) {
      std::fprintf(stderr, "headless_client: cannot read the script\n");
      return kUsageExitCode;
    }
  }
  std::istream& input = options->script.empty() ? std::cin : script_file;

  HeadlessSession session;
  session.SetEventObserver([&printer](const HeadlessEvent& event) {
    printer.Print(JsonLine(event.json));
  });
  if (!session.Start(options->session)) {
    printer.Print(JsonLine(Json{{"clientError", session.last_error()}}));
    // A program that started and exited by itself still tells its exit code.
    std::optional<uint32_t> code = session.WaitForExit(std::chrono::milliseconds(0));
    return code ? static_cast<int>(*code) : kUsageExitCode;
  }

  ClientScript script(&session, [&printer](const std::string& line) { printer.Print(line); },
                      options->timeout);
  std::string line;
  while (std::getline(input, line)) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    printer.Record(line);
    script.RunLine(line);
  }

  std::optional<uint32_t> code = script.exit_code();
  if (!code) {
    code = session.WaitForExit(options->exit_timeout);
  }
  if (!code) {
    printer.Print(
        JsonLine(Json{{"clientError", "the program still runs after the commands; ending it"}}));
    session.Kill(1);
    code = 1;
  }
  return static_cast<int>(*code);
}
