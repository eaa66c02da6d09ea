// The headless engine end to end: our test host (bin/headless_test_host.exe, loading the
// headless flutter_windows.dll beside it) driven through HeadlessSession, and the console client
// driving the same host from a script.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "child_process.h"
#include "headless_session.h"
#include "standard_message_codec.h"

#ifndef KESTRUN_BIN_DIR
#error "KESTRUN_BIN_DIR must name the build's bin folder"
#endif

namespace kestrun_headless {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::HasSubstr;

constexpr char kHostChannel[] = "kestrun.test/host";
constexpr char kEventChannel[] = "kestrun.test/host_events";
constexpr uint32_t kFirstDelegateMessage = WM_APP + 0x42;
constexpr uint32_t kSecondDelegateMessage = WM_APP + 0x43;

std::wstring FolderOf(const std::wstring& path) { return path.substr(0, path.find_last_of(L"\\/")); }

// bin/ is "..\bin" from the tests' folder; failing that, the build's path with Wine's Z: drive.
std::wstring BinFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring beside = FolderOf(path) + L"\\..\\bin";
  if (GetFileAttributesW((beside + L"\\headless_test_host.exe").c_str()) !=
      INVALID_FILE_ATTRIBUTES) {
    return beside;
  }
  std::wstring unix_path;
  for (const char* c = KESTRUN_BIN_DIR; *c != '\0'; ++c) {
    unix_path.push_back(*c == '/' ? L'\\' : static_cast<wchar_t>(*c));
  }
  return L"Z:" + unix_path;
}

std::vector<uint8_t> Bytes(const EncodableValue& value) {
  return *flutter::StandardMessageCodec::GetInstance().EncodeMessage(value);
}

EncodableValue Map(std::initializer_list<std::pair<const char*, EncodableValue>> entries) {
  EncodableMap map;
  for (const auto& entry : entries) {
    map[EncodableValue(entry.first)] = entry.second;
  }
  return EncodableValue(map);
}

// Keeps a (hidden) window of this process for the whole run: under Wine the desktop process then
// stays up between the programs the tests start, instead of being started again for each.
class DesktopPresence : public ::testing::Environment {
 public:
  void SetUp() override {
    window_ = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr,
                              GetModuleHandleW(nullptr), nullptr);
  }
  void TearDown() override {
    if (window_ != nullptr) DestroyWindow(window_);
  }

 private:
  HWND window_ = nullptr;
};

const ::testing::Environment* const kDesktopPresence =
    ::testing::AddGlobalTestEnvironment(new DesktopPresence);

class EndToEndTest : public ::testing::Test {
 protected:
  bool StartHost(std::vector<std::pair<std::wstring, std::wstring>> environment = {},
                 std::vector<std::wstring> arguments = {}) {
    SessionOptions options;
    options.program = BinFolder() + L"\\headless_test_host.exe";
    options.arguments = std::move(arguments);
    options.environment = std::move(environment);
    return session_.Start(options);
  }

  // Starts the host and waits until its window shows (its first frame).
  void StartShownHost() {
    ASSERT_TRUE(StartHost()) << session_.last_error();
    ASSERT_TRUE(session_.WaitForFrame()) << session_.last_error();
  }

  std::optional<HeadlessEvent> WaitForType(const std::string& type) {
    return session_.WaitForEvent([&](const HeadlessEvent& event) { return event.type == type; });
  }

  HeadlessSession session_;
};

