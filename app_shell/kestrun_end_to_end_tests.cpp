// kestrun.exe as built, started beside the headless engine (bin/flutter_windows.dll) and driven
// through HeadlessSession from this test program, which plays the interface's part.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>
// After windows.h, which it needs.
#include <shlobj.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "encodable_value.h"
#include "headless_session.h"

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using kestrun_headless::HeadlessEvent;
using kestrun_headless::HeadlessSession;
using kestrun_headless::ReplyKind;
using kestrun_headless::SessionOptions;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::MatchesRegex;

constexpr char kNativeWindow[] = "kestrun/native_window";
constexpr char kDistribution[] = "kestrun/distribution";
constexpr char kPluginRecords[] = "kestrun.testing/plugins";

// build/mingw/tests/<this>.exe -> build/mingw/bin/kestrun.exe
std::wstring KestrunProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  folder = folder.substr(0, folder.rfind(L'\\'));  // tests
  folder = folder.substr(0, folder.rfind(L'\\'));  // build tree
  return folder + L"\\bin\\kestrun.exe";
}

bool FileExists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::optional<std::string> ReadFile(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return std::nullopt;
  }
  char buffer[256];
  DWORD read = 0;
  ::ReadFile(file, buffer, sizeof(buffer), &read, nullptr);
  CloseHandle(file);
  return std::string(buffer, read);
}

int CountMessages(const std::vector<HeadlessEvent>& events, const std::string& channel,
                  const std::string& method) {
  int count = 0;
  for (const HeadlessEvent& event : events) {
    if (event.type == "message" && event.channel == channel && event.method == method) {
      ++count;
    }
  }
  return count;
}

std::vector<std::string> MessagesOn(const std::vector<HeadlessEvent>& events,
                                    const std::string& channel) {
  std::vector<std::string> methods;
  for (const HeadlessEvent& event : events) {
    if (event.type == "message" && event.channel == channel) {
      methods.push_back(event.method);
    }
  }
  return methods;
}

