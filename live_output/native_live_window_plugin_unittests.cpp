// The live output plugin on its channel against the engine stand-in, with real output windows:
// argument errors and their codes, calls on unknown displays, showing and replacing windows,
// loading images, deferred fade replies brought back to the platform thread, events from the
// output windows' keys and clicks, and teardown.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <test_flutter_engine.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "encodable_value.h"
#include "live_output/test_support/gif_test_file_writer.h"
#include "live_output/test_support/image_decoder_test_files.h"
#include "live_output/window/live_window_clock.h"
#include "live_output/log/logger.h"
#include "live_output/window/native_live_window.h"
#include "live_output/native_live_window_plugin.h"
#include "live_output/native_live_window_plugin_c_api.h"
#include "method_call.h"
#include "method_result_functions.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"
#include "standard_method_codec.h"

namespace native_live_window {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using ::testing::HasSubstr;

constexpr char kChannel[] = "com.kestrun.native_live_window";
constexpr DWORD kTimeoutMs = 30000;

const flutter::StandardMethodCodec& Codec() { return flutter::StandardMethodCodec::GetInstance(); }

// A reply as the interface reads it.
struct Outcome {
  // "success", "error", "not implemented" or "none" (no reply yet).
  std::string kind = "none";
  EncodableValue value;
  std::string code;
  std::string message;
  int replies = 0;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << outcome.kind << " " << outcome.code << " \"" << outcome.message << "\" ("
             << outcome.replies << " replies)";
}

Outcome DecodeReply(const std::vector<std::uint8_t>& bytes) {
  Outcome outcome;
  outcome.kind = "not implemented";
  flutter::MethodResultFunctions<> result(
      [&](const EncodableValue* value) {
        outcome.kind = "success";
        outcome.value = value != nullptr ? *value : EncodableValue();
      },
      [&](const std::string& code, const std::string& message, const EncodableValue*) {
        outcome.kind = "error";
        outcome.code = code;
        outcome.message = message;
      },
      nullptr);
  if (!bytes.empty()) {
    Codec().DecodeAndProcessResponseEnvelope(bytes.data(), bytes.size(), &result);
  }
  return outcome;
}

void ExpectSuccess(const Outcome& outcome) {
  EXPECT_EQ(outcome.kind, "success") << outcome;
  EXPECT_EQ(outcome.replies, 1) << outcome;
  ASSERT_TRUE(std::holds_alternative<bool>(outcome.value)) << outcome;
  EXPECT_TRUE(std::get<bool>(outcome.value));
}

void ExpectError(const Outcome& outcome, const std::string& code, const std::string& message) {
  EXPECT_EQ(outcome.kind, "error") << outcome;
  EXPECT_EQ(outcome.replies, 1) << outcome;
  EXPECT_EQ(outcome.code, code);
  EXPECT_EQ(outcome.message, message);
}

EncodableValue Map(std::initializer_list<std::pair<const char*, EncodableValue>> entries) {
  EncodableMap map;
  for (const auto& entry : entries) {
    map[EncodableValue(entry.first)] = entry.second;
  }
  return EncodableValue(map);
}

EncodableValue Id(const std::string& display_id) {
  return Map({{"displayId", EncodableValue(display_id)}});
}

// Time of an output window, moved only by the test.
class TestClock : public LiveWindowClock {
 public:
  std::uint32_t TickCountMs() const override { return 100000; }
  std::int64_t PerformanceCounter() const override { return counter_us.load(); }
  std::int64_t PerformanceFrequency() const override { return 1000000; }
  std::chrono::steady_clock::time_point SteadyNow() const override {
    return std::chrono::steady_clock::time_point(std::chrono::microseconds(counter_us.load()));
  }
  void AdvanceMs(std::int64_t ms) { counter_us.fetch_add(ms * 1000); }

