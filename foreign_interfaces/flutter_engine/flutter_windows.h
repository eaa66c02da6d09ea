// Windows part of the Flutter engine's C API: engine, view controller, view, Windows extensions of
// the plugin registrar and freestanding helpers (see flutter_export.h for the targeted version).
#ifndef KESTRUN_ENGINE_API_FLUTTER_WINDOWS_H_
#define KESTRUN_ENGINE_API_FLUTTER_WINDOWS_H_

#include <dxgi.h>
#include <stddef.h>
#include <stdint.h>
#include <windows.h>

#include "flutter_export.h"
#include "flutter_messenger.h"
#include "flutter_plugin_registrar.h"

#if defined(__cplusplus)
extern "C" {
#endif

typedef void (*VoidCallback)(void* user_data);

typedef struct FlutterDesktopViewController* FlutterDesktopViewControllerRef;
typedef struct FlutterDesktopView* FlutterDesktopViewRef;
typedef struct FlutterDesktopEngine* FlutterDesktopEngineRef;
typedef int64_t FlutterDesktopViewId;

typedef enum {
  NoPreference = 0,
  LowPowerPreference = 1,
  HighPerformancePreference = 2,
} FlutterDesktopGpuPreference;

typedef enum {
  Default = 0,
  RunOnPlatformThread = 1,
  RunOnSeparateThread = 2,
} FlutterDesktopUIThreadPolicy;

// No size field: the engine reads the layout it was built with, so these fields must match the
// engine version exactly (56 bytes on x64 for the targeted releases).
typedef struct {
  const wchar_t* assets_path;
  const wchar_t* icu_data_path;
  const wchar_t* aot_library_path;
  // Null or empty means "main".
  const char* dart_entrypoint;
  int dart_entrypoint_argc;
  const char** dart_entrypoint_argv;
  FlutterDesktopGpuPreference gpu_preference;
  FlutterDesktopUIThreadPolicy ui_thread_policy;
} FlutterDesktopEngineProperties;

typedef struct {
  int width;
  int height;
} FlutterDesktopViewControllerProperties;

// Sets *result and answers true when the message is handled and handling should stop.
typedef bool (*FlutterDesktopWindowProcCallback)(HWND hwnd, UINT uMsg, WPARAM wParam,
                                                 LPARAM lParam, void* user_data, LRESULT* result);

// ---- View controller -----------------------------------------------------------------------------

// Takes ownership of `engine` (destroyed if creation fails) and runs it if needed. Null on error.
FLUTTER_EXPORT FlutterDesktopViewControllerRef
FlutterDesktopViewControllerCreate(int width, int height, FlutterDesktopEngineRef engine);

FLUTTER_EXPORT void FlutterDesktopViewControllerDestroy(FlutterDesktopViewControllerRef controller);

FLUTTER_EXPORT FlutterDesktopViewId
FlutterDesktopViewControllerGetViewId(FlutterDesktopViewControllerRef view_controller);

FLUTTER_EXPORT FlutterDesktopEngineRef
FlutterDesktopViewControllerGetEngine(FlutterDesktopViewControllerRef controller);

FLUTTER_EXPORT FlutterDesktopViewRef
FlutterDesktopViewControllerGetView(FlutterDesktopViewControllerRef controller);

FLUTTER_EXPORT void FlutterDesktopViewControllerForceRedraw(
    FlutterDesktopViewControllerRef controller);

FLUTTER_EXPORT bool FlutterDesktopViewControllerHandleTopLevelWindowProc(
    FlutterDesktopViewControllerRef controller, HWND hwnd, UINT message, WPARAM wparam,
    LPARAM lparam, LRESULT* result);

// ---- Engine ----------------------------------------------------------------------------------------

FLUTTER_EXPORT FlutterDesktopEngineRef
FlutterDesktopEngineCreate(const FlutterDesktopEngineProperties* engine_properties);

FLUTTER_EXPORT bool FlutterDesktopEngineDestroy(FlutterDesktopEngineRef engine);

FLUTTER_EXPORT bool FlutterDesktopEngineRun(FlutterDesktopEngineRef engine,
                                            const char* entry_point);

FLUTTER_EXPORT uint64_t FlutterDesktopEngineProcessMessages(FlutterDesktopEngineRef engine);

FLUTTER_EXPORT void FlutterDesktopEngineReloadSystemFonts(FlutterDesktopEngineRef engine);

FLUTTER_EXPORT FlutterDesktopPluginRegistrarRef
FlutterDesktopEngineGetPluginRegistrar(FlutterDesktopEngineRef engine, const char* plugin_name);

FLUTTER_EXPORT FlutterDesktopMessengerRef
FlutterDesktopEngineGetMessenger(FlutterDesktopEngineRef engine);

FLUTTER_EXPORT FlutterDesktopTextureRegistrarRef
FlutterDesktopEngineGetTextureRegistrar(FlutterDesktopEngineRef engine);

FLUTTER_EXPORT void FlutterDesktopEngineSetNextFrameCallback(FlutterDesktopEngineRef engine,
                                                             VoidCallback callback,
                                                             void* user_data);

FLUTTER_EXPORT bool FlutterDesktopEngineProcessExternalWindowMessage(
    FlutterDesktopEngineRef engine, HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam,
    LRESULT* result);

FLUTTER_EXPORT FlutterDesktopViewControllerRef FlutterDesktopEngineCreateViewController(
    FlutterDesktopEngineRef engine, const FlutterDesktopViewControllerProperties* properties);

// ---- View ------------------------------------------------------------------------------------------

FLUTTER_EXPORT HWND FlutterDesktopViewGetHWND(FlutterDesktopViewRef view);

FLUTTER_EXPORT IDXGIAdapter* FlutterDesktopViewGetGraphicsAdapter(FlutterDesktopViewRef view);

// ---- Plugin registrar, Windows extensions --------------------------------------------------------

FLUTTER_EXPORT FlutterDesktopViewRef
FlutterDesktopPluginRegistrarGetView(FlutterDesktopPluginRegistrarRef registrar);

FLUTTER_EXPORT FlutterDesktopViewRef FlutterDesktopPluginRegistrarGetViewById(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopViewId view_id);

FLUTTER_EXPORT void FlutterDesktopPluginRegistrarRegisterTopLevelWindowProcDelegate(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopWindowProcCallback delegate,
    void* user_data);

FLUTTER_EXPORT void FlutterDesktopPluginRegistrarUnregisterTopLevelWindowProcDelegate(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopWindowProcCallback delegate);

// ---- Freestanding helpers ----------------------------------------------------------------------

FLUTTER_EXPORT UINT FlutterDesktopGetDpiForHWND(HWND hwnd);

FLUTTER_EXPORT UINT FlutterDesktopGetDpiForMonitor(HMONITOR monitor);

FLUTTER_EXPORT void FlutterDesktopResyncOutputStreams();

#if defined(__cplusplus)
}  // extern "C"
#endif

#if defined(__cplusplus) && defined(_WIN64)
static_assert(sizeof(FlutterDesktopEngineProperties) == 56, "engine properties layout");
static_assert(offsetof(FlutterDesktopEngineProperties, dart_entrypoint_argv) == 40,
              "engine properties layout");
static_assert(offsetof(FlutterDesktopEngineProperties, ui_thread_policy) == 52,
              "engine properties layout");
#endif

#endif  // KESTRUN_ENGINE_API_FLUTTER_WINDOWS_H_
