// Webpages through the real program: kestrun.exe runs beside the headless engine and the browser
// stand-in (WebView2Loader.dll in bin/), and this test plays the interface on the live output and
// web view channels, looking at the screen from outside the process.
#include <gtest/gtest.h>
#include <windows.h>

#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include "encodable_value.h"
#include "headless_session.h"
#include "tools/headless_engine/testing/program_test_support.h"

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using kestrun_headless::BuiltKestrunProgram;
using kestrun_headless::Describe;
using kestrun_headless::HeadlessSession;
using kestrun_headless::ReplyKind;
using kestrun_headless::SessionOptions;

constexpr char kLive[] = "com.kestrun.native_live_window";
constexpr char kWebView[] = "kestrun/native_webview";
// Where the output window sits.
constexpr int kLeft = 900;
constexpr int kTop = 500;

EncodableValue Map(std::vector<std::pair<const char*, EncodableValue>> entries) {
  EncodableMap map;
  for (auto& entry : entries) {
    map[EncodableValue(entry.first)] = std::move(entry.second);
  }
  return EncodableValue(std::move(map));
}

// The browser's page window in the program's output window, if any. (Wine draws Direct3D output
// above child windows, so the page cannot be read off the screen there.)
HWND PageWindow(DWORD process_id) {
  struct Search {
    DWORD process_id;
    HWND live;
  } search{process_id, nullptr};
  EnumWindows(
      [](HWND hwnd, LPARAM context) -> BOOL {
        auto* s = reinterpret_cast<Search*>(context);
        DWORD owner = 0;
        GetWindowThreadProcessId(hwnd, &owner);
        wchar_t name[64] = {};
        GetClassNameW(hwnd, name, 64);
        if (owner == s->process_id && wcscmp(name, L"KestrunNativeLiveWindow") == 0 &&
            FindWindowExW(hwnd, nullptr, L"KestrunWebView2StandinPage", nullptr) != nullptr) {
          s->live = hwnd;
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&search));
  return search.live != nullptr
             ? FindWindowExW(search.live, nullptr, L"KestrunWebView2StandinPage", nullptr)
             : nullptr;
}

bool PageShown(DWORD process_id) {
  const HWND page = PageWindow(process_id);
  return page != nullptr && IsWindowVisible(page);
}

// The URL the page window shows.
std::wstring PageUrl(DWORD process_id) {
  wchar_t text[256] = {};
  GetWindowTextW(FindWindowExW(PageWindow(process_id), nullptr, nullptr, nullptr), text, 256);
  return text;
}

class WebpageProgramTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    session_ = new HeadlessSession();
    SessionOptions options;
    options.program = BuiltKestrunProgram();
    start_error_ = session_->Start(options) ? std::string() : session_->last_error();
  }
  static void TearDownTestSuite() {
    delete session_;
    session_ = nullptr;
  }
  void SetUp() override { ASSERT_TRUE(start_error_.empty()) << start_error_; }

  static std::string Call(const char* channel, const char* method,
                          const EncodableValue& arguments = EncodableValue()) {
    return Describe(session_->Invoke(channel, method, arguments));
  }

  static HeadlessSession* session_;
  static std::string start_error_;
};

HeadlessSession* WebpageProgramTest::session_ = nullptr;
std::string WebpageProgramTest::start_error_;

TEST_F(WebpageProgramTest, OutputWindowShowsThePageOnceLoadedAndBlackAfterStop) {
  const EncodableValue id = Map({{"displayId", EncodableValue("web")}});
  const EncodableValue page = Map({{"displayId", EncodableValue("web")},
                                   {"url", EncodableValue("https://example.org/show")}});
  const struct {
    const char* method;
    EncodableValue arguments;
    const char* reply;
  } before_show[] = {
      {"loadWebpageForDisplay", EncodableValue(), "error INVALID_ARGS: Expected map argument"},
      {"loadWebpageForDisplay", Map({{"url", EncodableValue("x")}}),
       "error INVALID_ARGS: Missing 'displayId' argument"},
      {"loadWebpageForDisplay", page, "error NOT_FOUND: No window for display: web"},
      {"reloadWebpageForDisplay", id, "success"},
      {"stopWebpageForDisplay", id, "success"},
      {"stopWebpageForDisplay", Map({}), "error INVALID_ARGS: Missing 'displayId' argument"},
  };
  for (const auto& c : before_show) {
    EXPECT_EQ(Call(kLive, c.method, c.arguments), c.reply) << c.method;
  }

  ASSERT_EQ(Call(kLive, "showForDisplay",
                 Map({{"displayId", EncodableValue("web")},
                      {"name", EncodableValue("web")},
                      {"x", EncodableValue(kLeft)},
                      {"y", EncodableValue(kTop)},
                      {"width", EncodableValue(320)},
                      {"height", EncodableValue(200)},
                      {"isPrimary", EncodableValue(false)}})),
            "success");
  EXPECT_EQ(Call(kLive, "loadWebpageForDisplay", id),
            "error INVALID_ARGS: Missing 'url' argument");
  EXPECT_EQ(Call(kLive, "loadWebpageForDisplay", page), "success");
  // The browser answers through the program's message loop, one step after another: each sync
  // lets the steps already queued run.
  bool shown = false;
  for (int i = 0; i < 50 && !shown; ++i) {
    ASSERT_TRUE(session_->Sync());
    shown = PageShown(session_->process_id());
  }
  EXPECT_TRUE(shown);
  EXPECT_EQ(PageUrl(session_->process_id()), L"https://example.org/show");
  EXPECT_EQ(Call(kLive, "reloadWebpageForDisplay", id), "success");
  EXPECT_EQ(Call(kLive, "blankForDisplay", id), "success");
  EXPECT_FALSE(PageShown(session_->process_id()));
  EXPECT_EQ(Call(kLive, "unblankForDisplay", id), "success");
  EXPECT_TRUE(PageShown(session_->process_id()));
  const EncodableValue other = Map({{"displayId", EncodableValue("other")},
                                    {"width", EncodableValue(64)}, {"height", EncodableValue(64)}});
  EXPECT_EQ(Call(kLive, "showForDisplay", other) + Call(kLive, "stopWebpageForDisplay", other),
            "successsuccess");
  EXPECT_TRUE(PageShown(session_->process_id()));  // the other display's stop leaves this page
  EXPECT_EQ(Call(kLive, "stopWebpageForDisplay", id), "success");
  EXPECT_FALSE(PageShown(session_->process_id()));
  // A local file is navigated as a file URL.
  EXPECT_EQ(Call(kLive, "loadWebpageForDisplay",
                 Map({{"displayId", EncodableValue("web")},
                      {"url", EncodableValue("C:\\media\\page.html")},
                      {"isLocalFile", EncodableValue(true)}})),
            "success");
  EXPECT_EQ(PageUrl(session_->process_id()), L"file:///C:/media/page.html");
  EXPECT_EQ(Call(kLive, "closeAll"), "success");
}

TEST_F(WebpageProgramTest, WebViewChannelHostsViewsOverTheMainWindow) {
  const EncodableValue a = Map({{"id", EncodableValue("a")}});
  EXPECT_EQ(Call(kWebView, "initialize", a), "success");
  EXPECT_EQ(Call(kWebView, "navigate",
                 Map({{"id", EncodableValue("a")}, {"url", EncodableValue("https://a/")}})),
            "success");
  EXPECT_EQ(Call(kWebView, "disposeAll"), "success");
  EXPECT_EQ(Call(kWebView, "reload", a), "error NOT_INITIALIZED: WebView not initialized for id: a");
}

}  // namespace
