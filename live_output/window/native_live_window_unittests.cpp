// A real live window in this process: creation over displays, closing, the keyboard and mouse
// rules of the show, resizing, content modes, and fades and blanking driven through the window.
#include "live_output/window/native_live_window.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"

namespace native_live_window {
namespace {

using live_window_test::CountOf;
using live_window_test::Display;
using live_window_test::LogText;
using live_window_test::ManualClock;
using live_window_test::PumpPending;
using live_window_test::PumpUntil;
using live_window_test::Show;
using live_window_test::WaitForPresents;

RECT WindowRect(HWND window) {
  RECT rect = {};
  GetWindowRect(window, &rect);
  return rect;
}

int OverlayAlpha(HWND overlay) {
  BYTE alpha = 0;
  COLORREF key = 0;
  DWORD flags = 0;
  if (!GetLayeredWindowAttributes(overlay, &key, &alpha, &flags)) {
    return -1;
  }
  return alpha;
}

// Sets or clears the Control and Shift keys in this thread's keyboard state, which GetKeyState
// reads.
void SetModifiers(bool control, bool shift) {
  BYTE keys[256] = {};
  GetKeyboardState(keys);
  keys[VK_CONTROL] = control ? 0x80 : 0;
  keys[VK_LCONTROL] = control ? 0x80 : 0;
  keys[VK_SHIFT] = shift ? 0x80 : 0;
  keys[VK_LSHIFT] = shift ? 0x80 : 0;
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

TEST_F(NativeLiveWindowTest, EmptyDisplayListReportsNoDisplays) {
  NativeLiveWindow window;
  int calls = 0;
  bool success = true;
  std::string error;
  window.CreateOnDisplays({}, [&](bool ok, const std::string& text) {
    ++calls;
    success = ok;
    error = text;
  });
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(success);
  EXPECT_EQ(error, "No displays provided");
  EXPECT_EQ(window.GetHwnd(), nullptr);
  EXPECT_FALSE(window.render_loop_running());
}

TEST_F(NativeLiveWindowTest, CoversTheUnionOfItsDisplaysAndShowsTopmostWithoutFrame) {
  NativeLiveWindow window;
  int calls = 0;
  std::string error = "unset";
  window.CreateOnDisplays({Display("Left", 100, 60, 320, 240), Display("Right", 420, 60, 320, 240)},
                          [&](bool ok, const std::string& text) {
                            ++calls;
                            EXPECT_TRUE(ok);
                            error = text;
                          });
  ASSERT_EQ(calls, 1);
  EXPECT_EQ(error, "");
  HWND hwnd = window.GetHwnd();
  ASSERT_NE(hwnd, nullptr);
  const RECT rect = WindowRect(hwnd);
  EXPECT_EQ(rect.left, 100);
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
  EXPECT_TRUE(window.render_loop_running());
  EXPECT_EQ(window.displays().size(), 2u);
  EXPECT_FALSE(window.cursor_visible());
  EXPECT_TRUE(WaitForPresents(window, 3));
}

TEST_F(NativeLiveWindowTest, DisplayLeftOfThePrimaryGivesANegativeOrigin) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Left of primary", -200, 30, 200, 120),
                            Display("Primary", 0, 30, 200, 120)}));
  const RECT rect = WindowRect(window.GetHwnd());
  EXPECT_EQ(rect.left, -200);
  EXPECT_EQ(rect.top, 30);
  EXPECT_EQ(rect.right - rect.left, 400);
  EXPECT_EQ(rect.bottom - rect.top, 120);
}

TEST_F(NativeLiveWindowTest, CloseEndsEverythingAndCanBeRepeated) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Closing", 50, 50, 200, 120)}));
  HWND hwnd = window.GetHwnd();
  window.FadeToBlack(0, nullptr);
  HWND overlay = window.fade_overlay_window();
  ASSERT_NE(overlay, nullptr);
  window.Close();
  EXPECT_FALSE(IsWindow(hwnd));
  EXPECT_FALSE(IsWindow(overlay));
  EXPECT_EQ(window.GetHwnd(), nullptr);
  EXPECT_FALSE(window.render_loop_running());
  EXPECT_TRUE(window.displays().empty());
  window.Close();
  EXPECT_EQ(window.GetHwnd(), nullptr);
}

TEST_F(NativeLiveWindowTest, CreatingAgainReplacesTheOpenWindow) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("First", 50, 50, 200, 120)}));
  HWND first = window.GetHwnd();
  ASSERT_TRUE(Show(window, {Display("Second", 60, 60, 220, 140)}));
  EXPECT_FALSE(IsWindow(first));
  EXPECT_NE(window.GetHwnd(), nullptr);
  EXPECT_EQ(window.displays().front().name, "Second");
  EXPECT_TRUE(WaitForPresents(window, 2));
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

