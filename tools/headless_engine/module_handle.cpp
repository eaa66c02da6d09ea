#include "module_handle.h"

namespace kestrun_headless {

HINSTANCE CurrentModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCWSTR>(&CurrentModule), &module);
  return module;
}

}  // namespace kestrun_headless
