// The web view plugin against the WebView2 stand-in: every method's argument errors, independent
// views, capture answered once whatever ends its view, a view whose browser exited, and many quick
// create/dispose cycles while the browser still talks.
#include <gtest/gtest.h>
#include <windows.h>
#include <test_flutter_engine.h>
#include <webview2_standin.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "embedded_webview/native_webview_plugin.h"
#include "embedded_webview/webview2_loader.h"
#include "encodable_value.h"
#include "method_call.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"
#include "reply_test_support.h"

namespace native_webview {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using flutter::reply_test::Map;
using flutter::reply_test::Outcome;

bool PumpEvents() { return WebView2Standin_DeliverPending() != FALSE; }

class WebViewPluginTest : public ::testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    WebView2Standin_Reset();
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    FlutterTestReset();
    window_ = CreateWindowExW(0, L"STATIC", L"main", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 30, 30,
                              400, 300, nullptr, nullptr, nullptr, nullptr);
    registrar_ = flutter::PluginRegistrarManager::GetInstance()
                     ->GetRegistrar<flutter::PluginRegistrarWindows>(FlutterTestCreateRegistrar());
    plugin_ = std::make_unique<NativeWebViewPlugin>(registrar_, [this] { return window_; });
  }
  void TearDown() override {
    plugin_.reset();
    EXPECT_TRUE(PumpEvents());
    DestroyWindow(window_);
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    FlutterTestReset();
    WebView2Standin_Reset();
    CoUninitialize();
  }

  // Starts a call; its outcome fills in as replies come.
  std::shared_ptr<Outcome> Start(const std::string& method,
                                 const EncodableValue* arguments = nullptr) {
    auto outcome = std::make_shared<Outcome>();
    plugin_->HandleMethodCall(
        flutter::MethodCall<>(method, arguments != nullptr
                                          ? std::make_unique<EncodableValue>(*arguments)
                                          : nullptr),
        flutter::reply_test::RecordingResult(outcome));
    return outcome;
  }
  // A call answered once the browser has delivered everything it has to say.
  Outcome Call(const std::string& method, const EncodableValue& arguments) {
    std::shared_ptr<Outcome> outcome = Start(method, &arguments);
    EXPECT_TRUE(PumpEvents());
    return *outcome;
  }

  HWND window_ = nullptr;
  flutter::PluginRegistrarWindows* registrar_ = nullptr;
  std::unique_ptr<NativeWebViewPlugin> plugin_;
};

TEST_F(WebViewPluginTest, ArgumentsAreCheckedBeforeTheViewIsLookedUp) {
  const EncodableValue none;
  const EncodableValue not_map("text");
  const EncodableValue empty = Map({});
  const struct {
    const char* method;
    EncodableValue arguments;
    const char* code;
    const char* message;
  } cases[] = {
      {"navigate", none, "INVALID_ARGS", "Arguments required"},
      {"navigate", empty, "INVALID_ARGS", "url argument required"},
      {"navigate", Map({{"url", EncodableValue(5)}}), "INVALID_ARGS", "url must be a string"},
      {"navigate", Map({{"url", EncodableValue("https://a/")}}), "NOT_INITIALIZED",
       "WebView not initialized for id: default"},
      {"navigateToFile", empty, "INVALID_ARGS", "path argument required"},
      {"navigateToFile", Map({{"path", EncodableValue(true)}}), "INVALID_ARGS",
       "path must be a string"},
      {"navigateToFile", Map({{"path", EncodableValue("C:\\a.html")}, {"id", EncodableValue("x")}}),
       "NOT_INITIALIZED", "WebView not initialized for id: x"},
      {"reload", none, "NOT_INITIALIZED", "WebView not initialized for id: default"},
      {"setBounds", not_map, "INVALID_ARGS", "Arguments required"},
      {"setBounds", Map({{"x", EncodableValue(1)}, {"y", EncodableValue(2)},
                         {"width", EncodableValue(3)}}),
       "INVALID_ARGS", "x, y, width, height arguments required"},
      {"setBounds", Map({{"x", EncodableValue("1")}, {"y", EncodableValue(2)},
                         {"width", EncodableValue(3)}, {"height", EncodableValue(4)}}),
       "INVALID_ARGS", "x, y, width, height arguments required"},
      {"setBounds", Map({{"x", EncodableValue(1.9)}, {"y", EncodableValue(std::int64_t{2})},
                         {"width", EncodableValue(3)}, {"height", EncodableValue(4)}}),
       "NOT_INITIALIZED", "WebView not initialized for id: default"},
      {"setVisible", none, "INVALID_ARGS", "Arguments required"},
      {"setVisible", empty, "INVALID_ARGS", "visible argument required"},
      {"setVisible", Map({{"visible", EncodableValue(1)}}), "INVALID_ARGS",
       "visible must be a boolean"},
      {"setZoom", not_map, "INVALID_ARGS", "Arguments required"},
      {"setZoom", empty, "INVALID_ARGS", "zoom argument required"},
      {"setZoom", Map({{"zoom", EncodableValue(2)}}), "NOT_INITIALIZED",
       "WebView not initialized for id: default"},
      {"captureScreenshot", none, "NOT_INITIALIZED", "WebView not initialized for id: default"},
      // An id of another kind is never taken for "default".
      {"dispose", Map({{"id", EncodableValue(5)}}), "INVALID_ARGS", "id must be a string"},
  };
  for (const auto& c : cases) {
    const Outcome outcome = Call(c.method, c.arguments);
    EXPECT_EQ(outcome.kind + " " + outcome.code + " " + outcome.message,
              std::string("error ") + c.code + " " + c.message)
        << c.method;
    EXPECT_EQ(outcome.replies, 1) << c.method;
  }
  for (const char* method : {"dispose", "disposeAll"}) {
    EXPECT_EQ(Call(method, none).kind, "success") << method;
  }
  for (const char* method : {"setzoom", "Initialize", "navigateToURL"}) {
    EXPECT_EQ(Call(method, empty).kind, "not implemented") << method;
  }
}

