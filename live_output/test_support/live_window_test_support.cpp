#include "live_output/test_support/live_window_test_support.h"

#include <fcntl.h>
#include <io.h>
#include <tlhelp32.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>

#include "live_output/log/logger.h"

namespace native_live_window {
namespace live_window_test {
namespace {

std::filesystem::path TempFolder(const std::wstring& leaf) {
  wchar_t temp[MAX_PATH] = {};
  GetTempPathW(MAX_PATH, temp);
  return std::filesystem::path(temp) /
         (leaf + L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
          std::to_wstring(GetTickCount64()));
}

const std::filesystem::path& LogFolder() {
  static const std::filesystem::path folder = [] {
    std::filesystem::path path = TempFolder(L"kestrun-live-window-log");
    std::filesystem::create_directories(path);
    Logger::Instance().Initialize(path.string());
    return path;
  }();
  return folder;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

DisplayRecord Display(const std::string& name, std::int32_t x, std::int32_t y, std::int32_t width,
                      std::int32_t height) {
  DisplayRecord display;
  display.id = "\\\\?\\DISPLAY#" + name;
  display.name = name;
  display.x = x;
  display.y = y;
  display.width = width;
  display.height = height;
  return display;
}

bool Show(NativeLiveWindow& window, const std::vector<DisplayRecord>& displays) {
  LogFolder();
  bool succeeded = false;
  window.CreateOnDisplays(displays, [&succeeded](bool success, const std::string&) {
    succeeded = success;
  });
  return succeeded;
}

std::string LogText() {
  const std::filesystem::path& folder = LogFolder();
  Logger::Instance().Flush();
  std::string text;
  // Day folders and hour files sort in time order.
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) {
    text += ReadFile(file);
  }
  return text;
}

std::size_t CountOf(const std::string& text, const std::string& needle) {
  std::size_t count = 0;
  for (std::size_t at = text.find(needle); at != std::string::npos;
       at = text.find(needle, at + needle.size())) {
    ++count;
  }
  return count;
}

CapturedStdout::CapturedStdout() {
  path_ = TempFolder(L"kestrun-live-window-stdout").wstring() + L".txt";
  std::fflush(stdout);
  saved_fd_ = _dup(_fileno(stdout));
  const int fd = _wopen(path_.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, 0600);
  _dup2(fd, _fileno(stdout));
  _close(fd);
}

CapturedStdout::~CapturedStdout() {
  std::fflush(stdout);
  _dup2(saved_fd_, _fileno(stdout));
  _close(saved_fd_);
  DeleteFileW(path_.c_str());
}

std::string CapturedStdout::Text() const {
  std::fflush(stdout);
  return ReadFile(std::filesystem::path(path_));
}

void PumpPending() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

bool PumpUntil(const std::function<bool()>& done, HANDLE event, DWORD timeout_ms) {
  const ULONGLONG deadline = GetTickCount64() + timeout_ms;
  for (;;) {
    PumpPending();
    if (done()) {
      return true;
    }
    const ULONGLONG now = GetTickCount64();
    if (now >= deadline) {
      return false;
    }
    const DWORD remaining = static_cast<DWORD>(deadline - now);
    if (event != nullptr) {
      MsgWaitForMultipleObjects(1, &event, FALSE, remaining, QS_ALLINPUT);
    } else {
      MsgWaitForMultipleObjects(0, nullptr, FALSE, remaining, QS_ALLINPUT);
    }
  }
}

bool WaitForPresents(const NativeLiveWindow& window, std::uint64_t count) {
  const std::uint64_t target = window.present_count() + count;
  return PumpUntil([&window, target] { return window.present_count() >= target; },
                   window.present_event());
}

std::uint32_t ScreenPixel(int x, int y) {
  HDC screen = GetDC(nullptr);
  const COLORREF color = GetPixel(screen, x, y);
  ReleaseDC(nullptr, screen);
  return (static_cast<std::uint32_t>(GetRValue(color)) << 16) |
         (static_cast<std::uint32_t>(GetGValue(color)) << 8) | GetBValue(color);
}

bool ColorNear(std::uint32_t actual, std::uint32_t expected, int tolerance) {
  for (int shift = 0; shift <= 16; shift += 8) {
    const int a = static_cast<int>((actual >> shift) & 0xFF);
    const int e = static_cast<int>((expected >> shift) & 0xFF);
    if (a - e > tolerance || e - a > tolerance) {
      return false;
    }
  }
  return true;
}

std::string ColorText(std::uint32_t color) {
  char text[16];
  std::snprintf(text, sizeof(text), "#%06X", static_cast<unsigned>(color));
  return text;
}

std::vector<std::uint8_t> MakeImage(std::int32_t width, std::int32_t height,
                                    const std::function<std::uint32_t(int, int)>& color_at) {
  std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * height * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const std::uint32_t color = color_at(x, y);
      std::uint8_t* pixel = &pixels[(static_cast<std::size_t>(y) * width + x) * 4];
      pixel[0] = static_cast<std::uint8_t>(color & 0xFF);
      pixel[1] = static_cast<std::uint8_t>((color >> 8) & 0xFF);
      pixel[2] = static_cast<std::uint8_t>((color >> 16) & 0xFF);
      pixel[3] = 0xFF;
    }
  }
  return pixels;
}

std::vector<std::uint8_t> BandedImage() {
  using namespace colors;
  return MakeImage(200, 200, [](int x, int y) {
    static const std::uint32_t left[4] = {kMagenta, kRed, kBlue, kCyan};
    static const std::uint32_t right[4] = {kYellow, kGreen, kWhite, kOrange};
    return x < 100 ? left[y / 50] : right[y / 50];
  });
}

DWORD ProcessHandleCount() {
  DWORD count = 0;
  if (GetProcessHandleCount(GetCurrentProcess(), &count) && count != 0) {
    return count;
  }
  // Wine answers 0: count the handle values that name an open handle instead (handle values are
  // multiples of four).
  for (std::uintptr_t value = 4; value < 0x40000; value += 4) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) {
      ++count;
    }
  }
  return count;
}

DWORD ProcessThreadCount() {
  const DWORD process = GetCurrentProcessId();
  HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) {
    return 0;
  }
  DWORD count = 0;
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == process) {
      ++count;
    }
  }
  CloseHandle(snapshot);
  return count;
}

::testing::AssertionResult ProcessSettlesTo(DWORD handles, DWORD threads) {
  const ULONGLONG deadline = GetTickCount64() + 10000;
  while (ProcessHandleCount() > handles + 2 || ProcessThreadCount() > threads) {
    if (GetTickCount64() > deadline) {
      return ::testing::AssertionFailure() << ProcessHandleCount() << " handles (" << handles
                                           << " before), " << ProcessThreadCount()
                                           << " threads (" << threads << " before)";
    }
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
    PumpPending();
  }
  return ::testing::AssertionSuccess();
}

}  // namespace live_window_test
}  // namespace native_live_window
