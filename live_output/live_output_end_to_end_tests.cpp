// Live output through the real program: kestrun.exe runs beside the headless engine and this test
// plays the interface on "com.kestrun.native_live_window", looking at the output windows and the
// screen from outside the process. Argument errors are answered by the plugin alone and are
// tested with it (native_live_window_plugin_unittests).
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cwchar>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "encodable_value.h"
#include "headless_session.h"
#include "tools/headless_engine/testing/program_test_support.h"
#include "live_output/test_support/image_decoder_test_files.h"
#include "live_output/test_support/live_window_test_support.h"

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using kestrun_headless::BuiltKestrunProgram;
using kestrun_headless::Describe;
using kestrun_headless::HeadlessEvent;
using kestrun_headless::HeadlessSession;
using kestrun_headless::Reply;
using kestrun_headless::ReplyKind;
using kestrun_headless::SessionOptions;
using native_live_window::ImageDecoderTestFiles;
using native_live_window::live_window_test::ColorNear;
using native_live_window::live_window_test::ColorText;
using native_live_window::live_window_test::MakeImage;
using native_live_window::live_window_test::ScreenPixel;

constexpr char kLive[] = "com.kestrun.native_live_window";
constexpr wchar_t kLiveWindowClass[] = L"KestrunNativeLiveWindow";

using namespace native_live_window::live_window_test::colors;

// Two output "displays" side by side, below the main window (10, 10, 1280 x 720): Wine stacks a
// window it maps above all others, topmost or not, and the main window may appear late.
constexpr int kLeft = 1000;
constexpr int kTop = 800;
constexpr int kHalfWidth = 400;
constexpr int kHeight = 200;

EncodableValue Map(std::vector<std::pair<const char*, EncodableValue>> entries) {
  EncodableMap map;
  for (auto& entry : entries) {
    map[EncodableValue(entry.first)] = std::move(entry.second);
  }
  return EncodableValue(std::move(map));
}

EncodableValue Id(const char* display_id) { return Map({{"displayId", EncodableValue(display_id)}}); }

EncodableValue DisplayArguments(const char* display_id, int x) {
  return Map({{"displayId", EncodableValue(display_id)},
              {"name", EncodableValue(display_id)},
              {"x", EncodableValue(x)},
              {"y", EncodableValue(kTop)},
              {"width", EncodableValue(kHalfWidth)},
              {"height", EncodableValue(kHeight)},
              {"isPrimary", EncodableValue(false)}});
}

::testing::AssertionResult Succeeded(const Reply& reply) {
  if (reply.kind == ReplyKind::kSuccess) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << Describe(reply);
}

// The render thread of another process cannot be followed, so the screen is read until it shows
// the colour or ten seconds have passed.
::testing::AssertionResult ScreenComesToShow(int x, int y, std::uint32_t expected) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  std::uint32_t actual = ScreenPixel(x, y);
  while (!ColorNear(actual, expected)) {
    if (std::chrono::steady_clock::now() > deadline) {
      return ::testing::AssertionFailure() << "screen (" << x << ", " << y << ") is "
                                           << ColorText(actual) << ", expected "
                                           << ColorText(expected);
    }
    Sleep(15);
    actual = ScreenPixel(x, y);
  }
  return ::testing::AssertionSuccess();
}

struct WindowSearch {
  DWORD process_id;
  std::vector<HWND> found;
};

// The program's output windows, left to right.
std::vector<HWND> LiveWindows(DWORD process_id) {
  WindowSearch search{process_id, {}};
  EnumWindows(
      [](HWND hwnd, LPARAM context) -> BOOL {
        auto* search = reinterpret_cast<WindowSearch*>(context);
        DWORD owner = 0;
        GetWindowThreadProcessId(hwnd, &owner);
        wchar_t class_name[64] = {};
        GetClassNameW(hwnd, class_name, 64);
        if (owner == search->process_id && wcscmp(class_name, kLiveWindowClass) == 0) {
          search->found.push_back(hwnd);
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&search));
  std::vector<HWND>& windows = search.found;
  std::sort(windows.begin(), windows.end(), [](HWND a, HWND b) {
    RECT ra{}, rb{};
    GetWindowRect(a, &ra);
    GetWindowRect(b, &rb);
    return ra.left < rb.left;
  });
  return windows;
}

// One program for the whole suite (it takes seconds to start under Wine); every test leaves it
// without output windows.
class LiveOutputProgramTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    files_ = new ImageDecoderTestFiles();
    session_ = new HeadlessSession();
    SessionOptions options;
    options.program = BuiltKestrunProgram();
    // Lets the device-loss test make an output window's device report its removal.
    options.environment.push_back({L"KESTRUN_TEST_DEVICE_LOSS", L"1"});
    start_error_ = session_->Start(options) ? std::string() : session_->last_error();
    // The main window is shown on the engine's first frame; let that happen before any output
    // window opens.
    if (start_error_.empty() && !session_->WaitForFrame()) {
      start_error_ = "no first frame";
    }
  }

  static void TearDownTestSuite() {
    delete session_;
    session_ = nullptr;
    delete files_;
    files_ = nullptr;
    CoUninitialize();
  }

  void SetUp() override {
    ASSERT_TRUE(start_error_.empty()) << start_error_;
    ASSERT_TRUE(files_->ok());
    session_->TakeEvents();
  }

  void TearDown() override {
    EXPECT_TRUE(Succeeded(Call("closeAll")));
    ASSERT_TRUE(session_->Sync());
    EXPECT_TRUE(LiveWindows(session_->process_id()).empty());
  }

  static Reply Call(const char* method, const EncodableValue& arguments = EncodableValue()) {
    return session_->Invoke(kLive, method, arguments);
  }

  // Opens the two side-by-side output windows.
  static std::vector<HWND> ShowBoth() {
    EXPECT_TRUE(Succeeded(Call("showForDisplay", DisplayArguments("left", kLeft))));
    EXPECT_TRUE(Succeeded(Call("showForDisplay", DisplayArguments("right", kLeft + kHalfWidth))));
    return LiveWindows(session_->process_id());
  }

  // The next message the program sent on the live channel.
  static std::optional<HeadlessEvent> NextEvent() {
    return session_->WaitForEvent([](const HeadlessEvent& event) {
      return event.type == "message" && event.channel == kLive;
    });
  }

  static HeadlessSession* session_;
  static ImageDecoderTestFiles* files_;
  static std::string start_error_;
};