TEST_F(WebViewPluginTest, ViewsAreIndependentAndFollowTheirCalls) {
  const EncodableValue a = Map({{"id", EncodableValue("a")}});
  const EncodableValue b = Map({{"id", EncodableValue("b")}});
  ASSERT_EQ(Call("initialize", a).kind, "success");
  const int view_a = WebView2Standin_LastView();
  ASSERT_EQ(Call("initialize", b).kind, "success");
  const int view_b = WebView2Standin_LastView();

  Call("navigate", Map({{"id", EncodableValue("b")}, {"url", EncodableValue("https://b/")}}));
  Call("navigateToFile",
       Map({{"id", EncodableValue("a")}, {"path", EncodableValue("C:\\s\\a.htm")}}));
  Call("setBounds", Map({{"id", EncodableValue("b")}, {"x", EncodableValue(10.7)},
                         {"y", EncodableValue(-3.5)}, {"width", EncodableValue(200)},
                         {"height", EncodableValue(std::int64_t{100})}}));
  Call("setZoom", Map({{"id", EncodableValue("b")}, {"zoom", EncodableValue(2)}}));
  Call("setVisible", Map({{"id", EncodableValue("b")}, {"visible", EncodableValue(false)}}));
  WebView2StandinView state{};
  WebView2Standin_GetView(view_b, &state);
  EXPECT_STREQ(state.url, L"https://b/");
  EXPECT_EQ(std::vector<LONG>({state.bounds.left, state.bounds.top, state.bounds.right,
                               state.bounds.bottom}), std::vector<LONG>({10, -3, 210, 97}));
  EXPECT_EQ(state.zoom, 2.0);
  EXPECT_FALSE(state.visible);
  WebView2Standin_GetView(view_a, &state);
  EXPECT_STREQ(state.url, L"file:///C:/s/a.htm");
  EXPECT_TRUE(state.visible);

  // Capture of b answers the page's image.
  const std::vector<BYTE> png = {0x89, 'P', 'N', 'G'};
  WebView2Standin_SetCapture(S_OK, png.data(), static_cast<UINT32>(png.size()));
  const Outcome captured = Call("captureScreenshot", b);
  ASSERT_EQ(captured.kind, "success") << captured;
  EXPECT_EQ(std::get<std::vector<std::uint8_t>>(captured.value),
            std::vector<std::uint8_t>(png.begin(), png.end()));
  WebView2Standin_SetCapture(E_FAIL, nullptr, 0);
  EXPECT_EQ(Call("captureScreenshot", b).code, "CAPTURE_FAILED");

  // Disposing a leaves b working.
  EXPECT_EQ(Call("dispose", a).kind, "success");
  EXPECT_EQ(Call("reload", a).code, "NOT_INITIALIZED");
  EXPECT_EQ(Call("reload", b).kind, "success");
  EXPECT_EQ(WebView2Standin_GetView(view_b, &state) ? state.reloads : -1, 1);
  WebView2Standin_GetView(view_a, &state);
  EXPECT_TRUE(state.closed);
  EXPECT_EQ(Call("disposeAll", EncodableValue()).kind, "success");
  EXPECT_EQ(plugin_->view_count(), 0u);
}

