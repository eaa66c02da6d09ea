// In-process stand-in for the Flutter engine library, scripted by tests through
// test_flutter_engine.h. Objects it hands out live until FlutterTestReset, so a test can still
// inspect a messenger after the host has released it.
#define FLUTTER_DESKTOP_LIBRARY
#define KESTRUN_TEST_ENGINE_IMPLEMENTATION
#include "test_flutter_engine.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

struct _FlutterPlatformMessageResponseHandle {
  int token;
};

struct FlutterDesktopMessenger {
  std::atomic<int> ref_count{1};
  std::atomic<bool> available{true};
  std::mutex lock;
  std::atomic<std::thread::id> lock_owner{};
  std::atomic<int> unlocked_responses{0};
  struct Handler {
    FlutterDesktopMessageCallback callback;
    void* user_data;
  };
  std::map<std::string, Handler> handlers;
  struct Sent {
    std::string channel;
    std::vector<uint8_t> data;
    FlutterDesktopBinaryReply reply;
    void* user_data;
    bool replied;
  };
  std::vector<Sent> sent;
};

struct FlutterDesktopTextureRegistrar {
  struct Texture {
    FlutterDesktopTextureInfo info;
    int frames_available;
  };
  std::map<int64_t, Texture> textures;
  int64_t next_id = 1;
};

struct FlutterDesktopPluginRegistrar {
  FlutterDesktopMessenger* messenger = nullptr;
  FlutterDesktopTextureRegistrar* texture_registrar = nullptr;
  FlutterDesktopOnPluginRegistrarDestroyed destruction_handler = nullptr;
  bool destroyed = false;
#ifdef _WIN32
  FlutterDesktopView* view = nullptr;
  struct Delegate {
    FlutterDesktopWindowProcCallback callback;
    void* user_data;
  };
  std::vector<Delegate> delegates;
#endif
};

#ifdef _WIN32
struct FlutterDesktopView {
  HWND hwnd = nullptr;
};

struct FlutterDesktopEngine {
  std::wstring assets_path;
  std::wstring icu_data_path;
  std::wstring aot_library_path;
  std::vector<std::string> arguments;
  bool running = false;
  bool destroyed = false;
  FlutterDesktopMessenger* messenger = nullptr;
  FlutterDesktopPluginRegistrar* registrar = nullptr;
  VoidCallback next_frame = nullptr;
  void* next_frame_user_data = nullptr;
  int force_redraws = 0;
  int font_reloads = 0;
};

struct FlutterDesktopViewController {
  FlutterDesktopEngine* engine = nullptr;
  FlutterDesktopView* view = nullptr;
};
#endif

namespace {

struct Response {
  int count = 0;
  std::vector<uint8_t> data;
};

// Everything the stand-in made, kept until reset.
struct State {
  std::mutex mutex;  // guards the containers below, never held while calling into the host
  std::vector<std::unique_ptr<FlutterDesktopMessenger>> messengers;
  std::vector<std::unique_ptr<FlutterDesktopTextureRegistrar>> texture_registrars;
  std::vector<std::unique_ptr<FlutterDesktopPluginRegistrar>> registrars;
  std::map<int, Response> responses;
  std::vector<std::unique_ptr<_FlutterPlatformMessageResponseHandle>> handles;
  int next_token = 1;
#ifdef _WIN32
  std::vector<std::unique_ptr<FlutterDesktopEngine>> engines;
  std::vector<std::unique_ptr<FlutterDesktopView>> views;
  std::vector<std::unique_ptr<FlutterDesktopViewController>> controllers;
  FlutterDesktopEngine* last_engine = nullptr;
  bool fail_next_engine = false;
  bool fail_next_controller = false;
#endif
};

State& GetState() {
  static State* state = new State();
  return *state;
}

FlutterDesktopMessenger* NewMessenger() {
  State& state = GetState();
  std::lock_guard<std::mutex> guard(state.mutex);
  state.messengers.push_back(std::make_unique<FlutterDesktopMessenger>());
  return state.messengers.back().get();
}

FlutterDesktopPluginRegistrar* NewRegistrar(FlutterDesktopMessenger* messenger) {
  State& state = GetState();
  std::lock_guard<std::mutex> guard(state.mutex);
  state.texture_registrars.push_back(std::make_unique<FlutterDesktopTextureRegistrar>());
  auto registrar = std::make_unique<FlutterDesktopPluginRegistrar>();
  registrar->messenger = messenger;
  registrar->texture_registrar = state.texture_registrars.back().get();
  state.registrars.push_back(std::move(registrar));
  return state.registrars.back().get();
}

void DestroyRegistrar(FlutterDesktopPluginRegistrar* registrar) {
  if (registrar == nullptr || registrar->destroyed) {
    return;
  }
  registrar->destroyed = true;
  if (registrar->destruction_handler != nullptr) {
    registrar->destruction_handler(registrar);
  }
}

}  // namespace