HeadlessSession* LiveOutputProgramTest::session_ = nullptr;
ImageDecoderTestFiles* LiveOutputProgramTest::files_ = nullptr;
std::string LiveOutputProgramTest::start_error_;

// Two output windows side by side show one picture by crop and are blanked, and pass keys and clicks
// on to the interface. The finer rules of each (fit modes, fades and their replies, every key)
// are tested in-process with the plugin and the window.
TEST_F(LiveOutputProgramTest, TwoWindowsShowOnePictureBlankAndPassOnKeysAndClicks) {
  // 800 x 200: red, green, blue and yellow columns, 200 pixels each.
  const std::vector<std::uint8_t> pixels = MakeImage(800, 200, [](int x, int) {
    static const std::uint32_t columns[4] = {kRed, kGreen, kBlue, kYellow};
    return columns[x / 200];
  });
  ASSERT_TRUE(files_->WritePng("columns.png", 800, 200, pixels));
  const std::vector<HWND> windows = ShowBoth();
  ASSERT_EQ(windows.size(), 2u);
  const struct {
    const char* id;
    double left;
  } halves[] = {{"left", 0.0}, {"right", 0.5}};
  for (const auto& half : halves) {
    EXPECT_TRUE(Succeeded(Call("setCropRectForDisplay",
                               Map({{"displayId", EncodableValue(half.id)},
                                    {"left", EncodableValue(half.left)},
                                    {"top", EncodableValue(0.0)},
                                    {"width", EncodableValue(0.5)},
                                    {"height", EncodableValue(1.0)},
                                    {"canvasWidth", EncodableValue(800)},
                                    {"canvasHeight", EncodableValue(200)}}))));
    EXPECT_TRUE(Succeeded(Call("loadImageForDisplay",
                               Map({{"displayId", EncodableValue(half.id)},
                                    {"path", EncodableValue(files_->Path("columns.png"))},
                                    {"fitMode", EncodableValue(2)}}))));
  }
  const std::uint32_t columns[4] = {kRed, kGreen, kBlue, kYellow};
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(ScreenComesToShow(kLeft + 100 + 200 * i, kTop + 100, columns[i]));
  }

  // Blanking every window draws both black.
  EXPECT_TRUE(Succeeded(Call("blankAll")));
  EXPECT_TRUE(ScreenComesToShow(kLeft + 100, kTop + 100, kBlack));
  EXPECT_TRUE(ScreenComesToShow(kLeft + 500, kTop + 100, kBlack));

  // Keys: interval control without a display id, and Ctrl+Shift+H typed, so that the modifiers
  // are really down.
  for (const auto& [key, action] : {std::make_pair(WPARAM{VK_LEFT}, "prev"),
                                    std::make_pair(WPARAM{'5'}, "4")}) {
    PostMessageW(windows[1], WM_KEYDOWN, key, 1);
    const std::optional<HeadlessEvent> event = NextEvent();
    ASSERT_TRUE(event.has_value()) << action;
    EXPECT_EQ(event->method, "onIntervalControl");
    EXPECT_EQ(event->value, Map({{"action", EncodableValue(action)}}));
  }
  SetForegroundWindow(windows[1]);
  INPUT inputs[6] = {};
  const WORD sequence[6] = {VK_CONTROL, VK_SHIFT, 'H', 'H', VK_SHIFT, VK_CONTROL};
  for (int i = 0; i < 6; ++i) {
    inputs[i].type = INPUT_KEYBOARD;
    inputs[i].ki.wVk = sequence[i];
    inputs[i].ki.dwFlags = i < 3 ? 0 : KEYEVENTF_KEYUP;
  }
  ASSERT_EQ(SendInput(6, inputs, sizeof(INPUT)), 6u);
  std::optional<HeadlessEvent> toggle = NextEvent();
  ASSERT_TRUE(toggle.has_value());
  EXPECT_EQ(toggle->method, "onHudToggle");
  EXPECT_TRUE(toggle->value.IsNull());

  // Escape on the right window and a click on the left one ask to leave and close that window.
  PostMessageW(windows[1], WM_KEYDOWN, VK_ESCAPE, 1);
  PostMessageW(windows[0], WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, 20));
  for (const char* id : {"right", "left"}) {
    std::optional<HeadlessEvent> exit = NextEvent();
    ASSERT_TRUE(exit.has_value()) << id;
    EXPECT_EQ(exit->method, "onExitRequested");
    EXPECT_EQ(exit->value, Id(id));
  }
  ASSERT_TRUE(session_->Sync());
  EXPECT_FALSE(IsWindow(windows[0]));
  EXPECT_FALSE(IsWindow(windows[1]));
  // No other message came.
  EXPECT_FALSE(session_->WaitForEvent(
      [](const HeadlessEvent& event) { return event.type == "message" && event.channel == kLive; },
      std::chrono::milliseconds(0)));
}

