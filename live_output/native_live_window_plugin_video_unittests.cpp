// The video rows of the live output channel against the engine stand-in, the stand-in media
// library and the recording composition services: argument errors, topology changes, routing,
// timed opacity replies, and teardown.
#include <gtest/gtest.h>
#include <test_flutter_engine.h>
#include <windows.h>

#include <cfloat>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "encodable_value.h"
#include "live_output/native_live_window_plugin.h"
#include "live_output/test_support/hang_watchdog.h"
#include "live_output/test_support/live_window_test_support.h"
#include "live_output/test_support/video_test_support.h"
#include "live_output/video/mdk/mdk_library.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"
#include "reply_test_support.h"
#include "testing/mdk/mdk_standin.h"

namespace native_live_window {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using flutter::reply_test::Map;
using flutter::reply_test::Outcome;
using flutter::reply_test::ReplyTo;
using live_window_test::CountOf;
using live_window_test::HangWatchdog;
using live_window_test::LogText;
using live_window_test::PumpPending;
using live_window_test::PumpUntil;
using live_window_test::ColorNear;
using live_window_test::ColorText;
using live_window_test::MakeImage;
using live_window_test::ScreenPixel;
using live_window_test::WaitForPresents;
namespace colors = live_window_test::colors;

constexpr char kChannel[] = "com.kestrun.native_live_window";

EncodableValue Decoder(const std::string& key, const std::string& path, std::int64_t start = 0) {
  return Map({{"key", EncodableValue(key)},
              {"path", EncodableValue(path)},
              {"canvasWidth", EncodableValue(320)},
              {"canvasHeight", EncodableValue(std::int64_t{90})},
              {"startPositionMs", EncodableValue(start)}});
}

EncodableValue Assign(const std::string& display_id, const std::string& key, int crop_x = -1,
                      int crop_width = 0) {
  EncodableMap map{{EncodableValue("displayId"), EncodableValue(display_id)},
                   {EncodableValue("decoderKey"), EncodableValue(key)}};
  if (crop_x >= 0) {
    map[EncodableValue("cropX")] = EncodableValue(crop_x);
    map[EncodableValue("cropY")] = EncodableValue(0);
    map[EncodableValue("cropWidth")] = EncodableValue(crop_width);
    map[EncodableValue("cropHeight")] = EncodableValue(90);
  }
  return EncodableValue(map);
}

EncodableValue Topology(EncodableList decoders, EncodableList assignments) {
  return Map(
      {{"decoders", EncodableValue(decoders)}, {"assignments", EncodableValue(assignments)}});
}

class VideoRowsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    MdkStandin_Reset();
    MdkStandin_SetFrameIntervalMs(0);
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    FlutterTestReset();
    core_ = FlutterTestCreateRegistrar();
    messenger_ = FlutterDesktopPluginRegistrarGetMessenger(core_);
    auto* registrar = flutter::PluginRegistrarManager::GetInstance()
                          ->GetRegistrar<flutter::PluginRegistrarWindows>(core_);
    auto plugin = std::make_unique<NativeLiveWindowPlugin>(registrar);
    plugin_ = plugin.get();
    plugin_->video_topology().SetFactories(nullptr, [this] {
      return std::make_unique<DCompCoordinator>(clock_.AsFunction(), recording_.AsFunction());
    });
    registrar->AddPlugin(std::move(plugin));
    // The stand-in plays any file that exists.
    media_ = (std::filesystem::temp_directory_path() / "kestrun-video-rows.mp4").string();
    std::ofstream(media_) << "stand-in media";
    log_mark_ = LogText().size();
  }

  void TearDown() override {
    DestroyPlugin();
    FlutterTestReset();
    MdkStandin_ReleaseHungStops();
    MdkStandin_Settle();
    PumpPending();
    CoUninitialize();
  }

  void DestroyPlugin() {
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    plugin_ = nullptr;
  }

  int Deliver(const std::string& method, const EncodableValue& arguments) {
    return flutter::reply_test::Deliver(messenger_, kChannel, method, arguments);
  }

  Outcome Call(const std::string& method, const EncodableValue& arguments = EncodableValue()) {
    return ReplyTo(Deliver(method, arguments));
  }

  void ExpectTrue(const Outcome& outcome, const char* what) {
    EXPECT_EQ(outcome.kind, "success") << what << ": " << outcome.code << " " << outcome.message;
    EXPECT_EQ(outcome.replies, 1) << what;
  }

  void Show(const std::string& display_id, int x) {
    ExpectTrue(Call("showForDisplay", Map({{"displayId", EncodableValue(display_id)},
                                           {"x", EncodableValue(x)},
                                           {"y", EncodableValue(0)},
                                           {"width", EncodableValue(160)},
                                           {"height", EncodableValue(90)}})),
               "showForDisplay");
  }

  std::int64_t Position(const std::string& display_id) {
    const Outcome outcome =
        Call("getPositionForDisplay", Map({{"displayId", EncodableValue(display_id)}}));
    const auto* value = std::get_if<std::int64_t>(&outcome.value);
    EXPECT_NE(value, nullptr) << outcome.kind;
    return value != nullptr ? *value : -1;
  }

  VideoDecoder* DecoderOf(const std::string& key) {
    const auto& decoders = plugin_->video_topology().decoders();
    const auto it = decoders.find(key);
    return it != decoders.end() ? it->second.get() : nullptr;
  }

  std::shared_ptr<RecordingCompositionDevice> Recording() const { return recording_.last(); }
  // The log written since the test started.
  std::string NewLog() const { return LogText().substr(log_mark_); }

  video_test::ManualSteadyClock clock_;
  video_test::RecordingFactory recording_;
  FlutterDesktopPluginRegistrarRef core_ = nullptr;
  FlutterDesktopMessengerRef messenger_ = nullptr;
  NativeLiveWindowPlugin* plugin_ = nullptr;
  std::string media_;
  std::size_t log_mark_ = 0;
};