extern "C" {

// ---- Engine API: messenger -----------------------------------------------------------------------

bool FlutterDesktopMessengerSend(FlutterDesktopMessengerRef messenger, const char* channel,
                                 const uint8_t* message, const size_t message_size) {
  return FlutterDesktopMessengerSendWithReply(messenger, channel, message, message_size, nullptr,
                                              nullptr);
}

bool FlutterDesktopMessengerSendWithReply(FlutterDesktopMessengerRef messenger,
                                          const char* channel, const uint8_t* message,
                                          const size_t message_size,
                                          const FlutterDesktopBinaryReply reply, void* user_data) {
  if (!messenger->available) {
    return false;
  }
  std::lock_guard<std::mutex> guard(GetState().mutex);
  FlutterDesktopMessenger::Sent sent;
  sent.channel = channel;
  if (message != nullptr) {
    sent.data.assign(message, message + message_size);
  }
  sent.reply = reply;
  sent.user_data = user_data;
  sent.replied = false;
  messenger->sent.push_back(std::move(sent));
  return true;
}

void FlutterDesktopMessengerSendResponse(FlutterDesktopMessengerRef messenger,
                                         const FlutterDesktopMessageResponseHandle* handle,
                                         const uint8_t* data, size_t data_length) {
  if (messenger->lock_owner.load() != std::this_thread::get_id()) {
    ++messenger->unlocked_responses;
  }
  std::lock_guard<std::mutex> guard(GetState().mutex);
  Response& response = GetState().responses[handle->token];
  if (response.count++ == 0 && data != nullptr) {
    response.data.assign(data, data + data_length);
  }
}

void FlutterDesktopMessengerSetCallback(FlutterDesktopMessengerRef messenger, const char* channel,
                                        FlutterDesktopMessageCallback callback, void* user_data) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  if (callback == nullptr) {
    messenger->handlers.erase(channel);
  } else {
    messenger->handlers[channel] = {callback, user_data};
  }
}

FlutterDesktopMessengerRef FlutterDesktopMessengerAddRef(FlutterDesktopMessengerRef messenger) {
  ++messenger->ref_count;
  return messenger;
}

void FlutterDesktopMessengerRelease(FlutterDesktopMessengerRef messenger) {
  --messenger->ref_count;
}

bool FlutterDesktopMessengerIsAvailable(FlutterDesktopMessengerRef messenger) {
  return messenger->available;
}

FlutterDesktopMessengerRef FlutterDesktopMessengerLock(FlutterDesktopMessengerRef messenger) {
  messenger->lock.lock();
  messenger->lock_owner = std::this_thread::get_id();
  return messenger;
}

void FlutterDesktopMessengerUnlock(FlutterDesktopMessengerRef messenger) {
  messenger->lock_owner = std::thread::id();
  messenger->lock.unlock();
}

// ---- Engine API: registrar and textures --------------------------------------------------------

FlutterDesktopMessengerRef FlutterDesktopPluginRegistrarGetMessenger(
    FlutterDesktopPluginRegistrarRef registrar) {
  return registrar->messenger;
}

FlutterDesktopTextureRegistrarRef FlutterDesktopRegistrarGetTextureRegistrar(
    FlutterDesktopPluginRegistrarRef registrar) {
  return registrar->texture_registrar;
}

void FlutterDesktopPluginRegistrarSetDestructionHandler(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopOnPluginRegistrarDestroyed callback) {
  registrar->destruction_handler = callback;
}

int64_t FlutterDesktopTextureRegistrarRegisterExternalTexture(
    FlutterDesktopTextureRegistrarRef texture_registrar, const FlutterDesktopTextureInfo* info) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  const int64_t id = texture_registrar->next_id++;
  texture_registrar->textures[id] = {*info, 0};
  return id;
}

