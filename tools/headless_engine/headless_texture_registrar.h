// The engine's texture registrar (FlutterDesktopTextureRegistrarRef). Nothing is drawn headless;
// textures are only recorded. Any thread.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_TEXTURE_REGISTRAR_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_TEXTURE_REGISTRAR_H_

#include <flutter_texture_registrar.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform_task_runner.h"

namespace kestrun_headless {

class HeadlessTextureRegistrar {
 public:
  // Unregistration callbacks run on `runner`'s thread.
  explicit HeadlessTextureRegistrar(std::shared_ptr<PlatformTaskRunner> runner);

  HeadlessTextureRegistrar(const HeadlessTextureRegistrar&) = delete;
  HeadlessTextureRegistrar& operator=(const HeadlessTextureRegistrar&) = delete;

  static HeadlessTextureRegistrar* FromRef(FlutterDesktopTextureRegistrarRef ref) {
    return reinterpret_cast<HeadlessTextureRegistrar*>(ref);
  }
  FlutterDesktopTextureRegistrarRef ref() {
    return reinterpret_cast<FlutterDesktopTextureRegistrarRef>(this);
  }

  // A new positive id, or -1 for a missing description or an unknown texture type.
  int64_t Register(const FlutterDesktopTextureInfo* info);
  // False for an unknown id.
  bool MarkFrameAvailable(int64_t id);
  // Forgets the texture; `callback` (optional) runs afterwards on the platform thread, or at the
  // latest when the engine shuts down.
  void Unregister(int64_t id, void (*callback)(void* user_data), void* user_data);

  size_t texture_count() const;
  int64_t frames_marked() const;

  // Platform thread, at engine shutdown: runs the unregistration callbacks still due.
  void Shutdown();

 private:
  using Callback = std::pair<void (*)(void*), void*>;

  void RunDueCallbacks();

  std::shared_ptr<PlatformTaskRunner> runner_;
  mutable std::mutex mutex_;
  int64_t next_id_ = 1;
  int64_t frames_marked_ = 0;
  std::map<int64_t, FlutterDesktopTextureInfo> textures_;
  std::vector<Callback> due_callbacks_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_TEXTURE_REGISTRAR_H_