// --- Arguments: every video method without arguments, with a non-map, missing a key ---

struct ArgumentCase {
  const char* method;
  EncodableValue arguments;
  const char* message;
};

TEST_F(VideoRowsTest, ArgumentErrorsAnswerAtOnceAndChangeNothing) {
  const EncodableValue decoder_without_path = Map({{"key", EncodableValue("k")},
                                                   {"canvasWidth", EncodableValue(16)},
                                                   {"canvasHeight", EncodableValue(16)}});
  const EncodableValue ok_decoders = EncodableValue(EncodableList{});
  const std::vector<ArgumentCase> cases = {
      {"setVideoTopology", Map({}), "Missing 'decoders' argument"},
      {"setVideoTopology", Map({{"decoders", EncodableValue(3)}}), "'decoders' must be a list"},
      {"setVideoTopology", Map({{"decoders", EncodableValue()}}), "'decoders' must be a list"},
      {"setVideoTopology",
       Map({{"decoders", EncodableValue(EncodableList{decoder_without_path})},
            {"assignments", ok_decoders}}),
       "Decoder entry missing required field (key/path/canvasWidth/canvasHeight)"},
      {"setVideoTopology", Map({{"decoders", ok_decoders}}), "Missing 'assignments' argument"},
      {"setVideoTopology", Map({{"decoders", ok_decoders}, {"assignments", EncodableValue("x")}}),
       "'assignments' must be a list"},
      {"setVideoTopology",
       Map({{"decoders", ok_decoders},
            {"assignments",
             EncodableValue(EncodableList{Map({{"displayId", EncodableValue("d")}})})}}),
       "Assignment entry missing required field (displayId/decoderKey)"},
      {"setVolumeForDisplay", Map({}), "Missing 'displayId' argument"},
      {"setVolumeForDisplay", Map({{"displayId", EncodableValue("d")}}),
       "Missing 'volume' argument"},
      {"getPositionForDisplay", Map({}), "Missing 'displayId' argument"},
      {"seekToForDisplay", Map({}), "Missing 'displayId' argument"},
      {"seekToForDisplay", Map({{"displayId", EncodableValue("d")}}),
       "Missing 'positionMs' argument"},
      {"seekToAll", Map({}), "Missing 'positionMs' argument"},
      {"setVideoPausedForDisplay", Map({{"displayId", EncodableValue("d")}}),
       "Missing 'paused' argument"},
      {"setVideoPausedAll", Map({}), "Missing 'paused' argument"},
      {"setVideoOpacity", Map({{"duration", EncodableValue(5)}}), "Missing 'opacity' argument"},
  };
  std::vector<ArgumentCase> all = cases;
  for (const char* method :
       {"setVideoTopology", "setVolumeForDisplay", "getPositionForDisplay", "seekToForDisplay",
        "seekToAll", "setVideoPausedForDisplay", "setVideoPausedAll", "setVideoOpacity"}) {
    all.push_back({method, EncodableValue(), "Expected map argument"});
    all.push_back({method, EncodableValue(EncodableList{}), "Expected map argument"});
  }
  for (const ArgumentCase& c : all) {
    const Outcome outcome = Call(c.method, c.arguments);
    EXPECT_EQ(outcome.kind + " " + outcome.code + " " + outcome.message + " " +
                  std::to_string(outcome.replies),
              std::string("error INVALID_ARGS ") + c.message + " 1");
  }
  EXPECT_EQ(plugin_->video_topology().coordinator(), nullptr);
}