  std::atomic<std::int64_t> counter_us{0};
};

// Pumps this thread's messages until `done` answers true, waking on `event` (may be null) or
// any message; false after a generous timeout.
bool PumpUntil(const std::function<bool()>& done, HANDLE event = nullptr) {
  const ULONGLONG deadline = GetTickCount64() + kTimeoutMs;
  for (;;) {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
    if (done()) {
      return true;
    }
    const ULONGLONG now = GetTickCount64();
    if (now >= deadline) {
      return false;
    }
    const DWORD wait = static_cast<DWORD>(deadline - now);
    if (event != nullptr) {
      MsgWaitForMultipleObjects(1, &event, FALSE, wait, QS_ALLINPUT);
    } else {
      MsgWaitForMultipleObjects(0, nullptr, FALSE, wait, QS_ALLINPUT);
    }
  }
}

void PumpPending() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

// Waits, without dispatching posted messages, until a completion message is queued for this
// thread. Sent messages are still delivered, so that no other thread blocks on this one.
bool WaitForQueuedCompletion() {
  const ULONGLONG deadline = GetTickCount64() + kTimeoutMs;
  for (;;) {
    MSG message;
    if (PeekMessageW(&message, nullptr, DeferredReplies::kCompletionMessage,
                     DeferredReplies::kCompletionMessage, PM_NOREMOVE)) {
      return true;
    }
    const ULONGLONG now = GetTickCount64();
    if (now >= deadline) {
      return false;
    }
    MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(deadline - now),
                              QS_POSTMESSAGE | QS_SENDMESSAGE);
  }
}

bool WaitForPresents(const NativeLiveWindow& window, std::uint64_t count) {
  const std::uint64_t target = window.present_count() + count;
  return PumpUntil([&] { return window.present_count() >= target; }, window.present_event());
}

void SetModifiers(bool control, bool shift) {
  BYTE keys[256] = {};
  GetKeyboardState(keys);
  keys[VK_CONTROL] = keys[VK_LCONTROL] = control ? 0x80 : 0;
  keys[VK_SHIFT] = keys[VK_LSHIFT] = shift ? 0x80 : 0;
  SetKeyboardState(keys);
}

void Key(HWND window, WPARAM key) { SendMessageW(window, WM_KEYDOWN, key, 0x00000001); }

// One call the plugin sent to the interface.
struct Event {
  std::string method;
  EncodableValue arguments;
};

class LiveWindowPluginTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    FlutterTestReset();
    core_ = FlutterTestCreateRegistrar();
    messenger_ = FlutterDesktopPluginRegistrarGetMessenger(core_);
    registrar_ = flutter::PluginRegistrarManager::GetInstance()
                     ->GetRegistrar<flutter::PluginRegistrarWindows>(core_);
    auto plugin = std::make_unique<NativeLiveWindowPlugin>(registrar_, [this] {
      auto clock = std::make_shared<TestClock>();
      auto window = std::make_unique<NativeLiveWindow>(clock);
      clocks_.push_back(clock);
      windows_.push_back(window.get());
      return window;
    });
    plugin_ = plugin.get();
    registrar_->AddPlugin(std::move(plugin));
  }

  void TearDown() override {
    SetModifiers(false, false);
    DestroyPlugin();
    FlutterTestReset();
    PumpPending();
    CoUninitialize();
  }

  // Destroys the registrar with the plugin, as the engine does at shutdown.
  void DestroyPlugin() {
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    plugin_ = nullptr;
    windows_.clear();
  }

  int Deliver(const std::string& method, const EncodableValue& arguments) {
    flutter::MethodCall<> call(method, std::make_unique<EncodableValue>(arguments));
    const std::vector<std::uint8_t> bytes = *Codec().EncodeMethodCall(call);
    return FlutterTestDeliverMessage(messenger_, kChannel, bytes.data(), bytes.size());
  }

  static Outcome ReplyTo(int token) {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    const int count = FlutterTestGetResponse(token, &data, &size);
    Outcome outcome;
    if (count > 0) {
      outcome = DecodeReply(std::vector<std::uint8_t>(data, data + size));
    }
    outcome.replies = count;
    return outcome;
  }

  // A call answered while it is handled.
  Outcome Call(const std::string& method, const EncodableValue& arguments = EncodableValue()) {
    return ReplyTo(Deliver(method, arguments));
  }

  // A call answered later: pumps messages until the reply arrives.
  Outcome CallAndPump(const std::string& method,
                      const EncodableValue& arguments = EncodableValue()) {
    const int token = Deliver(method, arguments);
    PumpUntil([&] { return ReplyTo(token).replies > 0; });
    return ReplyTo(token);
  }

  // Shows a window for the display and answers it (the newest window made).
  NativeLiveWindow* Show(const std::string& display_id, std::int32_t x = 0) {
    const Outcome outcome = Call("showForDisplay", Map({{"displayId", EncodableValue(display_id)},
                                                        {"name", EncodableValue("Test display")},
                                                        {"x", EncodableValue(x)},
                                                        {"y", EncodableValue(0)},
                                                        {"width", EncodableValue(160)},
                                                        {"height", EncodableValue(120)},
                                                        {"isPrimary", EncodableValue(false)}}));
    ExpectSuccess(outcome);
    return windows_.empty() ? nullptr : windows_.back();
  }

  std::vector<Event> Events() const {
    std::vector<Event> events;
    for (std::size_t i = 0; i < FlutterTestSentMessageCount(messenger_); ++i) {
      const char* channel = nullptr;
      const std::uint8_t* data = nullptr;
      std::size_t size = 0;
      bool awaits_reply = true;
      FlutterTestGetSentMessage(messenger_, i, &channel, &data, &size, &awaits_reply);
      EXPECT_STREQ(channel, kChannel);
      EXPECT_FALSE(awaits_reply);
      std::unique_ptr<flutter::MethodCall<>> call = Codec().DecodeMethodCall(data, size);
      if (call) {
        events.push_back(
            Event{call->method_name(), call->arguments() ? *call->arguments() : EncodableValue()});
      }
    }
    return events;
  }

  FlutterDesktopPluginRegistrarRef core_ = nullptr;
  FlutterDesktopMessengerRef messenger_ = nullptr;
  flutter::PluginRegistrarWindows* registrar_ = nullptr;
  NativeLiveWindowPlugin* plugin_ = nullptr;
  // Every window the plugin made, and its clock, in order of making.
  std::vector<NativeLiveWindow*> windows_;
  std::vector<std::shared_ptr<TestClock>> clocks_;
};

// --- Registration and teardown ---

TEST(LiveWindowPluginRegistrationTest, CEntryRegistersTheChannelAndTheCallbackWindow) {
  ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
  flutter::PluginRegistrarManager::GetInstance()->Reset();
  FlutterTestReset();
  FlutterDesktopPluginRegistrarRef core = FlutterTestCreateRegistrar();
  FlutterDesktopMessengerRef messenger = FlutterDesktopPluginRegistrarGetMessenger(core);

  NativeLiveWindowPluginRegisterWithRegistrar(core);
  EXPECT_TRUE(FlutterTestHasHandler(messenger, kChannel));
  HWND callback_window = FindWindowExW(HWND_MESSAGE, nullptr, L"KestrunCallbackWindow", nullptr);
  EXPECT_NE(callback_window, nullptr);

  // The engine destroying the registrar takes the plugin, its handler and window with it.
  FlutterTestDestroyRegistrar(core);
  EXPECT_FALSE(FlutterTestHasHandler(messenger, kChannel));
  EXPECT_FALSE(IsWindow(callback_window));

  flutter::PluginRegistrarManager::GetInstance()->Reset();
  FlutterTestReset();
  CoUninitialize();
}

TEST_F(LiveWindowPluginTest, UnknownAndNotYetHandledMethodsAreNotImplemented) {
  for (const char* method :
       {"noSuchMethod", "ShowForDisplay", "LoadWebpageForDisplay", "setVideoTopology", "setVolumeForDisplay", "getPositionForDisplay",
        "seekToForDisplay", "seekToAll", "setVideoPausedForDisplay", "setVideoPausedAll",
        "setVideoOpacity"}) {
    const Outcome outcome = Call(method, Id("d1"));
    EXPECT_EQ(outcome.kind, "not implemented") << method;
    EXPECT_EQ(outcome.replies, 1) << method;
  }
}

