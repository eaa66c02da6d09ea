// How the control client builds a program's command line and environment.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>
#include <shellapi.h>

#include <string>
#include <vector>

#include "child_process.h"

namespace kestrun_headless {
namespace {

using ::testing::ElementsAre;

// The arguments a started program reads back from its command line.
std::vector<std::wstring> SplitLikeTheProgram(const std::wstring& command_line) {
  int count = 0;
  wchar_t** parts = CommandLineToArgvW(command_line.c_str(), &count);
  std::vector<std::wstring> arguments;
  for (int i = 0; parts != nullptr && i < count; ++i) {
    arguments.emplace_back(parts[i]);
  }
  LocalFree(parts);
  return arguments;
}

TEST(ChildProcessTest, ArgumentsReachTheProgramUnchanged) {
  const std::vector<std::wstring> arguments = {
      L"plain",
      L"",
      L"two words",
      L"tab\there",
      L"say \"hi\"",
      L"ends with backslash\\",
      L"C:\\path with space\\",
      L"back\\\\slashes\\\"quoted\"",
      L"\"",
      L"\\\\server\\share",
      std::wstring(1, static_cast<wchar_t>(0xD800)),  // an unpaired surrogate
      L"\u00e9t\u00e9",
  };
  const std::wstring program = L"C:\\Program Files\\Kestrun\\kestrun.exe";
  std::vector<std::wstring> read_back =
      SplitLikeTheProgram(ChildProcess::BuildCommandLine(program, arguments));
  ASSERT_EQ(read_back.size(), arguments.size() + 1);
  EXPECT_EQ(read_back[0], program);
  for (size_t i = 0; i < arguments.size(); ++i) {
    EXPECT_EQ(read_back[i + 1], arguments[i]) << "argument " << i;
  }
  // Simple arguments are left as they are.
  EXPECT_EQ(ChildProcess::QuoteArgument(L"--flag=1"), L"--flag=1");
}

std::vector<std::wstring> Entries(const std::vector<wchar_t>& block) {
  std::vector<std::wstring> entries;
  for (const wchar_t* entry = block.data(); *entry != L'\0'; entry += wcslen(entry) + 1) {
    entries.emplace_back(entry);
  }
  return entries;
}

TEST(ChildProcessTest, EnvironmentChangesReplaceIgnoringCaseAndStaySorted) {
  const wchar_t current[] = L"=C:=C:\\work\0Path=C:\\bin\0zeta=1\0Alpha=old\0\0";
  std::vector<wchar_t> block = ChildProcess::BuildEnvironmentBlock(
      current, {{L"ALPHA", L"new"}, {L"KESTRUN_HEADLESS_CONTROL", L"127.0.0.1:4000"}});
  ASSERT_GE(block.size(), 2u);
  EXPECT_EQ(block[block.size() - 1], L'\0');
  EXPECT_EQ(block[block.size() - 2], L'\0');
  EXPECT_THAT(Entries(block),
              ElementsAre(L"=C:=C:\\work", L"ALPHA=new", L"KESTRUN_HEADLESS_CONTROL=127.0.0.1:4000",
                          L"Path=C:\\bin", L"zeta=1"));
  // No environment at all still gives a valid (empty) block.
  EXPECT_EQ(ChildProcess::BuildEnvironmentBlock(nullptr, {}), (std::vector<wchar_t>{L'\0', L'\0'}));
}

}  // namespace
}  // namespace kestrun_headless