TEST_F(ShowControlsTest, EscapeCallsTheExitCallbackThenCloses) {
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
  EXPECT_EQ(window_.GetHwnd(), nullptr);
  EXPECT_FALSE(window_.render_loop_running());
}

TEST_F(ShowControlsTest, LeftClickEndsTheShowLikeEscape) {
  int calls = 0;
  window_.SetExitCallback([&] { ++calls; });
  EXPECT_EQ(SendMessageW(hwnd_, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(20, 20)), 0);
  EXPECT_EQ(calls, 1);
  EXPECT_FALSE(IsWindow(hwnd_));
}

TEST_F(ShowControlsTest, EscapeWithoutExitCallbackStillCloses) {
  EXPECT_EQ(Key(hwnd_, VK_ESCAPE), 0);
  EXPECT_FALSE(IsWindow(hwnd_));
  EXPECT_EQ(window_.GetHwnd(), nullptr);
}

TEST_F(ShowControlsTest, ArrowsAndDigitsChooseIntervals) {
  std::vector<std::string> actions;
  window_.SetIntervalCallback([&](const std::string& action) { actions.push_back(action); });
  for (WPARAM key : {WPARAM{VK_LEFT}, WPARAM{VK_RIGHT}, WPARAM{'1'}, WPARAM{'2'}, WPARAM{'5'},
                     WPARAM{'9'}, WPARAM{'0'}}) {
    EXPECT_EQ(Key(hwnd_, key), 0);
  }
  EXPECT_EQ(actions, (std::vector<std::string>{"prev", "next", "0", "1", "4", "8", "9"}));
  // Other keys choose nothing and leave the window open.
  Key(hwnd_, 'A');
  Key(hwnd_, VK_SPACE);
  Key(hwnd_, VK_NUMPAD1);
  EXPECT_EQ(actions.size(), 7u);
  EXPECT_TRUE(IsWindow(hwnd_));
}

TEST_F(ShowControlsTest, ArrowsWithoutIntervalCallbackAreSwallowed) {
  EXPECT_EQ(Key(hwnd_, VK_LEFT), 0);
  EXPECT_EQ(Key(hwnd_, VK_RIGHT), 0);
  Key(hwnd_, '3');
  EXPECT_TRUE(IsWindow(hwnd_));
}

TEST_F(ShowControlsTest, OnlyControlShiftHTogglesTheHud) {
  int toggles = 0;
  window_.SetHudToggleCallback([&] { ++toggles; });
  SetModifiers(false, false);
  Key(hwnd_, 'H');
  SetModifiers(true, false);
  Key(hwnd_, 'H');
  SetModifiers(false, true);
  Key(hwnd_, 'H');
  EXPECT_EQ(toggles, 0);
  SetModifiers(true, true);
  EXPECT_EQ(Key(hwnd_, 'H'), 0);
  EXPECT_EQ(toggles, 1);
  EXPECT_EQ(Key(hwnd_, 'H'), 0);
  EXPECT_EQ(toggles, 2);
  EXPECT_TRUE(IsWindow(hwnd_));
}

TEST_F(ShowControlsTest, CursorShowsOnMovementAndHidesOnTheTimer) {
  const HCURSOR arrow = LoadCursorW(nullptr, IDC_ARROW);
  // Where the pointer already is: nothing to show.
  POINT cursor = {};
  GetCursorPos(&cursor);
  ScreenToClient(hwnd_, &cursor);
  SendMessageW(hwnd_, WM_MOUSEMOVE, 0, MAKELPARAM(cursor.x, cursor.y));
  EXPECT_FALSE(window_.cursor_visible());
  SendMessageW(hwnd_, WM_SETCURSOR, reinterpret_cast<WPARAM>(hwnd_), MAKELPARAM(HTCLIENT, WM_MOUSEMOVE));
  EXPECT_NE(GetCursor(), arrow);

  SendMessageW(hwnd_, WM_MOUSEMOVE, 0, MAKELPARAM(cursor.x + 7, cursor.y + 3));
  EXPECT_TRUE(window_.cursor_visible());
  EXPECT_EQ(SendMessageW(hwnd_, WM_SETCURSOR, reinterpret_cast<WPARAM>(hwnd_),
                         MAKELPARAM(HTCLIENT, WM_MOUSEMOVE)),
            TRUE);
  EXPECT_EQ(GetCursor(), arrow);
  // The same position again changes nothing.
  SendMessageW(hwnd_, WM_MOUSEMOVE, 0, MAKELPARAM(cursor.x + 7, cursor.y + 3));
  EXPECT_TRUE(window_.cursor_visible());

  EXPECT_EQ(SendMessageW(hwnd_, WM_TIMER, 1, 0), 0);
  EXPECT_FALSE(window_.cursor_visible());
  EXPECT_NE(GetCursor(), arrow);
  SendMessageW(hwnd_, WM_SETCURSOR, reinterpret_cast<WPARAM>(hwnd_), MAKELPARAM(HTCLIENT, WM_MOUSEMOVE));
  EXPECT_NE(GetCursor(), arrow);
  EXPECT_NE(GetCursor(), nullptr);

  // Other timers are not the cursor's.
  SendMessageW(hwnd_, WM_MOUSEMOVE, 0, MAKELPARAM(cursor.x + 1, cursor.y + 1));
  SendMessageW(hwnd_, WM_TIMER, 2, 0);
  EXPECT_TRUE(window_.cursor_visible());
}

