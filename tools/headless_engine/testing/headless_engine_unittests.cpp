// The headless engine's parts in-process: the platform task runner, the messenger, the
// registrars, the engine's frames and its settings. Windows messages are pumped by the test
// thread, which is the platform thread here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "engine_settings.h"
#include "headless_engine.h"
#include "headless_messenger.h"
#include "headless_registrar.h"
#include "headless_texture_registrar.h"
#include "headless_view_controller.h"
#include "platform_task_runner.h"
#include "window_message_names.h"

namespace kestrun_headless {
namespace {

using ::testing::ElementsAre;

// Handles this thread's messages until `done` holds; false if nothing happens for 10 s.
bool PumpUntil(const std::function<bool()>& done) {
  while (!done()) {
    if (MsgWaitForMultipleObjects(0, nullptr, FALSE, 10000, QS_ALLINPUT) == WAIT_TIMEOUT) {
      return done();
    }
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
  }
  return true;
}

// Runs the messages queued so far: a task posted now runs after all of them.
void PumpQueued(PlatformTaskRunner& runner) {
  bool reached = false;
  ASSERT_TRUE(runner.Post([&] { reached = true; }));
  ASSERT_TRUE(PumpUntil([&] { return reached; }));
}

// ---- Platform task runner ------------------------------------------------------------------------

TEST(PlatformTaskRunnerTest, TasksFromAnyThreadRunInOrderOnThePlatformThread) {
  std::shared_ptr<PlatformTaskRunner> runner = PlatformTaskRunner::Create();
  ASSERT_TRUE(runner);
  const DWORD platform_thread = GetCurrentThreadId();
  std::vector<int> order;
  bool all_on_platform_thread = true;
  std::thread poster([&] {
    for (int i = 0; i < 200; ++i) {
      runner->Post([&, i] {
        order.push_back(i);
        all_on_platform_thread = all_on_platform_thread && GetCurrentThreadId() == platform_thread;
      });
    }
  });
  poster.join();
  ASSERT_TRUE(PumpUntil([&] { return order.size() == 200; }));
  EXPECT_TRUE(all_on_platform_thread);
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(order[static_cast<size_t>(i)], i);
  }
  runner->Shutdown();
}

std::vector<std::string>* g_window_log = nullptr;

LRESULT CALLBACK LoggingWindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_APP + 7 && g_window_log != nullptr) {
    g_window_log->push_back("message " + std::to_string(wparam));
    return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

TEST(PlatformTaskRunnerTest, ATaskPostedAfterAWindowMessageRunsAfterItWasDispatched) {
  std::shared_ptr<PlatformTaskRunner> runner = PlatformTaskRunner::Create();
  ASSERT_TRUE(runner);
  WNDCLASSW window_class = {};
  window_class.lpfnWndProc = &LoggingWindowProc;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.lpszClassName = L"KestrunHeadlessTestLoggingWindow";
  RegisterClassW(&window_class);
  HWND window = CreateWindowExW(0, window_class.lpszClassName, L"", WS_OVERLAPPEDWINDOW, 0, 0, 10,
                                10, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
  ASSERT_NE(window, nullptr);
  std::vector<std::string> log;
  g_window_log = &log;
  for (int i = 0; i < 3; ++i) {
    PostMessageW(window, WM_APP + 7, static_cast<WPARAM>(i), 0);
    runner->Post([&log, i] { log.push_back("task " + std::to_string(i)); });
  }
  ASSERT_TRUE(PumpUntil([&] { return log.size() == 6; }));
  EXPECT_THAT(log, ElementsAre("message 0", "task 0", "message 1", "task 1", "message 2",
                               "task 2"));
  g_window_log = nullptr;
  DestroyWindow(window);
  runner->Shutdown();
}

TEST(PlatformTaskRunnerTest, ShutdownDropsQueuedTasksAndRefusesNewOnes) {
  std::shared_ptr<PlatformTaskRunner> runner = PlatformTaskRunner::Create();
  ASSERT_TRUE(runner);
  auto owned = std::make_shared<int>(1);
  bool ran = false;
  ASSERT_TRUE(runner->Post([&ran, owned] { ran = true; }));
  runner->Shutdown();
  EXPECT_EQ(owned.use_count(), 1);  // the dropped task released what it held
  EXPECT_FALSE(runner->Post([&ran] { ran = true; }));
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    DispatchMessageW(&message);
  }
  EXPECT_FALSE(ran);
}

TEST(PlatformTaskRunnerTest, ATaskMayShutItsRunnerDownAndReleaseIt) {
  std::shared_ptr<PlatformTaskRunner> runner = PlatformTaskRunner::Create();
  ASSERT_TRUE(runner);
  bool done = false;
  PlatformTaskRunner* raw = runner.get();
  raw->Post([&] {
    runner->Shutdown();
    runner.reset();  // the last reference outside the running task
    done = true;
  });
  raw->Post([] { ADD_FAILURE() << "dropped by the shutdown"; });
  ASSERT_TRUE(PumpUntil([&] { return done; }));
}

// ---- Messenger ---------------------------------------------------------------------------------

class RecordingOutlet : public MessengerOutlet {
 public:
  struct Response {
    uint64_t token;
    std::vector<uint8_t> bytes;
    DWORD thread;
  };
  struct HostMessage {
    std::string channel;
    std::vector<uint8_t> bytes;
    bool awaits_reply;
  };

  void OnResponse(uint64_t token, const uint8_t* data, size_t size) override {
    std::lock_guard<std::mutex> lock(mutex_);
    responses_.push_back({token, std::vector<uint8_t>(data, data + size), GetCurrentThreadId()});
  }
  void OnHostMessage(const std::string& channel, const uint8_t* data, size_t size,
                     bool awaits_reply) override {
    std::lock_guard<std::mutex> lock(mutex_);
    host_messages_.push_back({channel, std::vector<uint8_t>(data, data + size), awaits_reply});
  }
  std::vector<Response> responses() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return responses_;
  }
  std::vector<HostMessage> host_messages() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return host_messages_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Response> responses_;
  std::vector<HostMessage> host_messages_;
};

