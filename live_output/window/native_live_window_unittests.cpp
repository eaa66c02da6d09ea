// A real live window in this process: creation over displays, closing, the keyboard and mouse
// rules of the show, resizing, refused images and immediate fades.
#include "live_output/window/native_live_window.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"

namespace native_live_window {
namespace {

using live_window_test::CountOf;
using live_window_test::Display;
using live_window_test::LogText;
using live_window_test::PumpPending;
using live_window_test::Show;
using live_window_test::WaitForPresents;

int OverlayAlpha(HWND overlay) {
  BYTE alpha = 0;
  return GetLayeredWindowAttributes(overlay, nullptr, &alpha, nullptr) ? alpha : -1;
}

// Sets or clears Control and Shift in this thread's keyboard state, which GetKeyState reads.
void SetModifiers(bool control, bool shift) {
  BYTE keys[256] = {};
  GetKeyboardState(keys);
  keys[VK_CONTROL] = keys[VK_LCONTROL] = control ? 0x80 : 0;
  keys[VK_SHIFT] = keys[VK_LSHIFT] = shift ? 0x80 : 0;
  SetKeyboardState(keys);
}

LRESULT Key(HWND window, WPARAM key) { return SendMessageW(window, WM_KEYDOWN, key, 0x00000001); }

class NativeLiveWindowTest : public ::testing::Test {
 protected:
  void TearDown() override {
    SetModifiers(false, false);
    PumpPending();
  }
};

TEST_F(NativeLiveWindowTest, CoversTheUnionOfItsDisplaysAndShowsTopmostWithoutFrame) {
  NativeLiveWindow empty;
  std::vector<std::string> reports;
  auto record = [&reports](bool ok, const std::string& text) {
    reports.push_back((ok ? "ok:" : "failed:") + text);
  };
  empty.CreateOnDisplays({}, record);
  EXPECT_EQ(empty.GetHwnd(), nullptr);
  EXPECT_FALSE(empty.render_loop_running());

  NativeLiveWindow window;
  window.CreateOnDisplays(
      {Display("Left", -100, 60, 320, 240), Display("Right", 220, 60, 320, 240)}, record);
  EXPECT_EQ(reports, (std::vector<std::string>{"failed:No displays provided", "ok:"}));
  HWND hwnd = window.GetHwnd();
  ASSERT_NE(hwnd, nullptr);
  RECT rect = {};
  GetWindowRect(hwnd, &rect);
  EXPECT_EQ(rect.left, -100);
  EXPECT_EQ(rect.top, 60);
  EXPECT_EQ(rect.right - rect.left, 640);
  EXPECT_EQ(rect.bottom - rect.top, 240);
  wchar_t text[64] = {};
  GetClassNameW(hwnd, text, 64);
  EXPECT_STREQ(text, L"KestrunNativeLiveWindow");
  GetWindowTextW(hwnd, text, 64);
  EXPECT_STREQ(text, L"Kestrun Live");
  const LONG_PTR style = GetWindowLongPtrW(hwnd, GWL_STYLE);
  EXPECT_NE(style & WS_POPUP, 0);
  EXPECT_EQ(style & (WS_CAPTION | WS_THICKFRAME), 0);
  EXPECT_TRUE(IsWindowVisible(hwnd));
  EXPECT_NE(GetWindowLongPtrW(hwnd, GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
  EXPECT_FALSE(window.cursor_visible());
  EXPECT_TRUE(WaitForPresents(window, 3));
}

TEST_F(NativeLiveWindowTest, CreatingAgainReplacesTheWindowAndCloseEndsEverything) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("First", 50, 50, 200, 120)}));
  HWND first = window.GetHwnd();
  ASSERT_TRUE(Show(window, {Display("Second", 60, 60, 220, 140)}));
  EXPECT_FALSE(IsWindow(first));
  EXPECT_EQ(window.displays().front().name, "Second");
  EXPECT_TRUE(WaitForPresents(window, 2));

  HWND hwnd = window.GetHwnd();
  window.FadeToBlack(0, nullptr);
  HWND overlay = window.fade_overlay_window();
  ASSERT_NE(overlay, nullptr);
  for (int i = 0; i < 2; ++i) {  // a second Close changes nothing
    window.Close();
    EXPECT_FALSE(IsWindow(hwnd));
    EXPECT_FALSE(IsWindow(overlay));
    EXPECT_EQ(window.GetHwnd(), nullptr);
    EXPECT_FALSE(window.render_loop_running());
    EXPECT_TRUE(window.displays().empty());
  }
}

// ---------------------------------------------------------------------------------------------
// Keyboard and mouse

class ShowControlsTest : public NativeLiveWindowTest {
 protected:
  void SetUp() override {
    ASSERT_TRUE(Show(window_, {Display("Controls", 80, 80, 240, 160)}));
    hwnd_ = window_.GetHwnd();
  }
  NativeLiveWindow window_;
  HWND hwnd_ = nullptr;
};

