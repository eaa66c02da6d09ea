#include "headless_texture_registrar.h"

#include "engine_log.h"

namespace kestrun_headless {

HeadlessTextureRegistrar::HeadlessTextureRegistrar(std::shared_ptr<PlatformTaskRunner> runner)
    : runner_(std::move(runner)) {}

int64_t HeadlessTextureRegistrar::Register(const FlutterDesktopTextureInfo* info) {
  if (info == nullptr || (info->type != kFlutterDesktopPixelBufferTexture &&
                          info->type != kFlutterDesktopGpuSurfaceTexture)) {
    EngineLog("texture registration without a known texture type refused");
    return -1;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  const int64_t id = next_id_++;
  textures_.emplace(id, *info);
  return id;
}

bool HeadlessTextureRegistrar::MarkFrameAvailable(int64_t id) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (textures_.count(id) == 0) {
    return false;
  }
  ++frames_marked_;
  return true;
}

void HeadlessTextureRegistrar::Unregister(int64_t id, void (*callback)(void* user_data),
                                          void* user_data) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    textures_.erase(id);
    if (callback == nullptr) {
      return;
    }
    due_callbacks_.emplace_back(callback, user_data);
  }
  // If the engine is already shutting down, Shutdown runs the callback.
  runner_->Post([this] { RunDueCallbacks(); });
}

size_t HeadlessTextureRegistrar::texture_count() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return textures_.size();
}

int64_t HeadlessTextureRegistrar::frames_marked() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return frames_marked_;
}

void HeadlessTextureRegistrar::Shutdown() { RunDueCallbacks(); }

void HeadlessTextureRegistrar::RunDueCallbacks() {
  std::vector<Callback> due;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    due.swap(due_callbacks_);
  }
  for (const Callback& callback : due) {
    callback.first(callback.second);
  }
}

}  // namespace kestrun_headless
