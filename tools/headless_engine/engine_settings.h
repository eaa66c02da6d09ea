// What the environment asks of the headless engine.
//   KESTRUN_HEADLESS_CONTROL=127.0.0.1:<port>   connect to a controller there
//   KESTRUN_HEADLESS_HOLD_FRAMES=1              render no frame until the controller releases it
//   KESTRUN_HEADLESS_FAIL=engine|view_controller  make that creation fail
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_SETTINGS_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_SETTINGS_H_

#include <string>

namespace kestrun_headless {

struct EngineSettings {
  enum class Failure { kNone, kEngine, kViewController };

  std::string control_address;  // empty: no controller
  bool hold_frames = false;
  Failure failure = Failure::kNone;

  static EngineSettings FromEnvironment();
  // The same from given texts (null meaning unset); unknown failure names are logged and ignored.
  static EngineSettings FromValues(const char* control, const char* hold_frames,
                                   const char* failure);
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_SETTINGS_H_