// What a host handler saw, and the handle to answer with.
struct HandlerLog {
  std::vector<std::string> channels;
  std::vector<std::vector<uint8_t>> messages;
  std::vector<const FlutterDesktopMessageResponseHandle*> handles;
};

void RecordingHandler(FlutterDesktopMessengerRef, const FlutterDesktopMessage* message,
                      void* user_data) {
  auto* log = static_cast<HandlerLog*>(user_data);
  log->channels.emplace_back(message->channel);
  log->messages.emplace_back(message->message, message->message + message->message_size);
  log->handles.push_back(message->response_handle);
}

class MessengerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    runner_ = PlatformTaskRunner::Create();
    ASSERT_TRUE(runner_);
    messenger_ = new HeadlessMessenger(runner_);
    outlet_ = std::make_shared<RecordingOutlet>();
    messenger_->SetOutlet(outlet_);
  }
  void TearDown() override {
    if (messenger_ != nullptr) {
      messenger_->Shutdown();
      messenger_->Release();
    }
    runner_->Shutdown();
  }

  std::shared_ptr<PlatformTaskRunner> runner_;
  HeadlessMessenger* messenger_ = nullptr;
  std::shared_ptr<RecordingOutlet> outlet_;
};

TEST_F(MessengerTest, DeliversToTheChannelHandlerAndForwardsItsReplyOnce) {
  HandlerLog log;
  messenger_->SetCallback("a", &RecordingHandler, &log);
  messenger_->Deliver("a", {1, 2, 3}, 41);
  ASSERT_EQ(log.handles.size(), 1u);
  EXPECT_EQ(log.channels[0], "a");
  EXPECT_EQ(log.messages[0], (std::vector<uint8_t>{1, 2, 3}));
  const uint8_t reply[] = {9};
  messenger_->SendResponse(log.handles[0], reply, 1);
  // A second reply with the same handle is ignored.
  messenger_->SendResponse(log.handles[0], reply, 1);
  ASSERT_EQ(outlet_->responses().size(), 1u);
  EXPECT_EQ(outlet_->responses()[0].token, 41u);
  EXPECT_EQ(outlet_->responses()[0].bytes, (std::vector<uint8_t>{9}));
  EXPECT_EQ(messenger_->pending_response_count(), 0u);
}

TEST_F(MessengerTest, AChannelWithoutHandlerIsAnsweredEmptyAtOnce) {
  HandlerLog log;
  messenger_->SetCallback("a", &RecordingHandler, &log);
  messenger_->SetCallback("a", nullptr, nullptr);
  messenger_->Deliver("a", {1}, 7);
  messenger_->Deliver("b", {1}, 8);
  EXPECT_TRUE(log.handles.empty());
  ASSERT_EQ(outlet_->responses().size(), 2u);
  EXPECT_EQ(outlet_->responses()[0].token, 7u);
  EXPECT_TRUE(outlet_->responses()[0].bytes.empty());
  EXPECT_EQ(outlet_->responses()[1].token, 8u);
}

