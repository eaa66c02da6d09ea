// Win32Window in this process: creation hidden, re-creation, child content, and DPI changes (quit on close is checked with the main window in flutter_window_unittests). The engine stand-in reports 96 dpi for
// every monitor, so logical and physical units agree here.
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "win32_window.h"

namespace kestrun_shell {
namespace {

// Observes the hooks; can refuse creation.
class ObservedWindow : public Win32Window {
 public:
  int creates = 0;
  int destroys = 0;
  bool refuse_create = false;
  HWND handle_seen_in_create = nullptr;

 protected:
  bool OnCreate() override {
    ++creates;
    handle_seen_in_create = GetHandle();
    return !refuse_create;
  }
  void OnDestroy() override { ++destroys; }
};

// Removes a pending quit message; answers whether there was one.
bool TakeQuitMessage() {
  MSG message;
  return PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != 0;
}

RECT WindowRectInParentClient(HWND child) {
  RECT rect = {};
  GetWindowRect(child, &rect);
  MapWindowPoints(HWND_DESKTOP, GetParent(child), reinterpret_cast<POINT*>(&rect), 2);
  return rect;
}

class Win32WindowTest : public ::testing::Test {
 protected:
  void TearDown() override {
    // Nothing of one test may leak into the next.
    while (TakeQuitMessage()) {
    }
  }
};

// Geometry, class and title of the main window are checked on the real program in
// kestrun_end_to_end_tests.
TEST_F(Win32WindowTest, CreatesHiddenAndCreatingAgainOrRefusingLeavesNoOldWindow) {
  ObservedWindow window;
  ASSERT_TRUE(window.Create(L"first", Point{10, 10}, Size{400, 300}));
  HWND first = window.GetHandle();
  EXPECT_EQ(window.handle_seen_in_create, first);
  EXPECT_FALSE(IsWindowVisible(first));
  EXPECT_EQ(GetWindowLongPtrW(first, GWL_STYLE) & WS_OVERLAPPEDWINDOW, WS_OVERLAPPEDWINDOW);
  // Show answers whether it was visible before.
  EXPECT_FALSE(window.Show());
  EXPECT_TRUE(window.Show());

  ASSERT_TRUE(window.Create(L"second", Point{20, 20}, Size{400, 300}));
  EXPECT_FALSE(IsWindow(first));
  EXPECT_TRUE(IsWindow(window.GetHandle()));
  EXPECT_EQ(window.creates, 2);
  EXPECT_GE(window.destroys, 1);
  // The quit flag was not set: destroying ends no loop.
  DestroyWindow(window.GetHandle());
  EXPECT_EQ(window.GetHandle(), nullptr);
  EXPECT_FALSE(TakeQuitMessage());

  window.refuse_create = true;
  EXPECT_FALSE(window.Create(L"refused", Point{10, 10}, Size{400, 300}));
  EXPECT_EQ(window.GetHandle(), nullptr);
  EXPECT_FALSE(IsWindow(window.handle_seen_in_create));
}

TEST_F(Win32WindowTest, ChildContentFillsTheClientAreaAndFollowsResizes) {
  ObservedWindow window;
  ASSERT_TRUE(window.Create(L"kestrun", Point{10, 10}, Size{800, 600}));

  // A child window somewhere else, as the engine's view is before it is handed over.
  HWND holder = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 50, 50, nullptr, nullptr,
                                GetModuleHandleW(nullptr), nullptr);
  ASSERT_NE(holder, nullptr);
  HWND child = CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE, 3, 4, 20, 20, holder,
                               nullptr, GetModuleHandleW(nullptr), nullptr);
  ASSERT_NE(child, nullptr);

  window.SetChildContent(child);
  EXPECT_EQ(GetParent(child), window.GetHandle());
  RECT client = window.GetClientArea();
  RECT placed = WindowRectInParentClient(child);
  EXPECT_EQ(placed.left, client.left);
  EXPECT_EQ(placed.top, client.top);
  EXPECT_EQ(placed.right, client.right);
  EXPECT_EQ(placed.bottom, client.bottom);

  ASSERT_TRUE(SetWindowPos(window.GetHandle(), nullptr, 0, 0, 1000, 700,
                           SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE));
  client = window.GetClientArea();
  placed = WindowRectInParentClient(child);
  EXPECT_EQ(placed.right - placed.left, client.right - client.left);
  EXPECT_EQ(placed.bottom - placed.top, client.bottom - client.top);
  EXPECT_GT(client.right - client.left, 800);

  // The child goes with its window.
  window.Destroy();
  EXPECT_FALSE(IsWindow(child));
  DestroyWindow(holder);
}

TEST_F(Win32WindowTest, DpiChangeMovesTheWindowToTheSuggestedRectangle) {
  ObservedWindow window;
  ASSERT_TRUE(window.Create(L"kestrun", Point{10, 10}, Size{400, 300}));
  RECT suggested = {30, 40, 30 + 600, 40 + 450};
  EXPECT_EQ(SendMessageW(window.GetHandle(), WM_DPICHANGED, MAKEWPARAM(144, 144),
                         reinterpret_cast<LPARAM>(&suggested)),
            0);
  RECT rect = {};
  GetWindowRect(window.GetHandle(), &rect);
  EXPECT_EQ(rect.left, 30);
  EXPECT_EQ(rect.top, 40);
  EXPECT_EQ(rect.right, 630);
  EXPECT_EQ(rect.bottom, 490);
}

}  // namespace
}  // namespace kestrun_shell