TEST_F(LiveWindowPluginTest, DestroyingThePluginClosesItsWindowsAndDropsPendingFades) {
  NativeLiveWindow* window = Show("d1");
  ASSERT_NE(window, nullptr);
  const HWND hwnd = window->GetHwnd();
  // The clock stands still, so this fade never ends.
  const int token =
      Deliver("fadeToBlackForDisplay",
              Map({{"displayId", EncodableValue("d1")}, {"duration", EncodableValue(1000)}}));
  PumpPending();
  EXPECT_EQ(plugin_->deferred_replies().pending_count(), 1u);
  DestroyPlugin();
  EXPECT_FALSE(IsWindow(hwnd));
  PumpPending();
  EXPECT_EQ(ReplyTo(token).replies, 0);
}

// --- Arguments ---

TEST_F(LiveWindowPluginTest, MethodsWantAMapWithTheirKeys) {
  for (const char* method :
       {"showForDisplay", "closeForDisplay", "blankForDisplay", "unblankForDisplay",
        "loadImageForDisplay", "stopImageForDisplay", "setCropRectForDisplay",
        "clearCropRectForDisplay", "fadeToBlackForDisplay", "fadeFromBlackForDisplay"}) {
    SCOPED_TRACE(method);
    ExpectError(Call(method), "INVALID_ARGS", "Expected map argument");
    ExpectError(Call(method, EncodableValue("d1")), "INVALID_ARGS", "Expected map argument");
    ExpectError(Call(method, EncodableValue(EncodableList{EncodableValue("d1")})), "INVALID_ARGS",
                "Expected map argument");
  }
  for (const char* method : {"showForDisplay", "closeForDisplay", "blankForDisplay",
                             "unblankForDisplay", "loadImageForDisplay", "stopImageForDisplay",
                             "setCropRectForDisplay", "clearCropRectForDisplay"}) {
    SCOPED_TRACE(method);
    ExpectError(Call(method, Map({{"path", EncodableValue("x.png")}})), "INVALID_ARGS",
                "Missing 'displayId' argument");
    ExpectError(Call(method, Map({{"displayId", EncodableValue()}})), "INVALID_ARGS",
                "Missing 'displayId' argument");
  }
  ExpectError(Call("initializeLogger"), "INVALID_ARGS", "Expected map argument");
  ExpectError(Call("initializeLogger", Map({{"directory", EncodableValue("C:\\logs")}})),
              "INVALID_ARGS", "Missing 'logDirectory' argument");
  EXPECT_EQ(plugin_->window_count(), 0u);
}

TEST_F(LiveWindowPluginTest, PerDisplayFadesKeepTheirLowerCaseCodes) {
  for (const char* method : {"fadeToBlackForDisplay", "fadeFromBlackForDisplay"}) {
    SCOPED_TRACE(method);
    ExpectError(Call(method, Map({})), "invalid_args", "displayId is required");
    ExpectError(Call(method, Id("")), "invalid_args", "displayId is required");
    ExpectError(Call(method, Map({{"displayId", EncodableValue(7)}})), "invalid_args",
                "displayId is required");
    ExpectError(Call(method, Id("\\\\?\\DISPLAY#ABC#1")), "not_found",
                "No window found for display: \\\\?\\DISPLAY#ABC#1");
  }
}

TEST_F(LiveWindowPluginTest, InitializeLoggerStartsTheFileWithItsFirstLine) {
  // The folder outlives the test: the process-wide logger keeps its file open.
  static ImageDecoderTestFiles* const log_files = new ImageDecoderTestFiles();
  ASSERT_TRUE(log_files->ok());
  ExpectSuccess(
      Call("initializeLogger", Map({{"logDirectory", EncodableValue(log_files->Path("logs"))}})));
  std::string text;
  std::error_code error;
  for (std::filesystem::recursive_directory_iterator
           it(std::filesystem::path(ImageDecoderTestFiles::Widen(log_files->Path("logs"))), error),
       end;
       !error && it != end; it.increment(error)) {
    if (it->is_regular_file()) {
      EXPECT_THAT(it->path().filename().wstring(), HasSubstr(L"-native.log"));
      text += ImageDecoderTestFiles::ReadText(it->path().wstring());
    }
  }
  EXPECT_THAT(text, HasSubstr(" INFO  [NATIVE] Native file logger initialized"));
}

