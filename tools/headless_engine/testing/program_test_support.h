// Shared by the tests that start the built kestrun.exe beside the headless engine: where the
// program is, and replies described for failure messages.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_TESTING_PROGRAM_TEST_SUPPORT_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_TESTING_PROGRAM_TEST_SUPPORT_H_

#include <windows.h>

#include <sstream>
#include <string>

#include "headless_session.h"

namespace kestrun_headless {

// build/mingw/tests/<test>.exe -> build/mingw/bin/kestrun.exe
inline std::wstring BuiltKestrunProgram() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  folder = folder.substr(0, folder.rfind(L'\\'));  // tests
  folder = folder.substr(0, folder.rfind(L'\\'));  // build tree
  return folder + L"\\bin\\kestrun.exe";
}

// "success", "error CODE: message", "not implemented" or "no reply: why".
inline std::string Describe(const Reply& reply) {
  std::ostringstream text;
  switch (reply.kind) {
    case ReplyKind::kSuccess: text << "success"; break;
    case ReplyKind::kError:
      text << "error " << reply.error_code << ": " << reply.error_message;
      break;
    case ReplyKind::kNotImplemented: text << "not implemented"; break;
    case ReplyKind::kFailed: text << "no reply: " << reply.failure; break;
  }
  return text.str();
}

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_TESTING_PROGRAM_TEST_SUPPORT_H_
