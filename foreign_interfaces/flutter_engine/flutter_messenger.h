// Binary messenger of the Flutter engine's C API (see flutter_export.h for the targeted version).
#ifndef KESTRUN_ENGINE_API_FLUTTER_MESSENGER_H_
#define KESTRUN_ENGINE_API_FLUTTER_MESSENGER_H_

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "flutter_export.h"

#if defined(__cplusplus)
extern "C" {
#endif

typedef struct FlutterDesktopMessenger* FlutterDesktopMessengerRef;

// Opaque; only ever passed by pointer.
typedef struct _FlutterPlatformMessageResponseHandle FlutterDesktopMessageResponseHandle;

typedef void (*FlutterDesktopBinaryReply)(const uint8_t* data, size_t data_size, void* user_data);

typedef struct {
  // Set by the engine to its own sizeof(FlutterDesktopMessage).
  size_t struct_size;
  const char* channel;
  const uint8_t* message;
  size_t message_size;
  // When not null, FlutterDesktopMessengerSendResponse must be called exactly once with it.
  const FlutterDesktopMessageResponseHandle* response_handle;
} FlutterDesktopMessage;

typedef void (*FlutterDesktopMessageCallback)(FlutterDesktopMessengerRef messenger,
                                              const FlutterDesktopMessage* message,
                                              void* user_data);

FLUTTER_EXPORT bool FlutterDesktopMessengerSend(FlutterDesktopMessengerRef messenger,
                                                const char* channel, const uint8_t* message,
                                                const size_t message_size);

FLUTTER_EXPORT bool FlutterDesktopMessengerSendWithReply(FlutterDesktopMessengerRef messenger,
                                                         const char* channel,
                                                         const uint8_t* message,
                                                         const size_t message_size,
                                                         const FlutterDesktopBinaryReply reply,
                                                         void* user_data);

FLUTTER_EXPORT void FlutterDesktopMessengerSendResponse(
    FlutterDesktopMessengerRef messenger, const FlutterDesktopMessageResponseHandle* handle,
    const uint8_t* data, size_t data_length);

FLUTTER_EXPORT void FlutterDesktopMessengerSetCallback(FlutterDesktopMessengerRef messenger,
                                                       const char* channel,
                                                       FlutterDesktopMessageCallback callback,
                                                       void* user_data);

FLUTTER_EXPORT FlutterDesktopMessengerRef
FlutterDesktopMessengerAddRef(FlutterDesktopMessengerRef messenger);

FLUTTER_EXPORT void FlutterDesktopMessengerRelease(FlutterDesktopMessengerRef messenger);

FLUTTER_EXPORT bool FlutterDesktopMessengerIsAvailable(FlutterDesktopMessengerRef messenger);

FLUTTER_EXPORT FlutterDesktopMessengerRef
FlutterDesktopMessengerLock(FlutterDesktopMessengerRef messenger);

FLUTTER_EXPORT void FlutterDesktopMessengerUnlock(FlutterDesktopMessengerRef messenger);

#if defined(__cplusplus)
}  // extern "C"

static_assert(sizeof(FlutterDesktopMessage) == 5 * sizeof(void*),
              "FlutterDesktopMessage must match the engine's layout");
#endif

#endif  // KESTRUN_ENGINE_API_FLUTTER_MESSENGER_H_
