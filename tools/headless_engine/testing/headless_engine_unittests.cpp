// The headless engine's parts in-process: the platform task runner, the messenger, the
// registrar's delegates and window-message names. The engine itself (its properties, frames,
// main window, shutdown) is seen end to end, in headless_end_to_end_tests and the program's own
// end-to-end tests. Windows messages are pumped by the test
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

#include "headless_messenger.h"
#include "headless_registrar.h"
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

}  // namespace
}  // namespace kestrun_headless
