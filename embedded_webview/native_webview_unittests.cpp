// The browser host against the WebView2 stand-in: creation outcomes, the display-surface set-up,
// the input-disabling walk and its timer, forwarded events and silence after destruction (capture
// is tested through the plugin). Also checks our declarations' slot numbers against the ABI.
#include <gtest/gtest.h>
#include <windows.h>
#include <webview2_standin.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "embedded_webview/native_webview.h"
#include "foreign_interfaces/webview2/webview2_api.h"

namespace native_webview {
namespace {

using namespace webview2;

// Dispatches messages until `done` holds (false after 30 s, which only a fault reaches).
bool PumpUntil(const std::function<bool()>& done) {
  const DWORD start = GetTickCount();
  while (!done()) {
    if (GetTickCount() - start > 30000) {
      return false;
    }
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
  }
  return true;
}

bool PumpEvents() { return PumpUntil([] { return WebView2Standin_PendingEvents() == 0; }); }

WebView2StandinView ViewState(int view) {
  WebView2StandinView state{};
  WebView2Standin_GetView(view, &state);
  return state;
}

class NativeWebViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WebView2Standin_Reset();
    parent_ = CreateWindowExW(0, L"STATIC", L"parent", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 40, 40,
                              320, 200, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(parent_, nullptr);
  }
  void TearDown() override {
    view_.reset();
    ASSERT_TRUE(PumpEvents());
    DestroyWindow(parent_);
    WebView2Standin_Reset();
  }

  // Initialises view_ and waits for the outcome.
  std::optional<std::string> Initialize() {
    view_ = std::make_unique<NativeWebView>();
    std::optional<std::string> outcome;
    view_->Initialize(parent_, [&outcome](bool success, const std::string& error) {
      outcome = success ? std::string("ok") : error;
    });
    EXPECT_TRUE(PumpUntil([&] { return outcome.has_value(); }));
    return outcome;
  }

  HWND parent_ = nullptr;
  std::unique_ptr<NativeWebView> view_;
};

TEST_F(NativeWebViewTest, CreationFailuresAreReportedWithTheirTexts) {
  const struct {
    HRESULT environment;
    HRESULT controller;
    const char* outcome;
  } cases[] = {
      {E_FAIL, S_OK, "Failed to create WebView2 environment"},
      {S_OK, E_ACCESSDENIED, "Failed to create WebView2 controller"},
      {S_OK, S_OK, "ok"},
  };
  for (const auto& c : cases) {
    WebView2Standin_SetCreationResults(c.environment, c.controller);
    EXPECT_EQ(Initialize(), std::string(c.outcome));
    EXPECT_EQ(view_->ready(), std::string(c.outcome) == "ok");
  }
}

TEST_F(NativeWebViewTest, ReadyViewIsAnInertBlackDisplaySurface) {
  ASSERT_EQ(Initialize(), std::string("ok"));
  const int number = WebView2Standin_LastView();
  const WebView2StandinView state = ViewState(number);
  for (BOOL setting : state.settings) {
    EXPECT_FALSE(setting);
  }
  EXPECT_EQ(state.scripts, 2);
  EXPECT_EQ(state.background[0], 255);
  EXPECT_EQ(state.background[1] + state.background[2] + state.background[3], 0);
  // Navigation starting and completed, DOM content loaded, process failed, focus, keys.
  EXPECT_EQ(state.handlers, 6);
  EXPECT_TRUE(WebView2Standin_PressAccelerator(number, 'R'));
  WebView2Standin_Focus(number);
  EXPECT_EQ(GetFocus(), parent_);
  // The browser's windows take no input.
  EXPECT_FALSE(IsWindowEnabled(state.host));
  EXPECT_FALSE(IsWindowEnabled(state.page));
  EXPECT_NE(GetWindowLongW(state.page, GWL_EXSTYLE) & WS_EX_TRANSPARENT, 0);
}

TEST_F(NativeWebViewTest, DisableTimerRunsThirtyTimesThenRemovesItsProperty) {
  ASSERT_EQ(Initialize(), std::string("ok"));
  HWND late_child = nullptr;
  int ticks = 0;
  bool counted_in_order = true;
  // Our own loop, to see each tick of the timer before it is dispatched.
  const DWORD start = GetTickCount();
  MSG msg;
  while (ticks < 30 && GetTickCount() - start < 30000) {
    if (!PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
      continue;
    }
    if (msg.message == WM_TIMER && msg.hwnd == parent_ &&
        msg.wParam == 1001) {
      const auto before = reinterpret_cast<std::intptr_t>(
          GetPropW(parent_, L"DisableTimerCount"));
      counted_in_order = counted_in_order && before == ticks;
      ++ticks;
      if (ticks == 5) {
        // A browser window that appears late is caught by a later tick.
        late_child = CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE, 0, 0, 10, 10,
                                     parent_, nullptr, nullptr, nullptr);
      }
    }
    DispatchMessageW(&msg);
  }
  EXPECT_EQ(ticks, 30);
  EXPECT_TRUE(counted_in_order);
  EXPECT_EQ(GetPropW(parent_, L"DisableTimerCount"), nullptr);
  EXPECT_FALSE(IsWindowEnabled(late_child));
  // The timer is gone.
  EXPECT_FALSE(KillTimer(parent_, 1001));
}

