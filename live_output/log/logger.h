// Process-wide native log of the live output subsystem.
//
// Every native part of live output reports through one Logger: short, categorised, printf-style
// lines appended to hourly files below the directory the interface names through
// "initializeLogger". Until that directory is known nothing reaches the disk; errors are in
// addition always mirrored to the debugger output.
//
// Layout on disk: <directory>\<YYYY-MM-DD>\<HH>-native.log (local time, one folder per day, one
// file per hour). On non-Windows builds, used for the native tests, the separator is "/".
//
// A line reads
//   2026-03-01 14:05:09.042 INFO  [DCOMP] message
// and is flushed as soon as it is written. Messages are cut at 2047 bytes.

#ifndef KESTRUN_LIVE_OUTPUT_LOG_LOGGER_H_
#define KESTRUN_LIVE_OUTPUT_LOG_LOGGER_H_

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>

// printf-style checking of the format arguments. MinGW's C++ runtime formats with its own C99
// printf, which GCC knows as gnu_printf; __MINGW_PRINTF_FORMAT names whichever one is in use.
#if defined(__GNUC__) || defined(__clang__)
#if defined(__MINGW_PRINTF_FORMAT)
#define KESTRUN_LOGGER_PRINTF(format_index, first_arg_index) \
  __attribute__((format(__MINGW_PRINTF_FORMAT, format_index, first_arg_index)))
#else
#define KESTRUN_LOGGER_PRINTF(format_index, first_arg_index) \
  __attribute__((format(printf, format_index, first_arg_index)))
#endif
#else
#define KESTRUN_LOGGER_PRINTF(format_index, first_arg_index)
#endif

// The Visual C++ code analyser checks format strings marked this way.
#if defined(_MSC_VER)
#include <sal.h>
#define KESTRUN_LOGGER_FORMAT_STRING _Printf_format_string_
#else
#define KESTRUN_LOGGER_FORMAT_STRING
#endif

namespace native_live_window {

class Logger {
 public:
  // Current system time as a count of 100-nanosecond units since 1970-01-01 00:00:00 UTC.
  using Clock = std::function<std::int64_t()>;
  // Receives each text meant for the debugger output (one call per text, line feed included).
  // Called from any logging thread, so it must be safe to call concurrently.
  using DebuggerSink = std::function<void(const char* text)>;

  // Size of every formatting buffer; longer messages are cut to kMessageBufferSize - 1 bytes.
  static constexpr std::size_t kMessageBufferSize = 2048;

  // The process-wide logger, built on first use with the system clock and the real debugger
  // output. It is never destroyed, so that threads still logging while the process exits find it.
  static Logger& Instance();

  // A logger of its own, for tests and tools. An empty clock or sink means the real one.
  Logger(Clock clock, DebuggerSink debugger_sink);

  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;
  ~Logger() = default;

  // Names the folder below which the hourly files are written. May be called again: the next line
  // then closes the open file and goes to the new folder. Opens nothing by itself.
  void Initialize(const std::string& directory);

  void Info(const char* category, KESTRUN_LOGGER_FORMAT_STRING const char* format, ...)
      KESTRUN_LOGGER_PRINTF(3, 4);
  void Warning(const char* category, KESTRUN_LOGGER_FORMAT_STRING const char* format, ...)
      KESTRUN_LOGGER_PRINTF(3, 4);
  // Also sends "Kestrun Native ERROR [category] message" to the debugger output, whether or not
  // the logger is initialised.
  void Error(const char* category, KESTRUN_LOGGER_FORMAT_STRING const char* format, ...)
      KESTRUN_LOGGER_PRINTF(3, 4);

  // Pushes buffered lines to the file, if one is open.
  void Flush();

  // Test seam: called with the category of every line, on the logging thread, with the logger's
  // lock held (null removes it).
  using WriteHook = void (*)(const char* category);
  void SetWriteHookForTesting(WriteHook hook) { write_hook_.store(hook); }

  // The real clock and debugger output used by Instance().
  static std::int64_t SystemClockNow();
  static void SendToDebugger(const char* text);

 private:
  struct LocalTime;

  void Write(const char* level, const char* category,
             KESTRUN_LOGGER_FORMAT_STRING const char* format, ...) KESTRUN_LOGGER_PRINTF(4, 5);
  // Makes file_ the file of the given local hour. Caller holds mutex_.
  void ChooseFileLocked(const LocalTime& now);
  void OpenFileLocked();
  void Debug(const std::string& text);

  Clock clock_;
  DebuggerSink debugger_sink_;
  std::atomic<WriteHook> write_hook_{nullptr};

  // Guards everything below. Held for one line at a time.
  std::mutex mutex_;
  std::string directory_;
  std::ofstream file_;
  std::string current_date_;
  // Local hour (0-23) of the file chosen; -1 while none is chosen.
  std::int32_t current_hour_ = -1;
  bool initialized_ = false;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_LOG_LOGGER_H_
