// The module (DLL or program) this code is linked into, for registering its window classes.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_MODULE_HANDLE_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_MODULE_HANDLE_H_

#include <windows.h>

namespace kestrun_headless {

HINSTANCE CurrentModule();

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_MODULE_HANDLE_H_