TEST_F(MessengerTest, AReplyFromAnotherThreadUnderTheLockIsForwarded) {
  HandlerLog log;
  messenger_->SetCallback("a", &RecordingHandler, &log);
  messenger_->Deliver("a", {1}, 3);
  ASSERT_EQ(log.handles.size(), 1u);
  DWORD worker_thread = 0;
  std::thread worker([&] {
    worker_thread = GetCurrentThreadId();
    messenger_->Lock();
    if (messenger_->IsAvailable()) {
      const uint8_t reply[] = {5};
      messenger_->SendResponse(log.handles[0], reply, 1);
    }
    messenger_->Unlock();
  });
  worker.join();
  ASSERT_EQ(outlet_->responses().size(), 1u);
  EXPECT_EQ(outlet_->responses()[0].thread, worker_thread);
}

TEST_F(MessengerTest, AfterShutdownNothingGoesThroughAndAHeldReferenceStaysUsable) {
  HandlerLog log;
  messenger_->SetCallback("a", &RecordingHandler, &log);
  messenger_->Deliver("a", {1}, 3);
  messenger_->AddRef();  // held by host code that may outlive the engine
  HeadlessMessenger* held = messenger_;
  messenger_->Shutdown();
  messenger_->Release();  // the engine's reference
  messenger_ = nullptr;

  EXPECT_FALSE(held->IsAvailable());
  const uint8_t reply[] = {5};
  held->SendResponse(log.handles[0], reply, 1);  // dropped
  EXPECT_FALSE(held->Send("a", reply, 1, nullptr, nullptr));
  held->SetCallback("b", &RecordingHandler, &log);
  held->Deliver("b", {1}, 4);
  EXPECT_TRUE(held->ChannelsWithHandlers().empty());
  EXPECT_TRUE(outlet_->responses().empty());
  held->Release();
}

void CountingReply(const uint8_t* data, size_t size, void* user_data) {
  auto* replies = static_cast<std::vector<std::pair<size_t, DWORD>>*>(user_data);
  replies->emplace_back(data == nullptr ? size : size + 1000, GetCurrentThreadId());
}

TEST_F(MessengerTest, HostMessagesReachTheOutletAndAwaitedRepliesComeEmptyOnThePlatformThread) {
  std::vector<std::pair<size_t, DWORD>> replies;
  const uint8_t bytes[] = {1, 2};
  std::thread sender([&] {
    EXPECT_TRUE(messenger_->Send("up", bytes, 2, nullptr, nullptr));
    EXPECT_TRUE(messenger_->Send("up", bytes, 2, &CountingReply, &replies));
  });
  sender.join();
  const std::vector<RecordingOutlet::HostMessage> sent = outlet_->host_messages();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0].channel, "up");
  EXPECT_EQ(sent[0].bytes, (std::vector<uint8_t>{1, 2}));
  EXPECT_FALSE(sent[0].awaits_reply);
  EXPECT_TRUE(sent[1].awaits_reply);
  ASSERT_TRUE(PumpUntil([&] { return !replies.empty(); }));
  EXPECT_EQ(replies[0].first, 0u);  // an empty reply: not implemented
  EXPECT_EQ(replies[0].second, GetCurrentThreadId());
}

// ---- Registrar ------------------------------------------------------------------------------------

std::vector<std::string> g_delegate_calls;

bool DelegateA(HWND, UINT message, WPARAM, LPARAM, void* user_data, LRESULT* result) {
  g_delegate_calls.push_back(std::string("A:") + static_cast<const char*>(user_data));
  if (message == WM_APP) {
    *result = 1;
    return true;
  }
  return false;
}

bool DelegateB(HWND, UINT message, WPARAM, LPARAM, void*, LRESULT* result) {
  g_delegate_calls.push_back("B");
  if (message == WM_APP || message == WM_APP + 1) {
    *result = 2;
    return true;
  }
  return false;
}

HeadlessRegistrar* g_registrar_under_test = nullptr;

bool UnregistersB(HWND, UINT, WPARAM, LPARAM, void*, LRESULT*) {
  g_delegate_calls.push_back("U");
  g_registrar_under_test->UnregisterTopLevelDelegate(&DelegateB);
  return false;
}