TEST_F(LiveWindowPluginTest, CropRectNeedsAllSixValues) {
  const char* keys[] = {"left", "top", "width", "height", "canvasWidth", "canvasHeight"};
  for (const char* missing : keys) {
    SCOPED_TRACE(missing);
    EncodableMap map = {{EncodableValue("displayId"), EncodableValue("d1")},
                        {EncodableValue("left"), EncodableValue(0.5)},
                        {EncodableValue("top"), EncodableValue(0.0)},
                        {EncodableValue("width"), EncodableValue(0.5)},
                        {EncodableValue("height"), EncodableValue(1.0)},
                        {EncodableValue("canvasWidth"), EncodableValue(3840)},
                        {EncodableValue("canvasHeight"), EncodableValue(1080)}};
    map.erase(EncodableValue(missing));
    ExpectError(Call("setCropRectForDisplay", EncodableValue(map)), "INVALID_ARGS",
                "Missing crop rect arguments");
  }
}

// --- Unknown displays ---

TEST_F(LiveWindowPluginTest, CommandsOnUnknownDisplaysSucceedQuietly) {
  for (const char* method : {"closeForDisplay", "blankForDisplay", "unblankForDisplay",
                             "stopImageForDisplay", "clearCropRectForDisplay"}) {
    SCOPED_TRACE(method);
    ExpectSuccess(Call(method, Id("nobody")));
  }
  ExpectSuccess(Call("setCropRectForDisplay", Map({{"displayId", EncodableValue("nobody")},
                                                   {"left", EncodableValue(0.0)},
                                                   {"top", EncodableValue(0.0)},
                                                   {"width", EncodableValue(1.0)},
                                                   {"height", EncodableValue(1.0)},
                                                   {"canvasWidth", EncodableValue(1920)},
                                                   {"canvasHeight", EncodableValue(1080)}})));
  for (const char* method : {"closeAll", "blankAll", "unblankAll"}) {
    SCOPED_TRACE(method);
    ExpectSuccess(Call(method));
  }
  EXPECT_EQ(plugin_->window_count(), 0u);
}

TEST_F(LiveWindowPluginTest, FadesOfAllWindowsWithNoWindowsAnswerAtOnce) {
  for (const char* method : {"fadeToBlackAll", "fadeFromBlackAll"}) {
    SCOPED_TRACE(method);
    ExpectSuccess(Call(method));
    ExpectSuccess(Call(method, Map({})));
    ExpectSuccess(Call(method, Map({{"duration", EncodableValue(2000)}})));
  }
  EXPECT_EQ(plugin_->deferred_replies().pending_count(), 0u);
}

// --- Showing and closing ---

TEST_F(LiveWindowPluginTest, ShowOpensAWindowOverTheDisplayAndShowingAgainReplacesIt) {
  NativeLiveWindow* first = Show("d1", 40);
  ASSERT_NE(first, nullptr);
  const HWND first_hwnd = first->GetHwnd();
  ASSERT_NE(first_hwnd, nullptr);
  RECT rect = {};
  GetWindowRect(first_hwnd, &rect);
  EXPECT_EQ(rect.left, 40);
  EXPECT_EQ(rect.right - rect.left, 160);
  EXPECT_EQ(rect.bottom - rect.top, 120);
  ASSERT_EQ(first->displays().size(), 1u);
  EXPECT_EQ(first->displays()[0].id, "d1");
  EXPECT_EQ(first->displays()[0].name, "Test display");

  NativeLiveWindow* second = Show("d1");
  EXPECT_FALSE(IsWindow(first_hwnd));
  ASSERT_NE(second->GetHwnd(), nullptr);
  EXPECT_TRUE(IsWindow(second->GetHwnd()));
  EXPECT_EQ(plugin_->window_count(), 1u);
}

