// Entry of kestrun.exe: prepares the process, starts the main window and runs the message loop
// until the window is destroyed.
#include <objbase.h>
#include <windows.h>

#include <cstdlib>

#include "command_line_arguments.h"
#include "dart_project.h"
#include "debug_console.h"
#include "flutter_window.h"

int APIENTRY wWinMain(HINSTANCE /*instance*/, HINSTANCE /*previous*/, wchar_t* /*command_line*/,
                      int /*show_command*/) {
  // Before any window exists.
  SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);

  kestrun_shell::AttachOrCreateConsole();

  // The main thread is a single-threaded apartment for the whole run.
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);

  // "data" is passed on relative; the engine resolves it.
  flutter::DartProject project(L"data");
  project.set_dart_entrypoint_arguments(kestrun_shell::GetCommandLineArguments());

  kestrun_shell::FlutterWindow window(project);
  if (!window.Create(L"kestrun", kestrun_shell::Point{10, 10}, kestrun_shell::Size{1280, 720})) {
    return EXIT_FAILURE;
  }
  window.SetQuitOnClose(true);

  MSG message;
  // 0 is the quit message; -1 (an invalid call) must not spin either.
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }

  CoUninitialize();
  return EXIT_SUCCESS;
}
