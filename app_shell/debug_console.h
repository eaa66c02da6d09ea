// The console the host's standard streams write to.
#ifndef KESTRUN_APP_SHELL_DEBUG_CONSOLE_H_
#define KESTRUN_APP_SHELL_DEBUG_CONSOLE_H_

namespace kestrun_shell {

// Attaches to the console of the process that started this one; only when there is none and a
// debugger is attached does it open a new console (CreateAndAttachConsole). Started without
// either, the process has no console.
void AttachOrCreateConsole();

// Opens a console for a debugging run and points standard output and standard error (the C and
// C++ streams, and the engine's own) at it. Does nothing when no console can be opened.
void CreateAndAttachConsole();

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_DEBUG_CONSOLE_H_