TEST(RegistrarTest, DelegatesRunInRegistrationOrderUntilOneHandlesTheMessage) {
  g_delegate_calls.clear();
  HeadlessRegistrar registrar(nullptr);
  static char first[] = "first";
  static char second[] = "second";
  registrar.RegisterTopLevelDelegate(&DelegateA, first);
  registrar.RegisterTopLevelDelegate(&DelegateB, nullptr);
  // Registering again replaces the user data and keeps the place.
  registrar.RegisterTopLevelDelegate(&DelegateA, second);
  EXPECT_EQ(registrar.delegate_count(), 2u);
  LRESULT result = 0;
  EXPECT_TRUE(registrar.DispatchTopLevelMessage(nullptr, WM_APP, 0, 0, &result));
  EXPECT_EQ(result, 1);
  EXPECT_TRUE(registrar.DispatchTopLevelMessage(nullptr, WM_APP + 1, 0, 0, &result));
  EXPECT_EQ(result, 2);
  result = 99;
  EXPECT_FALSE(registrar.DispatchTopLevelMessage(nullptr, WM_APP + 2, 0, 0, &result));
  EXPECT_EQ(result, 99);
  EXPECT_THAT(g_delegate_calls, ElementsAre("A:second", "A:second", "B", "A:second", "B"));
  registrar.UnregisterTopLevelDelegate(&DelegateA);
  EXPECT_EQ(registrar.delegate_count(), 1u);
}

TEST(RegistrarTest, ADelegateUnregisteredDuringDispatchIsNotCalled) {
  g_delegate_calls.clear();
  HeadlessRegistrar registrar(nullptr);
  g_registrar_under_test = &registrar;
  registrar.RegisterTopLevelDelegate(&UnregistersB, nullptr);
  registrar.RegisterTopLevelDelegate(&DelegateB, nullptr);
  LRESULT result = 0;
  EXPECT_FALSE(registrar.DispatchTopLevelMessage(nullptr, WM_APP, 0, 0, &result));
  EXPECT_THAT(g_delegate_calls, ElementsAre("U"));
  g_registrar_under_test = nullptr;
}

std::vector<std::string> g_destroyed;
void DestroyedOne(FlutterDesktopPluginRegistrarRef) { g_destroyed.push_back("one"); }
void DestroyedTwo(FlutterDesktopPluginRegistrarRef) { g_destroyed.push_back("two"); }

TEST(RegistrarTest, EachDestructionHandlerRunsOnce) {
  g_destroyed.clear();
  HeadlessRegistrar registrar(nullptr);
  registrar.SetDestructionHandler(&DestroyedOne);
  registrar.SetDestructionHandler(&DestroyedTwo);
  registrar.SetDestructionHandler(&DestroyedOne);  // the same library's handler again
  registrar.RunDestructionHandlers();
  registrar.RunDestructionHandlers();
  EXPECT_THAT(g_destroyed, ElementsAre("one", "two"));
}

// ---- Texture registrar ----------------------------------------------------------------------------

const FlutterDesktopPixelBuffer* NoPixels(size_t, size_t, void*) { return nullptr; }

void CountCall(void* user_data) { ++*static_cast<int*>(user_data); }

TEST(TextureRegistrarTest, RegistersMarksAndUnregistersWithACallback) {
  std::shared_ptr<PlatformTaskRunner> runner = PlatformTaskRunner::Create();
  ASSERT_TRUE(runner);
  HeadlessTextureRegistrar textures(runner);
  FlutterDesktopTextureInfo info = {};
  info.type = kFlutterDesktopPixelBufferTexture;
  info.pixel_buffer_config.callback = &NoPixels;
  const int64_t first = textures.Register(&info);
  const int64_t second = textures.Register(&info);
  EXPECT_GT(first, 0);
  EXPECT_NE(first, second);
  info.type = static_cast<FlutterDesktopTextureType>(7);
  EXPECT_EQ(textures.Register(&info), -1);
  EXPECT_EQ(textures.Register(nullptr), -1);

  EXPECT_TRUE(textures.MarkFrameAvailable(first));
  EXPECT_FALSE(textures.MarkFrameAvailable(12345));

  int unregistered = 0;
  textures.Unregister(first, &CountCall, &unregistered);
  EXPECT_EQ(unregistered, 0);  // later, on the platform thread
  EXPECT_FALSE(textures.MarkFrameAvailable(first));
  ASSERT_TRUE(PumpUntil([&] { return unregistered == 1; }));

  // One still due when the engine shuts down runs then.
  runner->Shutdown();
  textures.Unregister(second, &CountCall, &unregistered);
  textures.Shutdown();
  EXPECT_EQ(unregistered, 2);
  EXPECT_EQ(textures.texture_count(), 0u);
}

