// Tests of the native file logger: each test builds its own Logger with a hand-set clock and a
// recording debugger sink, and writes into a fresh temporary folder.

#include "live_output/log/logger.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#endif

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace native_live_window {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::StartsWith;

#ifdef _WIN32
constexpr const char kSep[] = "\\";
#else
constexpr const char kSep[] = "/";
#endif

constexpr std::int64_t kTicksPerSecond = 10000000;
constexpr std::int64_t kTicksPerMillisecond = 10000;

// Clock ticks (100 ns since 1970 UTC) of a local calendar time, in whatever zone the test runs.
std::int64_t LocalTicks(int year, int month, int day, int hour, int minute, int second,
                        int millisecond) {
  std::tm calendar{};
  calendar.tm_year = year - 1900;
  calendar.tm_mon = month - 1;
  calendar.tm_mday = day;
  calendar.tm_hour = hour;
  calendar.tm_min = minute;
  calendar.tm_sec = second;
  calendar.tm_isdst = -1;
  const std::time_t seconds = std::mktime(&calendar);
  return static_cast<std::int64_t>(seconds) * kTicksPerSecond +
         millisecond * kTicksPerMillisecond;
}

std::vector<std::string> ReadLines(const fs::path& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

// Debugger output as received, one entry per text.
class RecordingSink {
 public:
  void Add(const char* text) {
    std::lock_guard<std::mutex> lock(mutex_);
    texts_.emplace_back(text);
  }
  std::vector<std::string> Texts() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return texts_;
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    texts_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
};

class LoggerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    root_ = fs::temp_directory_path() /
            (std::string("kestrun_logger_") + info->test_suite_name() + "_" + info->name());
    fs::remove_all(root_);
    fs::create_directories(root_);
  }

  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }

  std::unique_ptr<Logger> NewLogger() {
    return std::make_unique<Logger>([this] { return now_.load(); },
                                    [this](const char* text) { sink_.Add(text); });
  }

  void SetClock(int year, int month, int day, int hour, int minute, int second, int millisecond) {
    now_ = LocalTicks(year, month, day, hour, minute, second, millisecond);
  }

  // The directory as the interface would pass it.
  std::string Dir() const { return root_.string(); }

  fs::path HourFile(const char* date, const char* hour) const {
    return root_ / date / (std::string(hour) + "-native.log");
  }

  bool RootIsEmpty() const { return fs::is_empty(root_); }

  fs::path root_;
  std::atomic<std::int64_t> now_{0};
  RecordingSink sink_;
};

// ---- Before "initializeLogger" ----------------------------------------------------------------

using LoggerBeforeInitializeTest = LoggerTest;

TEST_F(LoggerBeforeInitializeTest, WritesNothingButMirrorsErrorsToTheDebugger) {
  SetClock(2026, 6, 10, 14, 5, 9, 42);
  auto logger = NewLogger();

  logger->Info("NATIVE", "info %d", 1);
  logger->Warning("GIF", "warning %d", 2);
  logger->Error("D3D11", "Present failed hr=0x%08X", 0x887A0005u);
  logger->Flush();

  EXPECT_THAT(sink_.Texts(),
              ElementsAre("Kestrun Native ERROR [D3D11] Present failed hr=0x887A0005\n"));

  // Initialising afterwards opens nothing and replays nothing.
  logger->Initialize(Dir());
  logger->Flush();
  EXPECT_TRUE(RootIsEmpty());
}

// ---- Lines and files ------------------------------------------------------------------------

using LoggerLineTest = LoggerTest;

TEST_F(LoggerLineTest, LinesArePaddedCutAt2047BytesAndGoToTheFileOfTheirHour) {
  SetClock(2026, 6, 10, 9, 0, 0, 0);
  auto logger = NewLogger();
  logger->Initialize(Dir());
  EXPECT_THAT(sink_.Texts(),
              ElementsAre("Kestrun Native: Logger initialized with directory: " + Dir() + "\n"));
  EXPECT_TRUE(RootIsEmpty());  // the file comes with the first line
  sink_.Clear();

  const std::string long_message(3000, 'x');
  const std::string cut(2047, 'x');
  logger->Info("RENDER", "render loop started for %s at %dx%d", "display-1", 1920, 1080);
  SetClock(2026, 6, 10, 9, 0, 1, 7);
  logger->Warning("GIF", "animated image budget %.1f MB over %u", 12.5, 64u);
  SetClock(2026, 6, 10, 9, 59, 59, 999);
  logger->Error("DCOMP", "Commit failed hr=0x%08X", 0x80004005u);
  logger->Info("VIDEO", "%s", long_message.c_str());
  logger->Error("VIDEO", "%s", long_message.c_str());
  EXPECT_THAT(ReadLines(HourFile("2026-06-10", "09")),
              ElementsAre("2026-06-10 09:00:00.000 INFO  [RENDER] render loop started for "
                          "display-1 at 1920x1080",
                          "2026-06-10 09:00:01.007 WARNING [GIF] animated image budget 12.5 MB "
                          "over 64",
                          "2026-06-10 09:59:59.999 ERROR [DCOMP] Commit failed hr=0x80004005",
                          "2026-06-10 09:59:59.999 INFO  [VIDEO] " + cut,
                          "2026-06-10 09:59:59.999 ERROR [VIDEO] " + cut));
  EXPECT_THAT(sink_.Texts(), ElementsAre("Kestrun Native ERROR [DCOMP] Commit failed hr=0x80004005\n",
                                         "Kestrun Native ERROR [VIDEO] " + cut + "\n"));

  // A new hour starts a new file, a new day a new folder.
  SetClock(2026, 6, 10, 10, 0, 0, 0);
  logger->Info("PLUGIN", "first of 10");
  SetClock(2026, 6, 11, 10, 0, 0, 0);
  logger->Info("PLUGIN", "next day, same hour");
  EXPECT_THAT(ReadLines(HourFile("2026-06-10", "10")),
              ElementsAre("2026-06-10 10:00:00.000 INFO  [PLUGIN] first of 10"));
  EXPECT_THAT(ReadLines(HourFile("2026-06-11", "10")),
              ElementsAre("2026-06-11 10:00:00.000 INFO  [PLUGIN] next day, same hour"));
}

