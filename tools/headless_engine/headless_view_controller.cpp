#include "headless_view_controller.h"

#include <utility>

#include "engine_log.h"

namespace kestrun_headless {

std::unique_ptr<HeadlessViewController> HeadlessViewController::Create(
    int width, int height, std::unique_ptr<HeadlessEngine> owned_engine, HeadlessEngine* engine) {
  if (owned_engine) {
    engine = owned_engine.get();
  }
  if (engine == nullptr) {
    EngineLog("view controller creation without an engine");
    return nullptr;
  }
  if (engine->settings().failure == EngineSettings::Failure::kViewController) {
    EngineLog("view controller creation fails as KESTRUN_HEADLESS_FAIL=view_controller asks");
    return nullptr;  // an owned engine goes with it
  }
  if (engine->view() != nullptr) {
    EngineLog("the engine already has a view controller");
    return nullptr;
  }
  if (width <= 0 || height <= 0) {
    EngineLog("view size %d x %d is not positive", width, height);
    return nullptr;
  }
  if (!engine->running() && !engine->Run(nullptr)) {
    return nullptr;
  }
  std::unique_ptr<HeadlessViewController> controller(new HeadlessViewController());
  controller->view_ = HeadlessView::Create(width, height);
  if (!controller->view_) {
    return nullptr;
  }
  controller->engine_ = engine;
  controller->owned_engine_ = std::move(owned_engine);
  if (controller->owned_engine_) {
    controller->owned_engine_->set_owned_by_view_controller(true);
  }
  engine->AttachView(controller->view_.get());
  return controller;
}

HeadlessViewController::~HeadlessViewController() {
  if (engine_ != nullptr && engine_->view() == view_.get()) {
    engine_->DetachView();
  }
  view_.reset();
  owned_engine_.reset();
}

}  // namespace kestrun_headless
