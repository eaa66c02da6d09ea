// Control interface of the test stand-in for the Flutter engine library.
//
// The stand-in implements the engine's C API in-process (as flutter_windows.dll on Windows, a
// shared library elsewhere) and records what the host does with it. Tests use the functions below
// to play the interface's part: deliver messages, read replies and outgoing messages, drive
// event-channel listen/cancel, shut the messenger down, fire the next frame and offer window
// messages to top-level delegates. Nothing here is part of the engine's own API.
#ifndef KESTRUN_TESTING_FLUTTER_ENGINE_TEST_FLUTTER_ENGINE_H_
#define KESTRUN_TESTING_FLUTTER_ENGINE_TEST_FLUTTER_ENGINE_H_

#include <flutter_plugin_registrar.h>

#ifdef _WIN32
#include <flutter_windows.h>
#endif

#include <stddef.h>
#include <stdint.h>

#ifdef KESTRUN_TEST_ENGINE_IMPLEMENTATION
#ifdef _WIN32
#define KESTRUN_TEST_ENGINE_EXPORT __declspec(dllexport)
#else
#define KESTRUN_TEST_ENGINE_EXPORT __attribute__((visibility("default")))
#endif
#else
#ifdef _WIN32
#define KESTRUN_TEST_ENGINE_EXPORT __declspec(dllimport)
#else
#define KESTRUN_TEST_ENGINE_EXPORT
#endif
#endif

#if defined(__cplusplus)
extern "C" {
#endif

// Forgets every object, recorded message and injected failure.
KESTRUN_TEST_ENGINE_EXPORT void FlutterTestReset(void);

// ---- Messenger -----------------------------------------------------------------------------------

// A messenger of its own (reference count 1, kept until reset), for channel-level tests.
KESTRUN_TEST_ENGINE_EXPORT FlutterDesktopMessengerRef FlutterTestCreateMessenger(void);

// Delivers a message from the interface. Answers a token for FlutterTestGetResponse. A channel
// without a handler is answered empty at once, as the engine does.
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestDeliverMessage(FlutterDesktopMessengerRef messenger,
                                                         const char* channel,
                                                         const uint8_t* data, size_t size);

// How many responses the message of `token` got (0 while none); the first one's bytes go to
// *data and *size (valid until reset). Any thread may have responded.
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestGetResponse(int token, const uint8_t** data,
                                                      size_t* size);

// Messages the host sent to the interface, in order.
KESTRUN_TEST_ENGINE_EXPORT size_t FlutterTestSentMessageCount(FlutterDesktopMessengerRef messenger);
KESTRUN_TEST_ENGINE_EXPORT bool FlutterTestGetSentMessage(FlutterDesktopMessengerRef messenger,
                                                          size_t index, const char** channel,
                                                          const uint8_t** data, size_t* size,
                                                          bool* awaits_reply);
// Answers a sent message that awaits a reply (once).
KESTRUN_TEST_ENGINE_EXPORT bool FlutterTestReplyToSentMessage(FlutterDesktopMessengerRef messenger,
                                                              size_t index, const uint8_t* data,
                                                              size_t size);

// False makes the messenger unavailable, as after engine shutdown.
KESTRUN_TEST_ENGINE_EXPORT void FlutterTestSetMessengerAvailable(
    FlutterDesktopMessengerRef messenger, bool available);
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestMessengerRefCount(FlutterDesktopMessengerRef messenger);
KESTRUN_TEST_ENGINE_EXPORT bool FlutterTestHasHandler(FlutterDesktopMessengerRef messenger,
                                                      const char* channel);
// Responses sent without holding the messenger lock (a correct host keeps this at 0).
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestUnlockedResponseCount(
    FlutterDesktopMessengerRef messenger);

// ---- Registrar and textures ----------------------------------------------------------------------

// A registrar on its own messenger, without engine or view.
KESTRUN_TEST_ENGINE_EXPORT FlutterDesktopPluginRegistrarRef FlutterTestCreateRegistrar(void);
// Runs the registrar's destruction handler, as the engine does when it shuts down.
KESTRUN_TEST_ENGINE_EXPORT void FlutterTestDestroyRegistrar(
    FlutterDesktopPluginRegistrarRef registrar);
KESTRUN_TEST_ENGINE_EXPORT FlutterDesktopTextureRegistrarRef FlutterTestTextureRegistrarOf(
    FlutterDesktopPluginRegistrarRef registrar);

KESTRUN_TEST_ENGINE_EXPORT size_t
FlutterTestTextureCount(FlutterDesktopTextureRegistrarRef texture_registrar);
// Asks a pixel-buffer texture for its pixels, as the engine's raster thread does.
KESTRUN_TEST_ENGINE_EXPORT const FlutterDesktopPixelBuffer* FlutterTestCopyPixelBuffer(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id, size_t width,
    size_t height);
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestFrameAvailableCount(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id);

#ifdef _WIN32
// ---- Engine and view controller (Windows) ----------------------------------------------------

KESTRUN_TEST_ENGINE_EXPORT void FlutterTestFailNextEngineCreate(void);
KESTRUN_TEST_ENGINE_EXPORT void FlutterTestFailNextViewControllerCreate(void);
KESTRUN_TEST_ENGINE_EXPORT FlutterDesktopEngineRef FlutterTestLastEngine(void);
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestLiveEngineCount(void);
KESTRUN_TEST_ENGINE_EXPORT bool FlutterTestEngineIsRunning(FlutterDesktopEngineRef engine);
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestEngineArgumentCount(FlutterDesktopEngineRef engine);
KESTRUN_TEST_ENGINE_EXPORT const char* FlutterTestEngineArgument(FlutterDesktopEngineRef engine,
                                                                 int index);
KESTRUN_TEST_ENGINE_EXPORT const wchar_t* FlutterTestEngineAssetsPath(
    FlutterDesktopEngineRef engine);
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestForceRedrawCount(FlutterDesktopEngineRef engine);
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestFontReloadCount(FlutterDesktopEngineRef engine);
// Runs the pending next-frame callback, if any. Answers whether one ran.
KESTRUN_TEST_ENGINE_EXPORT bool FlutterTestFireNextFrame(FlutterDesktopEngineRef engine);

// The engine's one registrar (it ignores plugin names, as the real engine does).
KESTRUN_TEST_ENGINE_EXPORT FlutterDesktopPluginRegistrarRef
FlutterTestRegistrarOf(FlutterDesktopEngineRef engine);
KESTRUN_TEST_ENGINE_EXPORT int FlutterTestTopLevelDelegateCount(
    FlutterDesktopPluginRegistrarRef registrar);
// Offers a message to the registrar's top-level delegates in registration order; the first that
// handles it ends the walk. Answers whether one did (its result in *result).
KESTRUN_TEST_ENGINE_EXPORT bool FlutterTestDispatchTopLevelMessage(
    FlutterDesktopPluginRegistrarRef registrar, HWND hwnd, UINT message, WPARAM wparam,
    LPARAM lparam, LRESULT* result);
#endif

#if defined(__cplusplus)
}  // extern "C"
#endif

#endif  // KESTRUN_TESTING_FLUTTER_ENGINE_TEST_FLUTTER_ENGINE_H_
