// The shell's computations that need no window: DPI scaling, argument conversion, the lock test's
// name comparison, the store check, and the clean-exit marker.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "clean_exit_marker.h"
#include "command_line_arguments.h"
#include "session_lock.h"
#include "store_distribution.h"
#include "window_geometry.h"

namespace kestrun_shell {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// ---- DPI scaling and command-line arguments ------------------------------------------------------

TEST(ScaleToDpiTest, GeometryScalesWithTheMonitorAndFractionsAreTruncated) {
  const struct {
    Point origin;
    Size size;
    unsigned int dpi;
    PhysicalBounds expected;
  } cases[] = {
      {{10, 10}, {1280, 720}, 96, {10, 10, 1280, 720}},
      {{10, 10}, {1280, 720}, 144, {15, 15, 1920, 1080}},
      // 175 %: 10 -> 17.5, 1281 -> 2241.75, 721 -> 1261.75.
      {{10, 11}, {1281, 721}, 168, {17, 19, 2241, 1261}},
  };
  for (const auto& c : cases) {
    const PhysicalBounds bounds = ScaleToDpi(c.origin, c.size, c.dpi);
    EXPECT_EQ(bounds.x, c.expected.x) << c.dpi;
    EXPECT_EQ(bounds.y, c.expected.y) << c.dpi;
    EXPECT_EQ(bounds.width, c.expected.width) << c.dpi;
    EXPECT_EQ(bounds.height, c.expected.height) << c.dpi;
  }
}

TEST(CommandLineArgumentsTest, ArgumentsAfterTheProgramPathAreSplitAndConvertedToUtf8) {
  EXPECT_THAT(ArgumentsFromCommandLine(L"C:\\Kestrun\\kestrun.exe"), IsEmpty());
  EXPECT_THAT(ArgumentsFromCommandLine(L"\"C:\\Program Files\\Kestrun\\kestrun.exe\""), IsEmpty());
  EXPECT_THAT(
      ArgumentsFromCommandLine(L"kestrun.exe --show \"Sunday Service.kst\" caf\u00e9 \U0001F3A4"),
      ElementsAre("--show", "Sunday Service.kst", "caf\xC3\xA9", "\xF0\x9F\x8E\xA4"));
  // Unpaired surrogates (a high one with no low one after it, a lone low one) become empty
  // strings at their positions.
  std::wstring command_line = L"kestrun.exe first ";
  command_line += static_cast<wchar_t>(0xD83C);
  command_line += L" last ";
  command_line += static_cast<wchar_t>(0xDC00);
  EXPECT_THAT(ArgumentsFromCommandLine(command_line.c_str()), ElementsAre("first", "", "last", ""));
  EXPECT_EQ(Utf8FromUtf16(nullptr), "");
  EXPECT_EQ(Utf8FromUtf16(L""), "");
  // The result holds exactly the text: no terminator counted in its length.
  EXPECT_EQ(Utf8FromUtf16(L"\u00e9").size(), 2u);
}

// ---- Lock test name comparison -----------------------------------------------------------------

TEST(SessionLockTest, LogonUiIsRecognisedByTheFileNameAfterTheLastBackslash) {
  EXPECT_TRUE(IsLogonUiImagePath(L"C:\\Windows\\System32\\LogonUI.exe"));
  EXPECT_TRUE(IsLogonUiImagePath(L"C:\\WINDOWS\\system32\\logonui.EXE"));
  EXPECT_TRUE(IsLogonUiImagePath(L"\\LogonUI.exe"));

  EXPECT_FALSE(IsLogonUiImagePath(L"LogonUI.exe"));  // no backslash: not judged locked
  EXPECT_FALSE(IsLogonUiImagePath(L""));
  EXPECT_FALSE(IsLogonUiImagePath(L"C:\\Windows\\explorer.exe"));
  EXPECT_FALSE(IsLogonUiImagePath(L"C:\\LogonUI.exe\\explorer.exe"));
  EXPECT_FALSE(IsLogonUiImagePath(L"C:\\Tools\\LogonUI.exe.bak"));
  EXPECT_FALSE(IsLogonUiImagePath(L"C:\\Tools\\NotLogonUI.exe"));
}

// ---- Store check ---------------------------------------------------------------------------------

constexpr wchar_t kPublisher[] = L"CN=3F1C9A72-5D04-4E6B-9A21-7C0E8B4D12F5";

// A scripted GetCurrentPackageId: the identity it reports, as the system lays it out (the record
// followed by its strings, in the caller's buffer).
struct FakePackage {
  bool packaged = true;
  bool null_publisher = false;
  bool fail_second_call = false;
  std::wstring publisher = kPublisher;
  int calls = 0;
};
FakePackage g_package;

constexpr LONG kNoPackage = 15700;  // APPMODEL_ERROR_NO_PACKAGE

LONG WINAPI FakeGetCurrentPackageId(UINT32* buffer_length, BYTE* buffer) {
  ++g_package.calls;
  if (!g_package.packaged) {
    return kNoPackage;
  }
  const std::wstring name = L"Quillmere.Kestrun";
  const UINT32 needed =
      static_cast<UINT32>(sizeof(PackageIdLayout) +
                          (name.size() + 1 + g_package.publisher.size() + 1) * sizeof(wchar_t));
  if (buffer == nullptr || *buffer_length < needed) {
    *buffer_length = needed;
    return ERROR_INSUFFICIENT_BUFFER;
  }
  if (g_package.fail_second_call) {
    return ERROR_GEN_FAILURE;
  }
  auto* strings = reinterpret_cast<wchar_t*>(buffer + sizeof(PackageIdLayout));
  name.copy(strings, name.size());
  wchar_t* publisher = strings + name.size() + 1;
  g_package.publisher.copy(publisher, g_package.publisher.size());
  PackageIdLayout id = {};
  id.name = strings;
  id.publisher = g_package.null_publisher ? nullptr : publisher;
  std::memcpy(buffer, &id, sizeof(id));
  return ERROR_SUCCESS;
}

class StoreCheckTest : public ::testing::Test {
 protected:
  void SetUp() override { g_package = FakePackage(); }
};

TEST_F(StoreCheckTest, OnlyAPackagedRunOfTheExpectedPublisherInAnyLetterCaseIsTheStore) {
  const struct {
    const wchar_t* publisher;
    bool store;
  } publishers[] = {
      {kPublisher, true},
      {L"cn=3f1c9a72-5d04-4e6b-9a21-7c0e8b4d12f5", true},
      {L"CN=3F1C9A72-5D04-4E6B-9A21-7C0E8B4D12F6", false},
      {L"CN=3F1C9A72-5D04-4E6B-9A21-7C0E8B4D12F5 ", false},
      {L"CN=Someone Else", false},
      {L"", false},
  };
  for (const auto& p : publishers) {
    g_package = FakePackage();
    g_package.publisher = p.publisher;
    EXPECT_EQ(IsStorePackageOfExpectedPublisher(&FakeGetCurrentPackageId), p.store);
    EXPECT_EQ(g_package.calls, 2);  // size query, then the identity
  }
  EXPECT_FALSE(IsExpectedStorePublisher(nullptr));

  g_package = FakePackage();
  g_package.packaged = false;
  EXPECT_FALSE(IsStorePackageOfExpectedPublisher(&FakeGetCurrentPackageId));
  EXPECT_EQ(g_package.calls, 1);
  g_package = FakePackage();
  g_package.fail_second_call = true;
  EXPECT_FALSE(IsStorePackageOfExpectedPublisher(&FakeGetCurrentPackageId));
  g_package = FakePackage();
  g_package.null_publisher = true;
  EXPECT_FALSE(IsStorePackageOfExpectedPublisher(&FakeGetCurrentPackageId));
  EXPECT_FALSE(IsStorePackageOfExpectedPublisher(nullptr));
}

// ---- Clean-exit marker -------------------------------------------------------------------------

// A fresh, empty folder standing in for the roaming application-data folder.
class MarkerFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    wchar_t temp[MAX_PATH] = {};
    ASSERT_NE(GetTempPathW(MAX_PATH, temp), 0u);
    root_ = std::wstring(temp) + L"kestrun_marker_test_" + std::to_wstring(GetCurrentProcessId());
    RemoveTree();
    ASSERT_TRUE(CreateDirectoryW(root_.c_str(), nullptr));
  }
  void TearDown() override { RemoveTree(); }

  std::wstring Company() const { return root_ + L"\\Quillmere LLC"; }
  std::wstring Folder() const { return Company() + L"\\Kestrun"; }
  std::wstring MarkerPath() const { return Folder() + L"\\kestrun.clean_exit"; }

  static bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
  }

  std::string ReadMarker() const {
    HANDLE file = CreateFileW(MarkerPath().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
      return "<missing>";
    }
    char buffer[256];
    DWORD read = 0;
    ReadFile(file, buffer, sizeof(buffer), &read, nullptr);
    CloseHandle(file);
    return std::string(buffer, read);
  }

  void RemoveTree() {
    DeleteFileW(MarkerPath().c_str());
    RemoveDirectoryW(Folder().c_str());
    RemoveDirectoryW(Company().c_str());
    RemoveDirectoryW(root_.c_str());
  }

  std::wstring root_;
};

TEST_F(MarkerFolderTest, MarkerIsWrittenOverWholeOnlyInsideTheCompanyFolder) {
  WriteCleanExitMarkerIn(root_, 1700000000);
  EXPECT_FALSE(Exists(Company()));
  EXPECT_FALSE(Exists(MarkerPath()));

  ASSERT_TRUE(CreateDirectoryW(Company().c_str(), nullptr));
  // Past 2038: the time is a 64-bit value.
  WriteCleanExitMarkerIn(root_, INT64_C(4102444800));
  EXPECT_EQ(ReadMarker(), "clean_exit:4102444800");
  // Overwritten, not appended, even with a reader open: a shorter text leaves nothing of the
  // longer one.
  HANDLE reader =
      CreateFileW(MarkerPath().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(reader, INVALID_HANDLE_VALUE);
  WriteCleanExitMarkerIn(root_, 5);
  CloseHandle(reader);
  EXPECT_EQ(ReadMarker(), "clean_exit:5");
}

}  // namespace
}  // namespace kestrun_shell
