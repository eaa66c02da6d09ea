// Diagnostics of the headless engine: one line on the standard error stream and the debugger
// output, prefixed "headless engine: ".
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_LOG_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_LOG_H_

#if defined(__GNUC__)
#define KESTRUN_HEADLESS_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define KESTRUN_HEADLESS_PRINTF(format_index, first_argument)
#endif

namespace kestrun_headless {

void EngineLog(const char* format, ...) KESTRUN_HEADLESS_PRINTF(1, 2);

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_LOG_H_