TEST_F(WebViewPluginTest, CaptureInFlightIsAnsweredOnceWhateverEndsItsView) {
  const EncodableValue id = Map({{"id", EncodableValue("c")}});
  const std::vector<BYTE> png = {0x89, 'P', 'N', 'G'};
  WebView2Standin_SetCapture(S_OK, png.data(), static_cast<UINT32>(png.size()));
  for (const std::string ending : {"dispose", "disposeAll", "initialize", "browser exit"}) {
    ASSERT_EQ(Call("initialize", id).kind, "success");
    Call("navigate", Map({{"id", EncodableValue("c")}, {"url", EncodableValue("https://c/")}}));
    if (ending == "browser exit") {
      WebView2Standin_FailProcess(WebView2Standin_LastView(), 0);
    }
    const std::shared_ptr<Outcome> capture = Start("captureScreenshot", &id);
    if (ending != "browser exit") {
      Start(ending, &id);
    }
    ASSERT_TRUE(PumpEvents());
    EXPECT_EQ(capture->code + ": " + capture->message + " " + std::to_string(capture->replies),
              "CAPTURE_FAILED: Failed to capture screenshot 1")
        << ending;
  }
  // The view whose browser exited answers a clear error until it is made again.
  const EncodableValue target = Map({{"id", EncodableValue("c")},
                                     {"url", EncodableValue("https://d/")},
                                     {"path", EncodableValue("C:\\d.html")}});
  for (const char* method : {"navigate", "navigateToFile", "reload"}) {
    const Outcome outcome = Call(method, target);
    EXPECT_EQ(outcome.code + ": " + outcome.message,
              "NOT_INITIALIZED: WebView browser process exited for id: c")
        << method;
  }
  ASSERT_EQ(Call("initialize", id).kind, "success");
  EXPECT_EQ(Call("navigate", target).kind, "success");
}

TEST_F(WebViewPluginTest, StartFailuresAreAnsweredWithTheirTexts) {
  WebView2Standin_SetCreationResults(S_OK, E_FAIL);
  const Outcome failed = Call("initialize", EncodableValue());
  EXPECT_EQ(failed.code + ": " + failed.message,
            "INIT_FAILED: Failed to create WebView2 controller");
  EXPECT_EQ(plugin_->view_count(), 0u);
  SetWebView2LoaderNameForTesting(L"KestrunMissingLoader.dll");
  const Outcome no_loader = Call("initialize", EncodableValue());
  SetWebView2LoaderNameForTesting(nullptr);
  EXPECT_EQ(no_loader.code + ": " + no_loader.message,
            "INIT_FAILED: CreateCoreWebView2EnvironmentWithOptions failed");
  plugin_ = std::make_unique<NativeWebViewPlugin>(registrar_, [] { return HWND{nullptr}; });
  const Outcome no_window = Call("initialize", EncodableValue());
  EXPECT_EQ(no_window.code + ": " + no_window.message,
            "NO_WINDOW: Could not get Flutter window handle");
}

TEST_F(WebViewPluginTest, HundredQuickCreateDisposeCyclesLeaveNothingBehind) {
  const EncodableValue id = Map({{"id", EncodableValue("quick")}});
  ASSERT_EQ(Call("initialize", id).kind, "success");
  ASSERT_EQ(Call("dispose", id).kind, "success");
  const DWORD handles = GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS);

  std::vector<std::shared_ptr<Outcome>> initialized;
  for (int i = 0; i < 100; ++i) {
    initialized.push_back(Start("initialize", &id));
    const EncodableValue url =
        Map({{"id", EncodableValue("quick")}, {"url", EncodableValue("https://q/")}});
    // Some cycles get as far as a ready view with a navigation under way.
    if (i % 3 == 0) {
      ASSERT_TRUE(PumpEvents());
      Start("navigate", &url);
    }
    Start("dispose", &id);
  }
  ASSERT_TRUE(PumpEvents());
  // Every "initialize" was answered exactly once, and no late event made anything.
  for (const auto& outcome : initialized) {
    EXPECT_EQ(outcome->replies, 1) << *outcome;
  }
  EXPECT_EQ(plugin_->view_count(), 0u);
  EXPECT_EQ(WebView2Standin_LiveObjects(), 0);
  EXPECT_EQ(GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS), handles);
}

}  // namespace
}  // namespace native_webview
