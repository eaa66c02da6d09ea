#include "plugin_registrar_windows.h"

#include <utility>

namespace flutter {

PluginRegistrarWindows::PluginRegistrarWindows(FlutterDesktopPluginRegistrarRef core_registrar)
    : PluginRegistrar(core_registrar) {
  FlutterDesktopViewRef view = FlutterDesktopPluginRegistrarGetView(core_registrar);
  if (view != nullptr) {
    view_ = std::make_unique<FlutterView>(view);
  }
}

PluginRegistrarWindows::~PluginRegistrarWindows() {
  // Plugins unregister their delegates in their destructors; run those while the map exists.
  ClearPlugins();
  if (!window_proc_delegates_.empty()) {
    FlutterDesktopPluginRegistrarUnregisterTopLevelWindowProcDelegate(registrar(),
                                                                      &OnTopLevelWindowProc);
  }
}

int PluginRegistrarWindows::RegisterTopLevelWindowProcDelegate(WindowProcDelegate delegate) {
  if (window_proc_delegates_.empty()) {
    FlutterDesktopPluginRegistrarRegisterTopLevelWindowProcDelegate(
        registrar(), &OnTopLevelWindowProc, this);
  }
  const int id = next_delegate_id_++;
  window_proc_delegates_.emplace(
      id, std::make_shared<const WindowProcDelegate>(std::move(delegate)));
  return id;
}

void PluginRegistrarWindows::UnregisterTopLevelWindowProcDelegate(int proc_id) {
  if (window_proc_delegates_.erase(proc_id) == 0) {
    return;
  }
  if (window_proc_delegates_.empty()) {
    FlutterDesktopPluginRegistrarUnregisterTopLevelWindowProcDelegate(registrar(),
                                                                      &OnTopLevelWindowProc);
  }
}

bool PluginRegistrarWindows::OnTopLevelWindowProc(HWND hwnd, UINT message, WPARAM wparam,
                                                  LPARAM lparam, void* user_data,
                                                  LRESULT* result) {
  auto* self = static_cast<PluginRegistrarWindows*>(user_data);
  std::optional<LRESULT> answer = self->CallTopLevelWindowProcDelegates(hwnd, message, wparam,
                                                                        lparam);
  if (answer) {
    *result = *answer;
  }
  return answer.has_value();
}

std::optional<LRESULT> PluginRegistrarWindows::CallTopLevelWindowProcDelegates(HWND hwnd,
                                                                               UINT message,
                                                                               WPARAM wparam,
                                                                               LPARAM lparam) {
  // A delegate may unregister itself (or another) while it runs: hold the running function by
  // its own reference and find the next delegate by id afterwards. No allocation per message.
  auto it = window_proc_delegates_.begin();
  while (it != window_proc_delegates_.end()) {
    const int id = it->first;
    std::shared_ptr<const WindowProcDelegate> delegate = it->second;
    std::optional<LRESULT> result = (*delegate)(hwnd, message, wparam, lparam);
    if (result) {
      return result;
    }
    it = window_proc_delegates_.upper_bound(id);
  }
  return std::nullopt;
}

}  // namespace flutter
