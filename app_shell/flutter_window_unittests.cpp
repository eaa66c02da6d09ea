// FlutterWindow in this process against the engine stand-in and the packaged-plugin stand-ins, for
// what the end-to-end tests (kestrun.exe beside the headless engine) cannot see: the registrar each
// plugin gets, which messages plugins never see, teardown, and secondary engine windows, whose
// engines the headless engine does not expose.
#include <desktop_multi_window_testing.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <standin_plugin_channels.h>
#include <test_flutter_engine.h>
#include <windows.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "dart_project.h"
#include "encodable_value.h"
#include "flutter_view_controller.h"
#include "flutter_window.h"
#include "method_call.h"
#include "method_result_functions.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"
#include "secondary_window.h"
#include "session_lock.h"
#include "standard_method_codec.h"

namespace kestrun_shell {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const flutter::StandardMethodCodec& Codec() { return flutter::StandardMethodCodec::GetInstance(); }

struct SentCall {
  std::string method;
  EncodableValue arguments;
  bool awaits_reply = false;
};

// Method calls the host sent to the interface on `channel`, in order.
std::vector<SentCall> SentCalls(FlutterDesktopMessengerRef messenger, const std::string& channel) {
  std::vector<SentCall> calls;
  const size_t count = FlutterTestSentMessageCount(messenger);
  for (size_t i = 0; i < count; ++i) {
    const char* sent_channel = nullptr;
    const uint8_t* data = nullptr;
    size_t size = 0;
    bool awaits_reply = false;
    if (!FlutterTestGetSentMessage(messenger, i, &sent_channel, &data, &size, &awaits_reply) ||
        channel != sent_channel) {
      continue;
    }
    auto call = Codec().DecodeMethodCall(data, size);
    if (!call) {
      ADD_FAILURE() << "undecodable message on " << channel;
      continue;
    }
    calls.push_back({call->method_name(), call->arguments() ? *call->arguments() : EncodableValue(),
                     awaits_reply});
  }
  return calls;
}

struct Registration {
  std::string plugin;
  int64_t registrar = 0;
};

// The stand-ins' registration records that arrived on `messenger`'s engine, in order.
std::vector<Registration> Registrations(FlutterDesktopMessengerRef messenger) {
  std::vector<Registration> registrations;
  for (const SentCall& call : SentCalls(messenger, kestrun_testing::kStandInPluginsChannel)) {
    const auto& arguments = std::get<EncodableMap>(call.arguments);
    registrations.push_back(
        {std::get<std::string>(arguments.at(EncodableValue(kestrun_testing::kPluginKey))),
         std::get<int64_t>(arguments.at(EncodableValue(kestrun_testing::kRegistrarKey)))});
  }
  return registrations;
}

std::vector<std::string> PluginNames(const std::vector<Registration>& registrations) {
  std::vector<std::string> names;
  for (const Registration& registration : registrations) {
    names.push_back(registration.plugin);
  }
  return names;
}

int64_t AsInteger(FlutterDesktopPluginRegistrarRef registrar) {
  return static_cast<int64_t>(reinterpret_cast<intptr_t>(registrar));
}

// The interface's view of one call: how often it was answered and with what.
struct Reply {
  int answers = 0;
  bool not_implemented = false;
  std::optional<EncodableValue> success;
  std::string error_code;
};

Reply CallMethod(FlutterDesktopMessengerRef messenger, const char* channel, const char* method,
                 std::unique_ptr<EncodableValue> arguments = nullptr) {
  flutter::MethodCall<EncodableValue> call(method, std::move(arguments));
  auto message = Codec().EncodeMethodCall(call);
  const int token = FlutterTestDeliverMessage(messenger, channel, message->data(), message->size());
  Reply reply;
  const uint8_t* data = nullptr;
  size_t size = 0;
  reply.answers = FlutterTestGetResponse(token, &data, &size);
  if (reply.answers == 0) {
    return reply;
  }
  if (size == 0) {
    reply.not_implemented = true;
    return reply;
  }
  flutter::MethodResultFunctions<EncodableValue> result(
      [&](const EncodableValue* value) { reply.success = value ? *value : EncodableValue(); },
      [&](const std::string& code, const std::string&, const EncodableValue*) {
        reply.error_code = code;
      },
      nullptr);
  EXPECT_TRUE(Codec().DecodeAndProcessResponseEnvelope(data, size, &result));
  return reply;
}

bool TakeQuitMessage() {
  MSG message;
  return PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != 0;
}

const std::vector<std::string> kMainWindowPackagedPlugins = {
    "DesktopDropPlugin",      "DesktopMultiWindowPlugin",
    "FvpPluginCApi",          "ScreenRetrieverWindowsPluginCApi",
    "UniversalBlePluginCApi", "UrlLauncherWindows",
    "WebviewWindowsPlugin",   "WindowManagerPlugin"};

class FlutterWindowTest : public ::testing::Test {
 protected:
  void SetUp() override { FlutterTestReset(); }

