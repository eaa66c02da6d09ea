// The browser host against the WebView2 stand-in: creation outcomes (user-data folder, loader
// location), the display-surface set-up, the input-disabling walk and its timer, forwarded events
// and silence after destruction (capture is tested through the plugin).
#include <gtest/gtest.h>
#include <windows.h>
#include <webview2_standin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "embedded_webview/native_webview.h"
#include "embedded_webview/webview2_loader.h"
#include "foreign_interfaces/webview2/webview2_api.h"

namespace native_webview {
namespace {

using namespace webview2;

bool PumpEvents() { return WebView2Standin_DeliverPending() != FALSE; }

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
    EXPECT_TRUE(PumpEvents() && outcome.has_value());
    return outcome;
  }

  HWND parent_ = nullptr;
  std::unique_ptr<NativeWebView> view_;
};

std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  return folder.substr(0, folder.find_last_of(L'\\'));
}

TEST_F(NativeWebViewTest, CreationOutcomesAndTheUserDataFolder) {
  // A copy of the loader in the current folder (planted) is never used.
  wchar_t temp[MAX_PATH] = {}, loader[MAX_PATH] = {}, previous[MAX_PATH] = {};
  GetTempPathW(MAX_PATH, temp);
  GetModuleFileNameW(GetModuleHandleW(L"WebView2Loader.dll"), loader, MAX_PATH);
  const std::wstring planted = std::wstring(temp) + L"KestrunPlantedLoader.dll";
  ASSERT_TRUE(CopyFileW(loader, planted.c_str(), FALSE));
  GetCurrentDirectoryW(MAX_PATH, previous);
  SetCurrentDirectoryW(temp);
  const struct {
    HRESULT environment;
    HRESULT controller;
    const wchar_t* loader;
    bool program_folder_denied;  // installed under Program Files
    const char* outcome;
    const wchar_t* folder_end;   // of the user-data folder asked for last
  } cases[] = {
      {E_FAIL, S_OK, nullptr, false, "Failed to create WebView2 environment", L""},
      {S_OK, E_ACCESSDENIED, nullptr, false, "Failed to create WebView2 controller", L""},
      {S_OK, S_OK, L"KestrunMissingLoader.dll", false,
       "CreateCoreWebView2EnvironmentWithOptions failed", L""},
      {S_OK, S_OK, L"KestrunPlantedLoader.dll", false,
       "CreateCoreWebView2EnvironmentWithOptions failed", L""},
      {S_OK, S_OK, nullptr, true, "ok", L"\\Kestrun\\WebView2"},
      {S_OK, S_OK, nullptr, false, "ok", L""},
  };
  for (const auto& c : cases) {
    WebView2Standin_SetCreationResults(c.environment, c.controller);
    SetWebView2LoaderNameForTesting(c.loader);
    WebView2Standin_DenyUserDataFolder(c.program_folder_denied ? ProgramFolder().c_str() : nullptr);
    EXPECT_EQ(Initialize(), std::string(c.outcome));
    EXPECT_EQ(view_->ready(), std::string(c.outcome) == "ok");
    wchar_t folder[MAX_PATH] = {};
    const std::wstring end = c.folder_end;
    WebView2Standin_LastUserDataFolder(folder, MAX_PATH);
    EXPECT_EQ(std::wstring(folder).substr(wcslen(folder) - std::min(wcslen(folder), end.size())),
              end);
  }
  SetWebView2LoaderNameForTesting(nullptr);
  SetCurrentDirectoryW(previous);
  DeleteFileW(planted.c_str());
}