TEST(KestrunProgramTest, CarriesTheApplicationIconAsResource101) {
  HMODULE program = LoadLibraryExW(KestrunProgram().c_str(), nullptr,
                                   LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
  ASSERT_NE(program, nullptr);
  EXPECT_NE(FindResourceW(program, MAKEINTRESOURCEW(101), RT_GROUP_ICON), nullptr) << "no icon 101";
  FreeLibrary(program);
}

class KestrunProcessTest : public ::testing::Test {
 protected:
  // Starts kestrun.exe; `environment` is added to the program's environment.
  void Start(std::vector<std::pair<std::wstring, std::wstring>> environment = {},
             std::vector<std::wstring> arguments = {}) {
    SessionOptions options;
    options.program = KestrunProgram();
    options.arguments = std::move(arguments);
    options.environment = std::move(environment);
    ASSERT_TRUE(FileExists(options.program)) << "kestrun.exe is not built";
    ASSERT_TRUE(session_.Start(options)) << session_.last_error();
  }

  bool BoolReply(const char* channel, const char* method) {
    const kestrun_headless::Reply reply = session_.Invoke(channel, method);
    EXPECT_EQ(reply.kind, ReplyKind::kSuccess) << method << ": " << reply.failure;
    EXPECT_TRUE(std::holds_alternative<bool>(reply.value)) << method;
    return std::holds_alternative<bool>(reply.value) && std::get<bool>(reply.value);
  }

  HeadlessSession session_;
};

TEST_F(KestrunProcessTest, StaysHiddenUntilTheFirstFrameThenShowsAtTheDpiScaledGeometry) {
  Start({{L"KESTRUN_HEADLESS_HOLD_FRAMES", L"1"}});
  std::optional<kestrun_headless::MainWindowState> before = session_.MainWindowInfo();
  ASSERT_TRUE(before.has_value()) << session_.last_error();
  ASSERT_TRUE(before->exists);
  EXPECT_FALSE(before->visible);
  EXPECT_EQ(before->title, "kestrun");
  EXPECT_EQ(before->class_name, "FLUTTER_RUNNER_WIN32_WINDOW");

  // Still hidden after everything queued so far has run: the forced redraw made no frame.
  ASSERT_TRUE(session_.Sync());
  ASSERT_FALSE(session_.MainWindowInfo()->visible);

  ASSERT_TRUE(session_.ReleaseFrame());
  ASSERT_TRUE(session_.WaitForFrame());
  ASSERT_TRUE(session_.Sync());
  std::optional<kestrun_headless::MainWindowState> after = session_.MainWindowInfo();
  ASSERT_TRUE(after.has_value());
  EXPECT_TRUE(after->visible);

  // Origin (10, 10) and size 1280 x 720 in 96-dpi units, scaled to the monitor and truncated.
  ASSERT_GT(after->dpi, 0u);
  const double scale = after->dpi / 96.0;
  EXPECT_EQ(after->left, static_cast<int64_t>(10 * scale));
  EXPECT_EQ(after->top, static_cast<int64_t>(10 * scale));
  EXPECT_EQ(after->right - after->left, static_cast<int64_t>(1280 * scale));
  EXPECT_EQ(after->bottom - after->top, static_cast<int64_t>(720 * scale));
}

TEST_F(KestrunProcessTest, RegistersThePackagedPluginsInOrderThenItsOwn) {
  Start();
  std::vector<std::string> plugins;
  std::vector<int64_t> registrars;
  for (int i = 0; i < 8; ++i) {
    std::optional<HeadlessEvent> record = session_.WaitForMessage(kPluginRecords, "registered");
    ASSERT_TRUE(record.has_value()) << "only " << i << " plugins registered";
    const auto& arguments = std::get<EncodableMap>(record->value);
    plugins.push_back(std::get<std::string>(arguments.at(EncodableValue("plugin"))));
    registrars.push_back(std::get<int64_t>(arguments.at(EncodableValue("registrar"))));
  }
  EXPECT_THAT(plugins,
              ElementsAre("DesktopDropPlugin", "DesktopMultiWindowPlugin", "FvpPluginCApi",
                          "ScreenRetrieverWindowsPluginCApi", "UniversalBlePluginCApi",
                          "UrlLauncherWindows", "WebviewWindowsPlugin", "WindowManagerPlugin"));
  for (int64_t registrar : registrars) {
    EXPECT_NE(registrar, 0);
  }
  ASSERT_TRUE(session_.Sync());
  EXPECT_EQ(CountMessages(session_.EventHistory(), kPluginRecords, "registered"), 8);

  // The program's own plugins answer on their channels.
  const kestrun_headless::Reply displays =
      session_.Invoke("com.kestrun.kestrun_display", "getAllDisplays");
  EXPECT_EQ(displays.kind, ReplyKind::kSuccess) << displays.failure << displays.error_code;
  const kestrun_headless::Reply live = session_.Invoke("com.kestrun.native_live_window", "closeAll");
  EXPECT_EQ(live.kind, ReplyKind::kSuccess) << live.failure << live.error_code;
  const kestrun_headless::Reply web = session_.Invoke("kestrun/native_webview", "reload");
  EXPECT_EQ(web.error_code, "NOT_INITIALIZED") << web.failure;
}

TEST_F(KestrunProcessTest, ChannelsAnswerTheInterface) {
  Start();
  EXPECT_FALSE(BoolReply(kDistribution, "isWindowsStore"));
  BoolReply(kNativeWindow, "isSessionLocked");
  BoolReply(kNativeWindow, "bringToForeground");
  BoolReply(kNativeWindow, "isInForeground");

  for (const auto& [channel, method] :
       std::vector<std::pair<const char*, const char*>>{{kNativeWindow, "IsSessionLocked"},
                                                        {kNativeWindow, "closeWindow"},
                                                        {kNativeWindow, "isWindowsStore"},
                                                        {kDistribution, "isSessionLocked"},
                                                        {kDistribution, "iswindowsstore"}}) {
    EXPECT_EQ(session_.Invoke(channel, method).kind, ReplyKind::kNotImplemented)
        << channel << " " << method;
  }
}

TEST_F(KestrunProcessTest, CloseButtonAsksTheInterfaceExactlyOnceAndTheWindowStays) {
  Start();
  ASSERT_TRUE(session_.PostWindowMessage("WM_CLOSE"));
  std::optional<HeadlessEvent> close = session_.WaitForMessage(kNativeWindow, "closeRequested");
  ASSERT_TRUE(close.has_value());
  EXPECT_TRUE(std::holds_alternative<std::monostate>(close->value));

  ASSERT_TRUE(session_.Sync());
  EXPECT_EQ(CountMessages(session_.EventHistory(), kNativeWindow, "closeRequested"), 1);
  std::optional<kestrun_headless::MainWindowState> window = session_.MainWindowInfo();
  ASSERT_TRUE(window.has_value());
  EXPECT_TRUE(window->exists);
  EXPECT_FALSE(session_.WaitForExit(std::chrono::milliseconds(0)).has_value());
}

TEST_F(KestrunProcessTest, SessionLockAndUnlockReachTheInterface) {
  Start();
  ASSERT_TRUE(session_.PostWindowMessage("WM_WTSSESSION_CHANGE", 7));
  ASSERT_TRUE(session_.WaitForMessage(kNativeWindow, "sessionLocked").has_value());
  ASSERT_TRUE(session_.PostWindowMessage("WM_WTSSESSION_CHANGE", 1));  // not a lock change
  ASSERT_TRUE(session_.PostWindowMessage("WM_WTSSESSION_CHANGE", 8));
  ASSERT_TRUE(session_.WaitForMessage(kNativeWindow, "sessionUnlocked").has_value());
  ASSERT_TRUE(session_.Sync());
  EXPECT_THAT(MessagesOn(session_.EventHistory(), kNativeWindow),
              ElementsAre("sessionLocked", "sessionUnlocked"));
}

TEST_F(KestrunProcessTest, SecondaryWindowOfTheMultiWindowPluginStartsBesideTheMainOne) {
  Start();
  // The multi-window stand-in makes a second engine window with the view controller of the client
  // wrapper compiled into it and hands that to the host's window-created callback, which
  // registers that window's plugins. (Only the first engine is visible to this session; the
  // registrations on the second are checked in flutter_window_unittests.)
  const kestrun_headless::Reply created = session_.Invoke(
      "kestrun.testing/multi_window", "createWindow",
      EncodableValue(EncodableMap{{EncodableValue("width"), EncodableValue(400)},
                                  {EncodableValue("height"), EncodableValue(300)}}));
  ASSERT_EQ(created.kind, ReplyKind::kSuccess)
      << created.failure << created.error_code << " " << created.error_message;
  EXPECT_EQ(created.value, EncodableValue(int64_t{1}));

  // The main window carries on: its channels answer and nothing was registered on it again.
  ASSERT_TRUE(session_.Sync());
  EXPECT_FALSE(BoolReply(kDistribution, "isWindowsStore"));
  EXPECT_EQ(CountMessages(session_.EventHistory(), kPluginRecords, "registered"), 8);
  EXPECT_FALSE(session_.WaitForExit(std::chrono::milliseconds(0)).has_value());
}

// The marker lives in the user's real roaming application-data folder (of the Wine prefix here).
class CleanExitMarkerTest : public KestrunProcessTest {
 protected:
  void SetUp() override {
    wchar_t app_data[MAX_PATH] = {};
    ASSERT_TRUE(SUCCEEDED(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, 0, app_data)));
    company_ = std::wstring(app_data) + L"\\Quillmere LLC";
    product_ = company_ + L"\\Kestrun";
    marker_ = product_ + L"\\kestrun.clean_exit";
    company_existed_ = FileExists(company_);
    DeleteFileW(marker_.c_str());
  }
  void TearDown() override {
    DeleteFileW(marker_.c_str());
    if (!company_existed_) {
      RemoveDirectoryW(product_.c_str());
      RemoveDirectoryW(company_.c_str());
    }
  }

  std::wstring company_;
  std::wstring product_;
  std::wstring marker_;
  bool company_existed_ = false;
};

