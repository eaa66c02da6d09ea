// The live output plugin on its channel against the engine stand-in, with real output windows:
// argument errors and their codes, calls on unknown displays, showing and replacing windows,
// loading images, deferred fade replies brought back to the platform thread, and teardown. Keys
// and clicks on the output windows are followed through the real program in
// live_output_end_to_end_tests.
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
#include "live_output/test_support/live_window_test_support.h"
#include "live_output/window/live_window_clock.h"
#include "live_output/log/logger.h"
#include "live_output/window/native_live_window.h"
#include "live_output/native_live_window_plugin.h"
#include "live_output/native_live_window_plugin_c_api.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"
#include "reply_test_support.h"
#include "standard_method_codec.h"

namespace native_live_window {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using flutter::reply_test::Map;
using flutter::reply_test::Outcome;
using flutter::reply_test::ReplyTo;
using ::testing::HasSubstr;

constexpr char kChannel[] = "com.kestrun.native_live_window";
constexpr DWORD kTimeoutMs = 30000;

const flutter::StandardMethodCodec& Codec() { return flutter::StandardMethodCodec::GetInstance(); }

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

// A crop of the right half of a 3840 x 1080 canvas.
EncodableMap CropArguments(const char* display_id) {
  return {{EncodableValue("displayId"), EncodableValue(display_id)},
          {EncodableValue("left"), EncodableValue(0.5)},
          {EncodableValue("top"), EncodableValue(0.0)},
          {EncodableValue("width"), EncodableValue(0.5)},
          {EncodableValue("height"), EncodableValue(1.0)},
          {EncodableValue("canvasWidth"), EncodableValue(3840)},
          {EncodableValue("canvasHeight"), EncodableValue(1080)}};
}

EncodableValue Id(const std::string& display_id) {
  return Map({{"displayId", EncodableValue(display_id)}});
}

using live_window_test::ManualClock;
using live_window_test::PumpPending;
using live_window_test::WaitForPresents;

// Pumps this thread's messages until `done` answers true, waking on `event` or any message.
bool PumpUntil(const std::function<bool()>& done, HANDLE event = nullptr) {
  return live_window_test::PumpUntil(done, event, kTimeoutMs);
}

// Waits, without dispatching posted messages, until a completion message is queued for this
// thread. Sent messages are still delivered, so that no other thread blocks on this one.
bool WaitForQueuedCompletion() {
  const ULONGLONG deadline = GetTickCount64() + kTimeoutMs;
  MSG message;
  while (!PeekMessageW(&message, nullptr, DeferredReplies::kCompletionMessage,
                       DeferredReplies::kCompletionMessage, PM_NOREMOVE)) {
    const ULONGLONG now = GetTickCount64();
    if (now >= deadline) {
      return false;
    }
    MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(deadline - now),
                              QS_POSTMESSAGE | QS_SENDMESSAGE);
  }
  return true;
}

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
      auto clock = std::make_shared<ManualClock>();
      auto window = std::make_unique<NativeLiveWindow>(clock);
      clocks_.push_back(clock);
      windows_.push_back(window.get());
      return window;
    });
    plugin_ = plugin.get();
    registrar_->AddPlugin(std::move(plugin));
  }

  void TearDown() override {
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
    return flutter::reply_test::Deliver(messenger_, kChannel, method, arguments);
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
  std::vector<std::shared_ptr<ManualClock>> clocks_;
};

// --- Teardown and arguments ---