using LoggerFileTest = LoggerTest;

TEST_F(LoggerFileTest, RestartInTheSameHourAppendsToTheSameFile) {
  SetClock(2026, 6, 10, 14, 5, 9, 42);
  auto before = NewLogger();
  before->Initialize(Dir());
  before->Info("NATIVE", "first run");

  // The earlier instance still holds the file open: access is shared.
  auto after = NewLogger();
  after->Initialize(Dir());
  SetClock(2026, 6, 10, 14, 30, 0, 1);
  after->Info("NATIVE", "second run");
  before->Warning("NATIVE", "first run again");

  EXPECT_THAT(ReadLines(HourFile("2026-06-10", "14")),
              ElementsAre("2026-06-10 14:05:09.042 INFO  [NATIVE] first run",
                          "2026-06-10 14:30:00.001 INFO  [NATIVE] second run",
                          "2026-06-10 14:30:00.001 WARNING [NATIVE] first run again"));

  // Initialising again moves the output from the next line on; the old file gets no more.
  const fs::path moved = root_ / "moved";
  sink_.Clear();
  after->Initialize(moved.string());
  after->Info("NATIVE", "moved run");
  EXPECT_THAT(ReadLines(moved / "2026-06-10" / "14-native.log"),
              ElementsAre("2026-06-10 14:30:00.001 INFO  [NATIVE] moved run"));
  EXPECT_EQ(ReadLines(HourFile("2026-06-10", "14")).size(), 3u);
  EXPECT_THAT(sink_.Texts(), ElementsAre("Kestrun Native: Logger initialized with directory: " +
                                         moved.string() + "\n"));
}

#ifdef _WIN32
// The narrow directory is read in the code page of the file APIs.
TEST_F(LoggerFileTest, DirectoryIsReadInTheAnsiCodePage) {
  const std::wstring name = L"caf\u00E9";
  BOOL used_default = FALSE;
  const UINT code_page = AreFileApisANSI() ? GetACP() : GetOEMCP();
  char narrow_name[64] = {};
  const int length = WideCharToMultiByte(code_page, 0, name.c_str(), -1, narrow_name,
                                         static_cast<int>(sizeof(narrow_name)), nullptr,
                                         code_page == CP_UTF8 ? nullptr : &used_default);
  if (length <= 0 || used_default) GTEST_SKIP() << "code page cannot spell the folder name";

  SetClock(2026, 6, 10, 14, 5, 9, 42);
  auto logger = NewLogger();
  logger->Initialize(Dir() + "\\" + narrow_name);
  logger->Info("NATIVE", "accented folder");

  EXPECT_THAT(ReadLines(root_ / name / L"2026-06-10" / L"14-native.log"),
              ElementsAre("2026-06-10 14:05:09.042 INFO  [NATIVE] accented folder"));
}
#endif

// ---- Failures -------------------------------------------------------------------------------

using LoggerFailureTest = LoggerTest;

TEST_F(LoggerFailureTest, UncreatableFolderLosesTheRestOfTheHour) {
  // A regular file stands where a parent folder of the log directory should be.
  const fs::path blocker = root_ / "blocker";
  std::ofstream(blocker) << "not a folder";
  const std::string directory = (blocker / "logs").string();
  const std::string day_folder = directory + kSep + "2026-06-10";
  auto logger = NewLogger();
  logger->Initialize(directory);
  sink_.Clear();

  SetClock(2026, 6, 10, 14, 10, 0, 0);
  logger->Info("NATIVE", "lost 1");
  const std::vector<std::string> texts = sink_.Texts();
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_THAT(texts[0], StartsWith("Kestrun Native: create_directories failed for " +
                                   day_folder + ": "));
  EXPECT_THAT(texts[0], EndsWith("\n"));

  // The rest of the hour is dropped without another attempt, even once the way is clear.
  logger->Warning("NATIVE", "lost 2");
  logger->Flush();
  fs::remove(blocker);
  SetClock(2026, 6, 10, 14, 59, 59, 999);
  logger->Info("NATIVE", "lost 3");
  EXPECT_EQ(sink_.Texts().size(), 1u);
  EXPECT_TRUE(RootIsEmpty());

  SetClock(2026, 6, 10, 15, 0, 0, 0);
  logger->Info("NATIVE", "written");
  EXPECT_THAT(ReadLines(fs::path(day_folder) / "15-native.log"),
              ElementsAre("2026-06-10 15:00:00.000 INFO  [NATIVE] written"));
  EXPECT_EQ(sink_.Texts().size(), 1u);
}