TEST_F(EndToEndTest, CallsGetTheHandlersReplies) {
  StartShownHost();
  const EncodableValue every_kind(EncodableList{
      EncodableValue(), EncodableValue(true), EncodableValue(int32_t{-7}),
      EncodableValue(int64_t{7}), EncodableValue(int64_t{1} << 50), EncodableValue(0.25),
      EncodableValue("\xC3\xA9t\xC3\xA9"), EncodableValue(std::vector<uint8_t>{0, 255}),
      EncodableValue(std::vector<int32_t>{1, 2}), EncodableValue(std::vector<int64_t>{3}),
      EncodableValue(std::vector<double>{0.5}), EncodableValue(std::vector<float>{1.5f}),
      EncodableValue(EncodableMap{{EncodableValue(int32_t{1}), EncodableValue("one")}}),
      Map({{"nested", EncodableValue(EncodableList{EncodableValue(false)})}})});
  Reply echo = session_.Invoke(kHostChannel, "echo", every_kind);
  ASSERT_EQ(echo.kind, ReplyKind::kSuccess) << echo.failure;
  EXPECT_EQ(Bytes(echo.value), Bytes(every_kind));

  const EncodableValue details = Map({{"why", EncodableValue("asked")}});
  Reply failure = session_.Invoke(kHostChannel, "fail", details);
  ASSERT_EQ(failure.kind, ReplyKind::kError);
  EXPECT_EQ(failure.error_code, "TEST_FAILURE");
  EXPECT_EQ(failure.error_message, "failure on request");
  EXPECT_EQ(failure.error_details, details);

  EXPECT_EQ(session_.Invoke(kHostChannel, "noSuchMethod").kind, ReplyKind::kNotImplemented);
  EXPECT_EQ(session_.Invoke("kestrun.test/nobody", "echo").kind, ReplyKind::kNotImplemented);

  // A reply completed on another thread of the host arrives too.
  Reply from_worker = session_.Invoke(kHostChannel, "replyFromWorker", EncodableValue("w"));
  ASSERT_EQ(from_worker.kind, ReplyKind::kSuccess) << from_worker.failure;
  EXPECT_EQ(from_worker.value, EncodableValue("w"));

  // Arguments that are no channel value are refused before reaching the host.
  Reply refused = session_.InvokeJson(kHostChannel, "echo", *JsonValue::Parse(R"({"int32":"x"})"));
  EXPECT_EQ(refused.kind, ReplyKind::kFailed);
  EXPECT_THAT(refused.failure, HasSubstr("args"));
}

TEST_F(EndToEndTest, TheHostsMessagesToTheInterfaceArriveAsEvents) {
  StartShownHost();
  const EncodableValue payload = Map({{"count", EncodableValue(int32_t{3})}});
  ASSERT_TRUE(session_.Invoke(kHostChannel, "sendToInterface", payload).ok());
  std::optional<HeadlessEvent> message = session_.WaitForMessage(kHostChannel, "fromHost");
  ASSERT_TRUE(message) << session_.last_error();
  EXPECT_EQ(message->value, payload);

  // A call awaiting the interface's reply is answered empty (nobody answers host calls).
  ASSERT_TRUE(session_.Invoke(kHostChannel, "askInterface").ok());
  std::optional<HeadlessEvent> asked = session_.WaitForMessage(kHostChannel, "askInterface");
  ASSERT_TRUE(asked);
  EXPECT_TRUE(asked->json["awaitsReply"].AsBool());
  std::optional<HeadlessEvent> answered = session_.WaitForMessage(kHostChannel, "interfaceAnswered");
  ASSERT_TRUE(answered);
  EXPECT_EQ(answered->value, EncodableValue("notImplemented"));
}