void FlutterDesktopTextureRegistrarUnregisterExternalTexture(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id,
    void (*callback)(void* user_data), void* user_data) {
  {
    std::lock_guard<std::mutex> guard(GetState().mutex);
    texture_registrar->textures.erase(texture_id);
  }
  if (callback != nullptr) {
    callback(user_data);
  }
}

bool FlutterDesktopTextureRegistrarMarkExternalTextureFrameAvailable(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  auto it = texture_registrar->textures.find(texture_id);
  if (it == texture_registrar->textures.end()) {
    return false;
  }
  ++it->second.frames_available;
  return true;
}

// ---- Control: messenger ----------------------------------------------------------------------------

void FlutterTestReset(void) {
  State& state = GetState();
  std::lock_guard<std::mutex> guard(state.mutex);
  state.messengers.clear();
  state.texture_registrars.clear();
  state.registrars.clear();
  state.responses.clear();
  state.handles.clear();
  state.next_token = 1;
#ifdef _WIN32
  for (auto& view : state.views) {
    if (view->hwnd != nullptr) {
      DestroyWindow(view->hwnd);
    }
  }
  state.engines.clear();
  state.views.clear();
  state.controllers.clear();
  state.last_engine = nullptr;
  state.fail_next_engine = false;
  state.fail_next_controller = false;
#endif
}

FlutterDesktopMessengerRef FlutterTestCreateMessenger(void) { return NewMessenger(); }

int FlutterTestDeliverMessage(FlutterDesktopMessengerRef messenger, const char* channel,
                              const uint8_t* data, size_t size) {
  State& state = GetState();
  FlutterDesktopMessenger::Handler handler = {nullptr, nullptr};
  _FlutterPlatformMessageResponseHandle* handle = nullptr;
  {
    std::lock_guard<std::mutex> guard(state.mutex);
    const int token = state.next_token++;
    state.handles.push_back(std::make_unique<_FlutterPlatformMessageResponseHandle>());
    handle = state.handles.back().get();
    handle->token = token;
    state.responses[token];
    auto it = messenger->handlers.find(channel);
    if (it != messenger->handlers.end()) {
      handler = it->second;
    }
  }
  if (handler.callback == nullptr) {
    // No handler: the engine answers empty by itself.
    FlutterDesktopMessengerLock(messenger);
    FlutterDesktopMessengerSendResponse(messenger, handle, nullptr, 0);
    FlutterDesktopMessengerUnlock(messenger);
    return handle->token;
  }
  FlutterDesktopMessage message = {};
  message.struct_size = sizeof(message);
  message.channel = channel;
  message.message = data;
  message.message_size = size;
  message.response_handle = handle;
  handler.callback(messenger, &message, handler.user_data);
  return handle->token;
}

int FlutterTestGetResponse(int token, const uint8_t** data, size_t* size) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  auto it = GetState().responses.find(token);
  if (it == GetState().responses.end()) {
    return 0;
  }
  if (data != nullptr) {
    *data = it->second.data.data();
  }
  if (size != nullptr) {
    *size = it->second.data.size();
  }
  return it->second.count;
}

size_t FlutterTestSentMessageCount(FlutterDesktopMessengerRef messenger) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  return messenger->sent.size();
}

bool FlutterTestGetSentMessage(FlutterDesktopMessengerRef messenger, size_t index,
                               const char** channel, const uint8_t** data, size_t* size,
                               bool* awaits_reply) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  if (index >= messenger->sent.size()) {
    return false;
  }
  const FlutterDesktopMessenger::Sent& sent = messenger->sent[index];
  if (channel != nullptr) {
    *channel = sent.channel.c_str();
  }
  if (data != nullptr) {
    *data = sent.data.data();
  }
  if (size != nullptr) {
    *size = sent.data.size();
  }
  if (awaits_reply != nullptr) {
    *awaits_reply = sent.reply != nullptr;
  }
  return true;
}

