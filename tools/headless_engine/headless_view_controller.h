// A view controller (FlutterDesktopViewControllerRef): the engine's view, and the engine itself
// when the controller was created from it with FlutterDesktopViewControllerCreate.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_VIEW_CONTROLLER_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_VIEW_CONTROLLER_H_

#include <flutter_windows.h>

#include <memory>

#include "headless_engine.h"
#include "headless_view.h"

namespace kestrun_headless {

class HeadlessViewController {
 public:
  // Runs the engine if it is not running and gives it a view of `width` x `height` physical
  // pixels. With `owned_engine` the controller owns the engine (`engine` is then ignored) and
  // destroys it on failure too. Null (reason logged) on failure, including
  // KESTRUN_HEADLESS_FAIL=view_controller.
  static std::unique_ptr<HeadlessViewController> Create(
      int width, int height, std::unique_ptr<HeadlessEngine> owned_engine, HeadlessEngine* engine);
  // Destroys the view, then the engine if it owns it.
  ~HeadlessViewController();

  HeadlessViewController(const HeadlessViewController&) = delete;
  HeadlessViewController& operator=(const HeadlessViewController&) = delete;

  static HeadlessViewController* FromRef(FlutterDesktopViewControllerRef ref) {
    return reinterpret_cast<HeadlessViewController*>(ref);
  }
  FlutterDesktopViewControllerRef ref() {
    return reinterpret_cast<FlutterDesktopViewControllerRef>(this);
  }

  HeadlessEngine* engine() const { return engine_; }
  HeadlessView* view() const { return view_.get(); }

 private:
  HeadlessViewController() = default;

  std::unique_ptr<HeadlessEngine> owned_engine_;
  HeadlessEngine* engine_ = nullptr;
  std::unique_ptr<HeadlessView> view_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_VIEW_CONTROLLER_H_
