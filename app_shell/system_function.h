// Looks up a system function at run time, for APIs that older Windows builds (or Wine) may lack.
#ifndef KESTRUN_APP_SHELL_SYSTEM_FUNCTION_H_
#define KESTRUN_APP_SHELL_SYSTEM_FUNCTION_H_

#include <windows.h>

namespace kestrun_shell {

// The export `name` of `module` as a `Function` pointer, or null when the module or the export is
// missing. `Function` must be the export's exact pointer type.
template <typename Function>
Function GetSystemFunction(HMODULE module, const char* name) {
  if (module == nullptr) {
    return nullptr;
  }
  FARPROC address = GetProcAddress(module, name);
  // Through a generic function pointer type, which compilers accept as a cast target between
  // unrelated function pointer types without a warning.
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(address));
}

}  // namespace kestrun_shell

#endif  // KESTRUN_APP_SHELL_SYSTEM_FUNCTION_H_
