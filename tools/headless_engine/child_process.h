// A program started by the control client: command line and environment building, start, wait,
// kill. The program is put in a job object that ends it when this object goes, or when the
// starting process dies first.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_CHILD_PROCESS_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_CHILD_PROCESS_H_

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestrun_headless {

class ChildProcess {
 public:
  using Environment = std::vector<std::pair<std::wstring, std::wstring>>;

  ChildProcess() = default;
  // Closes the handles. Closing the job ends the program if it still runs.
  ~ChildProcess();

  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Starts `program` with `arguments` in `working_directory` (empty: the program's folder), with
  // this process's environment plus `environment`. False, with the reason in `error`, on failure.
  bool Start(const std::wstring& program, const std::vector<std::wstring>& arguments,
             const std::wstring& working_directory, const Environment& environment,
             std::string* error);

  bool started() const { return process_ != nullptr; }
  uint32_t id() const { return id_; }
  // The process handle (a HANDLE) for waiting; null before Start.
  void* handle() const { return process_; }

  // The exit code once the program has ended; nothing while it still runs after `timeout`.
  std::optional<uint32_t> WaitForExit(std::chrono::milliseconds timeout) const;
  // Ends the program if it still runs and waits until it is gone.
  void Kill(uint32_t exit_code);

  // The argument as a program's command-line parser reads it back unchanged (quotes and
  // backslashes escaped the way CommandLineToArgvW and the C runtime undo them).
  static std::wstring QuoteArgument(const std::wstring& argument);
  // Program (always quoted) followed by the quoted arguments, separated by spaces.
  static std::wstring BuildCommandLine(const std::wstring& program,
                                       const std::vector<std::wstring>& arguments);
  // An environment block (NAME=VALUE strings, each ended by a null, then one more null) made of
  // `current` (a block such as GetEnvironmentStringsW answers; may be null) with the variables
  // of `changes` added or replaced (names compared ignoring case), sorted by name ignoring case
  // as Windows expects.
  static std::vector<wchar_t> BuildEnvironmentBlock(const wchar_t* current,
                                                    const Environment& changes);

 private:
  void* process_ = nullptr;
  void* job_ = nullptr;
  uint32_t id_ = 0;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_CHILD_PROCESS_H_