TEST_F(NativeWebViewTest, BrowserEventsReachTheirHandlers) {
  ASSERT_EQ(Initialize(), std::string("ok"));
  const int number = WebView2Standin_LastView();
  std::vector<std::string> seen;
  view_->SetProcessFailedHandler([&](const std::string& text) { seen.push_back(text); });
  view_->SetNavigationCompletedHandler(
      [&](bool success) { seen.push_back(success ? "completed" : "failed"); });
  view_->SetDomContentLoadedHandler([&] { seen.push_back("dom"); });
  WebView2Standin_SetAutomaticEvents(FALSE, FALSE);

  view_->NavigateToFile("C:\\media\\page.html");
  EXPECT_STREQ(ViewState(number).url, L"file:///C:/media/page.html");
  WebView2Standin_CompleteNavigation(number, FALSE);
  WebView2Standin_FireDomContentLoaded(number);
  for (int kind : {0, 1, 2, 3}) {
    WebView2Standin_FailProcess(number, kind);
  }
  ASSERT_TRUE(PumpEvents());
  EXPECT_EQ(seen, (std::vector<std::string>{"failed", "dom", "BROWSER (kind=0)", "RENDER (kind=1)",
                                            "RENDER_UNRESPONSIVE (kind=2)", "OTHER (kind=3)"}));

  // Cleared handlers hear nothing.
  seen.clear();
  view_->SetDomContentLoadedHandler(nullptr);
  view_->SetProcessFailedHandler(nullptr);
  WebView2Standin_FireDomContentLoaded(number);
  WebView2Standin_FailProcess(number, 1);
  ASSERT_TRUE(PumpEvents());
  EXPECT_TRUE(seen.empty());
}

TEST_F(NativeWebViewTest, NothingRunsAfterDestruction) {
  // Destroyed while the browser is still being made, and again once ready with events queued.
  for (bool hold : {true, false}) {
    WebView2Standin_HoldCreations(hold ? TRUE : FALSE);
    int calls = 0;
    auto view = std::make_unique<NativeWebView>();
    view->Initialize(parent_, [&](bool, const std::string&) { ++calls; });
    if (!hold) {
      ASSERT_TRUE(PumpUntil([&] { return calls == 1; }));
      view->SetDomContentLoadedHandler([&] { ++calls; });
      view->Navigate("https://example.org/");
    }
    view.reset();
    WebView2Standin_HoldCreations(FALSE);
    WebView2Standin_ReleaseCreations();
    ASSERT_TRUE(PumpEvents());
    EXPECT_EQ(calls, hold ? 0 : 1);
    EXPECT_EQ(WebView2Standin_LiveObjects(), 0);
  }
}

// The slot of a virtual method as MinGW encodes it in a pointer to member (byte offset + 1).
template <typename Method>
std::ptrdiff_t SlotOf(Method method) {
  std::ptrdiff_t encoded = 0;
  static_assert(sizeof(method) >= sizeof(encoded), "pointer to member");
  std::memcpy(&encoded, &method, sizeof(encoded));
  return (encoded - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(WebView2DeclarationsTest, SlotsMatchTheBrowserAbi) {
#if defined(__GNUC__)
  const std::pair<std::ptrdiff_t, int> slots[] = {
      {SlotOf(&ICoreWebView2Controller::put_IsVisible), 4},
      {SlotOf(&ICoreWebView2Controller::put_Bounds), 6},
      {SlotOf(&ICoreWebView2Controller::put_ZoomFactor), 8},
      {SlotOf(&ICoreWebView2Controller::add_GotFocus), 15},
      {SlotOf(&ICoreWebView2Controller::add_AcceleratorKeyPressed), 19},
      {SlotOf(&ICoreWebView2Controller::Close), 24},
      {SlotOf(&ICoreWebView2Controller::get_CoreWebView2), 25},
      {SlotOf(&ICoreWebView2Controller2::put_DefaultBackgroundColor), 27},
      {SlotOf(&ICoreWebView2::Navigate), 5},
      {SlotOf(&ICoreWebView2::add_NavigationStarting), 7},
      {SlotOf(&ICoreWebView2::add_NavigationCompleted), 15},
      {SlotOf(&ICoreWebView2::add_ProcessFailed), 25},
      {SlotOf(&ICoreWebView2::AddScriptToExecuteOnDocumentCreated), 27},
      {SlotOf(&ICoreWebView2::CapturePreview), 30},
      {SlotOf(&ICoreWebView2::Reload), 31},
      {SlotOf(&ICoreWebView2::remove_WindowCloseRequested), 60},
      {SlotOf(&ICoreWebView2_2::add_DOMContentLoaded), 64},
      {SlotOf(&ICoreWebView2_2::get_Environment), 67},
      {SlotOf(&ICoreWebView2Settings::put_AreDefaultContextMenusEnabled), 14},
      {SlotOf(&ICoreWebView2Settings::put_IsBuiltInErrorPageEnabled), 20},
      {SlotOf(&ICoreWebView2Environment::CreateCoreWebView2Controller), 3},
      {SlotOf(&ICoreWebView2AcceleratorKeyPressedEventArgs::put_Handled), 8},
      {SlotOf(&ICoreWebView2ProcessFailedEventArgs::get_ProcessFailedKind), 3},
  };
  for (std::size_t i = 0; i < sizeof(slots) / sizeof(slots[0]); ++i) {
    EXPECT_EQ(slots[i].first, slots[i].second) << "entry " << i;
  }
#endif
  EXPECT_EQ(sizeof(COREWEBVIEW2_COLOR), 4u);
  EXPECT_EQ(sizeof(COREWEBVIEW2_PROCESS_FAILED_KIND), 4u);
  EXPECT_EQ(sizeof(COREWEBVIEW2_PHYSICAL_KEY_STATUS), 24u);
  EXPECT_EQ(sizeof(EventRegistrationToken), 8u);
}

}  // namespace
}  // namespace native_webview
