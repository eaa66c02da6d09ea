#include "child_process.h"

#include <windows.h>

#include <algorithm>

#include "text_conversion.h"

namespace kestrun_headless {
namespace {

// The name of an environment entry: up to the first '=' that is not the first character
// (entries such as "=C:=C:\dir" keep the drive's current folder).
std::wstring EntryName(const std::wstring& entry) {
  const size_t equals = entry.find(L'=', 1);
  return equals == std::wstring::npos ? entry : entry.substr(0, equals);
}

bool SameName(const std::wstring& a, const std::wstring& b) {
  return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(),
                              static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

bool NameLess(const std::wstring& a, const std::wstring& b) {
  return CompareStringOrdinal(a.c_str(), static_cast<int>(a.size()), b.c_str(),
                              static_cast<int>(b.size()), TRUE) == CSTR_LESS_THAN;
}

std::string LastErrorText(const char* what) {
  return std::string(what) + " failed, error " + std::to_string(GetLastError());
}

}  // namespace

ChildProcess::~ChildProcess() {
  if (process_ != nullptr) {
    CloseHandle(static_cast<HANDLE>(process_));
  }
  if (job_ != nullptr) {
    CloseHandle(static_cast<HANDLE>(job_));
  }
}

bool ChildProcess::Start(const std::wstring& program, const std::vector<std::wstring>& arguments,
                         const std::wstring& working_directory, const Environment& environment,
                         std::string* error) {
  if (process_ != nullptr) {
    *error = "the program was already started";
    return false;
  }
  std::wstring command_line = BuildCommandLine(program, arguments);
  wchar_t* current = GetEnvironmentStringsW();
  std::vector<wchar_t> block = BuildEnvironmentBlock(current, environment);
  if (current != nullptr) {
    FreeEnvironmentStringsW(current);
  }
  std::wstring directory = working_directory;
  if (directory.empty()) {
    const size_t slash = program.find_last_of(L"\\/");
    if (slash != std::wstring::npos) {
      directory = program.substr(0, slash);
    }
  }

  // A job that ends the program with us, so that a crashed test leaves nothing running.
  HANDLE job = CreateJobObjectW(nullptr, nullptr);
  if (job != nullptr) {
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
  }

  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION info = {};
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE,
                      CREATE_UNICODE_ENVIRONMENT | CREATE_SUSPENDED, block.data(),
                      directory.empty() ? nullptr : directory.c_str(), &startup, &info)) {
    *error = LastErrorText("CreateProcessW") + " for " + WideToUtf8(program);
    if (job != nullptr) {
      CloseHandle(job);
    }
    return false;
  }
  if (job != nullptr && !AssignProcessToJobObject(job, info.hProcess)) {
    // Without the job the program still runs; it is only not ended with us.
    CloseHandle(job);
    job = nullptr;
  }
  ResumeThread(info.hThread);
  CloseHandle(info.hThread);
  process_ = info.hProcess;
  job_ = job;
  id_ = info.dwProcessId;
  return true;
}

std::optional<uint32_t> ChildProcess::WaitForExit(std::chrono::milliseconds timeout) const {
  if (process_ == nullptr) {
    return std::nullopt;
  }
  const DWORD wait = static_cast<DWORD>(
      std::clamp<long long>(timeout.count(), 0, static_cast<long long>(INFINITE - 1)));
  if (WaitForSingleObject(static_cast<HANDLE>(process_), wait) != WAIT_OBJECT_0) {
    return std::nullopt;
  }
  DWORD code = 0;
  if (!GetExitCodeProcess(static_cast<HANDLE>(process_), &code)) {
    return std::nullopt;
  }
  return code;
}

void ChildProcess::Kill(uint32_t exit_code) {
  if (process_ == nullptr) {
    return;
  }
  if (WaitForSingleObject(static_cast<HANDLE>(process_), 0) == WAIT_TIMEOUT) {
    TerminateProcess(static_cast<HANDLE>(process_), exit_code);
    WaitForSingleObject(static_cast<HANDLE>(process_), INFINITE);
  }
}

std::wstring ChildProcess::QuoteArgument(const std::wstring& argument) {
  if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
    return argument;
  }
  std::wstring quoted = L"\"";
  for (size_t i = 0;; ++i) {
    size_t backslashes = 0;
    while (i < argument.size() && argument[i] == L'\\') {
      ++backslashes;
      ++i;
    }
    if (i == argument.size()) {
      // Doubled so that the closing quote stays a quote.
      quoted.append(backslashes * 2, L'\\');
      break;
    }
    if (argument[i] == L'"') {
      quoted.append(backslashes * 2 + 1, L'\\');
      quoted.push_back(L'"');
    } else {
      quoted.append(backslashes, L'\\');
      quoted.push_back(argument[i]);
    }
  }
  quoted.push_back(L'"');
  return quoted;
}

std::wstring ChildProcess::BuildCommandLine(const std::wstring& program,
                                            const std::vector<std::wstring>& arguments) {
  // The program name is read up to the closing quote with no escapes at all.
  std::wstring command_line = L"\"" + program + L"\"";
  for (const std::wstring& argument : arguments) {
    command_line.push_back(L' ');
    command_line.append(QuoteArgument(argument));
  }
  return command_line;
}

std::vector<wchar_t> ChildProcess::BuildEnvironmentBlock(const wchar_t* current,
                                                         const Environment& changes) {
  std::vector<std::wstring> entries;
  if (current != nullptr) {
    for (const wchar_t* entry = current; *entry != L'\0'; entry += wcslen(entry) + 1) {
      entries.emplace_back(entry);
    }
  }
  for (const auto& change : changes) {
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](const std::wstring& entry) {
                                   return SameName(EntryName(entry), change.first);
                                 }),
                  entries.end());
    entries.push_back(change.first + L"=" + change.second);
  }
  std::stable_sort(entries.begin(), entries.end(), [](const std::wstring& a, const std::wstring& b) {
    return NameLess(EntryName(a), EntryName(b));
  });
  std::vector<wchar_t> block;
  for (const std::wstring& entry : entries) {
    block.insert(block.end(), entry.begin(), entry.end());
    block.push_back(L'\0');
  }
  if (block.empty()) {
    block.push_back(L'\0');
  }
  block.push_back(L'\0');
  return block;
}

}  // namespace kestrun_headless
