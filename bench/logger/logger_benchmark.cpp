// Lines per second of the native logger.
//
//   logger_benchmark [lines-per-run]     (default 200000)
//
// Three runs, each writing the same number of lines into a temporary folder:
//   - a bare loop: std::ofstream opened for appending, one formatted line written and flushed at a
//     time (the least any flushed-per-line log can cost);
//   - a Logger with the real clock and debugger output (what Logger::Instance() builds), from one
//     thread;
//   - the same from four threads sharing the lines.
// Each Logger run has a logger of its own, so that its file is closed when the run ends.
// Every run's files are counted afterwards, so a run that lost lines is reported as such.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "live_output/log/logger.h"

namespace {

namespace fs = std::filesystem;
using native_live_window::Logger;

constexpr const char kPayload[] = "frame presented on display-1 after 16.7 ms";

struct Run {
  const char* name;
  int threads;
  long lines;
  double seconds;
  long lines_found;
};

// Lines in every file below folder.
long CountLines(const fs::path& folder) {
  long count = 0;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
       it.increment(error)) {
    if (!it->is_regular_file()) continue;
    std::ifstream in(it->path(), std::ios::binary);
    char buffer[1 << 16];
    while (in.read(buffer, sizeof(buffer)) || in.gcount() > 0) {
      for (std::streamsize i = 0; i < in.gcount(); ++i) count += buffer[i] == '\n' ? 1 : 0;
    }
  }
  return count;
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Run BareLoop(const fs::path& folder, long lines) {
  fs::create_directories(folder);
  std::ofstream out(folder / "bare.log", std::ios::out | std::ios::app);
  const auto start = std::chrono::steady_clock::now();
  char line[256];
  for (long i = 0; i < lines; ++i) {
    const int length =
        std::snprintf(line, sizeof(line), "2026-06-10 14:05:09.042 INFO  [BENCH] %s, line %ld\n",
                      kPayload, i);
    out.write(line, length);
    out.flush();
  }
  const double seconds = SecondsSince(start);
  out.close();
  return Run{"bare ofstream append+flush", 1, lines, seconds, CountLines(folder)};
}

Run LoggerRun(const fs::path& folder, int thread_count, long lines) {
  Logger logger(&Logger::SystemClockNow, &Logger::SendToDebugger);
  logger.Initialize(folder.string());

  std::mutex mutex;
  std::condition_variable signal;
  bool go = false;
  std::vector<std::thread> threads;
  const long per_thread = lines / thread_count;
  for (int t = 0; t < thread_count; ++t) {
    threads.emplace_back([&, t] {
      {
        std::unique_lock<std::mutex> lock(mutex);
        signal.wait(lock, [&] { return go; });
      }
      for (long i = 0; i < per_thread; ++i) {
        logger.Info("BENCH", "%s, thread %d line %ld", kPayload, t, i);
      }
    });
  }
  const auto start = std::chrono::steady_clock::now();
  {
    std::lock_guard<std::mutex> lock(mutex);
    go = true;
  }
  signal.notify_all();
  for (std::thread& thread : threads) thread.join();
  const double seconds = SecondsSince(start);
  logger.Flush();
  return Run{"Logger::Info", thread_count, per_thread * thread_count, seconds, CountLines(folder)};
}

}  // namespace

int main(int argc, char** argv) {
  long lines = 200000;
  if (argc > 1) {
    lines = std::strtol(argv[1], nullptr, 10);
    if (lines < 4) {
      std::fprintf(stderr, "usage: logger_benchmark [lines-per-run >= 4]\n");
      return 2;
    }
  }

  std::error_code error;
  const fs::path root = fs::temp_directory_path(error) / "kestrun_logger_benchmark";
  fs::remove_all(root, error);
  fs::create_directories(root, error);
  if (error) {
    std::fprintf(stderr, "logger_benchmark: cannot create %s: %s\n", root.string().c_str(),
                 error.message().c_str());
    return 1;
  }

  std::vector<Run> runs;
  runs.push_back(BareLoop(root / "bare", lines));
  runs.push_back(LoggerRun(root / "logger_1", 1, lines));
  runs.push_back(LoggerRun(root / "logger_4", 4, lines));

  std::printf("logger benchmark: %ld lines per run, one flush per line, in %s\n\n", lines,
              root.string().c_str());
  std::printf("%-28s %7s %9s %9s %12s %8s  %s\n", "run", "threads", "lines", "seconds",
              "lines/s", "vs bare", "check");
  const double bare_rate = static_cast<double>(runs[0].lines) / runs[0].seconds;
  bool complete = true;
  for (const Run& run : runs) {
    const double rate = static_cast<double>(run.lines) / run.seconds;
    const bool ok = run.lines_found == run.lines;
    complete = complete && ok;
    std::printf("%-28s %7d %9ld %9.3f %12.0f %7.2fx  %s\n", run.name, run.threads, run.lines,
                run.seconds, rate, rate / bare_rate, ok ? "all lines written" : "LINES MISSING");
  }

  fs::remove_all(root, error);
  return complete ? 0 : 1;
}
