// What the control protocol may ask of the engine it controls. Platform thread only.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_CONTROL_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_CONTROL_H_

#include <windows.h>

#include "encodable_json.h"

namespace kestrun_headless {

class EngineControl {
 public:
  virtual ~EngineControl() = default;

  // The top-level window that contains the engine's view; null while there is none.
  virtual HWND MainWindow() const = 0;
  // The view's own window; null without a view.
  virtual HWND ViewWindow() const = 0;
  // The engine's properties and counters as the "engine" operation reports them.
  virtual Json DescribeEngine() const = 0;
  // Lets frames be rendered again when they were held.
  virtual void ReleaseFrame() = 0;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_ENGINE_CONTROL_H_
