// The "processStats" operation (PROTOCOL.md): figures of the program the engine runs in, read from
// inside it, for a controller that watches a long run for leaks (scripts/soak).
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_PROCESS_STATS_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_PROCESS_STATS_H_

#include <cstdint>

namespace kestrun_headless {

struct ProcessStats {
  // -1 where the system does not keep the figure (Wine keeps no GDI or USER object counts).
  // Private bytes; where the system does not count them (Wine answers 0), the pagefile usage or,
  // failing that, the working set, named by private_bytes_source.
  int64_t private_bytes = -1;
  const char* private_bytes_source = "PrivateUsage";
  int64_t handles = -1;
  int64_t gdi_objects = -1;
  int64_t user_objects = -1;
  int64_t threads = -1;
  // Windows of the process, top-level and children.
  int64_t windows = -1;
};

// Any thread.
ProcessStats ReadProcessStats();

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_PROCESS_STATS_H_
