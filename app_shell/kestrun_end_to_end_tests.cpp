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
#include "tools/headless_engine/testing/program_test_support.h"

namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;
using kestrun_headless::BuiltKestrunProgram;
using kestrun_headless::HeadlessEvent;
using kestrun_headless::HeadlessSession;
using kestrun_headless::ReplyKind;
using kestrun_headless::SessionOptions;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;

constexpr char kNativeWindow[] = "kestrun/native_window";
constexpr char kDistribution[] = "kestrun/distribution";
constexpr char kPluginRecords[] = "kestrun.testing/plugins";

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

TEST(KestrunProgramTest, CarriesTheApplicationIconAsResource101) {
  HMODULE program = LoadLibraryExW(BuiltKestrunProgram().c_str(), nullptr,
                                   LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
  ASSERT_NE(program, nullptr);
  EXPECT_NE(FindResourceW(program, MAKEINTRESOURCEW(101), RT_GROUP_ICON), nullptr) << "no icon 101";
  FreeLibrary(program);
}

// The application manifest (RT_MANIFEST, id 1) of a program, as text; empty when it has none.
std::string ManifestOf(const std::wstring& program) {
  HMODULE module = LoadLibraryExW(program.c_str(), nullptr,
                                  LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
  if (module == nullptr) {
    return "";
  }
  std::string text;
  HRSRC resource = FindResourceW(module, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));
  HGLOBAL loaded = resource != nullptr ? LoadResource(module, resource) : nullptr;
  const void* bytes = loaded != nullptr ? LockResource(loaded) : nullptr;
  if (bytes != nullptr) {
    text.assign(static_cast<const char*>(bytes), SizeofResource(module, resource));
  }
  FreeLibrary(module);
  return text;
}

// Without a manifest naming Windows 8 or later, Windows refuses the layered child window that fades
// an output window. The program and the test programs that open output windows carry it.
TEST(KestrunProgramTest, ManifestDeclaresWindows10AmongTheSupportedSystems) {
  const std::wstring program = BuiltKestrunProgram();
  const std::wstring tests = program.substr(0, program.rfind(L"\\bin\\")) + L"\\tests\\";
  for (const std::wstring& built : {program, tests + L"live_window_unittests.exe",
                                    tests + L"native_live_window_plugin_unittests.exe"}) {
    const std::string manifest = ManifestOf(built);
    SCOPED_TRACE(std::string(built.begin(), built.end()));
    ASSERT_FALSE(manifest.empty()) << "no manifest resource 1";
    EXPECT_NE(manifest.find("<supportedOS Id=\"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}\"/>"),
              std::string::npos)
        << manifest;
    EXPECT_NE(manifest.find("<dpiAwareness xmlns=\"http://schemas.microsoft.com/SMI/2016/"
                            "WindowsSettings\">PerMonitorV2</dpiAwareness>"),
              std::string::npos);
  }
}

class KestrunProcessTest : public ::testing::Test {
 protected:
  // Starts kestrun.exe; `environment` is added to the program's environment.
  void Start(std::vector<std::pair<std::wstring, std::wstring>> environment = {},
             std::vector<std::wstring> arguments = {}) {
    SessionOptions options;
    options.program = BuiltKestrunProgram();
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

// One program, held at its first frame, played through a short session: every step is what the
// interface sees.
TEST_F(KestrunProcessTest, ShowsAtItsFirstFrameAndAnswersTheInterface) {
  Start({{L"KESTRUN_HEADLESS_HOLD_FRAMES", L"1"}},
        {L"--show", L"Sunday Service.kst", std::wstring(1, static_cast<wchar_t>(0xD800)),
         L"caf\u00e9"});
  std::optional<kestrun_headless::MainWindowState> before = session_.MainWindowInfo();
  ASSERT_TRUE(before.has_value()) << session_.last_error();
  ASSERT_TRUE(before->exists);
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

  // The entry's arguments, the unpaired surrogate as an empty string at its position.
  std::optional<kestrun_headless::EngineState> engine = session_.EngineInfo();
  ASSERT_TRUE(engine.has_value()) << session_.last_error();
  EXPECT_THAT(engine->arguments, ElementsAre("--show", "Sunday Service.kst", "", "caf\xC3\xA9"));
  EXPECT_EQ(engine->assets_path, "data\\flutter_assets");
  EXPECT_EQ(engine->icu_data_path, "data\\icudtl.dat");
  EXPECT_EQ(engine->aot_library_path, "data\\app.so");

  // The program's own plugins answer (the packaged plugins' order, the close button, lock changes
  // and secondary windows are followed in flutter_window_unittests).
  ASSERT_TRUE(session_.Sync());
  EXPECT_EQ(CountMessages(session_.EventHistory(), kPluginRecords, "registered"), 8);
  for (const auto& [channel, method] : std::vector<std::pair<const char*, const char*>>{
           {"com.kestrun.kestrun_display", "getAllDisplays"},
           {"com.kestrun.native_live_window", "closeAll"}}) {
    const kestrun_headless::Reply reply = session_.Invoke(channel, method);
    EXPECT_EQ(reply.kind, ReplyKind::kSuccess) << channel << ": " << reply.failure;
  }

  {
    const kestrun_headless::Reply web = session_.Invoke("kestrun/native_webview", "reload");
    EXPECT_EQ(web.error_code, "NOT_INITIALIZED") << web.failure;
  }

  // The window's own channels. Brought to the front, the window is in the foreground, and the
  // session, whose foreground window is not the lock screen, is not locked.
  EXPECT_FALSE(BoolReply(kDistribution, "isWindowsStore"));
  EXPECT_TRUE(BoolReply(kNativeWindow, "bringToForeground"));
  EXPECT_TRUE(BoolReply(kNativeWindow, "isInForeground"));
  EXPECT_FALSE(BoolReply(kNativeWindow, "isSessionLocked"));
  for (const auto& [channel, method] :
       std::vector<std::pair<const char*, const char*>>{{kNativeWindow, "IsSessionLocked"},
                                                        {kNativeWindow, "isWindowsStore"},
                                                        {kDistribution, "isSessionLocked"}}) {
    EXPECT_EQ(session_.Invoke(channel, method).kind, ReplyKind::kNotImplemented)
        << channel << " " << method;
  }
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

TEST_F(CleanExitMarkerTest, WrittenOnlyWhenTheSessionReallyEndsAndTheCompanyFolderExists) {
  if (company_existed_) {
    RemoveDirectoryW(product_.c_str());
    if (!RemoveDirectoryW(company_.c_str())) {
      GTEST_SKIP() << "the company folder holds other files";
    }
  }
  Start();
  EXPECT_EQ(session_.SendWindowMessage("WM_QUERYENDSESSION"), std::optional<int64_t>(1));
  ASSERT_TRUE(session_.PostWindowMessage("WM_ENDSESSION", 1));
  EXPECT_FALSE(FileExists(company_));

  CreateDirectoryW(company_.c_str(), nullptr);
  ASSERT_TRUE(session_.PostWindowMessage("WM_ENDSESSION", 0));  // cancelled: nothing
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
}

// The interface closing the application destroys the main window: the process ends with 0, also
// with an output window still open (its render thread is stopped on the way out).
TEST_F(KestrunProcessTest, NormalCloseWithAnOutputWindowOpenExitsWithZero) {
  Start();
  const kestrun_headless::Reply shown = session_.Invoke(
      "com.kestrun.native_live_window", "showForDisplay",
      EncodableValue(EncodableMap{{EncodableValue("displayId"), EncodableValue("exit test")},
                                  {EncodableValue("x"), EncodableValue(int32_t{40})},
                                  {EncodableValue("y"), EncodableValue(int32_t{40})},
                                  {EncodableValue("width"), EncodableValue(int32_t{160})},
                                  {EncodableValue("height"), EncodableValue(int32_t{90})},
                                  {EncodableValue("isPrimary"), EncodableValue(false)}}));
  EXPECT_EQ(shown.kind, ReplyKind::kSuccess) << shown.failure << shown.error_code;
  const kestrun_headless::Json destroy = {{"op", "destroyWindow"}};
  ASSERT_TRUE(session_.Request(destroy).has_value()) << session_.last_error();
  EXPECT_EQ(session_.WaitForExit(), std::optional<uint32_t>(0));
}

TEST_F(KestrunProcessTest, FailingViewControllerEndsTheProcessWithCode1) {
  SessionOptions options;
  options.program = BuiltKestrunProgram();
  options.environment.push_back({L"KESTRUN_HEADLESS_FAIL", L"view_controller"});
  // The engine may connect before the view controller fails, or the program may end first.
  session_.Start(options);
  EXPECT_EQ(session_.WaitForExit(), std::optional<uint32_t>(1));
}

}  // namespace
