#include "process_stats.h"

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace kestrun_headless {
namespace {

int64_t OpenHandles() {
  DWORD count = 0;
  if (GetProcessHandleCount(GetCurrentProcess(), &count) && count != 0) {
    return count;
  }
  // Wine answers 0: count the handle values that name an open handle instead (handle values are
  // multiples of four).
  for (uintptr_t value = 4; value < 0x40000; value += 4) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags)) {
      ++count;
    }
  }
  return count;
}

int64_t Threads() {
  HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) {
    return -1;
  }
  const DWORD process = GetCurrentProcessId();
  int64_t count = 0;
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == process) {
      ++count;
    }
  }
  CloseHandle(snapshot);
  return count;
}

// Zero with an error means the count is not kept; a live program always has some objects.
int64_t GuiResources(DWORD kind) {
  SetLastError(ERROR_SUCCESS);
  const DWORD count = GetGuiResources(GetCurrentProcess(), kind);
  return count != 0 || GetLastError() == ERROR_SUCCESS ? static_cast<int64_t>(count) : -1;
}

}  // namespace

ProcessStats ReadProcessStats() {
  ProcessStats stats;
  PROCESS_MEMORY_COUNTERS_EX memory = {};
  memory.cb = sizeof(memory);
  if (GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
                           sizeof(memory))) {
    stats.private_bytes = static_cast<int64_t>(memory.PrivateUsage);
    if (stats.private_bytes == 0 && memory.PagefileUsage != 0) {
      stats.private_bytes = static_cast<int64_t>(memory.PagefileUsage);
      stats.private_bytes_source = "PagefileUsage";
    } else if (stats.private_bytes == 0) {
      stats.private_bytes = static_cast<int64_t>(memory.WorkingSetSize);
      stats.private_bytes_source = "WorkingSetSize";
    }
  }
  stats.handles = OpenHandles();
  stats.gdi_objects = GuiResources(GR_GDIOBJECTS);
  stats.user_objects = GuiResources(GR_USEROBJECTS);
  stats.threads = Threads();
  // Children are counted by their own enumeration: EnumChildWindows walks all descendants, so only
  // top-level windows start one.
  int64_t windows = 0;
  EnumWindows(
      [](HWND hwnd, LPARAM context) -> BOOL {
        DWORD owner = 0;
        GetWindowThreadProcessId(hwnd, &owner);
        if (owner == GetCurrentProcessId()) {
          auto* count = reinterpret_cast<int64_t*>(context);
          ++*count;
          EnumChildWindows(
              hwnd, [](HWND, LPARAM inner) -> BOOL {
                ++*reinterpret_cast<int64_t*>(inner);
                return TRUE;
              },
              context);
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&windows));
  stats.windows = windows;
  return stats;
}

}  // namespace kestrun_headless
