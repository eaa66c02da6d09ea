#include "flutter_view_controller.h"

#include <iostream>

namespace flutter {

FlutterViewController::FlutterViewController(int width, int height, const DartProject& project) {
  engine_ = std::make_shared<FlutterEngine>(project);
  FlutterDesktopEngineRef engine = engine_->RelinquishEngine();
  if (engine != nullptr) {
    controller_ = FlutterDesktopViewControllerCreate(width, height, engine);
  }
  if (controller_ == nullptr) {
    std::cerr << "Failed to create view controller." << std::endl;
    // The engine was destroyed with the failed controller.
    engine_.reset();
    return;
  }
  engine_->has_been_run_ = true;
  view_ = std::make_unique<FlutterView>(FlutterDesktopViewControllerGetView(controller_));
}

FlutterViewController::~FlutterViewController() {
  if (controller_ != nullptr) {
    FlutterDesktopViewControllerDestroy(controller_);
  }
}

void FlutterViewController::ForceRedraw() {
  if (controller_ != nullptr) {
    FlutterDesktopViewControllerForceRedraw(controller_);
  }
}

std::optional<LRESULT> FlutterViewController::HandleTopLevelWindowProc(HWND hwnd, UINT message,
                                                                       WPARAM wparam,
                                                                       LPARAM lparam) {
  if (controller_ == nullptr) {
    return std::nullopt;
  }
  LRESULT result = 0;
  if (FlutterDesktopViewControllerHandleTopLevelWindowProc(controller_, hwnd, message, wparam,
                                                           lparam, &result)) {
    return result;
  }
  return std::nullopt;
}

}  // namespace flutter

