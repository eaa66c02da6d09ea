// The engine's plugin registrar (FlutterDesktopPluginRegistrarRef). One per engine: plugin names
// are ignored, as the engine does. Holds the destruction handlers (run once when the engine is
// destroyed) and the top-level window-procedure delegates. Platform thread only.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_REGISTRAR_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_REGISTRAR_H_

#include <flutter_windows.h>

#include <cstddef>
#include <vector>

namespace kestrun_headless {

class HeadlessEngine;

class HeadlessRegistrar {
 public:
  // `engine` owns the registrar.
  explicit HeadlessRegistrar(HeadlessEngine* engine) : engine_(engine) {}

  HeadlessRegistrar(const HeadlessRegistrar&) = delete;
  HeadlessRegistrar& operator=(const HeadlessRegistrar&) = delete;

  static HeadlessRegistrar* FromRef(FlutterDesktopPluginRegistrarRef ref) {
    return reinterpret_cast<HeadlessRegistrar*>(ref);
  }
  FlutterDesktopPluginRegistrarRef ref() {
    return reinterpret_cast<FlutterDesktopPluginRegistrarRef>(this);
  }

  // Every plugin library's copy of the channel layer sets its own handler; each distinct handler
  // is kept and run once, in the order set, by RunDestructionHandlers.
  void SetDestructionHandler(FlutterDesktopOnPluginRegistrarDestroyed handler);
  // Called by the engine when it is destroyed.
  void RunDestructionHandlers();

  // A delegate is known by its function; registering it again replaces its user data and keeps
  // its place.
  void RegisterTopLevelDelegate(FlutterDesktopWindowProcCallback delegate, void* user_data);
  void UnregisterTopLevelDelegate(FlutterDesktopWindowProcCallback delegate);
  // Offers the message to the delegates in registration order; the first that handles it ends
  // the walk and its result is the answer. Delegates may (un)register delegates meanwhile.
  bool DispatchTopLevelMessage(HWND window, UINT message, WPARAM wparam, LPARAM lparam,
                               LRESULT* result);
  size_t delegate_count() const { return delegates_.size(); }

  HeadlessEngine* engine() const { return engine_; }

 private:
  struct Delegate {
    FlutterDesktopWindowProcCallback callback;
    void* user_data;
  };

  HeadlessEngine* const engine_;
  std::vector<FlutterDesktopOnPluginRegistrarDestroyed> destruction_handlers_;
  bool destroyed_ = false;
  std::vector<Delegate> delegates_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_REGISTRAR_H_