TEST_F(CleanExitMarkerTest, WrittenOnlyWhenTheSessionReallyEnds) {
  CreateDirectoryW(company_.c_str(), nullptr);
  Start();
  EXPECT_EQ(session_.SendWindowMessage("WM_QUERYENDSESSION"), std::optional<int64_t>(1));

  // Cancelled end of session: nothing.
  ASSERT_TRUE(session_.PostWindowMessage("WM_ENDSESSION", 0));
  EXPECT_FALSE(FileExists(marker_));

  const int64_t before = static_cast<int64_t>(std::time(nullptr));
  ASSERT_TRUE(session_.PostWindowMessage("WM_ENDSESSION", 1));
  const int64_t after = static_cast<int64_t>(std::time(nullptr));
  std::optional<std::string> text = ReadFile(marker_);
  ASSERT_TRUE(text.has_value()) << "no marker written";
  ASSERT_THAT(*text, MatchesRegex("clean_exit:\\d+"));
  const int64_t stamp = std::stoll(text->substr(sizeof("clean_exit:") - 1));
  EXPECT_GE(stamp, before);
  EXPECT_LE(stamp, after);

  // Overwritten at the next end of session, never appended to.
  ASSERT_TRUE(session_.PostWindowMessage("WM_ENDSESSION", 1));
  text = ReadFile(marker_);
  ASSERT_TRUE(text.has_value());
  EXPECT_THAT(*text, MatchesRegex("clean_exit:\\d+"));
}