TEST_F(LiveWindowPluginTest, CloseForDisplayAndCloseAllCloseTheWindows) {
  const HWND a = Show("a")->GetHwnd();
  const HWND b = Show("b", 200)->GetHwnd();
  const HWND c = Show("c", 400)->GetHwnd();
  ExpectSuccess(Call("closeForDisplay", Id("b")));
  EXPECT_FALSE(IsWindow(b));
  EXPECT_TRUE(IsWindow(a));
  EXPECT_EQ(plugin_->window_count(), 2u);
  ExpectSuccess(Call("closeAll"));
  EXPECT_FALSE(IsWindow(a));
  EXPECT_FALSE(IsWindow(c));
  EXPECT_EQ(plugin_->window_count(), 0u);
}

TEST_F(LiveWindowPluginTest, BlankingReachesTheWindows) {
  NativeLiveWindow* a = Show("a");
  NativeLiveWindow* b = Show("b", 200);
  ExpectSuccess(Call("blankForDisplay", Id("a")));
  EXPECT_TRUE(a->blanked());
  EXPECT_FALSE(b->blanked());
  ExpectSuccess(Call("blankAll"));
  EXPECT_TRUE(b->blanked());
  ExpectSuccess(Call("unblankForDisplay", Id("b")));
  EXPECT_FALSE(b->blanked());
  EXPECT_TRUE(a->blanked());
  ExpectSuccess(Call("unblankAll"));
  EXPECT_FALSE(a->blanked());
}

// --- Images ---

class LiveWindowPluginImageTest : public LiveWindowPluginTest {
 protected:
  void SetUp() override {
    LiveWindowPluginTest::SetUp();
    files_ = std::make_unique<ImageDecoderTestFiles>();
    ASSERT_TRUE(files_->ok());
  }
  void TearDown() override {
    files_.reset();
    LiveWindowPluginTest::TearDown();
  }

  EncodableValue Load(const std::string& display_id, const std::string& path,
                      std::int32_t fit_mode = 0) {
    return Map({{"displayId", EncodableValue(display_id)},
                {"path", EncodableValue(path)},
                {"fitMode", EncodableValue(fit_mode)}});
  }

  std::string WritePng(const std::string& name) {
    const std::vector<std::uint8_t> red = {0, 0, 255, 255, 0, 0, 255, 255,
                                           0, 0, 255, 255, 0, 0, 255, 255};
    EXPECT_TRUE(files_->WritePng(name, 2, 2, red));
    return files_->Path(name);
  }

  std::string WriteGif(const std::string& name, std::uint16_t width, std::uint16_t height,
                       std::size_t frames) {
    std::vector<GifTestFileWriter::Frame> list;
    for (std::size_t i = 0; i < frames; ++i) {
      list.push_back(GifTestFileWriter::SolidFrame(0, 0, 2, 2, i % 2 ? 0xFF00FF00 : 0xFFFF0000));
    }
    EXPECT_TRUE(files_->WriteBytes(name, GifTestFileWriter::Build(width, height, list)));
    return files_->Path(name);
  }

  std::unique_ptr<ImageDecoderTestFiles> files_;
};

TEST_F(LiveWindowPluginImageTest, LoadingNeedsAShownWindowAPathAndAReadableImage) {
  ExpectError(Call("loadImageForDisplay", Load("d1", WritePng("early.png"))), "NOT_SHOWING",
              "Window for display is not showing");
  EXPECT_EQ(plugin_->image_decoder().static_decode_count(), 0u);
  Show("d1");
  ExpectError(Call("loadImageForDisplay", Id("d1")), "INVALID_ARGS", "Missing 'path' argument");
  ExpectError(Call("loadImageForDisplay", Load("d1", files_->Path("missing.png"))), "DECODE_FAILED",
              "Failed to decode image");
  ASSERT_TRUE(files_->WriteBytes("garbage.gif", {'G', 'I', 'F', '8', '9', 'a', 1, 2, 3}));
  ExpectError(Call("loadImageForDisplay", Load("d1", files_->Path("garbage.gif"))), "DECODE_FAILED",
              "Failed to decode image");
  EXPECT_EQ(windows_[0]->content_mode(), kContentNone);
}

