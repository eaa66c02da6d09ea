// The exported C API of the headless flutter_windows.dll: every function of
// foreign_interfaces/flutter_engine/flutter_windows.def, as thin calls into the engine's classes.
// Null handles are logged and answered with the function's neutral result.
#include <flutter_windows.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <utility>

#include "display_scale.h"
#include "engine_log.h"
#include "headless_engine.h"
#include "headless_messenger.h"
#include "headless_registrar.h"
#include "headless_texture_registrar.h"
#include "headless_view.h"
#include "headless_view_controller.h"

using kestrun_headless::EngineLog;
using kestrun_headless::HeadlessEngine;
using kestrun_headless::HeadlessMessenger;
using kestrun_headless::HeadlessRegistrar;
using kestrun_headless::HeadlessTextureRegistrar;
using kestrun_headless::HeadlessView;
using kestrun_headless::HeadlessViewController;

namespace {

HeadlessEngine* EngineOfRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  return HeadlessRegistrar::FromRef(registrar)->engine();
}

bool Missing(const void* handle, const char* function) {
  if (handle == nullptr) {
    EngineLog("%s called with a null handle", function);
    return true;
  }
  return false;
}

}  // namespace

// ---- View controller ---------------------------------------------------------------------------

FlutterDesktopViewControllerRef FlutterDesktopViewControllerCreate(int width, int height,
                                                                   FlutterDesktopEngineRef engine) {
  if (Missing(engine, __func__)) return nullptr;
  std::unique_ptr<HeadlessEngine> owned(HeadlessEngine::FromRef(engine));
  std::unique_ptr<HeadlessViewController> controller =
      HeadlessViewController::Create(width, height, std::move(owned), nullptr);
  return controller ? controller.release()->ref() : nullptr;
}

FlutterDesktopViewControllerRef FlutterDesktopEngineCreateViewController(
    FlutterDesktopEngineRef engine, const FlutterDesktopViewControllerProperties* properties) {
  if (Missing(engine, __func__) || Missing(properties, __func__)) return nullptr;
  std::unique_ptr<HeadlessViewController> controller = HeadlessViewController::Create(
      properties->width, properties->height, nullptr, HeadlessEngine::FromRef(engine));
  return controller ? controller.release()->ref() : nullptr;
}

void FlutterDesktopViewControllerDestroy(FlutterDesktopViewControllerRef controller) {
  if (Missing(controller, __func__)) return;
  std::unique_ptr<HeadlessViewController> owned(HeadlessViewController::FromRef(controller));
}

FlutterDesktopViewId FlutterDesktopViewControllerGetViewId(
    FlutterDesktopViewControllerRef view_controller) {
  Missing(view_controller, __func__);
  return 0;  // the implicit view
}

FlutterDesktopEngineRef FlutterDesktopViewControllerGetEngine(
    FlutterDesktopViewControllerRef controller) {
  if (Missing(controller, __func__)) return nullptr;
  HeadlessEngine* engine = HeadlessViewController::FromRef(controller)->engine();
  return engine != nullptr ? engine->ref() : nullptr;
}

FlutterDesktopViewRef FlutterDesktopViewControllerGetView(
    FlutterDesktopViewControllerRef controller) {
  if (Missing(controller, __func__)) return nullptr;
  HeadlessView* view = HeadlessViewController::FromRef(controller)->view();
  return view != nullptr ? view->ref() : nullptr;
}

void FlutterDesktopViewControllerForceRedraw(FlutterDesktopViewControllerRef controller) {
  if (Missing(controller, __func__)) return;
  HeadlessEngine* engine = HeadlessViewController::FromRef(controller)->engine();
  if (engine != nullptr) engine->ForceRedraw();
}

bool FlutterDesktopViewControllerHandleTopLevelWindowProc(
    FlutterDesktopViewControllerRef controller, HWND hwnd, UINT message, WPARAM wparam,
    LPARAM lparam, LRESULT* result) {
  if (Missing(controller, __func__)) return false;
  HeadlessEngine* engine = HeadlessViewController::FromRef(controller)->engine();
  if (engine == nullptr) return false;
  LRESULT delegate_result = 0;
  if (!engine->registrar()->DispatchTopLevelMessage(hwnd, message, wparam, lparam,
                                                    &delegate_result)) {
    return false;
  }
  if (result != nullptr) *result = delegate_result;
  return true;
}

// ---- Engine ------------------------------------------------------------------------------------

FlutterDesktopEngineRef FlutterDesktopEngineCreate(
    const FlutterDesktopEngineProperties* engine_properties) {
  if (Missing(engine_properties, __func__)) return nullptr;
  std::unique_ptr<HeadlessEngine> engine = HeadlessEngine::Create(*engine_properties);
  return engine ? engine.release()->ref() : nullptr;
}

