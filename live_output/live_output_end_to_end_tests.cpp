// Live output through the real program: kestrun.exe runs beside the headless engine and this test
// plays the interface on "com.kestrun.native_live_window", looking at the output windows and the
// screen from outside the process.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cwchar>
#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "encodable_value.h"
#include "headless_session.h"
#include "live_output/test_support/image_decoder_test_files.h"
#include "live_output/test_support/live_window_test_support.h"

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
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

constexpr std::uint32_t kBlack = 0x000000;
constexpr std::uint32_t kRed = 0xFF0000;
constexpr std::uint32_t kGreen = 0x00FF00;
constexpr std::uint32_t kBlue = 0x0000FF;
constexpr std::uint32_t kYellow = 0xFFFF00;

// Two output "displays" side by side, away from the main window in the top-left corner.
constexpr int kLeft = 1000;
constexpr int kTop = 600;
constexpr int kHalfWidth = 400;
constexpr int kHeight = 200;

// build/mingw/tests/<this>.exe -> build/mingw/bin/kestrun.exe
std::wstring KestrunProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  folder = folder.substr(0, folder.rfind(L'\\'));
  folder = folder.substr(0, folder.rfind(L'\\'));
  return folder + L"\\bin\\kestrun.exe";
}

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

std::string Describe(const Reply& reply) {
  std::ostringstream text;
  switch (reply.kind) {
    case ReplyKind::kSuccess: text << "success"; break;
    case ReplyKind::kError:
      text << "error " << reply.error_code << ": " << reply.error_message;
      break;
    case ReplyKind::kNotImplemented: text << "not implemented"; break;
    case ReplyKind::kFailed: text << "no reply: " << reply.failure; break;
  }
  return text.str();
}

::testing::AssertionResult Succeeded(const Reply& reply) {
  if (reply.kind == ReplyKind::kSuccess) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << Describe(reply);
}

