// The headless engine end to end: kestrun.exe as built, beside the headless flutter_windows.dll in
// bin/, driven through HeadlessSession and through the console client. What the program itself
// does is tested in the program's own end-to-end tests; these look at the engine's protocol: its
// answers, refusals, streams and the end of the program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "child_process.h"
#include "headless_session.h"
#include "tools/headless_engine/testing/program_test_support.h"

namespace kestrun_headless {
namespace {

using flutter::EncodableValue;
using ::testing::HasSubstr;

constexpr char kLive[] = "com.kestrun.native_live_window";
constexpr char kDisplayEvents[] = "com.kestrun.kestrun_display/events";

// build/mingw/bin, where the program is built beside the engine and the console client.
std::wstring BinFolder() {
  const std::wstring program = BuiltKestrunProgram();
  return program.substr(0, program.rfind(L'\\'));
}

class EndToEndTest : public ::testing::Test {
 protected:
  void Start(std::vector<std::pair<std::wstring, std::wstring>> environment = {}) {
    SessionOptions options;
    options.program = BuiltKestrunProgram();
    options.environment = std::move(environment);
    ASSERT_TRUE(session_.Start(options)) << session_.last_error();
  }

  std::optional<Json> Request(std::initializer_list<std::pair<const char*, const char*>> fields) {
    Json operation = Json::object();
    for (const auto& field : fields) {
      operation[field.first] = field.second;
    }
    return session_.Request(operation);
  }

  HeadlessSession session_;
};

TEST_F(EndToEndTest, CallsAreAnsweredAndBadOperationsRefusedWithTheReason) {
  Start();
  ASSERT_TRUE(session_.WaitForFrame()) << session_.last_error();
  const Reply success = session_.Invoke(kLive, "closeAll");
  ASSERT_EQ(success.kind, ReplyKind::kSuccess) << success.failure;
  EXPECT_EQ(success.value, EncodableValue(true));
  const Reply error = session_.Invoke(kLive, "showForDisplay");
  ASSERT_EQ(error.kind, ReplyKind::kError);
  EXPECT_EQ(error.error_code, "INVALID_ARGS");
  EXPECT_EQ(error.error_message, "Expected map argument");
  EXPECT_TRUE(error.error_details.IsNull());
  EXPECT_EQ(session_.Invoke(kLive, "noSuchMethod").kind, ReplyKind::kNotImplemented);
  EXPECT_EQ(session_.Invoke("kestrun.test/nobody", "echo").kind, ReplyKind::kNotImplemented);

  // Arguments that are no channel value are refused before reaching the program.
  const Reply refused = session_.InvokeJson(kLive, "closeAll", Json{{"int32", "x"}});
  EXPECT_EQ(refused.kind, ReplyKind::kFailed);
  EXPECT_THAT(refused.failure, HasSubstr("args"));
  std::optional<Json> answer = Request({{"op", "bogus"}});
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["ok"], false);
  EXPECT_THAT((*answer)["error"].get<std::string>(), HasSubstr("bogus"));
  answer = Request({{"op", "invoke"}, {"method", "closeAll"}});
  ASSERT_TRUE(answer);
  EXPECT_THAT((*answer)["error"].get<std::string>(), HasSubstr("channel"));
  EXPECT_FALSE(session_.PostWindowMessage("WM_NO_SUCH_MESSAGE"));
  EXPECT_THAT(session_.last_error(), HasSubstr("message"));
  // Bytes that are no method call: the channel layer answers them empty.
  answer = Request({{"op", "sendRaw"}, {"channel", kLive}, {"raw", "/w=="}});
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["reply"], "raw");
  EXPECT_EQ((*answer)["raw"], "");
  // The engine still serves calls afterwards.
  EXPECT_TRUE(session_.Invoke(kLive, "closeAll").ok());
}

