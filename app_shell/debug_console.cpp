#include "debug_console.h"

#include <flutter_windows.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <iostream>

namespace kestrun_shell {

namespace {

// Reopens `stream` onto the console; if that fails, standard output's descriptor is duplicated
// onto `descriptor` instead (standard output is the source for both streams).
void RedirectToConsole(FILE* stream, int descriptor) {
  FILE* reopened = nullptr;
  if (freopen_s(&reopened, "CONOUT$", "w", stream) != 0) {
    _dup2(_fileno(stdout), descriptor);
  }
}

}  // namespace

void AttachOrCreateConsole() {
  if (!AttachConsole(ATTACH_PARENT_PROCESS) && IsDebuggerPresent()) {
    CreateAndAttachConsole();
  }
}

void CreateAndAttachConsole() {
  if (!AllocConsole()) {
    return;
  }
  RedirectToConsole(stdout, 1);
  RedirectToConsole(stderr, 2);
  std::ios::sync_with_stdio(true);
  FlutterDesktopResyncOutputStreams();
}

}  // namespace kestrun_shell