TEST_F(NativeWebViewTest, ReadyViewIsAnInertBlackDisplaySurface) {
  // The very first document, navigated the moment the view is ready, already runs both scripts.
  view_ = std::make_unique<NativeWebView>();
  view_->Initialize(parent_, [this](bool, const std::string&) {
    view_->Navigate("https://first.example/");
  });
  ASSERT_TRUE(PumpEvents());
  const int number = WebView2Standin_LastView();
  wchar_t scripts[2048] = {};
  WebView2Standin_DocumentScripts(number, scripts, 2048);
  const std::wstring ran = scripts;
  EXPECT_EQ(ran.find(L"(function() {  document.documentElement.style.cssText = 'background: #000"),
            0u);
  EXPECT_NE(ran.find(L"\ndocument.addEventListener('DOMContentLoaded', function() {  var style = "
                     L"document.createElement('style');  style.textContent = '* { pointer-events: "
                     L"none !important;"),
            std::wstring::npos);
  const WebView2StandinView state = ViewState(number);
  for (BOOL setting : state.settings) {
    EXPECT_FALSE(setting);
  }
  EXPECT_EQ(state.background[0], 255);
  EXPECT_EQ(state.background[1] + state.background[2] + state.background[3], 0);
  EXPECT_TRUE(WebView2Standin_PressAccelerator(number, 'R'));
  WebView2Standin_Focus(number);
  EXPECT_EQ(GetFocus(), parent_);
  // The browser's windows take no input.
  EXPECT_FALSE(IsWindowEnabled(state.host));
  EXPECT_FALSE(IsWindowEnabled(state.page));
  EXPECT_NE(GetWindowLongW(state.page, GWL_EXSTYLE) & WS_EX_TRANSPARENT, 0);
  // With the timer stopped, a navigation's start and its completion each disable late windows.
  KillTimer(parent_, NativeWebView::kDisableTimerId);
  WebView2Standin_SetAutomaticEvents(FALSE, FALSE);
  for (bool completion : {false, true}) {
    HWND late = CreateWindowExW(0, L"STATIC", L"", WS_CHILD, 0, 0, 5, 5, parent_, nullptr,
                                nullptr, nullptr);
    if (completion) {
      WebView2Standin_CompleteNavigation(number, TRUE);
    } else {
      view_->Navigate("https://second.example/");
    }
    ASSERT_TRUE(PumpEvents());
    EXPECT_FALSE(IsWindowEnabled(late)) << completion;
  }
}

TEST_F(NativeWebViewTest, DisableTimerRunsThirtyTimesThenRemovesItsProperty) {
  ASSERT_EQ(Initialize(), std::string("ok"));
  HWND late_child = nullptr;
  int ticks = 0;
  // Our own loop, to see each tick of the timer before it is dispatched.
  const DWORD start = GetTickCount();
  MSG msg;
  while (ticks < 30 && GetTickCount() - start < 30000) {
    if (!PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
      continue;
    }
    if (msg.message == WM_TIMER && msg.hwnd == parent_ && msg.wParam == 1001) {
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
  for (int kind : {1, 2, 3, 0}) {
    WebView2Standin_FailProcess(number, kind);
  }
  ASSERT_TRUE(PumpEvents());
  EXPECT_EQ(seen, (std::vector<std::string>{"failed", "dom", "RENDER (kind=1)",
                                            "RENDER_UNRESPONSIVE (kind=2)", "OTHER (kind=3)",
                                            "BROWSER (kind=0)"}));
  // The browser closed the view when its process exited.
  EXPECT_TRUE(view_->browser_exited());
  EXPECT_FALSE(view_->ready());
}

TEST_F(NativeWebViewTest, NothingRunsAfterDestruction) {
  // Destroyed while the browser is still being made, and again once ready with events queued.
  for (bool hold : {true, false}) {
    WebView2Standin_HoldCreations(hold ? TRUE : FALSE);
    int calls = 0;
    auto view = std::make_unique<NativeWebView>();
    view->Initialize(parent_, [&](bool, const std::string&) { ++calls; });
    if (!hold) {
      ASSERT_TRUE(PumpEvents());
      ASSERT_EQ(calls, 1);
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

}  // namespace
}  // namespace native_webview