TEST_F(ShowControlsTest, EscapeOrALeftClickCallsTheExitCallbackThenCloses) {
  int calls = 0;
  bool open_during_callback = false;
  window_.SetExitCallback([&] {
    ++calls;
    open_during_callback = IsWindow(hwnd_) != FALSE;
  });
  EXPECT_EQ(Key(hwnd_, VK_ESCAPE), 0);
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(open_during_callback);
  EXPECT_FALSE(IsWindow(hwnd_));
  EXPECT_FALSE(window_.render_loop_running());

  ASSERT_TRUE(Show(window_, {Display("Clicked", 80, 80, 240, 160)}));
  hwnd_ = window_.GetHwnd();
  EXPECT_EQ(SendMessageW(hwnd_, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, 20)), 0);
  EXPECT_EQ(calls, 2);
  EXPECT_FALSE(IsWindow(hwnd_));

  // Without a callback the window closes all the same.
  NativeLiveWindow lone;
  ASSERT_TRUE(Show(lone, {Display("Lone", 80, 80, 240, 160)}));
  Key(lone.GetHwnd(), VK_ESCAPE);
  EXPECT_EQ(lone.GetHwnd(), nullptr);
}

TEST_F(ShowControlsTest, ArrowsDigitsAndControlShiftHChooseIntervalsAndToggleTheHud) {
  // Without callbacks the keys are swallowed and the show goes on.
  EXPECT_EQ(Key(hwnd_, VK_LEFT), 0);
  Key(hwnd_, '3');
  std::vector<std::string> actions;
  window_.SetIntervalCallback([&](const std::string& action) { actions.push_back(action); });
  int toggles = 0;
  window_.SetHudToggleCallback([&] { ++toggles; });
  for (WPARAM key : {WPARAM{VK_LEFT}, WPARAM{VK_RIGHT}, WPARAM{'1'}, WPARAM{'5'}, WPARAM{'9'},
                     WPARAM{'0'}, WPARAM{'A'}, WPARAM{VK_SPACE}, WPARAM{VK_NUMPAD1}}) {
    Key(hwnd_, key);
  }
  EXPECT_EQ(actions, (std::vector<std::string>{"prev", "next", "0", "4", "8", "9"}));
  for (bool control : {false, true}) {
    for (bool shift : {false, true}) {
      SetModifiers(control, shift);
      Key(hwnd_, 'H');
    }
  }
  EXPECT_EQ(toggles, 1);
  EXPECT_EQ(actions.size(), 6u);
  EXPECT_TRUE(IsWindow(hwnd_));
}

TEST_F(ShowControlsTest, CursorShowsOnMovementAndOtherClicksAndHidesOnTheTimer) {
  const HCURSOR arrow = LoadCursorW(nullptr, IDC_ARROW);
  auto set_cursor = [this] {
    return SendMessageW(hwnd_, WM_SETCURSOR, reinterpret_cast<WPARAM>(hwnd_),
                        MAKELPARAM(HTCLIENT, WM_MOUSEMOVE));
  };
  // Where the pointer already is: nothing to show.
  POINT cursor = {};
  GetCursorPos(&cursor);
  ScreenToClient(hwnd_, &cursor);
  SendMessageW(hwnd_, WM_MOUSEMOVE, 0, MAKELPARAM(cursor.x, cursor.y));
  EXPECT_FALSE(window_.cursor_visible());
  set_cursor();
  EXPECT_NE(GetCursor(), arrow);

  // Straight down is a movement too.
  SendMessageW(hwnd_, WM_MOUSEMOVE, 0, MAKELPARAM(cursor.x, cursor.y + 3));
  EXPECT_TRUE(window_.cursor_visible());
  EXPECT_EQ(set_cursor(), TRUE);
  EXPECT_EQ(GetCursor(), arrow);

  EXPECT_EQ(SendMessageW(hwnd_, WM_TIMER, 1, 0), 0);
  EXPECT_FALSE(window_.cursor_visible());
  set_cursor();
  EXPECT_NE(GetCursor(), arrow);
  EXPECT_NE(GetCursor(), nullptr);
  SendMessageW(hwnd_, WM_TIMER, 2, 0);  // not the cursor's timer
  EXPECT_FALSE(window_.cursor_visible());

  int exits = 0;
  window_.SetExitCallback([&] { ++exits; });
  for (UINT click : {WM_RBUTTONDOWN, WM_MBUTTONDOWN}) {
    SendMessageW(hwnd_, WM_TIMER, 1, 0);
    SendMessageW(hwnd_, click, 0, MAKELPARAM(5, 5));
    EXPECT_TRUE(window_.cursor_visible());
  }
  EXPECT_EQ(exits, 0);
  EXPECT_TRUE(IsWindow(hwnd_));
}

// ---------------------------------------------------------------------------------------------
// Resizing and images