bool FlutterTestReplyToSentMessage(FlutterDesktopMessengerRef messenger, size_t index,
                                   const uint8_t* data, size_t size) {
  FlutterDesktopBinaryReply reply = nullptr;
  void* user_data = nullptr;
  {
    std::lock_guard<std::mutex> guard(GetState().mutex);
    if (index >= messenger->sent.size()) {
      return false;
    }
    FlutterDesktopMessenger::Sent& sent = messenger->sent[index];
    if (sent.reply == nullptr || sent.replied) {
      return false;
    }
    sent.replied = true;
    reply = sent.reply;
    user_data = sent.user_data;
  }
  reply(data, size, user_data);
  return true;
}

void FlutterTestSetMessengerAvailable(FlutterDesktopMessengerRef messenger, bool available) {
  FlutterDesktopMessengerLock(messenger);
  messenger->available = available;
  FlutterDesktopMessengerUnlock(messenger);
}

int FlutterTestMessengerRefCount(FlutterDesktopMessengerRef messenger) {
  return messenger->ref_count;
}

bool FlutterTestHasHandler(FlutterDesktopMessengerRef messenger, const char* channel) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  return messenger->handlers.count(channel) != 0;
}

int FlutterTestUnlockedResponseCount(FlutterDesktopMessengerRef messenger) {
  return messenger->unlocked_responses;
}

// ---- Control: registrar and textures ---------------------------------------------------------

FlutterDesktopPluginRegistrarRef FlutterTestCreateRegistrar(void) {
  return NewRegistrar(NewMessenger());
}

void FlutterTestDestroyRegistrar(FlutterDesktopPluginRegistrarRef registrar) {
  DestroyRegistrar(registrar);
}

FlutterDesktopTextureRegistrarRef FlutterTestTextureRegistrarOf(
    FlutterDesktopPluginRegistrarRef registrar) {
  return registrar->texture_registrar;
}

size_t FlutterTestTextureCount(FlutterDesktopTextureRegistrarRef texture_registrar) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  return texture_registrar->textures.size();
}

const FlutterDesktopPixelBuffer* FlutterTestCopyPixelBuffer(
    FlutterDesktopTextureRegistrarRef texture_registrar, int64_t texture_id, size_t width,
    size_t height) {
  FlutterDesktopPixelBufferTextureConfig config = {};
  {
    std::lock_guard<std::mutex> guard(GetState().mutex);
    auto it = texture_registrar->textures.find(texture_id);
    if (it == texture_registrar->textures.end() ||
        it->second.info.type != kFlutterDesktopPixelBufferTexture) {
      return nullptr;
    }
    config = it->second.info.pixel_buffer_config;
  }
  return config.callback(width, height, config.user_data);
}

int FlutterTestFrameAvailableCount(FlutterDesktopTextureRegistrarRef texture_registrar,
                                   int64_t texture_id) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  auto it = texture_registrar->textures.find(texture_id);
  return it == texture_registrar->textures.end() ? -1 : it->second.frames_available;
}

}  // extern "C"

#ifdef _WIN32

namespace {

FlutterDesktopEngine* NewEngine(const FlutterDesktopEngineProperties* properties) {
  State& state = GetState();
  auto engine = std::make_unique<FlutterDesktopEngine>();
  engine->assets_path = properties->assets_path != nullptr ? properties->assets_path : L"";
  engine->icu_data_path = properties->icu_data_path != nullptr ? properties->icu_data_path : L"";
  engine->aot_library_path =
      properties->aot_library_path != nullptr ? properties->aot_library_path : L"";
  for (int i = 0; i < properties->dart_entrypoint_argc; ++i) {
    engine->arguments.emplace_back(properties->dart_entrypoint_argv[i]);
  }
  FlutterDesktopEngine* raw = engine.get();
  raw->messenger = NewMessenger();
  raw->registrar = NewRegistrar(raw->messenger);
  std::lock_guard<std::mutex> guard(state.mutex);
  state.engines.push_back(std::move(engine));
  state.last_engine = raw;
  return raw;
}

void ShutDownEngine(FlutterDesktopEngine* engine) {
  if (engine == nullptr || engine->destroyed) {
    return;
  }
  engine->destroyed = true;
  engine->running = false;
  DestroyRegistrar(engine->registrar);
  FlutterTestSetMessengerAvailable(engine->messenger, false);
  FlutterDesktopMessengerRelease(engine->messenger);
}

}  // namespace