TEST_F(LoggerFailureTest, UnopenableFileIsRetriedOnlyAfterInitialize) {
  // A folder stands where the hour file should be.
  const fs::path hour_file = HourFile("2026-06-10", "14");
  fs::create_directories(hour_file);
  SetClock(2026, 6, 10, 14, 10, 0, 0);
  auto logger = NewLogger();
  logger->Initialize(Dir());
  sink_.Clear();

  logger->Info("NATIVE", "lost 1");
  EXPECT_THAT(sink_.Texts(), ElementsAre("Kestrun Native: Failed to open log file: " + Dir() +
                                         kSep + "2026-06-10" + kSep + "14-native.log\n"));

  logger->Error("NATIVE", "lost 2");
  logger->Flush();
  fs::remove(hour_file);
  logger->Info("NATIVE", "lost 3");
  EXPECT_FALSE(fs::exists(hour_file));
  EXPECT_THAT(sink_.Texts(), ElementsAre(StartsWith("Kestrun Native: Failed to open log file: "),
                                         "Kestrun Native ERROR [NATIVE] lost 2\n"));

  logger->Initialize(Dir());
  logger->Info("NATIVE", "written");
  EXPECT_THAT(ReadLines(hour_file),
              ElementsAre("2026-06-10 14:10:00.000 INFO  [NATIVE] written"));
}

// ---- Threads --------------------------------------------------------------------------------

using LoggerConcurrencyTest = LoggerTest;

TEST_F(LoggerConcurrencyTest, LinesFromManyThreadsStayWhole) {
  constexpr int kThreads = 4;
  constexpr int kLinesPerThread = 300;
  // Long enough that an unguarded write would visibly tear lines apart.
  const std::string padding(200, '=');

  // Every read of the clock moves it on by one millisecond.
  std::atomic<std::int64_t> ticks{LocalTicks(2026, 6, 10, 14, 10, 0, 0)};
  RecordingSink sink;
  Logger logger([&ticks] { return ticks.fetch_add(kTicksPerMillisecond); },
                [&sink](const char* text) { sink.Add(text); });
  logger.Initialize(Dir());
  sink.Clear();

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kLinesPerThread; ++i) {
        if (i % 3 == 0) {
          logger.Info("WORKER", "thread %d line %d %s", t, i, padding.c_str());
        } else if (i % 3 == 1) {
          logger.Warning("WORKER", "thread %d line %d %s", t, i, padding.c_str());
        } else {
          logger.Error("WORKER", "thread %d line %d %s", t, i, padding.c_str());
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  const std::vector<std::string> lines = ReadLines(HourFile("2026-06-10", "14"));
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLinesPerThread));

  const std::regex line_pattern(
      R"(^2026-06-10 14:1\d:\d\d\.\d{3} (INFO |WARNING|ERROR) \[WORKER\] thread (\d+) line (\d+) )" +
      padding + "$");
  const char* const levels[] = {"INFO ", "WARNING", "ERROR"};
  std::set<std::pair<int, int>> seen;
  std::string previous_timestamp;
  for (const std::string& line : lines) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, line_pattern)) << line;
    const int thread = std::stoi(match[2].str());
    const int index = std::stoi(match[3].str());
    ASSERT_LT(thread, kThreads) << line;
    ASSERT_LT(index, kLinesPerThread) << line;
    EXPECT_EQ(match[1].str(), levels[index % 3]) << line;
    EXPECT_TRUE(seen.emplace(thread, index).second) << "twice: " << line;
    // The clock is read under the lock, so the file is in time order.
    const std::string timestamp = line.substr(0, 23);
    EXPECT_LT(previous_timestamp, timestamp);
    previous_timestamp = timestamp;
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kThreads * kLinesPerThread));

  // One mirror per error line, each whole.
  const std::vector<std::string> texts = sink.Texts();
  const std::regex mirror_pattern(R"(^Kestrun Native ERROR \[WORKER\] thread \d+ line \d+ )" +
                                  padding + "\n$");
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(kThreads * kLinesPerThread / 3));
  for (const std::string& text : texts) EXPECT_TRUE(std::regex_match(text, mirror_pattern)) << text;
}

}  // namespace
}  // namespace native_live_window