// ---- Engine and view ------------------------------------------------------------------------------

void CountFrame(void* user_data) { ++*static_cast<int*>(user_data); }

class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override { SetEnvironmentVariableW(L"KESTRUN_HEADLESS_CONTROL", nullptr); }
  void TearDown() override {
    SetEnvironmentVariableW(L"KESTRUN_HEADLESS_HOLD_FRAMES", nullptr);
    SetEnvironmentVariableW(L"KESTRUN_HEADLESS_FAIL", nullptr);
  }

  static std::unique_ptr<HeadlessEngine> CreateEngine(std::vector<const char*> arguments = {}) {
    FlutterDesktopEngineProperties properties = {};
    properties.assets_path = L"data\\flutter_assets";
    properties.icu_data_path = L"data\\icudtl.dat";
    properties.aot_library_path = L"data\\app.so";
    properties.dart_entrypoint_argc = static_cast<int>(arguments.size());
    properties.dart_entrypoint_argv = arguments.empty() ? nullptr : arguments.data();
    return HeadlessEngine::Create(properties);
  }
};

TEST_F(EngineTest, CopiesItsPropertiesAndRefusesAConflictingEntryPoint) {
  std::string argument = "--first";
  std::unique_ptr<HeadlessEngine> engine = CreateEngine({argument.c_str(), "\xC3\xA9"});
  ASSERT_TRUE(engine);
  argument = "changed";  // copied at creation
  JsonValue description = engine->DescribeEngine();
  EXPECT_EQ(description["assetsPath"].AsString(), "data\\flutter_assets");
  EXPECT_EQ(description["aotLibraryPath"].AsString(), "data\\app.so");
  ASSERT_EQ(description["arguments"].size(), 2u);
  EXPECT_EQ(description["arguments"].AsArray()[0].AsString(), "--first");
  EXPECT_EQ(description["arguments"].AsArray()[1].AsString(), "\xC3\xA9");
  EXPECT_TRUE(engine->Run("main"));
  EXPECT_FALSE(engine->Run("main"));  // once only
}

TEST_F(EngineTest, InjectedFailuresFailTheirCreation) {
  SetEnvironmentVariableW(L"KESTRUN_HEADLESS_FAIL", L"engine");
  EXPECT_FALSE(CreateEngine());
  SetEnvironmentVariableW(L"KESTRUN_HEADLESS_FAIL", L"view_controller");
  std::unique_ptr<HeadlessEngine> engine = CreateEngine();
  ASSERT_TRUE(engine);
  EXPECT_FALSE(HeadlessViewController::Create(100, 100, std::move(engine), nullptr));
}

TEST_F(EngineTest, TheNextFrameCallbackRunsOnceAfterAFrameOfTheHiddenView) {
  std::unique_ptr<HeadlessViewController> controller =
      HeadlessViewController::Create(320, 200, CreateEngine(), nullptr);
  ASSERT_TRUE(controller);
  HeadlessEngine* engine = controller->engine();
  EXPECT_TRUE(engine->running());
  RECT view_rect = {};
  GetClientRect(controller->view()->window(), &view_rect);
  EXPECT_EQ(view_rect.right, 320);
  EXPECT_EQ(view_rect.bottom, 200);
  EXPECT_EQ(engine->MainWindow(), nullptr);  // still parked

  int frames = 0;
  engine->SetNextFrameCallback(&CountFrame, &frames);
  EXPECT_EQ(frames, 0);  // never from inside the request
  ASSERT_TRUE(PumpUntil([&] { return frames == 1; }));
  // Later frames do not run it again.
  engine->ForceRedraw();
  PumpQueued(*std::shared_ptr<PlatformTaskRunner>(PlatformTaskRunner::Create()));
  EXPECT_EQ(frames, 1);
}

TEST_F(EngineTest, HeldFramesRunNoCallbackUntilReleased) {
  SetEnvironmentVariableW(L"KESTRUN_HEADLESS_HOLD_FRAMES", L"1");
  std::unique_ptr<HeadlessViewController> controller =
      HeadlessViewController::Create(320, 200, CreateEngine(), nullptr);
  ASSERT_TRUE(controller);
  HeadlessEngine* engine = controller->engine();
  int frames = 0;
  engine->SetNextFrameCallback(&CountFrame, &frames);
  engine->ForceRedraw();
  std::shared_ptr<PlatformTaskRunner> probe = PlatformTaskRunner::Create();
  PumpQueued(*probe);
  PumpQueued(*probe);
  EXPECT_EQ(frames, 0);
  EXPECT_TRUE(engine->DescribeEngine()["framesHeld"].AsBool());
  engine->ReleaseFrame();
  ASSERT_TRUE(PumpUntil([&] { return frames == 1; }));
  probe->Shutdown();
}