::testing::AssertionResult IsError(const Reply& reply, const std::string& code,
                                   const std::string& message) {
  if (reply.kind == ReplyKind::kError && reply.error_code == code &&
      reply.error_message == message) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure() << Describe(reply) << ", expected error " << code << ": "
                                       << message;
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

// Alpha of the fade overlay (the layered child) of an output window; nothing without one.
std::optional<int> OverlayAlpha(HWND live_window) {
  HWND overlay = nullptr;
  EnumChildWindows(
      live_window,
      [](HWND child, LPARAM context) -> BOOL {
        if ((GetWindowLongW(child, GWL_EXSTYLE) & WS_EX_LAYERED) != 0) {
          *reinterpret_cast<HWND*>(context) = child;
          return FALSE;
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&overlay));
  BYTE alpha = 0;
  DWORD flags = 0;
  if (overlay == nullptr || !GetLayeredWindowAttributes(overlay, nullptr, &alpha, &flags)) {
    return std::nullopt;
  }
  return static_cast<int>(alpha);
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
    options.program = KestrunProgram();
    start_error_ = session_->Start(options) ? std::string() : session_->last_error();
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

TEST_F(LiveOutputProgramTest, BadArgumentsAreAnsweredWithTheirErrors) {
  EXPECT_TRUE(IsError(Call("showForDisplay"), "INVALID_ARGS", "Expected map argument"));
  EXPECT_TRUE(IsError(Call("blankForDisplay", EncodableValue("left")), "INVALID_ARGS",
                      "Expected map argument"));
  EXPECT_TRUE(IsError(Call("loadImageForDisplay", Map({{"path", EncodableValue("a.png")}})),
                      "INVALID_ARGS", "Missing 'displayId' argument"));
  EXPECT_TRUE(IsError(Call("setCropRectForDisplay", Id("left")), "INVALID_ARGS",
                      "Missing crop rect arguments"));
  EXPECT_TRUE(IsError(Call("initializeLogger", Map({})), "INVALID_ARGS",
                      "Missing 'logDirectory' argument"));
  // The per-display fades keep their own lower-case codes.
  EXPECT_TRUE(IsError(Call("fadeToBlackForDisplay", Map({})), "invalid_args",
                      "displayId is required"));
  EXPECT_TRUE(IsError(Call("fadeFromBlackForDisplay", Id("nobody")), "not_found",
                      "No window found for display: nobody"));
  // Other commands on a display without a window succeed and do nothing.
  EXPECT_TRUE(Succeeded(Call("blankForDisplay", Id("nobody"))));
  EXPECT_TRUE(Succeeded(Call("closeForDisplay", Id("nobody"))));
  EXPECT_TRUE(IsError(Call("loadImageForDisplay",
                           Map({{"displayId", EncodableValue("nobody")},
                                {"path", EncodableValue(files_->Path("none.png"))}})),
                      "NOT_SHOWING", "Window for display is not showing"));
  // Video comes later.
  EXPECT_EQ(Call("setVideoOpacity", Id("left")).kind, ReplyKind::kNotImplemented);
  // The program is still there and answers.
  EXPECT_TRUE(Succeeded(Call("blankAll")));
}

TEST_F(LiveOutputProgramTest, TwoWindowsShowOnePictureByCropThenFadeAndBlank) {
  // 800 x 200: red, green, blue and yellow columns, 200 pixels each.
  const std::vector<std::uint8_t> pixels = MakeImage(800, 200, [](int x, int) {
    static const std::uint32_t columns[4] = {kRed, kGreen, kBlue, kYellow};
    return columns[x / 200];
  });
  ASSERT_TRUE(files_->WritePng("columns.png", 800, 200, pixels));
  const std::vector<HWND> windows = ShowBoth();
  ASSERT_EQ(windows.size(), 2u);
  RECT left_rect{};
  GetWindowRect(windows[0], &left_rect);
  EXPECT_EQ(left_rect.left, kLeft);
  EXPECT_EQ(left_rect.top, kTop);
  EXPECT_EQ(left_rect.right - left_rect.left, kHalfWidth);

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
  EXPECT_TRUE(ScreenComesToShow(kLeft + 100, kTop + 100, kRed));
  EXPECT_TRUE(ScreenComesToShow(kLeft + 300, kTop + 100, kGreen));
  EXPECT_TRUE(ScreenComesToShow(kLeft + 500, kTop + 100, kBlue));
  EXPECT_TRUE(ScreenComesToShow(kLeft + 700, kTop + 100, kYellow));

  // A timed fade of one window is answered once it has ended; the other window stays clear.
  EXPECT_TRUE(Succeeded(
      Call("fadeToBlackForDisplay",
           Map({{"displayId", EncodableValue("left")}, {"duration", EncodableValue(200)}}))));
  EXPECT_EQ(OverlayAlpha(windows[0]), 255);
  // The overlay is made by the first fade; a window never faded has none.
  EXPECT_EQ(OverlayAlpha(windows[1]).value_or(0), 0);

  // Fading all windows is answered only once every window is black.
  EXPECT_TRUE(Succeeded(Call("fadeFromBlackForDisplay",
                             Map({{"displayId", EncodableValue("left")},
                                  {"duration", EncodableValue(0)}}))));
  EXPECT_EQ(OverlayAlpha(windows[0]), 0);
  EXPECT_TRUE(Succeeded(Call("fadeToBlackAll", Map({{"duration", EncodableValue(300)}}))));
  EXPECT_EQ(OverlayAlpha(windows[0]), 255);
  EXPECT_EQ(OverlayAlpha(windows[1]), 255);
  EXPECT_TRUE(Succeeded(Call("fadeFromBlackAll", Map({{"duration", EncodableValue(100)}}))));
  EXPECT_EQ(OverlayAlpha(windows[0]), 0);
  EXPECT_EQ(OverlayAlpha(windows[1]), 0);

  // Blanking one window draws it black and leaves the other alone.
  EXPECT_TRUE(Succeeded(Call("blankForDisplay", Id("left"))));
  EXPECT_TRUE(ScreenComesToShow(kLeft + 100, kTop + 100, kBlack));
  EXPECT_TRUE(ScreenComesToShow(kLeft + 500, kTop + 100, kBlue));
  EXPECT_TRUE(Succeeded(Call("unblankForDisplay", Id("left"))));
  EXPECT_TRUE(ScreenComesToShow(kLeft + 100, kTop + 100, kRed));
}

TEST_F(LiveOutputProgramTest, KeysAndClicksOnOutputWindowsReachTheInterface) {
  std::vector<HWND> windows = ShowBoth();
  ASSERT_EQ(windows.size(), 2u);
  const struct {
    WPARAM key;
    const char* action;
  } keys[] = {{VK_LEFT, "prev"}, {VK_RIGHT, "next"}, {'1', "0"}, {'5', "4"}, {'0', "9"}};
  for (const auto& key : keys) {
    PostMessageW(windows[1], WM_KEYDOWN, key.key, 1);
    const std::optional<HeadlessEvent> event = NextEvent();
    ASSERT_TRUE(event.has_value()) << key.action;
    EXPECT_EQ(event->method, "onIntervalControl");
    EXPECT_EQ(event->value, Map({{"action", EncodableValue(key.action)}}));
  }

  // Ctrl+Shift+H, typed: the modifiers must really be down.
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

  // Escape on the right window asks to leave and closes that window only.
  PostMessageW(windows[1], WM_KEYDOWN, VK_ESCAPE, 1);
  std::optional<HeadlessEvent> exit = NextEvent();
  ASSERT_TRUE(exit.has_value());
  EXPECT_EQ(exit->method, "onExitRequested");
  EXPECT_EQ(exit->value, Id("right"));
  ASSERT_TRUE(session_->Sync());
  EXPECT_FALSE(IsWindow(windows[1]));
  EXPECT_TRUE(IsWindow(windows[0]));

  // A left click on the other one does the same.
  PostMessageW(windows[0], WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, 20));
  exit = NextEvent();
  ASSERT_TRUE(exit.has_value());
  EXPECT_EQ(exit->method, "onExitRequested");
  EXPECT_EQ(exit->value, Id("left"));
  ASSERT_TRUE(session_->Sync());
  EXPECT_FALSE(IsWindow(windows[0]));
  // No other message came.
  ASSERT_TRUE(session_->Sync());
  EXPECT_FALSE(session_->WaitForEvent(
      [](const HeadlessEvent& event) { return event.type == "message" && event.channel == kLive; },
      std::chrono::milliseconds(0)));
}

}  // namespace
