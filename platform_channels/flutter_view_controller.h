// Creates and runs an engine together with a view of a given size, and owns both.
#ifndef KESTRUN_PLATFORM_CHANNELS_FLUTTER_VIEW_CONTROLLER_H_
#define KESTRUN_PLATFORM_CHANNELS_FLUTTER_VIEW_CONTROLLER_H_

#include <flutter_windows.h>

#include <memory>
#include <optional>

#include "dart_project.h"
#include "flutter_engine.h"
#include "flutter_view.h"

namespace flutter {

class FlutterViewController {
 public:
  // `width` and `height` are physical pixels. On failure "Failed to create view controller." is
  // printed and both engine() and view() are null; callers must check them.
  FlutterViewController(int width, int height, const DartProject& project);
  // Destroys the view and the engine.
  virtual ~FlutterViewController();

  FlutterViewController(const FlutterViewController&) = delete;
  FlutterViewController& operator=(const FlutterViewController&) = delete;

  FlutterEngine* engine() const { return engine_.get(); }
  FlutterView* view() const { return view_.get(); }

  void ForceRedraw();

  // Lets the engine and the plugins' top-level delegates see a message of the main window.
  // Answers a result when one of them handled it.
  std::optional<LRESULT> HandleTopLevelWindowProc(HWND hwnd, UINT message, WPARAM wparam,
                                                  LPARAM lparam);

 private:
  FlutterDesktopViewControllerRef controller_ = nullptr;
  std::shared_ptr<FlutterEngine> engine_;
  std::unique_ptr<FlutterView> view_;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_FLUTTER_VIEW_CONTROLLER_H_
