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
#include <optional>
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

// Where each window appears and what one display's rows do to the others is followed on the
// screen below (LiveWindowPluginScreenTest).
TEST_F(LiveWindowPluginTest, ShowingAgainReplacesTheWindowAndCloseAllClosesEvery) {
  const HWND first = Show("a")->GetHwnd();
  const HWND a = Show("a")->GetHwnd();
  EXPECT_FALSE(IsWindow(first));
  EXPECT_TRUE(IsWindow(a));
  const HWND b = Show("b", 200)->GetHwnd();
  ExpectSuccess(Call("closeAll"));
  EXPECT_FALSE(IsWindow(a));
  EXPECT_FALSE(IsWindow(b));
  EXPECT_EQ(plugin_->window_count(), 0u);
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

// --- What the audience sees ---

// Two output windows away from the origin, neither square nor placed at x = y, showing the banded
// picture of live_window_test::BandedImage. Every row that changes a window is followed to the
// screen, on that window and on the other.
class LiveWindowPluginScreenTest : public LiveWindowPluginImageTest {
 protected:
  struct Placement {
    const char* id;
    int x, y, width, height;
  };
  struct Probe {
    int x, y;  // in the window
    std::uint32_t color;
  };
  static constexpr Placement kA = {"a", 1000, 560, 320, 160};
  static constexpr Placement kB = {"b", 1400, 600, 240, 300};

  NativeLiveWindow* ShowAt(const Placement& p) {
    ExpectSuccess(Call("showForDisplay", Map({{"displayId", EncodableValue(p.id)},
                                              {"x", EncodableValue(p.x)},
                                              {"y", EncodableValue(p.y)},
                                              {"width", EncodableValue(p.width)},
                                              {"height", EncodableValue(p.height)}})));
    return windows_.back();
  }

  // Waits until the window has presented what was just changed, then reads the probes.
  void ExpectScreen(const NativeLiveWindow& window, const Placement& p,
                    const std::vector<Probe>& probes) {
    ASSERT_TRUE(live_window_test::WaitForPresents(window, 4));
    for (const Probe& probe : probes) {
      const std::uint32_t actual = live_window_test::ScreenPixel(p.x + probe.x, p.y + probe.y);
      EXPECT_TRUE(live_window_test::ColorNear(actual, probe.color))
          << p.id << " (" << probe.x << ", " << probe.y << ") is "
          << live_window_test::ColorText(actual) << ", expected "
          << live_window_test::ColorText(probe.color);
    }
  }
};

TEST_F(LiveWindowPluginScreenTest, ImageCropBlankAndStopRowsActOnTheirDisplayOnly) {
  using namespace live_window_test::colors;
  NativeLiveWindow* a = ShowAt(kA);
  NativeLiveWindow* b = ShowAt(kB);
  ASSERT_TRUE(files_->WritePng("bands.png", 200, 200, live_window_test::BandedImage()));
  auto load = [this](const char* id, std::optional<std::int32_t> fit_mode) {
    EncodableMap args = {{EncodableValue("displayId"), EncodableValue(id)},
                         {EncodableValue("path"), EncodableValue(files_->Path("bands.png"))}};
    if (fit_mode) {
      args[EncodableValue("fitMode")] = EncodableValue(*fit_mode);
    }
    ExpectSuccess(Call("loadImageForDisplay", EncodableValue(args)));
  };
  // Every probe is read from the screen where the display's x, y, width and height put it. The
  // tall window b stretches the picture: its bands are 75 pixels high.
  load("b", 2);
  const std::vector<Probe> b_stretched = {{60, 30, kMagenta}, {180, 260, kOrange}};
  ExpectScreen(*b, kB, b_stretched);

  // Without a fit mode the picture covers the 2:1 window: a quarter cut at the top and bottom.
  load("a", std::nullopt);
  ExpectScreen(*a, kA, {{80, 10, kRed}, {240, 150, kWhite}});
  // Contain: a square in the middle, black bars left and right.
  load("a", 1);
  const std::vector<Probe> a_contained = {
      {40, 80, kBlack}, {280, 80, kBlack}, {120, 20, kMagenta}, {200, 140, kOrange}};
  ExpectScreen(*a, kA, a_contained);
  // An animation is contained the same way.
  ExpectSuccess(Call("loadImageForDisplay", Load("a", WriteGif("anim.gif", 2, 2, 3), 1)));
  ExpectScreen(*a, kA, {{40, 80, kBlack}, {160, 80, kRed}});
  load("a", 1);

  // A crop that starts at neither 0 nor its own left, on a 4:1 canvas where the contained
  // picture fills the middle quarter (0.375 ... 0.625): the window shows rows 100 ... 140 of the
  // picture (the blue and white band) in its middle half.
  ExpectSuccess(Call("setCropRectForDisplay",
                     Map({{"displayId", EncodableValue("a")}, {"left", EncodableValue(0.25)},
                          {"top", EncodableValue(0.5)}, {"width", EncodableValue(0.5)},
                          {"height", EncodableValue(0.2)}, {"canvasWidth", EncodableValue(800)},
                          {"canvasHeight", EncodableValue(200)}})));
  ExpectScreen(*a, kA,
               {{40, 80, kBlack}, {280, 80, kBlack}, {120, 10, kBlue}, {120, 150, kBlue},
                {200, 10, kWhite}, {200, 150, kWhite}});
  ExpectScreen(*b, kB, b_stretched);
  ExpectSuccess(Call("clearCropRectForDisplay", Id("a")));
  ExpectScreen(*a, kA, a_contained);

  // Blanking one display, all, then unblanking one and all.
  struct Step {
    const char* method;
    const char* id;  // null for the "All" rows
    bool a_black;
    bool b_black;
  };
  const Step steps[] = {{"blankForDisplay", "a", true, false},
                        {"unblankForDisplay", "a", false, false},
                        {"blankAll", nullptr, true, true},
                        {"unblankForDisplay", "b", true, false},
                        {"unblankAll", nullptr, false, false}};
  for (const Step& step : steps) {
    SCOPED_TRACE(std::string(step.method) + " " + (step.id ? step.id : ""));
    ExpectSuccess(Call(step.method, step.id ? Id(step.id) : EncodableValue()));
    ExpectScreen(*a, kA, {{200, 140, step.a_black ? kBlack : kOrange}});
    ExpectScreen(*b, kB, {{180, 260, step.b_black ? kBlack : kOrange}});
  }

  // Stopping the image of one display leaves it black and the other showing.
  ExpectSuccess(Call("stopImageForDisplay", Id("a")));
  ExpectScreen(*a, kA, {{120, 20, kBlack}, {200, 140, kBlack}});
  ExpectScreen(*b, kB, b_stretched);
  // Closing one display leaves the other.
  const HWND b_window = b->GetHwnd();
  ExpectSuccess(Call("closeForDisplay", Id("a")));
  EXPECT_TRUE(IsWindow(b_window));
  ExpectScreen(*b, kB, b_stretched);
}

// --- Fades ---

TEST_F(LiveWindowPluginTest, FadeIsAnsweredOnThePlatformThreadAfterItEnds) {
  NativeLiveWindow* window = Show("d1");
  NativeLiveWindow* other = Show("d2", 200);
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
  EXPECT_EQ(other->fade_overlay_alpha(), 0);
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
  // Without arguments: half a second.
  const int token = Deliver("fadeToBlackAll", EncodableValue());
  ASSERT_TRUE(WaitForPresents(*a, 1));
  EXPECT_EQ(ReplyTo(token).replies, 0);

  // The first window's fade ends (its completion has run once two more frames are presented).
  clocks_[0]->AdvanceMs(500);
  ASSERT_TRUE(PumpUntil([&] { return a->fade_overlay_alpha() == 255; }, a->present_event()));
  ASSERT_TRUE(WaitForPresents(*a, 2));
  PumpPending();
  EXPECT_EQ(ReplyTo(token).replies, 0);
  EXPECT_LT(b->fade_overlay_alpha(), 255);

  clocks_[1]->AdvanceMs(500);
  ASSERT_TRUE(PumpUntil([&] { return ReplyTo(token).replies > 0; }));
  ExpectSuccess(ReplyTo(token));
  EXPECT_EQ(b->fade_overlay_alpha(), 255);

  // And back from black: a map without a duration also means half a second.
  const int back = Deliver("fadeFromBlackAll", Map({}));
  PumpPending();
  EXPECT_EQ(ReplyTo(back).replies, 0);
  EXPECT_EQ(a->fade_overlay_alpha(), 255);
  clocks_[0]->AdvanceMs(500);
  clocks_[1]->AdvanceMs(500);
  ASSERT_TRUE(PumpUntil([&] { return ReplyTo(back).replies > 0; }));
  ExpectSuccess(ReplyTo(back));
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

// A DPI change moves and sizes the output window to the rectangle the system suggests.
TEST_F(LiveWindowPluginTest, OutputWindowTakesTheRectangleSuggestedForANewDpi) {
  const HWND hwnd = Show("d1", 40)->GetHwnd();
  RECT suggested = {70, 30, 70 + 200, 30 + 90};
  EXPECT_EQ(SendMessageW(hwnd, WM_DPICHANGED, MAKEWPARAM(144, 144),
                         reinterpret_cast<LPARAM>(&suggested)),
            0);
  RECT rect = {};
  GetWindowRect(hwnd, &rect);
  EXPECT_EQ(rect.left, 70);
  EXPECT_EQ(rect.top, 30);
  EXPECT_EQ(rect.right - rect.left, 200);
  EXPECT_EQ(rect.bottom - rect.top, 90);
}

// --- Contract violations ---

TEST_F(LiveWindowPluginTest, ValueOfTheWrongKindEndsTheProcess) {
  EXPECT_DEATH(Call("closeForDisplay", Map({{"displayId", EncodableValue(42)}})), "");
}

}  // namespace
}  // namespace native_live_window
