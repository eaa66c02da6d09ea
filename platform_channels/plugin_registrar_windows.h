// The Windows registrar: adds the view and top-level window procedure delegates.
#ifndef KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_WINDOWS_H_
#define KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_WINDOWS_H_

#include <flutter_windows.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "flutter_view.h"
#include "plugin_registrar.h"

namespace flutter {

// Answers a result when it handled the message; the first delegate that does ends the walk.
using WindowProcDelegate = std::function<std::optional<LRESULT>(HWND hwnd, UINT message,
                                                                WPARAM wparam, LPARAM lparam)>;

class PluginRegistrarWindows : public PluginRegistrar {
 public:
  explicit PluginRegistrarWindows(FlutterDesktopPluginRegistrarRef core_registrar);
  ~PluginRegistrarWindows() override;

  PluginRegistrarWindows(const PluginRegistrarWindows&) = delete;
  PluginRegistrarWindows& operator=(const PluginRegistrarWindows&) = delete;

  // Null for an engine without a view.
  FlutterView* GetView() { return view_.get(); }

  // Answers the delegate's id: 1 for the first, one more for each later registration. The engine
  // is asked for messages while at least one delegate is registered.
  int RegisterTopLevelWindowProcDelegate(WindowProcDelegate delegate);
  void UnregisterTopLevelWindowProcDelegate(int proc_id);

 private:
  static bool OnTopLevelWindowProc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam,
                                   void* user_data, LRESULT* result);
  std::optional<LRESULT> CallTopLevelWindowProcDelegates(HWND hwnd, UINT message, WPARAM wparam,
                                                         LPARAM lparam);

  std::unique_ptr<FlutterView> view_;
  // Ordered by id, which is registration order.
  std::map<int, std::shared_ptr<const WindowProcDelegate>> window_proc_delegates_;
  int next_delegate_id_ = 1;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_PLUGIN_REGISTRAR_WINDOWS_H_