TEST_F(CleanExitMarkerTest, NothingIsWrittenWithoutTheCompanyFolder) {
  if (company_existed_) {
    RemoveDirectoryW(product_.c_str());
    if (!RemoveDirectoryW(company_.c_str())) {
      GTEST_SKIP() << "the company folder holds other files";
    }
  }
  Start();
  ASSERT_TRUE(session_.PostWindowMessage("WM_ENDSESSION", 1));
  EXPECT_FALSE(FileExists(company_));
  EXPECT_FALSE(FileExists(marker_));
  if (company_existed_) {
    CreateDirectoryW(company_.c_str(), nullptr);
  }
}

TEST_F(KestrunProcessTest, CommandLineArgumentsReachTheEntryPoint) {
  Start({}, {L"--show", L"Sunday Service.kst", std::wstring(1, static_cast<wchar_t>(0xD800)),
             L"caf\u00e9"});
  std::optional<kestrun_headless::EngineState> engine = session_.EngineInfo();
  ASSERT_TRUE(engine.has_value()) << session_.last_error();
  // The unpaired surrogate arrives as an empty string at its position.
  EXPECT_THAT(engine->arguments, ElementsAre("--show", "Sunday Service.kst", "", "caf\xC3\xA9"));
  EXPECT_EQ(engine->assets_path, "data\\flutter_assets");
  EXPECT_EQ(engine->icu_data_path, "data\\icudtl.dat");
  EXPECT_EQ(engine->aot_library_path, "data\\app.so");
  EXPECT_TRUE(engine->running);
}

TEST_F(KestrunProcessTest, NoArgumentsGiveAnEmptyList) {
  Start();
  std::optional<kestrun_headless::EngineState> engine = session_.EngineInfo();
  ASSERT_TRUE(engine.has_value()) << session_.last_error();
  EXPECT_TRUE(engine->arguments.empty());
}

TEST_F(KestrunProcessTest, FailingViewControllerEndsTheProcessWithCode1) {
  SessionOptions options;
  options.program = KestrunProgram();
  options.environment.push_back({L"KESTRUN_HEADLESS_FAIL", L"view_controller"});
  // The engine may connect before the view controller fails, or the program may end first.
  session_.Start(options);
  EXPECT_EQ(session_.WaitForExit(), std::optional<uint32_t>(1));
}

}  // namespace