TEST_F(VideoRowsTest, ValuesOfTheWrongKindEndTheProcess) {
  const EncodableValue id = EncodableValue("d");
  const std::vector<std::pair<const char*, EncodableValue>> cases = {
      {"setVideoTopology", Topology({Map({{"key", EncodableValue(5)}, {"path", EncodableValue("p")},
                                          {"canvasWidth", EncodableValue(16)},
                                          {"canvasHeight", EncodableValue(16)}})}, {})},
      {"setVolumeForDisplay", Map({{"displayId", id}, {"volume", EncodableValue(1)}})},
      {"seekToForDisplay", Map({{"displayId", id}, {"positionMs", EncodableValue("0")}})},
      {"setVideoOpacity", Map({{"opacity", EncodableValue(1)}})},
  };
  for (const auto& c : cases) {
    EXPECT_DEATH(Call(c.first, c.second), "") << c.first;
  }
}

// --- Topology ---

TEST_F(VideoRowsTest, SameTopologyTwiceKeepsDecodersAndSeeksThemToTheirStart) {
  Show("left", 0);
  Show("right", 160);
  EncodableValue solo = Decoder("solo", media_, 0);  // played once, stretched
  std::get<EncodableMap>(solo)[EncodableValue("loop")] = EncodableValue(false);
  std::get<EncodableMap>(solo)[EncodableValue("fitMode")] = EncodableValue(2);
  const EncodableValue topology = Topology(
      {Decoder("wall", media_, 2000), solo},
      {Assign("left", "wall", 0, 160), Assign("right", "wall", 160, 160)});
  ExpectTrue(Call("setVideoTopology", topology), "first topology");
  VideoDecoder* wall = DecoderOf("wall");
  MdkStandinPlayerInfo player[2] = {};  // "solo" is the newest; "wall" loops and covers
  ASSERT_TRUE(MdkStandin_PlayerInfo(0, &player[0]) && MdkStandin_PlayerInfo(1, &player[1]));
  EXPECT_EQ(std::vector<float>({1.0f * player[0].loop_setting, player[0].aspect_ratio,
                                1.0f * player[1].loop_setting, player[1].aspect_ratio}),
            std::vector<float>({0.0f, 0.0f, -1.0f, -FLT_EPSILON}));
  for (const CommittedComposition& w : Recording()->Committed()) {  // each its half, unscaled
    EXPECT_EQ(std::vector<float>({w.clip.left, w.clip.top, w.clip.right, w.clip.bottom,
                                  w.offset_y, w.has_transform ? 1.0f : 0.0f}),
              std::vector<float>({-w.offset_x, 0, 160 - w.offset_x, 90, 0, 0}));
  }
  ExpectTrue(Call("seekToForDisplay", Map({{"displayId", EncodableValue("left")},
                                           {"positionMs", EncodableValue(7000)}})),
             "seek");
  MdkStandin_Settle();
  EXPECT_EQ(Position("right"), 7000);  // both displays show the same decoder
  ExpectTrue(Call("seekToAll", Map({{"positionMs", EncodableValue(5000)}})), "seek all");

  const std::string before = LogText();
  ExpectTrue(Call("setVideoTopology", topology), "second topology");
  MdkStandin_Settle();
  const std::string after = LogText().substr(before.size());
  EXPECT_EQ(CountOf(after, "SetVideoTopology: removed decoder"), 0u);
  EXPECT_EQ(CountOf(after, "SetVideoTopology: prepared decoder"), 0u);
  EXPECT_EQ(DecoderOf("wall"), wall);
  EXPECT_EQ(Position("left"), 2000);
  EXPECT_EQ(DecoderOf("solo")->GetPosition(), 0);
}