// The device of a real output window is lost twice (the program's loss seam, posted to the
// window): found by Present while a picture is shown, then by the upload of the next picture.
// Both times the window makes a new device, puts the picture on it and shows it; every reply
// comes, and the log tells the loss and the recovery of each.
TEST_F(LiveOutputProgramTest, OutputWindowShowsItsPictureAgainAfterItsDeviceIsLost) {
  const std::wstring logs = files_->folder() + L"\\host-logs";
  ASSERT_TRUE(Succeeded(Call("initializeLogger",
                             Map({{"logDirectory", EncodableValue(files_->Path("host-logs"))}}))));
  auto log_text = [&logs] {
    std::string text;
    std::error_code error;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(logs, error)) {
      if (entry.is_regular_file()) {
        text += ImageDecoderTestFiles::ReadText(entry.path().wstring());
      }
    }
    return text;
  };
  auto count = [&log_text](const char* needle) {
    const std::string text = log_text();
    std::size_t found = 0;
    for (std::size_t at = text.find(needle); at != std::string::npos;
         at = text.find(needle, at + 1)) {
      ++found;
    }
    return found;
  };
  // The log of another process is read until it has `recovered` recoveries, or ten seconds.
  auto wait_for_recoveries = [&count](std::size_t recovered) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (count("Device recovered on left in ") < recovered &&
           std::chrono::steady_clock::now() < deadline) {
      Sleep(50);
    }
    return count("Device recovered on left in ") == recovered;
  };
  const UINT lose_device = RegisterWindowMessageW(L"KestrunTestDeviceLoss");
  const WPARAM kPresent = 1;
  const WPARAM kUpload = 3;
  ASSERT_TRUE(files_->WritePng("red.png", 40, 20, MakeImage(40, 20, [](int, int) { return kRed; })));
  ASSERT_TRUE(
      files_->WritePng("green.png", 40, 20, MakeImage(40, 20, [](int, int) { return kGreen; })));
  auto load = [](const char* name) {
    return Call("loadImageForDisplay", Map({{"displayId", EncodableValue("left")},
                                            {"path", EncodableValue(files_->Path(name))},
                                            {"fitMode", EncodableValue(2)}}));
  };
  ASSERT_TRUE(Succeeded(Call("showForDisplay", DisplayArguments("left", kLeft))));
  const std::vector<HWND> windows = LiveWindows(session_->process_id());
  ASSERT_EQ(windows.size(), 1u);
  ASSERT_TRUE(Succeeded(load("red.png")));
  ASSERT_TRUE(ScreenComesToShow(kLeft + 200, kTop + 100, kRed));

  PostMessageW(windows[0], lose_device, kPresent, 1);
  ASSERT_TRUE(wait_for_recoveries(1)) << log_text();
  EXPECT_TRUE(ScreenComesToShow(kLeft + 200, kTop + 100, kRed));

  // The upload finds the device removed; the render thread may find it first, at its Present.
  PostMessageW(windows[0], lose_device, kUpload, 1);
  ASSERT_TRUE(session_->Sync());
  EXPECT_TRUE(Succeeded(load("green.png")));
  ASSERT_TRUE(wait_for_recoveries(2)) << log_text();
  EXPECT_TRUE(ScreenComesToShow(kLeft + 200, kTop + 100, kGreen));
  EXPECT_EQ(count("ERROR [D3D11] Device lost during Present on left! HRESULT=0x887A0005") +
                count("ERROR [D3D11] Device lost during image upload on left! HRESULT=0x887A0005"),
            2u)
      << log_text();
}

}  // namespace