TEST_F(ShowControlsTest, RightAndMiddleClicksShowTheCursorAndKeepTheShow) {
  int exits = 0;
  window_.SetExitCallback([&] { ++exits; });
  SendMessageW(hwnd_, WM_RBUTTONDOWN, MK_RBUTTON, MAKELPARAM(5, 5));
  EXPECT_TRUE(window_.cursor_visible());
  SendMessageW(hwnd_, WM_TIMER, 1, 0);
  SendMessageW(hwnd_, WM_MBUTTONDOWN, MK_MBUTTON, MAKELPARAM(5, 5));
  EXPECT_TRUE(window_.cursor_visible());
  EXPECT_EQ(exits, 0);
  EXPECT_TRUE(IsWindow(hwnd_));
}

// ---------------------------------------------------------------------------------------------
// Resizing

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
}

TEST_F(NativeLiveWindowTest, ResizingAStoppedLoopLeavesItStopped) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Resizing stopped", 70, 70, 240, 160)}));
  window.StopRenderLoop();
  const std::size_t mark = LogText().size();
  window.OnResize(200, 100);
  const std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "Window resized to 200x100"), 1u) << log;
  EXPECT_EQ(CountOf(log, "Render loop restarted"), 0u) << log;
  EXPECT_FALSE(window.render_loop_running());
}

// ---------------------------------------------------------------------------------------------
// Content

TEST_F(NativeLiveWindowTest, ImageModeFollowsShowAndClear) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Content", 90, 90, 160, 90)}));
  EXPECT_EQ(window.content_mode(), kContentNone);
  const std::vector<std::uint8_t> pixels(16 * 9 * 4, 0x80);
  EXPECT_TRUE(window.ShowImageFromPixels(pixels, 16, 9, 0));
  EXPECT_EQ(window.content_mode(), kContentImage);
  window.ClearImage();
  EXPECT_EQ(window.content_mode(), kContentImage);  // the image is gone, the mode stays
  EXPECT_TRUE(window.ShowImageFromPixels(pixels, 16, 9, 1));
  window.ClearContent();
  EXPECT_EQ(window.content_mode(), kContentNone);
  EXPECT_TRUE(WaitForPresents(window, 2));
}

TEST_F(NativeLiveWindowTest, BadImagesAreRefusedWithoutChangingTheMode) {
  NativeLiveWindow unshown;
  const std::vector<std::uint8_t> pixels(4 * 4 * 4, 0xFF);
  {
    live_window_test::CapturedStdout output;
    EXPECT_FALSE(unshown.ShowImageFromPixels(pixels, 4, 4, 0));
    EXPECT_NE(output.Text().find("Kestrun Native: ERROR - d3d_device_ is null\n"), std::string::npos);
  }

  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Bad images", 90, 90, 160, 90)}));
  live_window_test::CapturedStdout output;
  EXPECT_FALSE(window.ShowImageFromPixels({}, 4, 4, 0));
  EXPECT_FALSE(window.ShowImageFromPixels(pixels, 0, 4, 0));
  EXPECT_FALSE(window.ShowImageFromPixels(pixels, 4, -1, 0));
  EXPECT_FALSE(window.ShowImageFromPixels(pixels, 8, 8, 0));  // too few bytes for 8 x 8
  EXPECT_EQ(CountOf(output.Text(), "Kestrun Native: ERROR - Invalid pixel data\n"), 4u);
  EXPECT_EQ(window.content_mode(), kContentNone);

  auto frames = std::make_shared<NativeLiveWindow::FrameList>(2, pixels);
  EXPECT_FALSE(window.ShowAnimatedImage(
      std::make_shared<NativeLiveWindow::FrameList>(1, pixels), {100}, 4, 4, 0));
  EXPECT_FALSE(window.ShowAnimatedImage(frames, {100}, 4, 4, 0));
  EXPECT_FALSE(window.ShowAnimatedImage(frames, {100, 100}, 0, 4, 0));
  EXPECT_FALSE(window.ShowAnimatedImage(nullptr, {}, 4, 4, 0));
  EXPECT_EQ(window.content_mode(), kContentNone);
  // The refused frames are not kept.
  EXPECT_EQ(frames.use_count(), 1);
  EXPECT_TRUE(window.ShowAnimatedImage(frames, {100, 100}, 4, 4, 0));
  EXPECT_EQ(window.content_mode(), kContentImage);
  EXPECT_EQ(frames.use_count(), 2);
  window.ClearContent();
  EXPECT_EQ(frames.use_count(), 1);
}