TEST_F(LiveWindowPluginImageTest, StillImageIsShownAndStoppedAgain) {
  NativeLiveWindow* window = Show("d1");
  ExpectSuccess(Call("loadImageForDisplay", Load("d1", WritePng("still.png"), 1)));
  EXPECT_EQ(window->content_mode(), kContentImage);
  EXPECT_TRUE(window->render_loop_running());
  EXPECT_EQ(plugin_->image_decoder().animated_decode_count(), 1u);  // tried first, refused
  EXPECT_EQ(plugin_->image_decoder().static_decode_count(), 1u);
  ExpectSuccess(Call("stopImageForDisplay", Id("d1")));
  EXPECT_EQ(window->content_mode(), kContentNone);
}

TEST_F(LiveWindowPluginImageTest, AnimationIsShownAndDecodedOnceForSeveralDisplays) {
  NativeLiveWindow* a = Show("a");
  NativeLiveWindow* b = Show("b", 200);
  const std::string path = WriteGif("anim.gif", 2, 2, 3);
  ExpectSuccess(Call("loadImageForDisplay", Load("a", path)));
  ExpectSuccess(Call("loadImageForDisplay", Load("b", path)));
  EXPECT_EQ(a->content_mode(), kContentImage);
  EXPECT_EQ(b->content_mode(), kContentImage);
  EXPECT_EQ(plugin_->image_decoder().animated_decode_count(), 1u);
  EXPECT_EQ(plugin_->image_decoder().static_decode_count(), 0u);
  // The windows animate: moving their clocks past the first frame rewrites their textures.
  clocks_[0]->AdvanceMs(150);
  EXPECT_TRUE(PumpUntil([&] { return a->texture_update_count() > 0; }, a->present_event()));
}

TEST_F(LiveWindowPluginImageTest, OverBudgetAnimationIsShownAsItsFirstFrame) {
  NativeLiveWindow* window = Show("d1");
  const std::string path = WriteGif("huge.gif", 1920, 1080, 33);
  ExpectSuccess(Call("loadImageForDisplay", Load("d1", path)));
  EXPECT_EQ(window->content_mode(), kContentImage);
  EXPECT_EQ(plugin_->image_decoder().static_decode_count(), 1u);
  EXPECT_EQ(plugin_->image_decoder().decoded_image().width, 2u);
}

// --- Fades ---

TEST_F(LiveWindowPluginTest, FadeIsAnsweredOnThePlatformThreadAfterItEnds) {
  NativeLiveWindow* window = Show("d1");
  // No duration: half a second.
  const int token = Deliver("fadeToBlackForDisplay", Id("d1"));
  clocks_[0]->AdvanceMs(499);
  ASSERT_TRUE(WaitForPresents(*window, 3));
  PumpPending();
  EXPECT_EQ(ReplyTo(token).replies, 0);

  clocks_[0]->AdvanceMs(1);
  // The render thread ends the fade and only posts; the answer waits for this thread.
  ASSERT_TRUE(WaitForQueuedCompletion());
  EXPECT_EQ(ReplyTo(token).replies, 0);
  EXPECT_EQ(window->fade_overlay_alpha(), 255);
  PumpPending();
  ExpectSuccess(ReplyTo(token));
  EXPECT_EQ(plugin_->deferred_replies().pending_count(), 0u);
}

TEST_F(LiveWindowPluginTest, ImmediateFadeIsAnsweredThroughTheCallbackWindowToo) {
  NativeLiveWindow* window = Show("d1");
  const int token =
      Deliver("fadeToBlackForDisplay",
              Map({{"displayId", EncodableValue("d1")}, {"duration", EncodableValue(0)}}));
  EXPECT_EQ(ReplyTo(token).replies, 0);
  EXPECT_EQ(window->fade_overlay_alpha(), 255);
  PumpPending();
  ExpectSuccess(ReplyTo(token));

  const Outcome back =
      CallAndPump("fadeFromBlackForDisplay",
                  Map({{"displayId", EncodableValue("d1")}, {"duration", EncodableValue(-5)}}));
  ExpectSuccess(back);
  EXPECT_EQ(window->fade_overlay_alpha(), 0);
}