TEST_F(VideoRowsTest, ChangedPathKeepsTheVideoAndStaleKeysAreRemoved) {
  Show("d", 0);
  ExpectTrue(Call("setVideoTopology",
                  Topology({Decoder("a", media_), Decoder("b", media_)}, {Assign("d", "a")})),
             "first");
  VideoDecoder* a = DecoderOf("a");
  const std::string before = LogText();
  ExpectTrue(
      Call("setVideoTopology", Topology({Decoder("a", media_ + ".other")}, {Assign("d", "a")})),
      "second");
  const std::string after = LogText().substr(before.size());
  EXPECT_EQ(DecoderOf("a"), a);
  EXPECT_EQ(DecoderOf("b"), nullptr);
  EXPECT_EQ(CountOf(after, "SetVideoTopology: removed decoder 'b'"), 1u);
}

TEST_F(VideoRowsTest, AssignmentWithoutWindowLogsAndStillSucceeds) {
  Show("d", 0);
  ExpectTrue(Call("setVideoTopology",
                  Topology({Decoder("a", media_)}, {Assign("ghost", "a"), Assign("d", "a", 0, 0)})),
             "topology");
  EXPECT_EQ(CountOf(NewLog(), "SetVideoTopology: window not found for display 'ghost'"), 1u);
  // The crop of width 0 is ignored: the display shows the whole canvas, scaled.
  const std::vector<CommittedComposition> committed = Recording()->Committed();
  ASSERT_EQ(committed.size(), 1u);
  EXPECT_FALSE(committed[0].has_clip);
  EXPECT_TRUE(committed[0].has_transform);
  EXPECT_FLOAT_EQ(committed[0].transform.m11, 0.5f);
}

TEST_F(VideoRowsTest, EmptyTopologyStopsTheLoopAndRoutingThenDoesNothing) {
  Show("d", 0);
  ExpectTrue(Call("setVideoTopology", Topology({Decoder("a", media_, 3000)}, {Assign("d", "a")})),
             "topology");
  MdkStandin_Settle();
  EXPECT_EQ(Position("d"), 3000);
  EXPECT_EQ(Position("elsewhere"), 0);
  ExpectTrue(Call("setVideoTopology", Topology({}, {})), "empty");
  EXPECT_EQ(CountOf(NewLog(), "SetVideoTopology: empty topology, render loop remains stopped"), 1u);
  EXPECT_FALSE(plugin_->video_topology().coordinator()->IsRenderLoopRunning());
  EXPECT_EQ(Position("d"), 0);
  ExpectTrue(Call("setVideoOpacity",
                  Map({{"opacity", EncodableValue(1.0)}, {"duration", EncodableValue(500)}})),
             "opacity without video");
}

TEST_F(VideoRowsTest, VideoOpacityWithDurationRepliesAfterTheFade) {
  Show("d", 0);
  ExpectTrue(Call("setVideoTopology", Topology({Decoder("a", media_)}, {Assign("d", "a")})),
             "topology");
  ExpectTrue(Call("setVideoOpacity", Map({{"opacity", EncodableValue(0.5)}})), "instant");
  EXPECT_EQ(Recording()->Committed().at(0).opacity, 0.5f);

  const int token =
      Deliver("setVideoOpacity",
              Map({{"opacity", EncodableValue(0.5)}, {"duration", EncodableValue(300)}}));
  PumpPending();
  EXPECT_EQ(ReplyTo(token).replies, 0);
  clock_.Advance(300);
  ASSERT_TRUE(PumpUntil([&] { return ReplyTo(token).replies > 0; }, nullptr));
  EXPECT_EQ(ReplyTo(token).kind, "success");
  EXPECT_EQ(ReplyTo(token).replies, 1);
  EXPECT_EQ(Recording()->Committed().at(0).opacity, 1.0f);  // fully in, whatever the value
}

// Players that will not stop (and whose deletion blocks until they do) never freeze the
// interface: "closeAll" waits for all of them together, once, and destroys none of them on its
// thread; so does the plugin's destruction.
TEST_F(VideoRowsTest, CloseAllAndDestructionWithHungPlayersReturn) {
  HangWatchdog watchdog(60000, "closeAll with players that will not stop");
  Show("d", 0);
  ExpectTrue(Call("setVideoTopology",
                  Topology({Decoder("a", media_), Decoder("b", media_), Decoder("c", media_)},
                           {Assign("d", "a")})),
             "topology");
  MdkStandin_SetStopHangMs(-1);
  ExpectTrue(Call("closeAll"), "closeAll");
  EXPECT_EQ(plugin_->video_topology().coordinator(), nullptr);
  EXPECT_EQ(CountOf(NewLog(), "Video topology torn down during CloseAll"), 1u);
  MdkStandinPlayerInfo first{};
  ASSERT_TRUE(MdkStandin_PlayerInfo(2, &first));
  EXPECT_EQ(first.stops_pending_at_wait, 3) << "stopped one after another";
  EXPECT_EQ(MdkStandin_LivePlayers(), 3);

  Show("d", 0);
  ExpectTrue(Call("setVideoTopology", Topology({Decoder("a", media_)}, {Assign("d", "a")})),
             "topology again");
  DestroyPlugin();
  EXPECT_EQ(CountOf(NewLog(), "Video topology torn down during CloseAll"), 2u);
}

