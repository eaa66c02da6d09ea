#include "secondary_window.h"

#include <cstring>
#include <iostream>

#include "plugin_registrant.h"

namespace kestrun_shell {

namespace {

// Where the wrapped handle sits: right after the vtable pointer.
constexpr size_t kHandleOffset = sizeof(void*);

}  // namespace

FlutterDesktopViewControllerRef ViewControllerHandleOfWrapper(const void* flutter_view_controller) {
  if (flutter_view_controller == nullptr) {
    return nullptr;
  }
  FlutterDesktopViewControllerRef handle = nullptr;
  std::memcpy(&handle, static_cast<const unsigned char*>(flutter_view_controller) + kHandleOffset,
              sizeof(handle));
  return handle;
}

void OnSecondaryWindowCreated(void* flutter_view_controller) {
  FlutterDesktopViewControllerRef controller =
      ViewControllerHandleOfWrapper(flutter_view_controller);
  FlutterDesktopEngineRef engine =
      controller != nullptr ? FlutterDesktopViewControllerGetEngine(controller) : nullptr;
  if (engine == nullptr) {
    std::cerr << "A secondary window without an engine was announced; no plugins registered."
              << std::endl;
    return;
  }
  RegisterSecondaryWindowPlugins([engine](const char* plugin_name) {
    return FlutterDesktopEngineGetPluginRegistrar(engine, plugin_name);
  });
}

}  // namespace kestrun_shell