extern "C" {

// ---- Engine API: engine, view controller, view ---------------------------------------------------

FlutterDesktopEngineRef FlutterDesktopEngineCreate(
    const FlutterDesktopEngineProperties* engine_properties) {
  {
    std::lock_guard<std::mutex> guard(GetState().mutex);
    if (GetState().fail_next_engine) {
      GetState().fail_next_engine = false;
      return nullptr;
    }
  }
  return NewEngine(engine_properties);
}

bool FlutterDesktopEngineDestroy(FlutterDesktopEngineRef engine) {
  ShutDownEngine(engine);
  return true;
}

bool FlutterDesktopEngineRun(FlutterDesktopEngineRef engine, const char* /*entry_point*/) {
  engine->running = true;
  return true;
}

uint64_t FlutterDesktopEngineProcessMessages(FlutterDesktopEngineRef /*engine*/) { return 0; }

void FlutterDesktopEngineReloadSystemFonts(FlutterDesktopEngineRef engine) {
  ++engine->font_reloads;
}

FlutterDesktopPluginRegistrarRef FlutterDesktopEngineGetPluginRegistrar(
    FlutterDesktopEngineRef engine, const char* /*plugin_name*/) {
  return engine->registrar;
}

FlutterDesktopMessengerRef FlutterDesktopEngineGetMessenger(FlutterDesktopEngineRef engine) {
  return engine->messenger;
}

FlutterDesktopTextureRegistrarRef FlutterDesktopEngineGetTextureRegistrar(
    FlutterDesktopEngineRef engine) {
  return engine->registrar->texture_registrar;
}

void FlutterDesktopEngineSetNextFrameCallback(FlutterDesktopEngineRef engine,
                                              VoidCallback callback, void* user_data) {
  engine->next_frame = callback;
  engine->next_frame_user_data = user_data;
}

bool FlutterDesktopEngineProcessExternalWindowMessage(FlutterDesktopEngineRef /*engine*/,
                                                      HWND /*hwnd*/, UINT /*message*/,
                                                      WPARAM /*wparam*/, LPARAM /*lparam*/,
                                                      LRESULT* /*result*/) {
  return false;
}

FlutterDesktopViewControllerRef FlutterDesktopEngineCreateViewController(
    FlutterDesktopEngineRef engine, const FlutterDesktopViewControllerProperties* properties) {
  return FlutterDesktopViewControllerCreate(properties->width, properties->height, engine);
}

FlutterDesktopViewControllerRef FlutterDesktopViewControllerCreate(int /*width*/, int /*height*/,
                                                                   FlutterDesktopEngineRef engine) {
  State& state = GetState();
  bool fail = false;
  {
    std::lock_guard<std::mutex> guard(state.mutex);
    fail = state.fail_next_controller;
    state.fail_next_controller = false;
  }
  if (fail || engine == nullptr) {
    ShutDownEngine(engine);  // ownership was passed in: a failed creation destroys the engine
    return nullptr;
  }
  engine->running = true;
  auto view = std::make_unique<FlutterDesktopView>();
  auto controller = std::make_unique<FlutterDesktopViewController>();
  controller->engine = engine;
  controller->view = view.get();
  engine->registrar->view = view.get();
  std::lock_guard<std::mutex> guard(state.mutex);
  state.views.push_back(std::move(view));
  state.controllers.push_back(std::move(controller));
  return state.controllers.back().get();
}

void FlutterDesktopViewControllerDestroy(FlutterDesktopViewControllerRef controller) {
  ShutDownEngine(controller->engine);
}

FlutterDesktopViewId FlutterDesktopViewControllerGetViewId(FlutterDesktopViewControllerRef) {
  return 0;
}

FlutterDesktopEngineRef FlutterDesktopViewControllerGetEngine(
    FlutterDesktopViewControllerRef controller) {
  return controller->engine;
}

FlutterDesktopViewRef FlutterDesktopViewControllerGetView(
    FlutterDesktopViewControllerRef controller) {
  return controller->view;
}

void FlutterDesktopViewControllerForceRedraw(FlutterDesktopViewControllerRef controller) {
  ++controller->engine->force_redraws;
}

bool FlutterDesktopViewControllerHandleTopLevelWindowProc(FlutterDesktopViewControllerRef controller,
                                                          HWND hwnd, UINT message, WPARAM wparam,
                                                          LPARAM lparam, LRESULT* result) {
  return FlutterTestDispatchTopLevelMessage(controller->engine->registrar, hwnd, message, wparam,
                                            lparam, result);
}

HWND FlutterDesktopViewGetHWND(FlutterDesktopViewRef view) { return view->hwnd; }

IDXGIAdapter* FlutterDesktopViewGetGraphicsAdapter(FlutterDesktopViewRef /*view*/) {
  return nullptr;
}

FlutterDesktopViewRef FlutterDesktopPluginRegistrarGetView(
    FlutterDesktopPluginRegistrarRef registrar) {
  return registrar->view;
}

FlutterDesktopViewRef FlutterDesktopPluginRegistrarGetViewById(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopViewId view_id) {
  return view_id == 0 ? registrar->view : nullptr;
}

void FlutterDesktopPluginRegistrarRegisterTopLevelWindowProcDelegate(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopWindowProcCallback delegate,
    void* user_data) {
  registrar->delegates.push_back({delegate, user_data});
}

void FlutterDesktopPluginRegistrarUnregisterTopLevelWindowProcDelegate(
    FlutterDesktopPluginRegistrarRef registrar, FlutterDesktopWindowProcCallback delegate) {
  auto& delegates = registrar->delegates;
  for (auto it = delegates.begin(); it != delegates.end(); ++it) {
    if (it->callback == delegate) {
      delegates.erase(it);
      return;
    }
  }
}

UINT FlutterDesktopGetDpiForHWND(HWND /*hwnd*/) { return 96; }

UINT FlutterDesktopGetDpiForMonitor(HMONITOR /*monitor*/) { return 96; }

void FlutterDesktopResyncOutputStreams() {}

// ---- Control: engine ---------------------------------------------------------------------------------

void FlutterTestFailNextEngineCreate(void) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  GetState().fail_next_engine = true;
}

