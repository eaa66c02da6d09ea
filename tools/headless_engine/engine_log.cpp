#include "engine_log.h"

#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <string>

namespace kestrun_headless {

void EngineLog(const char* format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  const std::string line = std::string("headless engine: ") + text + "\n";
  std::fputs(line.c_str(), stderr);
  std::fflush(stderr);
  OutputDebugStringA(line.c_str());
}

}  // namespace kestrun_headless