TEST_F(EndToEndTest, ListenCancelAndTheStreamsEvents) {
  StartShownHost();
  ASSERT_TRUE(session_.Listen(kEventChannel).ok());
  std::optional<HeadlessEvent> first = WaitForType("stream");
  ASSERT_TRUE(first);
  EXPECT_EQ(first->channel, kEventChannel);
  EXPECT_EQ(first->value, EncodableValue("listening"));

  ASSERT_EQ(session_.Invoke(kHostChannel, "emit", EncodableValue(int32_t{5})).value,
            EncodableValue(true));
  std::optional<HeadlessEvent> five = WaitForType("stream");
  ASSERT_TRUE(five);
  EXPECT_EQ(five->value, EncodableValue(int32_t{5}));

  ASSERT_TRUE(session_.Invoke(kHostChannel, "emitError", EncodableValue("d")).ok());
  std::optional<HeadlessEvent> error = WaitForType("streamError");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->error_code, "STREAM_FAILURE");
  EXPECT_EQ(error->value, EncodableValue("d"));

  EXPECT_TRUE(session_.Cancel(kEventChannel).ok());
  Reply again = session_.Cancel(kEventChannel);
  ASSERT_EQ(again.kind, ReplyKind::kError);
  EXPECT_EQ(again.error_code, "error");
  EXPECT_EQ(again.error_message, "No active stream to cancel");
  // Nothing to emit to after the cancel.
  EXPECT_EQ(session_.Invoke(kHostChannel, "emit", EncodableValue(int32_t{6})).value,
            EncodableValue(false));

  Reply refused = session_.Listen(kEventChannel, Map({{"refuse", EncodableValue(true)}}));
  ASSERT_EQ(refused.kind, ReplyKind::kError);
  EXPECT_EQ(refused.error_code, "LISTEN_REFUSED");

  ASSERT_TRUE(session_.Listen(kEventChannel).ok());
  ASSERT_TRUE(WaitForType("stream"));
  ASSERT_TRUE(session_.Invoke(kHostChannel, "endStream").ok());
  std::optional<HeadlessEvent> end = WaitForType("endOfStream");
  ASSERT_TRUE(end);
  EXPECT_EQ(end->channel, kEventChannel);
  // No stream event was left over for "6".
  for (const HeadlessEvent& event : session_.EventHistory()) {
    EXPECT_NE(event.value, EncodableValue(int32_t{6}));
  }
}

TEST_F(EndToEndTest, WindowMessagesReachTheTopLevelDelegatesInOrder) {
  StartShownHost();
  ASSERT_TRUE(session_.PostWindowMessage("WM_DISPLAYCHANGE", 32, MAKELPARAM(1920, 1080)))
      << session_.last_error();
  // A post is answered once the host has handled the message: what the delegate sent meanwhile
  // is already here.
  std::optional<HeadlessEvent> changed =
      session_.WaitForMessage(kHostChannel, "displayChanged", std::chrono::milliseconds(0));
  ASSERT_TRUE(changed);
  EXPECT_EQ(changed->value, Map({{"bitsPerPixel", EncodableValue(int32_t{32})},
                                 {"width", EncodableValue(int32_t{1920})},
                                 {"height", EncodableValue(int32_t{1080})}}));

  // Both delegates handle kFirstDelegateMessage; the first registered wins.
  EXPECT_EQ(session_.SendWindowMessage(kFirstDelegateMessage, 0, 21), 42);
  EXPECT_EQ(session_.SendWindowMessage(kSecondDelegateMessage), 7);
  EXPECT_EQ(session_.SendWindowMessage(WM_APP + 0x44), 0);  // nobody: default handling

  std::optional<EngineState> engine = session_.EngineInfo();
  ASSERT_TRUE(engine);
  EXPECT_EQ(engine->top_level_delegates, 2);

  EXPECT_FALSE(session_.PostWindowMessage("WM_NO_SUCH_MESSAGE"));
  EXPECT_THAT(session_.last_error(), HasSubstr("message"));
}

TEST_F(EndToEndTest, TheWindowStaysHiddenUntilTheHeldFirstFrameIsReleased) {
  ASSERT_TRUE(StartHost({{L"KESTRUN_HEADLESS_HOLD_FRAMES", L"1"}})) << session_.last_error();
  std::optional<MainWindowState> before = session_.MainWindowInfo();
  ASSERT_TRUE(before) << session_.last_error();
  EXPECT_TRUE(before->exists);
  EXPECT_FALSE(before->visible);
  EXPECT_EQ(before->class_name, "KestrunHeadlessTestHost");
  EXPECT_EQ(before->title, "headless test host");
  ASSERT_TRUE(session_.Sync());
  std::optional<EngineState> engine = session_.EngineInfo();
  ASSERT_TRUE(engine);
  EXPECT_TRUE(engine->json["framesHeld"].AsBool());
  EXPECT_EQ(engine->json["frameCallbacksRun"].AsInteger(), 0);
  EXPECT_FALSE(session_.MainWindowInfo()->visible);

  ASSERT_TRUE(session_.ReleaseFrame());
  ASSERT_TRUE(session_.WaitForFrame()) << session_.last_error();
  std::optional<MainWindowState> after = session_.MainWindowInfo();
  ASSERT_TRUE(after);
  EXPECT_TRUE(after->visible);
  EXPECT_GT(after->dpi, 0u);
  // The view fills the client area, as the host placed it.
  const JsonValue::Array& view = after->json["view"]["rect"].AsArray();
  ASSERT_EQ(view.size(), 4u);
  EXPECT_EQ(view[2].AsInteger() - view[0].AsInteger(), after->client_width);
  EXPECT_EQ(view[3].AsInteger() - view[1].AsInteger(), after->client_height);
  EXPECT_TRUE(after->json["view"]["visible"].AsBool());
}

