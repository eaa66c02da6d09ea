// Webpages on a real live window against the WebView2 stand-in: which load is revealed and when,
// the browser's placement, stops and stale events, blanking and fades, duplicates, initialisation
// races and failures, process failures and a browser that exited, and many quick loads and stops.
#include <gtest/gtest.h>
#include <windows.h>
#include <webview2_standin.h>

#include <memory>
#include <string>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {
namespace {

using live_window_test::CapturedStdout;
using live_window_test::CountOf;
using live_window_test::Display;
using live_window_test::LogText;
using live_window_test::ProcessHandleCount;
using live_window_test::ProcessSettlesTo;
using live_window_test::ProcessThreadCount;

bool PumpEvents() { return WebView2Standin_DeliverPending() != FALSE; }

WebView2StandinView ViewState() {
  WebView2StandinView state{};
  WebView2Standin_GetView(WebView2Standin_LastView(), &state);
  return state;
}

bool PageVisible() {
  const WebView2StandinView state = ViewState();
  return state.visible && state.host != nullptr && IsWindowVisible(state.host);
}

std::wstring PageUrl() { return ViewState().url; }

// Lines of the log written since the test began.
class LogSince {
 public:
  LogSince() : start_(LogText().size()) {}
  std::string Text() const { return LogText().substr(start_); }
  std::size_t Count(const std::string& needle) const { return CountOf(Text(), needle); }

 private:
  std::size_t start_;
};

class WebpagePresentationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    WebView2Standin_Reset();
    window_ = std::make_unique<NativeLiveWindow>();
    ASSERT_TRUE(live_window_test::Show(*window_, {Display("web", 60, 60, 320, 240)}));
  }
  void TearDown() override {
    window_.reset();
    EXPECT_TRUE(PumpEvents());
    WebView2Standin_Reset();
    CoUninitialize();
  }

  // Loads and waits until the browser has delivered everything it has to say.
  bool LoadAndSettle(const std::string& url, bool is_local_file = false) {
    const bool loaded = window_->LoadWebpage(url, is_local_file);
    return PumpEvents() && loaded;
  }
  const WebpagePresenter& page() const { return window_->webpage(); }

  std::unique_ptr<NativeLiveWindow> window_;
};