TEST_F(NativeLiveWindowTest, ResizingFollowsTheWindowAndKeepsTheLoopRunning) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Resizing", 70, 70, 240, 160)}));
  window.FadeToBlack(0, nullptr);
  window.FadeFromBlack(0, nullptr);
  std::size_t mark = LogText().size();

  SetWindowPos(window.GetHwnd(), nullptr, 0, 0, 300, 150, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "INFO  [RESIZE] Window resized to 300x150"), 1u) << log;
  EXPECT_EQ(CountOf(log, "Render loop stopped (window kept open)"), 1u) << log;
  EXPECT_EQ(CountOf(log, "Render loop restarted"), 1u) << log;
  EXPECT_TRUE(window.render_loop_running());
  RECT overlay = {};
  GetClientRect(window.fade_overlay_window(), &overlay);
  EXPECT_EQ(overlay.right, 300);
  EXPECT_EQ(overlay.bottom, 150);
  EXPECT_TRUE(WaitForPresents(window, 3));

  // Minimising and empty sizes leave the swap chain alone.
  mark = LogText().size();
  SendMessageW(window.GetHwnd(), WM_SIZE, SIZE_MINIMIZED, MAKELPARAM(0, 0));
  window.OnResize(0, 0);
  window.OnResize(100, 0);
  log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "[RESIZE]"), 0u) << log;
  EXPECT_EQ(CountOf(log, "[RENDER]"), 0u) << log;
  // A stopped loop stays stopped through a resize.
  window.StopRenderLoop();
  SetWindowPos(window.GetHwnd(), nullptr, 0, 0, 200, 100, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  EXPECT_EQ(CountOf(LogText().substr(mark), "Window resized to 200x100"), 1u);
  EXPECT_FALSE(window.render_loop_running());
}

TEST_F(NativeLiveWindowTest, BadImagesAreRefusedWithoutChangingTheMode) {
  NativeLiveWindow unshown;
  const std::vector<std::uint8_t> pixels(4 * 4 * 4, 0xFF);
  {
    live_window_test::CapturedStdout output;
    EXPECT_FALSE(unshown.ShowImageFromPixels(pixels, 4, 4, 0));
    EXPECT_EQ(CountOf(output.Text(), "Kestrun Native: ERROR - d3d_device_ is null\n"), 1u);
  }

  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Bad images", 90, 90, 160, 90)}));
  live_window_test::CapturedStdout output;
  EXPECT_FALSE(window.ShowImageFromPixels({}, 4, 4, 0));
  EXPECT_FALSE(window.ShowImageFromPixels(pixels, 0, 4, 0));
  EXPECT_FALSE(window.ShowImageFromPixels(pixels, 4, -1, 0));
  EXPECT_FALSE(window.ShowImageFromPixels(pixels, 4, 5, 0));  // one row short
  EXPECT_EQ(CountOf(output.Text(), "Kestrun Native: ERROR - Invalid pixel data\n"), 4u);
  EXPECT_EQ(window.content_mode(), kContentNone);

  auto frames = std::make_shared<NativeLiveWindow::FrameList>(2, pixels);
  EXPECT_FALSE(window.ShowAnimatedImage(
      std::make_shared<NativeLiveWindow::FrameList>(1, pixels), {100}, 4, 4, 0));
  EXPECT_FALSE(window.ShowAnimatedImage(frames, {100}, 4, 4, 0));
  EXPECT_FALSE(window.ShowAnimatedImage(frames, {100, 100}, 0, 4, 0));
  EXPECT_FALSE(window.ShowAnimatedImage(nullptr, {}, 4, 4, 0));
  EXPECT_EQ(window.content_mode(), kContentNone);
  EXPECT_EQ(frames.use_count(), 1);  // the refused frames are not kept
  EXPECT_TRUE(window.ShowAnimatedImage(frames, {100, 100}, 4, 4, 0));
  EXPECT_EQ(window.content_mode(), kContentImage);
  window.ClearContent();
  EXPECT_EQ(frames.use_count(), 1);
  EXPECT_EQ(window.content_mode(), kContentNone);
}

// ---------------------------------------------------------------------------------------------
// Fades through the window

// Timed fades are stepped by the render loop and answered through the plugin's callback window
// (native_live_window_plugin_unittests); the curve is the overlay's (fade_overlay_unittests).
TEST_F(NativeLiveWindowTest, ImmediateFadesAndFadesOfAClosedWindowCompleteAtOnce) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Immediate fades", 100, 100, 200, 120)}));
  int calls = 0;
  window.FadeToBlack(0, [&] { ++calls; });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(OverlayAlpha(window.fade_overlay_window()), 255);
  window.FadeFromBlack(0, [&] { ++calls; });
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(OverlayAlpha(window.fade_overlay_window()), 0);
  NativeLiveWindow closed;
  closed.FadeToBlack(500, [&] { ++calls; });
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(closed.fade_overlay_window(), nullptr);
}

}  // namespace
}  // namespace native_live_window