// --- Routing, and the topology's steps on windows and decoders ---

// Routed commands act on the decoder the display shows (volume through the audio gate and its
// ramp, pause, seek); "...All" on every decoder; a closed display routes nothing.
TEST_F(VideoRowsTest, RoutedCommandsReachTheDecoderTheDisplayShows) {
  Show("one", 0);
  Show("two", 160);
  ExpectTrue(Call("setVideoTopology", Topology({Decoder("a", media_), Decoder("b", media_)},
                                               {Assign("one", "a"), Assign("two", "b")})),
             "topology");
  auto player = [](int newest) {  // "b" was made after "a"
    MdkStandinPlayerInfo info{};
    EXPECT_TRUE(MdkStandin_PlayerInfo(newest, &info));
    return info;
  };
  ExpectTrue(Call("setVolumeForDisplay",
                  Map({{"displayId", EncodableValue("two")}, {"volume", EncodableValue(0.5)}})),
             "volume");
  EXPECT_EQ(player(0).volume, 0.0f) << "gated until the first frame";
  clock_.Advance(10000);  // the seek gates' deadlines pass; the ramp's 60 ms too
  MdkStandin_AdvanceFrames(1);
  ASSERT_TRUE(PumpUntil([&] { return player(0).volume == 0.5f; }, Recording()->change_event()));
  EXPECT_EQ(player(1).volume, 0.0f);

  ExpectTrue(Call("setVideoPausedForDisplay",
                  Map({{"displayId", EncodableValue("one")}, {"paused", EncodableValue(true)}})),
             "pause one");
  MdkStandin_Settle();
  EXPECT_EQ(player(1).state, 2);
  EXPECT_EQ(player(0).state, 1);
  ExpectTrue(Call("setVideoPausedAll", Map({{"paused", EncodableValue(true)}})), "pause all");
  MdkStandin_Settle();
  EXPECT_EQ(player(0).state, 2);
  ExpectTrue(Call("seekToAll", Map({{"positionMs", EncodableValue(4000)}})), "seekToAll");
  MdkStandin_Settle();
  EXPECT_EQ(Position("one"), 4000);
  EXPECT_EQ(Position("two"), 4000);

  ExpectTrue(Call("closeForDisplay", Map({{"displayId", EncodableValue("one")}})), "close one");
  ExpectTrue(Call("seekToForDisplay", Map({{"displayId", EncodableValue("two")},
                                           {"positionMs", EncodableValue(6000)}})),
             "seek two");
  MdkStandin_Settle();
  EXPECT_EQ(Position("two"), 6000);
  EXPECT_EQ(DecoderOf("a")->GetPosition(), 4000);
}