TEST_F(LiveWindowPluginTest, UnknownAndNotYetHandledMethodsAreNotImplemented) {
  for (const char* method :
       {"noSuchMethod", "ShowForDisplay", "LoadWebpageForDisplay", "SetVideoTopology"}) {
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

TEST_F(LiveWindowPluginTest, MethodsWantAMapWithTheirKeys) {
  const std::vector<const char*> per_display = {
      "showForDisplay",      "closeForDisplay",       "blankForDisplay",
      "unblankForDisplay",   "loadImageForDisplay",   "stopImageForDisplay",
      "setCropRectForDisplay", "clearCropRectForDisplay"};
  std::vector<const char*> wanting_a_map = per_display;
  wanting_a_map.insert(wanting_a_map.end(),
                       {"fadeToBlackForDisplay", "fadeFromBlackForDisplay", "initializeLogger"});
  for (const char* method : wanting_a_map) {
    for (const EncodableValue& argument :
         {EncodableValue(), EncodableValue("d1"), EncodableValue(EncodableList{EncodableValue("d1")})}) {
      ExpectError(Call(method, argument), "INVALID_ARGS", "Expected map argument");
    }
  }
  for (const char* method : per_display) {
    for (const EncodableValue& argument :
         {Map({{"path", EncodableValue("x.png")}}), Map({{"displayId", EncodableValue()}})}) {
      ExpectError(Call(method, argument), "INVALID_ARGS", "Missing 'displayId' argument");
    }
  }
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
    EncodableMap map = CropArguments("d1");
    map.erase(EncodableValue(missing));
    ExpectError(Call("setCropRectForDisplay", EncodableValue(map)), "INVALID_ARGS",
                "Missing crop rect arguments");
  }
}

TEST_F(LiveWindowPluginTest, CommandsOnUnknownDisplaysAndOnNoWindowsSucceedQuietly) {
  for (const char* method : {"closeForDisplay", "blankForDisplay", "unblankForDisplay",
                             "stopImageForDisplay", "clearCropRectForDisplay"}) {
    ExpectSuccess(Call(method, Id("nobody")));
  }
  ExpectSuccess(Call("setCropRectForDisplay", EncodableValue(CropArguments("nobody"))));
  for (const char* method : {"closeAll", "blankAll", "unblankAll", "fadeToBlackAll",
                             "fadeFromBlackAll"}) {
    ExpectSuccess(Call(method));
    ExpectSuccess(Call(method, Map({{"duration", EncodableValue(2000)}})));
  }
  EXPECT_EQ(plugin_->window_count(), 0u);
  EXPECT_EQ(plugin_->deferred_replies().pending_count(), 0u);
}

// --- Showing and closing ---

TEST_F(LiveWindowPluginTest, ShowOpensAWindowPerDisplayAndCloseClosesIt) {
  NativeLiveWindow* first = Show("a", 40);
  ASSERT_NE(first, nullptr);
  const HWND first_hwnd = first->GetHwnd();
  RECT rect = {};
  GetWindowRect(first_hwnd, &rect);
  EXPECT_EQ(rect.left, 40);
  EXPECT_EQ(rect.right - rect.left, 160);
  EXPECT_EQ(rect.bottom - rect.top, 120);
  ASSERT_EQ(first->displays().size(), 1u);
  EXPECT_EQ(first->displays()[0].id, "a");
  EXPECT_EQ(first->displays()[0].name, "Test display");

  // Showing again on the same display replaces the window.
  const HWND a = Show("a")->GetHwnd();
  EXPECT_FALSE(IsWindow(first_hwnd));
  EXPECT_TRUE(IsWindow(a));
  const HWND b = Show("b", 200)->GetHwnd();
  const HWND c = Show("c", 400)->GetHwnd();
  EXPECT_EQ(plugin_->window_count(), 3u);
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

// Images the window cannot take: a still wider than any texture fails to load; an animation whose
// canvas is that wide is refused by the window, and its first frame is shown as a still instead.
TEST_F(LiveWindowPluginImageTest, ImagesTheWindowCannotTakeFailOrShowTheirFirstFrame) {
  constexpr std::uint16_t kTooWide = 65535;
  ASSERT_TRUE(files_->WritePng("too-wide.png", kTooWide, 1,
                               std::vector<std::uint8_t>(std::size_t{kTooWide} * 4, 0x80)));
  const std::vector<GifTestFileWriter::Frame> two = {
      GifTestFileWriter::SolidFrame(0, 0, 2, 2, 0xFFFF0000),
      GifTestFileWriter::SolidFrame(0, 0, 2, 2, 0xFF00FF00)};
  ASSERT_TRUE(files_->WriteBytes("wide-canvas.gif", GifTestFileWriter::Build(kTooWide, 2, two)));

  struct Case {
    const char* file;
    const char* code;  // "" for success
    std::uint32_t still_width;
  };
  const Case cases[] = {
      {"too-wide.png", "LOAD_FAILED", kTooWide},
      {"wide-canvas.gif", "", 2},
  };
  NativeLiveWindow* window = Show("d1");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    ExpectSuccess(Call("stopImageForDisplay", Id("d1")));
    const Outcome outcome = Call("loadImageForDisplay", Load("d1", files_->Path(c.file)));
    if (*c.code != '\0') {
      ExpectError(outcome, c.code, "Failed to load image");
      EXPECT_EQ(window->content_mode(), kContentNone);
    } else {
      ExpectSuccess(outcome);
      EXPECT_EQ(window->content_mode(), kContentImage);
    }
    EXPECT_EQ(plugin_->image_decoder().decoded_image().width, c.still_width);
  }
  EXPECT_EQ(plugin_->image_decoder().static_decode_count(), 2u);
  // Shown as a still, the refused animation never changes frames.
  clocks_[0]->AdvanceMs(500);
  EXPECT_TRUE(WaitForPresents(*window, 3));
  EXPECT_EQ(window->texture_update_count(), 0u);
}

HRESULT FailDeviceCreation(HRESULT) { return E_FAIL; }

TEST_F(LiveWindowPluginTest, WindowWithoutDirect3DIsDestroyedAndShowFails) {
  NativeLiveWindow::SetDeviceCreationFilterForTesting(&FailDeviceCreation);
  const Outcome outcome = Call("showForDisplay", Map({{"displayId", EncodableValue("d1")},
                                                      {"x", EncodableValue(0)},
                                                      {"y", EncodableValue(0)},
                                                      {"width", EncodableValue(160)},
                                                      {"height", EncodableValue(120)}}));
  NativeLiveWindow::SetDeviceCreationFilterForTesting(nullptr);
  ExpectError(outcome, "SHOW_FAILED", "Failed to initialize D3D11");
  ASSERT_EQ(windows_.size(), 1u);
  EXPECT_EQ(windows_[0]->GetHwnd(), nullptr);
  EXPECT_FALSE(windows_[0]->render_loop_running());
  EXPECT_EQ(FindWindowW(L"KestrunNativeLiveWindow", nullptr), nullptr);
  ExpectError(Call("loadImageForDisplay", Map({{"displayId", EncodableValue("d1")},
                                               {"path", EncodableValue("a.png")}})),
              "NOT_SHOWING", "Window for display is not showing");
  const std::size_t logged = live_window_test::LogText().size();
  const live_window_test::CapturedStdout out;
  ExpectError(Call("loadWebpageForDisplay", Map({{"displayId", EncodableValue("d1")},
                                                 {"url", EncodableValue("https://a/")}})),
              "LOAD_FAILED", "Failed to load webpage");
  EXPECT_THAT(live_window_test::LogText().substr(logged),
              ::testing::AllOf(HasSubstr("LoadWebpage called (url=https://a/, gen=0, webview=null"),
                               HasSubstr("ERROR [WEBVIEW] LoadWebpage failed - no hwnd_")));
  EXPECT_EQ(out.Text(), "Kestrun Native: ERROR - No window for webpage\n");
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

  // An immediate fade is answered through the callback window too.
  const int back = Deliver("fadeFromBlackForDisplay", Map({{"displayId", EncodableValue("d1")},
                                                          {"duration", EncodableValue(-5)}}));
  EXPECT_EQ(ReplyTo(back).replies, 0);
  EXPECT_EQ(window->fade_overlay_alpha(), 0);
  PumpPending();
  ExpectSuccess(ReplyTo(back));
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
  SendMessageW(window->GetHwnd(), WM_KEYDOWN, VK_ESCAPE, 1);
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

// --- Contract violations ---

TEST_F(LiveWindowPluginTest, ValueOfTheWrongKindEndsTheProcess) {
  EXPECT_DEATH(Call("closeForDisplay", Map({{"displayId", EncodableValue(42)}})), "");
}

}  // namespace
}  // namespace native_live_window