TEST_F(EngineTest, TheMainWindowIsTheTopLevelWindowTheViewWasMovedInto) {
  std::unique_ptr<HeadlessViewController> controller =
      HeadlessViewController::Create(100, 80, CreateEngine(), nullptr);
  ASSERT_TRUE(controller);
  HWND host = CreateWindowExW(0, L"STATIC", L"host", WS_OVERLAPPEDWINDOW, 0, 0, 200, 200, nullptr,
                              nullptr, GetModuleHandleW(nullptr), nullptr);
  ASSERT_NE(host, nullptr);
  SetParent(controller->view()->window(), host);
  EXPECT_EQ(controller->engine()->MainWindow(), host);
  // The host destroying its window takes the view with it; the controller copes.
  DestroyWindow(host);
  EXPECT_EQ(controller->view()->window(), nullptr);
  EXPECT_EQ(controller->engine()->MainWindow(), nullptr);
  controller.reset();
}

std::vector<std::string> g_engine_events;
void RecordEngineDestroyed(FlutterDesktopPluginRegistrarRef) {
  g_engine_events.push_back("registrar destroyed");
}

TEST_F(EngineTest, DestroyingTheEngineEndsPluginsThenTheMessenger) {
  g_engine_events.clear();
  std::unique_ptr<HeadlessEngine> engine = CreateEngine();
  ASSERT_TRUE(engine);
  engine->registrar()->SetDestructionHandler(&RecordEngineDestroyed);
  HeadlessMessenger* messenger = engine->messenger();
  messenger->AddRef();
  engine.reset();
  EXPECT_THAT(g_engine_events, ElementsAre("registrar destroyed"));
  EXPECT_FALSE(messenger->IsAvailable());
  messenger->Release();
}

// ---- Settings and names ---------------------------------------------------------------------------

TEST(EngineSettingsTest, ReadsTheEnvironmentValues) {
  EngineSettings none = EngineSettings::FromValues(nullptr, nullptr, nullptr);
  EXPECT_TRUE(none.control_address.empty());
  EXPECT_FALSE(none.hold_frames);
  EXPECT_EQ(none.failure, EngineSettings::Failure::kNone);
  EngineSettings all = EngineSettings::FromValues("127.0.0.1:5000", "1", "view_controller");
  EXPECT_EQ(all.control_address, "127.0.0.1:5000");
  EXPECT_TRUE(all.hold_frames);
  EXPECT_EQ(all.failure, EngineSettings::Failure::kViewController);
  EXPECT_FALSE(EngineSettings::FromValues(nullptr, "0", nullptr).hold_frames);
  EXPECT_EQ(EngineSettings::FromValues(nullptr, nullptr, "bogus").failure,
            EngineSettings::Failure::kNone);
}

TEST(WindowMessageNamesTest, NamesAndNumbers) {
  EXPECT_EQ(WindowMessageFromText("WM_CLOSE"), 0x10u);
  EXPECT_EQ(WindowMessageFromText("WM_QUERYENDSESSION"), 0x11u);
  EXPECT_EQ(WindowMessageFromText("WM_ENDSESSION"), 0x16u);
  EXPECT_EQ(WindowMessageFromText("WM_WTSSESSION_CHANGE"), 0x2B1u);
  EXPECT_EQ(WindowMessageFromText("WM_DISPLAYCHANGE"), 0x7Eu);
  EXPECT_EQ(WindowMessageFromText("WM_SETTINGCHANGE"), 0x1Au);
  EXPECT_EQ(WindowMessageFromText("32768"), 0x8000u);
  EXPECT_EQ(WindowMessageFromText("0x2b1"), 0x2B1u);
  EXPECT_FALSE(WindowMessageFromText("wm_close"));
  EXPECT_FALSE(WindowMessageFromText("0x10000"));
  EXPECT_FALSE(WindowMessageFromText("12abc"));
  EXPECT_FALSE(WindowMessageFromText(""));
  EXPECT_EQ(WindowMessageName(0x7E), "WM_DISPLAYCHANGE");
  EXPECT_EQ(WindowMessageName(0x1234), "0x1234");
}

}  // namespace
}  // namespace kestrun_headless
