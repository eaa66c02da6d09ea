#include "headless_registrar.h"

#include <algorithm>

namespace kestrun_headless {

void HeadlessRegistrar::SetDestructionHandler(FlutterDesktopOnPluginRegistrarDestroyed handler) {
  if (handler == nullptr || std::find(destruction_handlers_.begin(), destruction_handlers_.end(),
                                      handler) != destruction_handlers_.end()) {
    return;
  }
  destruction_handlers_.push_back(handler);
}

void HeadlessRegistrar::RunDestructionHandlers() {
  if (destroyed_) {
    return;
  }
  destroyed_ = true;
  // A handler may (indirectly) set another one; those set meanwhile run too.
  for (size_t i = 0; i < destruction_handlers_.size(); ++i) {
    destruction_handlers_[i](ref());
  }
}

void HeadlessRegistrar::RegisterTopLevelDelegate(FlutterDesktopWindowProcCallback delegate,
                                                 void* user_data) {
  if (delegate == nullptr) {
    return;
  }
  for (Delegate& existing : delegates_) {
    if (existing.callback == delegate) {
      existing.user_data = user_data;
      return;
    }
  }
  delegates_.push_back(Delegate{delegate, user_data});
}

void HeadlessRegistrar::UnregisterTopLevelDelegate(FlutterDesktopWindowProcCallback delegate) {
  delegates_.erase(std::remove_if(delegates_.begin(), delegates_.end(),
                                  [delegate](const Delegate& d) { return d.callback == delegate; }),
                   delegates_.end());
}

bool HeadlessRegistrar::DispatchTopLevelMessage(HWND window, UINT message, WPARAM wparam,
                                                LPARAM lparam, LRESULT* result) {
  // A copy: delegates may change the list while they run. One removed meanwhile is skipped.
  const std::vector<Delegate> delegates = delegates_;
  for (const Delegate& delegate : delegates) {
    const bool still_registered =
        std::any_of(delegates_.begin(), delegates_.end(),
                    [&](const Delegate& d) { return d.callback == delegate.callback; });
    if (!still_registered) {
      continue;
    }
    LRESULT delegate_result = 0;
    if (delegate.callback(window, message, wparam, lparam, delegate.user_data, &delegate_result)) {
      *result = delegate_result;
      return true;
    }
  }
  return false;
}

}  // namespace kestrun_headless