TEST_F(EndToEndTest, StreamsAreListenedToAndCancelledOnce) {
  Start();
  ASSERT_TRUE(session_.Listen(kDisplayEvents).ok());
  EXPECT_TRUE(session_.Cancel(kDisplayEvents).ok());
  const Reply again = session_.Cancel(kDisplayEvents);
  ASSERT_EQ(again.kind, ReplyKind::kError);
  EXPECT_EQ(again.error_code, "error");
  EXPECT_EQ(again.error_message, "No active stream to cancel");
  ASSERT_TRUE(session_.Listen(kDisplayEvents).ok());
}

TEST_F(EndToEndTest, TheEngineSaysGoodbyeWhenTheProgramEnds) {
  Start();
  std::optional<Json> answer = Request({{"op", "destroyWindow"}});
  ASSERT_TRUE(answer) << session_.last_error();
  EXPECT_EQ((*answer)["ok"], true);
  ASSERT_TRUE(session_.WaitForEvent([](const HeadlessEvent& e) { return e.type == "shutdown"; }));
  ASSERT_TRUE(
      session_.WaitForEvent([](const HeadlessEvent& e) { return e.type == "disconnected"; }));
  EXPECT_FALSE(session_.connected());
  EXPECT_EQ(session_.WaitForExit(), 0u);
  EXPECT_EQ(session_.Invoke(kLive, "closeAll").kind, ReplyKind::kFailed);

  // A failure injected into the engine's creation is told first and ends the program with 1.
  HeadlessSession failing;
  SessionOptions options;
  options.program = BuiltKestrunProgram();
  options.environment.push_back({L"KESTRUN_HEADLESS_FAIL", L"engine"});
  ASSERT_TRUE(failing.Start(options)) << failing.last_error();
  ASSERT_TRUE(failing.WaitForEvent([](const HeadlessEvent& e) { return e.type == "shutdown"; }));
  EXPECT_EQ(failing.WaitForExit(), 1u);
  ASSERT_FALSE(failing.EventHistory().empty());
  EXPECT_EQ(failing.EventHistory().front().type, "failureInjected");
}

TEST(ConsoleClientTest, RunsAScriptAndExitsWithTheProgramsCode) {
  wchar_t temp[MAX_PATH] = {};
  GetTempPathW(MAX_PATH, temp);
  const std::wstring stem = std::wstring(temp) + L"headless_client_" +
                            std::to_wstring(GetCurrentProcessId());
  const std::wstring script_path = stem + L"_script.txt";
  const std::wstring transcript_path = stem + L"_transcript.jsonl";
  {
    std::ofstream script(script_path.c_str(), std::ios::binary);
    script << "# a short show\n"
              "wait-frame\n"
              "invoke com.kestrun.native_live_window blankAll {\"a\":[1,{\"int64\":2}]}\n"
              "post WM_CLOSE 0 0\n"
              "wait-event closeRequested 20000\n"
              "echo done\n"
              "kill 5\n"
              "wait-exit 30000\n";
  }
  ChildProcess client;
  std::string error;
  ASSERT_TRUE(client.Start(BinFolder() + L"\\headless_client.exe",
                           {L"--script", script_path, L"--transcript", transcript_path, L"--",
                            BinFolder() + L"\\kestrun.exe"},
                           L"", {}, &error))
      << error;
  EXPECT_EQ(client.WaitForExit(std::chrono::milliseconds(120000)), 5u);
  std::ifstream transcript_file(transcript_path.c_str(), std::ios::binary);
  std::stringstream transcript;
  transcript << transcript_file.rdbuf();
  const std::string text = transcript.str();
  EXPECT_THAT(text, HasSubstr(R"({"command":"echo done"})"));
  EXPECT_THAT(text, HasSubstr(R"("reply":"success","value":true)"));
  EXPECT_THAT(text, HasSubstr(R"("method":"closeRequested")"));
  EXPECT_THAT(text, HasSubstr(R"({"echo":"done"})"));
  EXPECT_THAT(text, HasSubstr(R"({"killed":5})"));
  EXPECT_THAT(text, HasSubstr(R"({"exit":5})"));
  EXPECT_THAT(text, ::testing::Not(HasSubstr("clientError")));
  transcript_file.close();
  DeleteFileW(script_path.c_str());
  DeleteFileW(transcript_path.c_str());
}

}  // namespace
}  // namespace kestrun_headless