void FlutterTestFailNextViewControllerCreate(void) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  GetState().fail_next_controller = true;
}

FlutterDesktopEngineRef FlutterTestLastEngine(void) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  return GetState().last_engine;
}

int FlutterTestLiveEngineCount(void) {
  std::lock_guard<std::mutex> guard(GetState().mutex);
  int count = 0;
  for (const auto& engine : GetState().engines) {
    count += engine->destroyed ? 0 : 1;
  }
  return count;
}

bool FlutterTestEngineIsRunning(FlutterDesktopEngineRef engine) { return engine->running; }

int FlutterTestEngineArgumentCount(FlutterDesktopEngineRef engine) {
  return static_cast<int>(engine->arguments.size());
}

const char* FlutterTestEngineArgument(FlutterDesktopEngineRef engine, int index) {
  return engine->arguments.at(static_cast<size_t>(index)).c_str();
}

const wchar_t* FlutterTestEngineAssetsPath(FlutterDesktopEngineRef engine) {
  return engine->assets_path.c_str();
}

int FlutterTestForceRedrawCount(FlutterDesktopEngineRef engine) { return engine->force_redraws; }

int FlutterTestFontReloadCount(FlutterDesktopEngineRef engine) { return engine->font_reloads; }

bool FlutterTestFireNextFrame(FlutterDesktopEngineRef engine) {
  VoidCallback callback = engine->next_frame;
  void* user_data = engine->next_frame_user_data;
  engine->next_frame = nullptr;
  engine->next_frame_user_data = nullptr;
  if (callback == nullptr) {
    return false;
  }
  callback(user_data);
  return true;
}

FlutterDesktopPluginRegistrarRef FlutterTestRegistrarOf(FlutterDesktopEngineRef engine) {
  return engine->registrar;
}

int FlutterTestTopLevelDelegateCount(FlutterDesktopPluginRegistrarRef registrar) {
  return static_cast<int>(registrar->delegates.size());
}

bool FlutterTestDispatchTopLevelMessage(FlutterDesktopPluginRegistrarRef registrar, HWND hwnd,
                                        UINT message, WPARAM wparam, LPARAM lparam,
                                        LRESULT* result) {
  // A copy: delegates may unregister while they run.
  const std::vector<FlutterDesktopPluginRegistrar::Delegate> delegates = registrar->delegates;
  for (const auto& delegate : delegates) {
    LRESULT answer = 0;
    if (delegate.callback(hwnd, message, wparam, lparam, delegate.user_data, &answer)) {
      *result = answer;
      return true;
    }
  }
  return false;
}

}  // extern "C"

#endif  // _WIN32