bool FlutterDesktopEngineDestroy(FlutterDesktopEngineRef engine) {
  if (Missing(engine, __func__)) return false;
  HeadlessEngine* headless = HeadlessEngine::FromRef(engine);
  if (headless->owned_by_view_controller()) {
    EngineLog("FlutterDesktopEngineDestroy refused: a view controller owns the engine");
    return false;
  }
  std::unique_ptr<HeadlessEngine> owned(headless);
  return true;
}

bool FlutterDesktopEngineRun(FlutterDesktopEngineRef engine, const char* entry_point) {
  if (Missing(engine, __func__)) return false;
  return HeadlessEngine::FromRef(engine)->Run(entry_point);
}

uint64_t FlutterDesktopEngineProcessMessages(FlutterDesktopEngineRef engine) {
  if (Missing(engine, __func__)) return 0;
  return HeadlessEngine::FromRef(engine)->ProcessMessages();
}

void FlutterDesktopEngineReloadSystemFonts(FlutterDesktopEngineRef engine) {
  if (Missing(engine, __func__)) return;
  HeadlessEngine::FromRef(engine)->ReloadSystemFonts();
}

FlutterDesktopPluginRegistrarRef FlutterDesktopEngineGetPluginRegistrar(
    FlutterDesktopEngineRef engine, const char* /*plugin_name*/) {
  if (Missing(engine, __func__)) return nullptr;
  return HeadlessEngine::FromRef(engine)->registrar()->ref();
}

FlutterDesktopMessengerRef FlutterDesktopEngineGetMessenger(FlutterDesktopEngineRef engine) {
  if (Missing(engine, __func__)) return nullptr;
  return HeadlessEngine::FromRef(engine)->messenger()->ref();
}

FlutterDesktopTextureRegistrarRef FlutterDesktopEngineGetTextureRegistrar(
    FlutterDesktopEngineRef engine) {
  if (Missing(engine, __func__)) return nullptr;
  return HeadlessEngine::FromRef(engine)->texture_registrar()->ref();
}

void FlutterDesktopEngineSetNextFrameCallback(FlutterDesktopEngineRef engine,
                                              VoidCallback callback, void* user_data) {
  if (Missing(engine, __func__)) return;
  HeadlessEngine::FromRef(engine)->SetNextFrameCallback(callback, user_data);
}

bool FlutterDesktopEngineProcessExternalWindowMessage(FlutterDesktopEngineRef engine,
                                                      HWND /*hwnd*/, UINT /*message*/,
                                                      WPARAM /*wparam*/, LPARAM /*lparam*/,
                                                      LRESULT* /*result*/) {
  // No lifecycle tracking without Dart: never consumed.
  Missing(engine, __func__);
  return false;
}

// ---- View --------------------------------------------------------------------------------------

HWND FlutterDesktopViewGetHWND(FlutterDesktopViewRef view) {
  if (Missing(view, __func__)) return nullptr;
  return HeadlessView::FromRef(view)->window();
}

IDXGIAdapter* FlutterDesktopViewGetGraphicsAdapter(FlutterDesktopViewRef view) {
  if (Missing(view, __func__)) return nullptr;
  return HeadlessView::FromRef(view)->GraphicsAdapter();
}

// ---- Plugin registrar --------------------------------------------------------------------------

FlutterDesktopMessengerRef FlutterDesktopPluginRegistrarGetMessenger(
    FlutterDesktopPluginRegistrarRef registrar) {
  if (Missing(registrar, __func__)) return nullptr;
  return EngineOfRegistrar(registrar)->messenger()->ref();
}

FlutterDesktopTextureRegistrarRef FlutterDesktopRegistrarGetTextureRegistrar(
    FlutterDesktopPluginRegistrarRef registrar) {
  if (Missing(registrar, __func__)) return nullptr;
  return EngineOfRegistrar(registrar)->texture_registrar()->ref();
}

void FlutterDesktopPluginRegistrarSetDestructionHandler(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopOnPluginRegistrarDestroyed callback) {
  if (Missing(registrar, __func__)) return;
  HeadlessRegistrar::FromRef(registrar)->SetDestructionHandler(callback);
}

FlutterDesktopViewRef FlutterDesktopPluginRegistrarGetView(
    FlutterDesktopPluginRegistrarRef registrar) {
  if (Missing(registrar, __func__)) return nullptr;
  HeadlessView* view = EngineOfRegistrar(registrar)->view();
  return view != nullptr ? view->ref() : nullptr;
}

FlutterDesktopViewRef FlutterDesktopPluginRegistrarGetViewById(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopViewId view_id) {
  if (Missing(registrar, __func__) || view_id != 0) return nullptr;
  HeadlessView* view = EngineOfRegistrar(registrar)->view();
  return view != nullptr ? view->ref() : nullptr;
}

void FlutterDesktopPluginRegistrarRegisterTopLevelWindowProcDelegate(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopWindowProcCallback delegate,
    void* user_data) {
  if (Missing(registrar, __func__)) return;
  HeadlessRegistrar::FromRef(registrar)->RegisterTopLevelDelegate(delegate, user_data);
}