  void TearDown() override {
    window_.reset();
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    FlutterTestReset();
    while (TakeQuitMessage()) {
    }
  }

  // Creates the main window as the entry does; the engine it started becomes engine_.
  void CreateMainWindow() {
    window_ = std::make_unique<FlutterWindow>(flutter::DartProject(L"data"));
    ASSERT_TRUE(window_->Create(L"kestrun", Point{10, 10}, Size{1280, 720}));
    engine_ = FlutterTestLastEngine();
    ASSERT_NE(engine_, nullptr);
    messenger_ = FlutterDesktopEngineGetMessenger(engine_);
  }

  HWND Handle() const { return window_->GetHandle(); }

  std::vector<std::string> NativeWindowEvents() const {
    std::vector<std::string> methods;
    for (const SentCall& call : SentCalls(messenger_, "kestrun/native_window")) {
      methods.push_back(call.method);
      EXPECT_TRUE(std::holds_alternative<std::monostate>(call.arguments)) << call.method;
      EXPECT_FALSE(call.awaits_reply) << call.method;
    }
    return methods;
  }

  std::unique_ptr<FlutterWindow> window_;
  FlutterDesktopEngineRef engine_ = nullptr;
  FlutterDesktopMessengerRef messenger_ = nullptr;
};

TEST_F(FlutterWindowTest, CloseAndSessionMessagesBecomeEventsThatPluginsNeverSee) {
  CreateMainWindow();
  for (const Registration& registration : Registrations(messenger_)) {
    EXPECT_EQ(registration.registrar, AsInteger(FlutterTestRegistrarOf(engine_)));
  }
  EXPECT_EQ(PluginNames(Registrations(messenger_)), kMainWindowPackagedPlugins);
  EXPECT_TRUE(FlutterTestHasHandler(messenger_, "kestrun/native_webview"));
  // A plugin's top-level delegate on the same engine: it sees what reaches the engine.
  flutter::PluginRegistrarWindows plugin_registrar(FlutterTestRegistrarOf(engine_));
  std::vector<UINT> seen;
  plugin_registrar.RegisterTopLevelWindowProcDelegate(
      [&seen](HWND, UINT message, WPARAM, LPARAM) -> std::optional<LRESULT> {
        seen.push_back(message);
        if (message == WM_USER + 7) {
          return 42;
        }
        return std::nullopt;
      });

  EXPECT_EQ(SendMessageW(Handle(), WM_CLOSE, 0, 0), 0);
  EXPECT_TRUE(IsWindow(Handle()));  // the interface decides whether it closes
  EXPECT_THAT(NativeWindowEvents(), ElementsAre("closeRequested"));

  EXPECT_EQ(SendMessageW(Handle(), WM_WTSSESSION_CHANGE, 7, 0), 0);
  EXPECT_EQ(SendMessageW(Handle(), WM_WTSSESSION_CHANGE, 8, 0), 0);
  EXPECT_EQ(SendMessageW(Handle(), WM_WTSSESSION_CHANGE, 1, 0), 0);  // console connect: nothing
  EXPECT_THAT(NativeWindowEvents(),
              ElementsAre("closeRequested", "sessionLocked", "sessionUnlocked"));
  // "isSessionLocked" tests afresh whatever the notifications said last.
  auto ask = [this](const char* method) {
    return std::get<bool>(CallMethod(messenger_, "kestrun/native_window", method).success.value());
  };
  for (WPARAM code : {WPARAM{7}, WPARAM{8}}) {
    SendMessageW(Handle(), WM_WTSSESSION_CHANGE, code, 0);
    EXPECT_EQ(ask("isSessionLocked"), IsSessionLocked()) << code;
  }

  EXPECT_EQ(SendMessageW(Handle(), WM_QUERYENDSESSION, 0, 0), 1);
  EXPECT_EQ(SendMessageW(Handle(), WM_ENDSESSION, 0, 0), 0);  // cancelled: no marker either
  EXPECT_THAT(seen, IsEmpty());

  // Everything else goes through the engine first; a delegate's answer is the message's answer.
  EXPECT_EQ(SendMessageW(Handle(), WM_USER + 7, 0, 0), 42);
  EXPECT_THAT(seen, ElementsAre(static_cast<UINT>(WM_USER + 7)));

  EXPECT_EQ(FlutterTestFontReloadCount(engine_), 0);
  SendMessageW(Handle(), WM_FONTCHANGE, 0, 0);
  EXPECT_EQ(FlutterTestFontReloadCount(engine_), 1);
  // "bringToForeground" takes the front from another window.
  const HWND other = CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 0, 0, 50, 50,
                                     nullptr, nullptr, nullptr, nullptr);
  SetForegroundWindow(other);
  EXPECT_FALSE(ask("isInForeground"));
  EXPECT_TRUE(ask("bringToForeground"));
  EXPECT_EQ(GetForegroundWindow(), Handle());
  DestroyWindow(other);
  plugin_registrar.UnregisterTopLevelWindowProcDelegate(1);
}