TEST_F(WebpagePresentationTest, PageIsRevealedOnlyOnceItsContentHasLoaded) {
  WebView2Standin_SetAutomaticEvents(TRUE, FALSE);
  const LogSince log;
  ASSERT_TRUE(LoadAndSettle("https://a.example/"));
  EXPECT_EQ(window_->content_mode(), kContentWebpage);
  // Unblanking while the page still loads leaves it hidden; loaded while blanked, it stays hidden
  // until unblanked.
  window_->Blank();
  window_->Unblank();
  EXPECT_FALSE(PageVisible());
  window_->Blank();
  WebView2Standin_FireDomContentLoaded(WebView2Standin_LastView());
  ASSERT_TRUE(PumpEvents());
  EXPECT_FALSE(PageVisible());
  window_->Unblank();
  EXPECT_TRUE(PageVisible());
  EXPECT_EQ(PageUrl(), L"https://a.example/");
  // The reload's own content reveals it again.
  EXPECT_TRUE(window_->ReloadWebpage());
  WebView2Standin_FireDomContentLoaded(WebView2Standin_LastView());
  ASSERT_TRUE(PumpEvents());
  for (const char* line :
       {"LoadWebpage called (url=https://a.example/, gen=0, webview=null, ready=0, pending=0)",
        "NavigationCompleted (gen=1, success=1)", "DOMContentLoaded showing webview (gen=1)",
        "ReloadWebpage (url=https://a.example/)"}) {
    EXPECT_GE(log.Count(line), 1u) << line;
  }
  // The browser covers the client area, and follows a resize and a DPI change. (Blanked first:
  // under Wine, moving a shown child of a Direct3D window during its resize never returns.)
  window_->Blank();
  EXPECT_FALSE(PageVisible());
  const HWND hwnd = window_->GetHwnd();
  for (const SIZE size : {SIZE{320, 240}, SIZE{400, 300}, SIZE{480, 360}}) {
    if (size.cx == 400) {
      SetWindowPos(hwnd, nullptr, 0, 0, 400, 300, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    } else if (size.cx == 480) {
      RECT suggested{60, 60, 540, 420};
      SendMessageW(hwnd, WM_DPICHANGED, MAKEWPARAM(144, 144), reinterpret_cast<LPARAM>(&suggested));
    }
    const RECT bounds = ViewState().bounds;
    EXPECT_EQ(std::vector<LONG>({bounds.left, bounds.top, bounds.right, bounds.bottom}),
              std::vector<LONG>({0, 0, size.cx, size.cy}));
  }
}

TEST_F(WebpagePresentationTest, LaterLoadsAndStopsMakeEarlierEventsStale) {
  ASSERT_TRUE(LoadAndSettle("https://first.example/"));
  const int view = WebView2Standin_LastView();
  const struct {
    const char* name;
    bool stop_instead_of_b;
  } cases[] = {{"A then B", false}, {"A then stop", true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WebView2Standin_SetAutomaticEvents(TRUE, FALSE);
    const LogSince log;
    ASSERT_TRUE(window_->LoadWebpage("https://a.example/", false));
    const std::uint32_t a = page().load_generation();
    EXPECT_FALSE(PageVisible());
    // A's content is on its way when B (or the stop) comes.
    WebView2Standin_FireDomContentLoaded(view);
    if (c.stop_instead_of_b) {
      window_->StopWebpage();
    } else {
      ASSERT_TRUE(window_->LoadWebpage("https://b.example/", false));
    }
    ASSERT_TRUE(PumpEvents());
    // A's late events neither reveal B nor count for it.
    EXPECT_EQ(log.Count("DOMContentLoaded showing webview"), 0u);
    EXPECT_EQ(log.Count("NavigationCompleted (gen=" + std::to_string(a + 1) + ", success=1)"),
              c.stop_instead_of_b ? 0u : 1u);
    EXPECT_FALSE(PageVisible());
    if (c.stop_instead_of_b) {
      EXPECT_EQ(window_->content_mode(), kContentNone);
      EXPECT_FALSE(window_->ReloadWebpage());
    } else {
      WebView2Standin_FireDomContentLoaded(view);
      ASSERT_TRUE(PumpEvents());
      EXPECT_TRUE(PageVisible());
      EXPECT_EQ(PageUrl(), L"https://b.example/");
    }
  }
}

TEST_F(WebpagePresentationTest, PageMadeAfterAFadeToBlackStaysUnderTheBlack) {
  WebView2Standin_SetAutomaticEvents(TRUE, FALSE);
  window_->FadeToBlack(0, [] {});
  // The window's topmost child stays the black overlay, above the browser made and then shown.
  for (bool shown : {false, true}) {
    if (shown) {
      WebView2Standin_FireDomContentLoaded(WebView2Standin_LastView());
      ASSERT_TRUE(PumpEvents());
    } else {
      ASSERT_TRUE(LoadAndSettle("https://a.example/"));
    }
    const HWND top = GetWindow(window_->GetHwnd(), GW_CHILD);
    wchar_t name[64] = {};
    GetClassNameW(top, name, 64);
    EXPECT_STREQ(name, L"KestrunFadeOverlay") << shown;
    EXPECT_EQ(GetWindow(top, GW_HWNDNEXT), ViewState().host) << shown;
    EXPECT_EQ(PageVisible(), shown);
  }
}

TEST_F(WebpagePresentationTest, SameUrlWhilePendingOrShownIsSkipped) {
  WebView2Standin_SetAutomaticEvents(TRUE, FALSE);
  const LogSince log;
  ASSERT_TRUE(LoadAndSettle("https://a.example/"));
  const std::uint32_t generation = page().load_generation();
  ASSERT_TRUE(LoadAndSettle("https://a.example/"));
  WebView2Standin_FireDomContentLoaded(WebView2Standin_LastView());
  ASSERT_TRUE(LoadAndSettle("https://a.example/"));
  EXPECT_EQ(log.Count("Skipping duplicate load for same URL"), 2u);
  EXPECT_EQ(page().load_generation(), generation);
  EXPECT_EQ(ViewState().navigations, 1);
}

TEST_F(WebpagePresentationTest, SecondLoadDuringInitialisationLeavesTheBrowserNeverReady) {
  WebView2Standin_HoldCreations(TRUE);
  ASSERT_TRUE(window_->LoadWebpage("https://a.example/", false));
  ASSERT_TRUE(window_->LoadWebpage("https://b.example/", false));
  WebView2Standin_HoldCreations(FALSE);
  WebView2Standin_ReleaseCreations();
  ASSERT_TRUE(PumpEvents());
  EXPECT_TRUE(page().has_webview());
  EXPECT_FALSE(page().webview_ready());
  // No retry: later loads find it neither ready nor absent and navigate nothing.
  ASSERT_TRUE(LoadAndSettle("https://c.example/"));
  EXPECT_EQ(ViewState().navigations, 0);
}

TEST_F(WebpagePresentationTest, FailedInitialisationIsReportedAndTheNextLoadTriesAgain) {
  WebView2Standin_SetCreationResults(E_FAIL, S_OK);
  {
    const CapturedStdout out;
    ASSERT_TRUE(LoadAndSettle("https://a.example/"));
    EXPECT_NE(out.Text().find("Kestrun Native: ERROR - WebView init failed: Failed to create "
                              "WebView2 environment\n"),
              std::string::npos);
  }
  EXPECT_FALSE(page().has_webview());
  EXPECT_TRUE(page().current_url().empty());
  WebView2Standin_SetCreationResults(S_OK, S_OK);
  ASSERT_TRUE(LoadAndSettle("C:\\media\\page.html", true));
  EXPECT_EQ(PageUrl(), L"file:///C:/media/page.html");
  EXPECT_TRUE(PageVisible());
}

TEST_F(WebpagePresentationTest, ProcessFailuresAreLoggedAndAnExitedBrowserIsMadeAgain) {
  ASSERT_TRUE(LoadAndSettle("https://a.example/"));
  const LogSince log;
  WebView2Standin_FailProcess(WebView2Standin_LastView(), 1);
  ASSERT_TRUE(PumpEvents());
  EXPECT_EQ(log.Count("ProcessFailed: RENDER (kind=1) (url=https://a.example/, gen=" +
                      std::to_string(page().load_generation()) + ")"),
            1u);
  EXPECT_EQ(ViewState().reloads, 0);
  // Reload is the interface's to ask for.
  EXPECT_TRUE(window_->ReloadWebpage());
  EXPECT_EQ(ViewState().reloads, 1);
  // After the browser process exits, the next reload or load shows the page in a new browser.
  for (const char* next : {"reload", "https://b.example/"}) {
    const int exited = WebView2Standin_LastView();
    WebView2Standin_FailProcess(exited, 0);
    ASSERT_TRUE(PumpEvents());
    EXPECT_TRUE(next[0] == 'r' ? window_->ReloadWebpage() : window_->LoadWebpage(next, false));
    ASSERT_TRUE(PumpEvents());
    EXPECT_EQ(WebView2Standin_LastView(), exited + 1) << next;
    EXPECT_EQ(PageUrl(), next[0] == 'r' ? L"https://a.example/" : L"https://b.example/");
    EXPECT_TRUE(PageVisible()) << next;
  }
  EXPECT_EQ(log.Count("ProcessFailed: BROWSER (kind=0) (url=https://a.example/"), 2u);
}

TEST_F(WebpagePresentationTest, ImageEndsThePageAndCloseSilencesTheBrowser) {
  const std::vector<std::uint8_t> pixels(4 * 4 * 4, 0xFF);
  // An image ends a page even in a window that has never had one: the stop counts a generation.
  const LogSince log;
  ASSERT_TRUE(window_->ShowImageFromPixels(pixels, 4, 4, 0));
  ASSERT_TRUE(LoadAndSettle("https://a.example/"));
  EXPECT_EQ(log.Count("StopWebpage complete, new generation=1"), 1u);
  EXPECT_EQ(log.Count("LoadWebpage started navigation (gen=2, url=https://a.example/)"), 1u);
  ASSERT_TRUE(window_->ShowImageFromPixels(pixels, 4, 4, 0));
  EXPECT_EQ(window_->content_mode(), kContentImage);
  EXPECT_FALSE(PageVisible());
  const int view = WebView2Standin_LastView();
  window_->Close();
  WebView2Standin_FailProcess(view, 0);
  ASSERT_TRUE(PumpEvents());
  EXPECT_EQ(log.Count("ProcessFailed"), 0u);
  EXPECT_FALSE(window_->LoadWebpage("https://c.example/", false));
}

TEST_F(WebpagePresentationTest, HundredQuickLoadsAndStopsLeaveNothingBehind) {
  ASSERT_TRUE(LoadAndSettle("https://warm.example/"));
  window_->StopWebpage();
  ASSERT_TRUE(PumpEvents());
  const DWORD handles = ProcessHandleCount();
  const DWORD threads = ProcessThreadCount();
  const LogSince log;
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(window_->LoadWebpage("https://page" + std::to_string(i) + ".example/", false));
    // Every other stop comes after some of the browser's events have been delivered.
    MSG msg;
    if (i % 2 == 0 && PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      DispatchMessageW(&msg);
    }
    window_->StopWebpage();
  }
  ASSERT_TRUE(PumpEvents());
  EXPECT_EQ(log.Count("showing webview"), 0u);
  EXPECT_FALSE(PageVisible());
  EXPECT_EQ(window_->content_mode(), kContentNone);
  EXPECT_TRUE(ProcessSettlesTo(handles, threads));
}

}  // namespace
}  // namespace native_live_window