TEST_F(EndToEndTest, TheEngineReportsWhatTheHostGaveIt) {
  ASSERT_TRUE(StartHost({}, {L"--mode=live", L"two words", L"\u00e9t\u00e9", L""}))
      << session_.last_error();
  std::optional<EngineState> engine = session_.EngineInfo();
  ASSERT_TRUE(engine) << session_.last_error();
  EXPECT_EQ(engine->assets_path, "data\\flutter_assets");
  EXPECT_EQ(engine->icu_data_path, "data\\icudtl.dat");
  EXPECT_EQ(engine->aot_library_path, "data\\app.so");
  EXPECT_THAT(engine->arguments,
              ::testing::ElementsAre("--mode=live", "two words", "\xC3\xA9t\xC3\xA9", ""));
  EXPECT_TRUE(engine->running);

  Reply texture = session_.Invoke(kHostChannel, "textureRoundTrip");
  ASSERT_EQ(texture.kind, ReplyKind::kSuccess) << texture.failure;
  const auto& result = std::get<EncodableMap>(texture.value);
  EXPECT_GT(result.at(EncodableValue("id")).LongValue(), 0);
  EXPECT_EQ(result.at(EncodableValue("marked")), EncodableValue(true));
  EXPECT_EQ(session_.EngineInfo()->json["textures"].AsInteger(), 0);

  // Wherever Direct3D is missing the adapter may be absent, but it is the same one each time.
  Reply adapter = session_.Invoke(kHostChannel, "graphicsAdapter");
  ASSERT_EQ(adapter.kind, ReplyKind::kSuccess) << adapter.failure;
  EXPECT_EQ(std::get<EncodableMap>(adapter.value).at(EncodableValue("stable")),
            EncodableValue(true));
}

TEST_F(EndToEndTest, BadOperationsAreAnsweredWithTheReason) {
  StartShownHost();
  JsonValue bogus = JsonValue::MakeObject();
  bogus.Set("op", "bogus");
  std::optional<JsonValue> answer = session_.Request(bogus);
  ASSERT_TRUE(answer);
  EXPECT_FALSE((*answer)["ok"].AsBool());
  EXPECT_THAT((*answer)["error"].AsString(), HasSubstr("bogus"));

  JsonValue no_channel = JsonValue::MakeObject();
  no_channel.Set("op", "invoke");
  no_channel.Set("method", "echo");
  answer = session_.Request(no_channel);
  ASSERT_TRUE(answer);
  EXPECT_THAT((*answer)["error"].AsString(), HasSubstr("channel"));

  // Bytes that are no method call: the channel layer answers them empty.
  JsonValue raw = JsonValue::MakeObject();
  raw.Set("op", "sendRaw");
  raw.Set("channel", kHostChannel);
  raw.Set("raw", "/w==");
  answer = session_.Request(raw);
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["reply"].AsString(), "raw");
  EXPECT_EQ((*answer)["raw"].AsString(), "");

  // The engine still serves calls afterwards.
  EXPECT_TRUE(session_.Invoke(kHostChannel, "echo").ok());
}