TEST_F(FlutterWindowTest, DestroyingTheWindowStopsTheEngineAndEndsTheMessageLoop) {
  CreateMainWindow();
  window_->SetQuitOnClose(true);
  EXPECT_EQ(FlutterTestLiveEngineCount(), 1);
  DestroyWindow(Handle());
  EXPECT_EQ(Handle(), nullptr);
  EXPECT_EQ(FlutterTestLiveEngineCount(), 0);
  EXPECT_TRUE(TakeQuitMessage());
}

// The multi-window plugin's own windows: the stand-in makes a second engine window with the
// client wrapper's view controller and hands that to the host's callback, which reads the engine
// from the wrapper.
TEST_F(FlutterWindowTest, SecondaryWindowGetsTheReducedPluginSetOnItsOwnEngine) {
  EXPECT_EQ(ViewControllerHandleOfWrapper(nullptr), nullptr);
  CreateMainWindow();
  const size_t main_records = Registrations(messenger_).size();
  auto size = std::make_unique<EncodableValue>(
      EncodableMap{{EncodableValue("width"), EncodableValue(400)},
                   {EncodableValue("height"), EncodableValue(300)}});
  const Reply created = CallMethod(messenger_, kestrun_testing::kMultiWindowChannel,
                                   kestrun_testing::kCreateWindowMethod, std::move(size));
  ASSERT_TRUE(created.success.has_value()) << created.error_code;
  EXPECT_GT(std::get<int64_t>(*created.success), 0);

  FlutterDesktopEngineRef secondary_engine = FlutterTestLastEngine();
  ASSERT_NE(secondary_engine, engine_);
  FlutterDesktopMessengerRef secondary_messenger =
      FlutterDesktopEngineGetMessenger(secondary_engine);
  const std::vector<Registration> registrations = Registrations(secondary_messenger);
  std::vector<std::string> expected = {"DesktopDropPlugin",  "DesktopMultiWindowPlugin",
                                       "FvpPluginCApi",      "ScreenRetrieverWindowsPluginCApi",
                                       "UrlLauncherWindows", "WebviewWindowsPlugin",
                                       // the plugin's own registration afterwards
                                       "DesktopMultiWindowPlugin"};
  EXPECT_EQ(PluginNames(registrations), expected);
  for (const Registration& registration : registrations) {
    EXPECT_EQ(registration.registrar, AsInteger(FlutterTestRegistrarOf(secondary_engine)));
  }
  // Nothing more on the main engine, and none of the main window's channels on the secondary one.
  EXPECT_EQ(Registrations(messenger_).size(), main_records);
  EXPECT_FALSE(FlutterTestHasHandler(secondary_messenger, "kestrun/native_window"));
  EXPECT_FALSE(FlutterTestHasHandler(secondary_messenger, "kestrun/distribution"));
  // Of the program's own plugins only the web view plugin.
  EXPECT_TRUE(FlutterTestHasHandler(secondary_messenger, "kestrun/native_webview"));
  EXPECT_FALSE(FlutterTestHasHandler(secondary_messenger, "com.kestrun.native_live_window"));
}

}  // namespace
}  // namespace kestrun_shell