TEST_F(LiveWindowPluginTest, FadeOfAllWindowsIsAnsweredWhenTheLastEnds) {
  NativeLiveWindow* a = Show("a");
  NativeLiveWindow* b = Show("b", 200);
  const int token = Deliver("fadeToBlackAll", Map({{"duration", EncodableValue(100)}}));
  ASSERT_TRUE(WaitForPresents(*a, 1));
  EXPECT_EQ(ReplyTo(token).replies, 0);

  // The first window's fade ends (its completion has run once two more frames are presented).
  clocks_[0]->AdvanceMs(150);
  ASSERT_TRUE(PumpUntil([&] { return a->fade_overlay_alpha() == 255; }, a->present_event()));
  ASSERT_TRUE(WaitForPresents(*a, 2));
  PumpPending();
  EXPECT_EQ(ReplyTo(token).replies, 0);
  EXPECT_LT(b->fade_overlay_alpha(), 255);

  clocks_[1]->AdvanceMs(150);
  ASSERT_TRUE(PumpUntil([&] { return ReplyTo(token).replies > 0; }));
  ExpectSuccess(ReplyTo(token));
  EXPECT_EQ(b->fade_overlay_alpha(), 255);

  // And back from black, at once.
  ExpectSuccess(CallAndPump("fadeFromBlackAll", Map({{"duration", EncodableValue(0)}})));
  EXPECT_EQ(a->fade_overlay_alpha(), 0);
  EXPECT_EQ(b->fade_overlay_alpha(), 0);
}

// --- Events from the output windows ---

TEST_F(LiveWindowPluginTest, EscapeAsksTheInterfaceToLeaveAndClosesTheWindow) {
  NativeLiveWindow* window = Show("d1");
  Key(window->GetHwnd(), VK_ESCAPE);
  const std::vector<Event> events = Events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].method, "onExitRequested");
  EXPECT_EQ(events[0].arguments, Id("d1"));
  EXPECT_EQ(window->GetHwnd(), nullptr);
  // The entry stays until the interface closes it; the window no longer shows anything.
  EXPECT_EQ(plugin_->window_count(), 1u);
  ExpectError(Call("loadImageForDisplay",
                   Map({{"displayId", EncodableValue("d1")}, {"path", EncodableValue("x.png")}})),
              "NOT_SHOWING", "Window for display is not showing");
  ExpectSuccess(Call("closeForDisplay", Id("d1")));
  EXPECT_EQ(plugin_->window_count(), 0u);
}

TEST_F(LiveWindowPluginTest, ClickAsksTheInterfaceToLeave) {
  Show("left");
  NativeLiveWindow* right = Show("right", 200);
  SendMessageW(right->GetHwnd(), WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(10, 10));
  const std::vector<Event> events = Events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].method, "onExitRequested");
  EXPECT_EQ(events[0].arguments, Id("right"));
}

TEST_F(LiveWindowPluginTest, KeysBecomeIntervalControlAndHudToggle) {
  NativeLiveWindow* window = Show("d1");
  for (WPARAM key : {WPARAM{VK_LEFT}, WPARAM{VK_RIGHT}, WPARAM{'1'}, WPARAM{'0'}, WPARAM{'H'}}) {
    Key(window->GetHwnd(), key);  // 'H' without modifiers: nothing
  }
  SetModifiers(true, true);
  Key(window->GetHwnd(), 'H');
  const std::vector<Event> events = Events();
  ASSERT_EQ(events.size(), 5u);
  const char* actions[] = {"prev", "next", "0", "9"};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(events[i].method, "onIntervalControl");
    // The action alone: no display id.
    EXPECT_EQ(events[i].arguments, Map({{"action", EncodableValue(actions[i])}}));
  }
  EXPECT_EQ(events[4].method, "onHudToggle");
  EXPECT_TRUE(events[4].arguments.IsNull());
}

// --- Contract violations ---

TEST_F(LiveWindowPluginTest, ValueOfTheWrongKindEndsTheProcess) {
  EXPECT_DEATH(Call("closeForDisplay", Map({{"displayId", EncodableValue(42)}})), "");
}

}  // namespace
}  // namespace native_live_window