// A topology unassigns displays it drops, leaves a window without video that shows an image
// drawing, and stops an empty one.
TEST_F(VideoRowsTest, DroppedDisplaysAreUnassignedAndWindowsWithoutVideoKeepTheirContent) {
  VideoTopology::Windows windows;
  for (const char* id : {"video", "image", "empty"}) {
    DisplayRecord display;
    display.id = id;
    display.x = static_cast<int>(windows.size()) * 160;
    display.width = 160;
    display.height = 90;
    windows[id] = std::make_unique<NativeLiveWindow>();
    windows[id]->CreateOnDisplays({display}, [](bool, const std::string&) {});
  }
  // A window that showed a picture goes black the moment video is assigned to it, before the
  // video's first frame: the audience never sees the old picture under the video.
  ASSERT_TRUE(windows["video"]->ShowImageFromPixels(
      MakeImage(8, 8, [](int, int) { return colors::kRed; }), 8, 8, 0));
  windows["video"]->RestartRenderLoop();
  ASSERT_TRUE(WaitForPresents(*windows["video"], 2));
  const auto video_pixel_is = [](std::uint32_t color) {
    return PumpUntil([color] { return ColorNear(ScreenPixel(80, 45), color); }, nullptr, 5000);
  };
  EXPECT_TRUE(video_pixel_is(colors::kRed)) << ColorText(ScreenPixel(80, 45));
  VideoTopology& topology = plugin_->video_topology();
  const std::vector<DecoderSpec> decoders = {{"a", media_, FitMode::Cover, true, {}, 320, 90, 0}};
  AssignmentSpec video;
  video.display_id = "video";
  video.decoder_key = "a";
  AssignmentSpec image = video;
  image.display_id = "image";
  ASSERT_EQ(topology.Apply(decoders, {video, image}, windows), VideoTopology::ApplyResult::kApplied);
  EXPECT_TRUE(video_pixel_is(colors::kBlack)) << ColorText(ScreenPixel(80, 45));
  ASSERT_TRUE(windows["image"]->ShowImageFromPixels(std::vector<std::uint8_t>(8 * 8 * 4, 0x80), 8,
                                                    8, 0));
  windows["image"]->RestartRenderLoop();
  windows["empty"]->RestartRenderLoop();
  ASSERT_EQ(topology.Apply(decoders, {video}, windows), VideoTopology::ApplyResult::kApplied);
  EXPECT_TRUE(windows["image"]->render_loop_running());
  EXPECT_FALSE(windows["empty"]->render_loop_running());
  EXPECT_FALSE(Recording()->CommittedFor(windows["image"]->GetHwnd()).content);
  EXPECT_TRUE(Recording()->CommittedFor(windows["video"]->GetHwnd()).content);
  EXPECT_EQ(topology.RoutedDecoder("image"), nullptr);
  topology.TearDown();
}

// Decoders that cannot be made, placed or played are logged and left out; the reply is true and
// the display of a video that failed to start shows nothing.
TEST_F(VideoRowsTest, DecodersThatFailAreLoggedAndLeftOut) {
  Show("d", 0);
  int made = 0;
  plugin_->video_topology().SetFactories(
      [&made]() -> std::unique_ptr<VideoDecoder> {
        ++made;
        if (made == 1) return nullptr;  // initialisation fails
        if (made == 2) {  // playback cannot start: no media library
          return std::make_unique<VideoDecoder>(
              nullptr, mdk::Library::Load(L"C:\\no-such-folder\\mdk.dll"));
        }
        return std::make_unique<VideoDecoder>();
      },
      [this] {
        return std::make_unique<DCompCoordinator>(clock_.AsFunction(), recording_.AsFunction());
      });
  EncodableValue no_width = Decoder("flat", media_);
  std::get<EncodableMap>(no_width)[EncodableValue("canvasWidth")] = EncodableValue(0);
  ExpectTrue(Call("setVideoTopology",
                  Topology({Decoder("broken", media_), Decoder("silent", media_), no_width},
                           {Assign("d", "silent")})),
             "topology");
  const std::string log = NewLog();
  EXPECT_EQ(CountOf(log, "SetVideoTopology: VideoDecoder::Initialize failed for 'broken'"), 1u);
  EXPECT_EQ(CountOf(log, "SetVideoTopology: PlayVideo failed for 'silent' (path="), 1u);
  EXPECT_EQ(CountOf(log, "unavailable: C:\\no-such-folder\\mdk.dll could not be loaded"), 1u);
  EXPECT_EQ(CountOf(log, "SetVideoTopology: AddDecoderPipeline failed for 'flat'"), 1u);
  EXPECT_FALSE(Recording()->Committed().at(0).content);
  EXPECT_EQ(Position("d"), 0);
}

