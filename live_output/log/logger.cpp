#include "live_output/log/logger.h"

#include <chrono>
#include <cstdarg>
#include <ctime>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "live_output/log/held_locks.h"

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

#if defined(_MSC_VER)
#include <share.h>
#endif

namespace native_live_window {

namespace {

constexpr const char kLevelInfo[] = "INFO ";
constexpr const char kLevelWarning[] = "WARNING";
constexpr const char kLevelError[] = "ERROR";

#ifdef _WIN32
constexpr const char kSeparator[] = "\\";
#else
constexpr const char kSeparator[] = "/";
#endif

constexpr std::int64_t kTicksPerMillisecond = 10000;  // 100-ns units
constexpr std::int64_t kMillisecondsPerSecond = 1000;

// Room for the error mirror: its prefix, the category and a full message.
constexpr std::size_t kMirrorBufferSize = Logger::kMessageBufferSize + 256;

std::int64_t FloorDivide(std::int64_t value, std::int64_t divisor) {
  std::int64_t quotient = value / divisor;
  if ((value % divisor) < 0) --quotient;
  return quotient;
}

// Bounded print: a longer result is cut to size - 1 bytes and terminated.
void FormatBounded(char* buffer, std::size_t size, const char* format, va_list args) {
  if (format == nullptr) {
    buffer[0] = '\0';
    return;
  }
  if (std::vsnprintf(buffer, size, format, args) < 0) buffer[0] = '\0';
  buffer[size - 1] = '\0';
}

// The narrow directory as a file system path. Windows reads narrow paths in the code page of the
// file APIs (ANSI unless a program switched them to OEM); elsewhere the bytes are the path.
std::filesystem::path ToFileSystemPath(const std::string& narrow) {
#ifdef _WIN32
  if (narrow.empty() || narrow.size() > 0x7FFFFFFF) return std::filesystem::path();
  const UINT code_page = AreFileApisANSI() ? CP_ACP : CP_OEMCP;
  const int narrow_length = static_cast<int>(narrow.size());
  const int wide_length =
      MultiByteToWideChar(code_page, 0, narrow.data(), narrow_length, nullptr, 0);
  if (wide_length <= 0) return std::filesystem::path();
  std::wstring wide(static_cast<std::size_t>(wide_length), L'\0');
  MultiByteToWideChar(code_page, 0, narrow.data(), narrow_length, &wide[0], wide_length);
  return std::filesystem::path(wide);
#else
  return std::filesystem::path(narrow);
#endif
}

bool ToLocalCalendar(std::time_t seconds, std::tm* out) {
#ifdef _WIN32
  return localtime_s(out, &seconds) == 0;
#else
  return localtime_r(&seconds, out) != nullptr;
#endif
}

}  // namespace

struct Logger::LocalTime {
  std::tm calendar{};
  int millisecond = 0;
  char date[32] = {};  // "%Y-%m-%d"
};

Logger& Logger::Instance() {
  // Deliberately never deleted: render and decoder threads may still log while static objects are
  // being destroyed at exit. Each line is flushed, so nothing is left to write at that point.
  static Logger* const instance = new Logger(&Logger::SystemClockNow, &Logger::SendToDebugger);
  return *instance;
}

Logger::Logger(Clock clock, DebuggerSink debugger_sink)
    : clock_(clock ? std::move(clock) : Clock(&Logger::SystemClockNow)),
      debugger_sink_(debugger_sink ? std::move(debugger_sink)
                                   : DebuggerSink(&Logger::SendToDebugger)) {}

std::int64_t Logger::SystemClockNow() {
  using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10000000>>;
  // system_clock counts from 1970-01-01 UTC on every supported platform (guaranteed from C++20).
  return std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

void Logger::SendToDebugger(const char* text) {
#ifdef _WIN32
  OutputDebugStringA(text);
#else
  std::fputs(text, stderr);
#endif
}

void Logger::Debug(const std::string& text) { debugger_sink_(text.c_str()); }

void Logger::Initialize(const std::string& directory) {
  HeldLocks::Scoped<std::mutex> lock(mutex_);
  directory_ = directory;
  initialized_ = true;
  current_hour_ = -1;
  Debug("Kestrun Native: Logger initialized with directory: " + directory + "\n");
}

void Logger::Info(const char* category, const char* format, ...) {
  char message[kMessageBufferSize];
  va_list args;
  va_start(args, format);
  FormatBounded(message, sizeof(message), format, args);
  va_end(args);
  Write(kLevelInfo, category, "%s", message);
}

void Logger::Warning(const char* category, const char* format, ...) {
  char message[kMessageBufferSize];
  va_list args;
  va_start(args, format);
  FormatBounded(message, sizeof(message), format, args);
  va_end(args);
  Write(kLevelWarning, category, "%s", message);
}

void Logger::Error(const char* category, const char* format, ...) {
  char message[kMessageBufferSize];
  va_list args;
  va_start(args, format);
  FormatBounded(message, sizeof(message), format, args);
  va_end(args);
  Write(kLevelError, category, "%s", message);

  // The mirror goes out after the lock is released, initialised or not.
  char mirror[kMirrorBufferSize];
  const int length = std::snprintf(mirror, sizeof(mirror), "Kestrun Native ERROR [%s] %s\n",
                                   category != nullptr ? category : "", message);
  if (length < 0) return;
  if (static_cast<std::size_t>(length) >= sizeof(mirror)) {
    // Only an absurdly long category gets here; keep the text a whole line.
    mirror[sizeof(mirror) - 2] = '\n';
    mirror[sizeof(mirror) - 1] = '\0';
  }
  debugger_sink_(mirror);
}

void Logger::Flush() {
  HeldLocks::Scoped<std::mutex> lock(mutex_);
  if (file_.is_open()) file_.flush();
}

void Logger::Write(const char* level, const char* category, const char* format, ...) {
  // A render thread that faults while it holds this lock gets it released by its fault guard.
  HeldLocks::Scoped<std::mutex> lock(mutex_);
  const WriteHook hook = write_hook_.load(std::memory_order_relaxed);
  if (hook != nullptr) hook(category);
  if (!initialized_) return;

  // The clock is read under the lock so that the lines of a file are in time order and every line
  // lands in the file of its own timestamp.
  const std::int64_t ticks = clock_();
  const std::int64_t total_milliseconds = FloorDivide(ticks, kTicksPerMillisecond);
  LocalTime now;
  now.millisecond = static_cast<int>(total_milliseconds -
                                     FloorDivide(total_milliseconds, kMillisecondsPerSecond) *
                                         kMillisecondsPerSecond);
  const auto seconds =
      static_cast<std::time_t>(FloorDivide(total_milliseconds, kMillisecondsPerSecond));
  if (!ToLocalCalendar(seconds, &now.calendar)) now.calendar = std::tm{};
  std::snprintf(now.date, sizeof(now.date), "%04d-%02d-%02d", now.calendar.tm_year + 1900,
                now.calendar.tm_mon + 1, now.calendar.tm_mday);

  ChooseFileLocked(now);
  if (!file_.is_open()) return;  // the line is lost

  char message[kMessageBufferSize];
  va_list args;
  va_start(args, format);
  FormatBounded(message, sizeof(message), format, args);
  va_end(args);

  char timestamp[64];
  std::snprintf(timestamp, sizeof(timestamp), "%s %02d:%02d:%02d.%03d", now.date,
                now.calendar.tm_hour, now.calendar.tm_min, now.calendar.tm_sec, now.millisecond);

  file_ << timestamp << ' ' << level << " [" << (category != nullptr ? category : "") << "] "
        << message << '\n';
  file_.flush();
}

void Logger::ChooseFileLocked(const LocalTime& now) {
  if (!initialized_ || directory_.empty()) return;
  const int hour = now.calendar.tm_hour;
  if (hour == current_hour_ && current_date_ == now.date) return;

  if (file_.is_open()) file_.close();
  file_.clear();
  // Stored before anything can fail, so that a failure is reported once and the rest of the hour
  // is dropped rather than retried line by line.
  current_date_ = now.date;
  current_hour_ = hour;

  try {
    OpenFileLocked();
  } catch (const std::exception& e) {
    // Only running out of memory gets here; the hour is lost like after any other failure.
    if (file_.is_open()) file_.close();
    char text[256];
    std::snprintf(text, sizeof(text), "Kestrun Native: Failed to open log file: %s\n", e.what());
    debugger_sink_(text);
  }
}

void Logger::OpenFileLocked() {
  const std::string folder = directory_ + kSeparator + current_date_;
  std::error_code error;
  const std::filesystem::path folder_path = ToFileSystemPath(folder);
  if (folder_path.empty()) {
    error = std::make_error_code(std::errc::invalid_argument);
  } else {
    std::filesystem::create_directories(folder_path, error);
  }
  if (error) {
    Debug("Kestrun Native: create_directories failed for " + folder + ": " + error.message() +
          "\n");
    return;
  }

  char file_name[32];
  std::snprintf(file_name, sizeof(file_name), "%02d-native.log", current_hour_);
  const std::string file = folder + kSeparator + file_name;
  // Appending, never truncating; other readers and writers are not locked out (the default of
  // both C++ runtimes, spelled out for Visual C++).
#if defined(_MSC_VER)
  file_.open(ToFileSystemPath(file), std::ios::out | std::ios::app, _SH_DENYNO);
#else
  file_.open(ToFileSystemPath(file), std::ios::out | std::ios::app);
#endif
  if (!file_.is_open()) {
    file_.setstate(std::ios::failbit);
    Debug("Kestrun Native: Failed to open log file: " + file + "\n");
  }
}

}  // namespace native_live_window