// ---------------------------------------------------------------------------------------------
// Fades and blanking through the window

TEST_F(NativeLiveWindowTest, RenderLoopStepsTheFadeAndCallsBackOnItsThread) {
  auto clock = std::make_shared<ManualClock>();
  NativeLiveWindow window(clock);
  ASSERT_TRUE(Show(window, {Display("Fading", 100, 100, 200, 120)}));
  const DWORD platform_thread = GetCurrentThreadId();
  std::atomic<int> calls{0};
  std::atomic<DWORD> callback_thread{0};

  clock->SetFadeTimeMs(1000);
  window.FadeToBlack(1000, [&] {
    callback_thread.store(GetCurrentThreadId());
    calls.fetch_add(1);
  });
  HWND overlay = window.fade_overlay_window();
  ASSERT_NE(overlay, nullptr);
  ASSERT_TRUE(WaitForPresents(window, 2));
  EXPECT_EQ(OverlayAlpha(overlay), 0);

  clock->SetFadeTimeMs(1500);
  ASSERT_TRUE(WaitForPresents(window, 2));
  EXPECT_EQ(OverlayAlpha(overlay), 127);
  EXPECT_EQ(window.fade_overlay_alpha(), 127);
  EXPECT_EQ(calls.load(), 0);

  clock->SetFadeTimeMs(2000);
  ASSERT_TRUE(PumpUntil([&] { return calls.load() == 1; }, window.present_event()));
  EXPECT_EQ(OverlayAlpha(overlay), 255);
  EXPECT_NE(callback_thread.load(), platform_thread);
  ASSERT_TRUE(WaitForPresents(window, 3));
  EXPECT_EQ(calls.load(), 1);

  // Back from black, interrupted half way by a fade to black that continues from there.
  std::atomic<int> replaced_calls{0};
  window.FadeFromBlack(1000, [&] { replaced_calls.fetch_add(1); });
  clock->SetFadeTimeMs(2500);
  ASSERT_TRUE(WaitForPresents(window, 2));
  EXPECT_EQ(OverlayAlpha(overlay), 127);
  window.FadeToBlack(500, [&] { calls.fetch_add(1); });
  EXPECT_EQ(OverlayAlpha(overlay), 127);
  clock->SetFadeTimeMs(3000);
  ASSERT_TRUE(PumpUntil([&] { return calls.load() == 2; }, window.present_event()));
  EXPECT_EQ(OverlayAlpha(overlay), 255);
  EXPECT_EQ(replaced_calls.load(), 0);
}

TEST_F(NativeLiveWindowTest, ImmediateFadesCompleteOnTheCallingThread) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Immediate fades", 100, 100, 200, 120)}));
  int calls = 0;
  window.FadeToBlack(0, [&] { ++calls; });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(OverlayAlpha(window.fade_overlay_window()), 255);
  window.FadeFromBlack(0, [&] { ++calls; });
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(OverlayAlpha(window.fade_overlay_window()), 0);
}

TEST_F(NativeLiveWindowTest, FadeOnAClosedWindowCompletesAtOnce) {
  NativeLiveWindow window;
  int calls = 0;
  window.FadeToBlack(500, [&] { ++calls; });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(window.fade_overlay_window(), nullptr);
}

TEST_F(NativeLiveWindowTest, BlankAndUnblankToggleTheFlag) {
  NativeLiveWindow window;
  ASSERT_TRUE(Show(window, {Display("Blanking", 100, 100, 200, 120)}));
  window.Blank();
  EXPECT_TRUE(window.blanked());
  EXPECT_TRUE(WaitForPresents(window, 2));
  window.Unblank();
  EXPECT_FALSE(window.blanked());
  EXPECT_TRUE(WaitForPresents(window, 2));
}

}  // namespace
}  // namespace native_live_window