TEST_F(EndToEndTest, InjectedFailuresEndTheProgramWithExitCodeOne) {
  for (const wchar_t* what : {L"view_controller", L"engine"}) {
    HeadlessSession session;
    SessionOptions options;
    options.program = BinFolder() + L"\\headless_test_host.exe";
    options.environment.push_back({L"KESTRUN_HEADLESS_FAIL", what});
    ASSERT_TRUE(session.Start(options)) << session.last_error();
    std::optional<HeadlessEvent> shutdown = session.WaitForEvent(
        [](const HeadlessEvent& event) { return event.type == "shutdown"; });
    ASSERT_TRUE(shutdown) << session.last_error();
    EXPECT_EQ(session.WaitForExit(), 1u);
    const bool told = !session.EventHistory().empty() &&
                      session.EventHistory().front().type == "failureInjected";
    EXPECT_EQ(told, std::wstring(what) == L"engine");
  }
}

TEST_F(EndToEndTest, TheEngineSaysGoodbyeWhenTheHostEnds) {
  StartShownHost();
  ASSERT_TRUE(session_.Invoke(kHostChannel, "quit", EncodableValue(int32_t{3})).ok());
  ASSERT_TRUE(WaitForType("shutdown")) << session_.last_error();
  ASSERT_TRUE(WaitForType("disconnected"));
  EXPECT_FALSE(session_.connected());
  EXPECT_EQ(session_.WaitForExit(), 3u);
  EXPECT_EQ(session_.Invoke(kHostChannel, "echo").kind, ReplyKind::kFailed);
}

TEST_F(EndToEndTest, DestroyingTheMainWindowEndsTheHost) {
  StartShownHost();
  JsonValue destroy = JsonValue::MakeObject();
  destroy.Set("op", "destroyWindow");
  std::optional<JsonValue> answer = session_.Request(destroy);
  ASSERT_TRUE(answer) << session_.last_error();
  EXPECT_TRUE((*answer)["ok"].AsBool());
  ASSERT_TRUE(WaitForType("shutdown"));
  EXPECT_EQ(session_.WaitForExit(), 0u);
}

TEST(ConsoleClientTest, RunsAScriptAndExitsWithTheProgramsCode) {
  wchar_t temp[MAX_PATH] = {};
  GetTempPathW(MAX_PATH, temp);
  const std::wstring script_path =
      std::wstring(temp) + L"headless_client_script_" + std::to_wstring(GetCurrentProcessId()) + L".txt";
  const std::wstring transcript_path = std::wstring(temp) + L"headless_client_transcript_" +
                                       std::to_wstring(GetCurrentProcessId()) + L".jsonl";
  {
    std::ofstream script(script_path.c_str(), std::ios::binary);
    script << "# a short show\n"
              "wait-frame\n"
              "invoke kestrun.test/host echo {\"a\":[1,{\"int64\":2}]}\n"
              "post WM_DISPLAYCHANGE 24 0\n"
              "wait-event displayChanged 20000\n"
              "echo done\n"
              "invoke kestrun.test/host quit 5\n"
              "wait-exit 30000\n";
  }
  ChildProcess client;
  std::string error;
  ASSERT_TRUE(client.Start(BinFolder() + L"\\headless_client.exe",
                           {L"--script", script_path, L"--transcript", transcript_path, L"--",
                            BinFolder() + L"\\headless_test_host.exe"},
                           L"", {}, &error))
      << error;
  EXPECT_EQ(client.WaitForExit(std::chrono::milliseconds(120000)), 5u);
  std::ifstream transcript_file(transcript_path.c_str(), std::ios::binary);
  std::stringstream transcript;
  transcript << transcript_file.rdbuf();
  const std::string text = transcript.str();
  EXPECT_THAT(text, HasSubstr(R"({"command":"echo done"})"));
  EXPECT_THAT(text, HasSubstr(R"("reply":"success","value":{"a":[1,{"int64":2}]})"));
  EXPECT_THAT(text, HasSubstr(R"("method":"displayChanged")"));
  EXPECT_THAT(text, HasSubstr(R"({"echo":"done"})"));
  EXPECT_THAT(text, HasSubstr(R"({"event":"shutdown"})"));
  EXPECT_THAT(text, HasSubstr(R"({"exit":5})"));
  EXPECT_THAT(text, ::testing::Not(HasSubstr("clientError")));
  transcript_file.close();
  DeleteFileW(script_path.c_str());
  DeleteFileW(transcript_path.c_str());
}

}  // namespace
}  // namespace kestrun_headless