void FlutterDesktopPluginRegistrarUnregisterTopLevelWindowProcDelegate(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopWindowProcCallback delegate) {
  if (Missing(registrar, __func__)) return;
  HeadlessRegistrar::FromRef(registrar)->UnregisterTopLevelDelegate(delegate);
}

// ---- Freestanding helpers ----------------------------------------------------------------------

UINT FlutterDesktopGetDpiForHWND(HWND hwnd) { return kestrun_headless::DpiForWindow(hwnd); }

UINT FlutterDesktopGetDpiForMonitor(HMONITOR monitor) {
  return kestrun_headless::DpiForMonitor(monitor);
}

void FlutterDesktopResyncOutputStreams() {
  // Point the C streams at the console, if the process has one now, and resynchronise the C++
  // streams with them.
  if (GetConsoleWindow() != nullptr) {
    FILE* stream = nullptr;
    if (freopen_s(&stream, "CONOUT$", "w", stdout) != 0) {
      EngineLog("cannot reopen standard output on the console");
    }
    if (freopen_s(&stream, "CONOUT$", "w", stderr) != 0) {
      EngineLog("cannot reopen standard error on the console");
    }
  }
  std::ios::sync_with_stdio(true);
  std::cout.clear();
  std::cerr.clear();
  std::wcout.clear();
  std::wcerr.clear();
}

// ---- Messenger ---------------------------------------------------------------------------------

bool FlutterDesktopMessengerSend(FlutterDesktopMessengerRef messenger, const char* channel,
                                 const uint8_t* message, const size_t message_size) {
  return FlutterDesktopMessengerSendWithReply(messenger, channel, message, message_size, nullptr,
                                              nullptr);
}

bool FlutterDesktopMessengerSendWithReply(FlutterDesktopMessengerRef messenger,
                                          const char* channel, const uint8_t* message,
                                          const size_t message_size,
                                          const FlutterDesktopBinaryReply reply, void* user_data) {
  if (Missing(messenger, __func__) || Missing(channel, __func__)) return false;
  return HeadlessMessenger::FromRef(messenger)->Send(channel, message, message_size, reply,
                                                     user_data);
}

void FlutterDesktopMessengerSendResponse(FlutterDesktopMessengerRef messenger,
                                         const FlutterDesktopMessageResponseHandle* handle,
                                         const uint8_t* data, size_t data_length) {
  if (Missing(messenger, __func__) || Missing(handle, __func__)) return;
  HeadlessMessenger::FromRef(messenger)->SendResponse(handle, data, data_length);
}

void FlutterDesktopMessengerSetCallback(FlutterDesktopMessengerRef messenger, const char* channel,
                                        FlutterDesktopMessageCallback callback, void* user_data) {
  if (Missing(messenger, __func__) || Missing(channel, __func__)) return;
  HeadlessMessenger::FromRef(messenger)->SetCallback(channel, callback, user_data);
}

FlutterDesktopMessengerRef FlutterDesktopMessengerAddRef(FlutterDesktopMessengerRef messenger) {
  if (Missing(messenger, __func__)) return nullptr;
  HeadlessMessenger::FromRef(messenger)->AddRef();
  return messenger;
}

void FlutterDesktopMessengerRelease(FlutterDesktopMessengerRef messenger) {
  if (Missing(messenger, __func__)) return;
  HeadlessMessenger::FromRef(messenger)->Release();
}

bool FlutterDesktopMessengerIsAvailable(FlutterDesktopMessengerRef messenger) {
  if (Missing(messenger, __func__)) return false;
  return HeadlessMessenger::FromRef(messenger)->IsAvailable();
}

FlutterDesktopMessengerRef FlutterDesktopMessengerLock(FlutterDesktopMessengerRef messenger) {
  if (Missing(messenger, __func__)) return nullptr;
  HeadlessMessenger::FromRef(messenger)->Lock();
  return messenger;
}

void FlutterDesktopMessengerUnlock(FlutterDesktopMessengerRef messenger) {
  if (Missing(messenger, __func__)) return;
  HeadlessMessenger::FromRef(messenger)->Unlock();
}

// ---- Texture registrar -------------------------------------------------------------------------

int64_t FlutterDesktopTextureRegistrarRegisterExternalTexture(
    FlutterDesktopTextureRegistrarRef texture_registrar, const FlutterDesktopTextureInfo* info) {
  if (Missing(texture_registrar, __func__)) return -1;
  return HeadlessTextureRegistrar::FromRef(texture_registrar)->Register(info);
}

void FlutterDesktopTextureRegistrarUnregisterExternalTexture(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id,
    void (*callback)(void* user_data), void* user_data) {
  if (Missing(texture_registrar, __func__)) return;
  HeadlessTextureRegistrar::FromRef(texture_registrar)->Unregister(texture_id, callback,
                                                                   user_data);
}

bool FlutterDesktopTextureRegistrarMarkExternalTextureFrameAvailable(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id) {
  if (Missing(texture_registrar, __func__)) return false;
  return HeadlessTextureRegistrar::FromRef(texture_registrar)->MarkFrameAvailable(texture_id);
}