// Fades and blanking reach the audience on windows that show video: the composition, drawn
// above the window's fade overlay, follows the window's fade, and every fade replies.
TEST_F(VideoRowsTest, FadesAndBlankingOfVideoWindowsReplyAndDarkenTheVideo) {
  Show("d", 0);
  Show("other", 160);
  ExpectTrue(Call("setVideoTopology", Topology({Decoder("a", media_)}, {Assign("d", "a")})),
             "topology");
  ExpectTrue(Call("setVideoOpacity", Map({{"opacity", EncodableValue(1.0)}})), "opacity");
  auto opacity = [&] { return Recording()->Committed().at(0).opacity; };
  auto fade = [&](const char* method, const EncodableValue& arguments, float expected) {
    const int token = Deliver(method, arguments);
    ASSERT_TRUE(PumpUntil([&] { return ReplyTo(token).replies > 0; }, nullptr)) << method;
    EXPECT_EQ(ReplyTo(token).kind, "success") << method;
    ASSERT_TRUE(PumpUntil([&] { return opacity() == expected; }, Recording()->change_event()))
        << method << " shows " << opacity();
  };
  const EncodableValue short_fade = Map({{"duration", EncodableValue(60)}});
  fade("fadeToBlackForDisplay",
       Map({{"displayId", EncodableValue("d")}, {"duration", EncodableValue(60)}}), 0.0f);
  fade("fadeFromBlackAll", short_fade, 1.0f);
  fade("fadeToBlackAll", short_fade, 0.0f);
  fade("fadeFromBlackForDisplay",
       Map({{"displayId", EncodableValue("d")}, {"duration", EncodableValue(60)}}), 1.0f);
  fade("blankForDisplay", Map({{"displayId", EncodableValue("d")}}), 0.0f);
  fade("unblankAll", EncodableValue(), 1.0f);
  fade("blankAll", EncodableValue(), 0.0f);
  fade("unblankForDisplay", Map({{"displayId", EncodableValue("d")}}), 1.0f);
}

// A lost shared device is not kept: the next topology is built on a fresh device and coordinator,
// and video is presented again.
TEST_F(VideoRowsTest, ALostVideoDeviceIsRecreatedByTheNextTopology) {
  Show("d", 0);
  const EncodableValue topology = Topology({Decoder("a", media_)}, {Assign("d", "a")});
  ExpectTrue(Call("setVideoTopology", topology), "topology");
  std::shared_ptr<RecordingCompositionDevice> lost = Recording();
  lost->SetPresentResult(DXGI_ERROR_DEVICE_REMOVED);
  MdkStandin_AdvanceFrames(1);
  ASSERT_TRUE(PumpUntil([&] { return CountOf(NewLog(), "Device lost during pipeline Present") > 0; },
                        lost->change_event()));
  ExpectTrue(Call("setVideoTopology", topology), "topology after the loss");
  EXPECT_EQ(CountOf(NewLog(), "Created shared D3D11 device for DComp"), 2u);
  EXPECT_EQ(CountOf(NewLog(), "the shared D3D11 device was lost"), 1u);
  ASSERT_NE(Recording(), lost);
  MdkStandin_AdvanceFrames(1);
  ASSERT_TRUE(PumpUntil([&] { return Recording()->present_count() > 0; },
                        Recording()->change_event()));
  ExpectTrue(Call("setVideoTopology", topology), "a third topology keeps the new device");
  EXPECT_EQ(CountOf(NewLog(), "Created shared D3D11 device for DComp"), 2u);
  // Both render loops pace with 1 ms sleeps while the plugin lives.
  EXPECT_GE(TimerResolution::ActiveCount(), 1);
}

// A coordinator that cannot make its composition device answers "DCOMP_FAILED" and is shut
// down; the shared device stays for the next call, also across a "closeAll" that finds no
// topology to tear down.
TEST_F(VideoRowsTest, CompositionFailureAnswersAndKeepsTheSharedDeviceForTheNextCall) {
  int attempts = 0;
  plugin_->video_topology().SetFactories(nullptr, [this, &attempts] {
    return std::make_unique<DCompCoordinator>(
        clock_.AsFunction(), [this, &attempts](IDXGIDevice* device, auto* composition) {
          return ++attempts == 1 ? E_NOTIMPL : recording_.AsFunction()(device, composition);
        });
  });
  const Outcome failed = Call("setVideoTopology", Topology({}, {}));
  EXPECT_EQ(failed.code + " " + failed.message, "DCOMP_FAILED Failed to initialize DCompCoordinator");
  ExpectTrue(Call("closeAll"), "closeAll");
  ExpectTrue(Call("setVideoTopology", Topology({}, {})), "second topology");
  const std::string log = NewLog();
  EXPECT_EQ(CountOf(log, "DCompositionCreateDevice failed, hr=0x80004001"), 1u);
  EXPECT_EQ(CountOf(log, "[DCOMP] Shutdown"), 1u);
  EXPECT_EQ(CountOf(log, "Video topology torn down during CloseAll"), 0u);
  EXPECT_EQ(CountOf(log, "Created shared D3D11 device for DComp"), 1u);
}

