// The display plugin inside the built kestrun.exe, which runs beside the headless engine
// (bin/flutter_windows.dll) and is driven through HeadlessSession from this test program playing
// the interface's part.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <optional>
#include <string>
#include <variant>

#include "encodable_value.h"
#include "headless_session.h"

namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using kestrun_headless::HeadlessEvent;
using kestrun_headless::HeadlessSession;
using kestrun_headless::ReplyKind;
using kestrun_headless::SessionOptions;

constexpr char kMethods[] = "com.kestrun.kestrun_display";
constexpr char kEvents[] = "com.kestrun.kestrun_display/events";

// build/mingw/tests/<this>.exe -> build/mingw/bin/kestrun.exe
std::wstring KestrunProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  folder = folder.substr(0, folder.rfind(L'\\'));  // tests
  folder = folder.substr(0, folder.rfind(L'\\'));  // build tree
  return folder + L"\\bin\\kestrun.exe";
}

const EncodableValue& Member(const EncodableValue& map, const char* key) {
  return std::get<EncodableMap>(map).at(EncodableValue(key));
}
int32_t IntMember(const EncodableValue& map, const char* key) {
  return std::get<int32_t>(Member(map, key));
}

bool IsDisplayEvent(const HeadlessEvent& event) {
  return event.channel == kEvents &&
         (event.type == "stream" || event.type == "streamError" || event.type == "endOfStream");
}

class DisplayEndToEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SessionOptions options;
    options.program = KestrunProgram();
    ASSERT_NE(GetFileAttributesW(options.program.c_str()), INVALID_FILE_ATTRIBUTES)
        << "kestrun.exe is not built";
    ASSERT_TRUE(session_.Start(options)) << session_.last_error();
  }

  int DisplayEventCount() const {
    int count = 0;
    for (const HeadlessEvent& event : session_.EventHistory()) {
      count += IsDisplayEvent(event) ? 1 : 0;
    }
    return count;
  }

  HeadlessSession session_;
};

TEST_F(DisplayEndToEndTest, ListsTheMonitorAndItsPrimaryAndReportsNoChangeWhenNothingMoved) {
  const kestrun_headless::Reply all = session_.Invoke(kMethods, "getAllDisplays");
  ASSERT_EQ(all.kind, ReplyKind::kSuccess) << all.failure << all.error_code;
  const auto& displays = std::get<EncodableList>(Member(all.value, "displays"));
  ASSERT_EQ(displays.size(), static_cast<size_t>(GetSystemMetrics(SM_CMONITORS)));

  std::optional<EncodableValue> marked;
  for (const EncodableValue& display : displays) {
    EXPECT_FALSE(std::get<std::string>(Member(display, "id")).empty());
    const EncodableValue& bounds = Member(display, "bounds");
    EXPECT_LT(IntMember(bounds, "left"), IntMember(bounds, "right"));
    EXPECT_LT(IntMember(bounds, "top"), IntMember(bounds, "bottom"));
    // The engine's per-monitor dpi, and the scale that follows from it.
    const int32_t dpi = IntMember(display, "dpi");
    EXPECT_GE(dpi, 96);
    EXPECT_DOUBLE_EQ(std::get<double>(Member(display, "scaleFactor")), dpi / 96.0);
    if (std::get<bool>(Member(display, "isPrimary")) && !marked) {
      marked = display;
      EXPECT_EQ(IntMember(bounds, "right"), GetSystemMetrics(SM_CXSCREEN));
      EXPECT_EQ(IntMember(bounds, "bottom"), GetSystemMetrics(SM_CYSCREEN));
    }
  }
  ASSERT_TRUE(marked.has_value()) << "no primary display listed";

  const kestrun_headless::Reply primary = session_.Invoke(kMethods, "getPrimaryDisplay");
  ASSERT_EQ(primary.kind, ReplyKind::kSuccess) << primary.failure;
  EXPECT_EQ(primary.value, *marked);

  const kestrun_headless::Reply listen = session_.Listen(kEvents);
  ASSERT_EQ(listen.kind, ReplyKind::kSuccess) << listen.failure << listen.error_code;

  // The main window gets these as the system would send them; nothing moved, so nothing is sent.
  // A post is answered once the window has handled the message, so any event would be in by then.
  ASSERT_TRUE(session_.PostWindowMessage("WM_DISPLAYCHANGE", 32,
                                         MAKELPARAM(GetSystemMetrics(SM_CXSCREEN),
                                                    GetSystemMetrics(SM_CYSCREEN))))
      << session_.last_error();
  // The system only sends this one (it may carry a pointer); a post would be refused.
  ASSERT_TRUE(session_.SendWindowMessage("WM_SETTINGCHANGE").has_value()) << session_.last_error();
  ASSERT_TRUE(session_.Sync());
  EXPECT_EQ(DisplayEventCount(), 0);

  const kestrun_headless::Reply cancel = session_.Cancel(kEvents);
  EXPECT_EQ(cancel.kind, ReplyKind::kSuccess) << cancel.failure << cancel.error_code;
}

}  // namespace