// A crash inside the media library's drawing ends the composition loop alone: the decoder it was
// drawing is not left locked, so its commands and "closeAll" still answer.
TEST_F(VideoRowsTest, FaultWhileDrawingAVideoLeavesItsDecoderUsable) {
  HangWatchdog watchdog(60000, "using a decoder after a fault in its drawing");
  Show("d", 0);
  ExpectTrue(Call("setVideoTopology", Topology({Decoder("a", media_)}, {Assign("d", "a")})),
             "topology");
  MdkStandin_FaultNextRender();
  MdkStandin_AdvanceFrames(1);
  ASSERT_TRUE(PumpUntil(
      [&] { return CountOf(NewLog(), "Render loop SEH exception: 0xC0000005") == 1; }, nullptr));
  ExpectTrue(Call("setVolumeForDisplay",
                  Map({{"displayId", EncodableValue("d")}, {"volume", EncodableValue(0.5)}})),
             "volume");
  ExpectTrue(Call("closeAll"), "closeAll");
}

// --- Reliability ---

// 200 topology changes in a row (decoders and assignments added, changed and removed, empty
// topologies) while frames render, seeks complete late and timed opacity changes run: every call
// is answered exactly once, and threads and handles come back to where they were.
TEST_F(VideoRowsTest, TwoHundredTopologyChangesLoseNothingAndLeakNothing) {
  MdkStandin_SetFrameIntervalMs(5);
  std::string seeks;
  for (int i = 0; i < 1000; ++i) {
    seeks += i == 0 ? "late" : ",late";
  }
  MdkStandin_ScriptSeeks(seeks.c_str());
  const char* displays[] = {"one", "two", "three"};
  for (int i = 0; i < 3; ++i) {
    Show(displays[i], i * 160);
  }
  // Warm up once, so that what the system keeps after the first device stays out of the count.
  ExpectTrue(Call("setVideoTopology", Topology({Decoder("a", media_)}, {Assign("one", "a")})),
             "warm-up");
  ExpectTrue(Call("setVideoTopology", Topology({}, {})), "warm-up end");
  MdkStandin_Settle();
  PumpPending();
  const DWORD threads = live_window_test::ProcessThreadCount();
  const DWORD handles = live_window_test::ProcessHandleCount();

  const char* keys[] = {"a", "b", "c", "d"};
  std::vector<int> deferred;
  for (int round = 0; round < 200; ++round) {
    EncodableList decoders;
    EncodableList assignments;
    if (round % 10 != 9) {
      for (int k = 0; k < 4; ++k) {
        if ((round + k) % 3 != 0) {
          decoders.push_back(
              Decoder(keys[k], round % 4 == 0 ? media_ + ".changed" : media_, (round * 40) % 5000));
        }
      }
      for (int d = 0; d < 3; ++d) {
        const char* key = keys[(round + d) % 4];
        assignments.push_back((round + d) % 2 == 0 ? Assign(displays[d], key)
                                                   : Assign(displays[d], key, 160 * (d % 2), 160));
      }
    }
    const Outcome outcome = Call("setVideoTopology", Topology(decoders, assignments));
    ASSERT_EQ(outcome.kind, "success") << "round " << round;
    ASSERT_EQ(outcome.replies, 1) << "round " << round;
    ExpectTrue(Call("seekToAll", Map({{"positionMs", EncodableValue(round * 10)}})), "seekToAll");
    if (round % 3 == 0) {
      deferred.push_back(Deliver("setVideoOpacity", Map({{"opacity", EncodableValue(1.0)},
                                                         {"duration", EncodableValue(200)}})));
    }
    clock_.Advance(100);
    PumpPending();
  }
  ExpectTrue(Call("closeAll"), "closeAll");
  clock_.Advance(1000);
  for (const int token : deferred) {
    ASSERT_TRUE(PumpUntil([&] { return ReplyTo(token).replies > 0; }, nullptr));
  }
  PumpPending();
  for (const int token : deferred) {
    EXPECT_EQ(ReplyTo(token).replies, 1);
  }
  EXPECT_EQ(plugin_->deferred_replies().pending_count(), 0u);
  MdkStandin_CompleteLateSeeks();
  MdkStandin_Settle();
  EXPECT_EQ(MdkStandin_LivePlayers(), 0);
  EXPECT_LE(live_window_test::ProcessThreadCount(), threads);
  // Windows and the system keep a few handles of their own; a leak per change would show 200.
  EXPECT_LE(live_window_test::ProcessHandleCount(), handles + 16);
}

}  // namespace
}  // namespace native_live_window
