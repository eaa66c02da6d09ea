// The video decoder against the stand-in media library (testing/mdk): audio gate and ramps, seek
// completions, parking of players that will not stop, the render target and the player set-up.

#include "live_output/video/video_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cfloat>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"
#include "live_output/video/mdk/mdk_library.h"
#include "testing/mdk/mdk_standin.h"

namespace native_live_window {
namespace {

using Microsoft::WRL::ComPtr;
using ::testing::FloatNear;
using ::testing::Pointwise;
using live_window_test::CountOf;
using live_window_test::LogText;

constexpr char kGateWarning[] = "WARNING [VIDEO_DECODER] Audio gate released by deadline";
constexpr char kQuarantineWarning[] = "WARNING [VIDEO_DECODER] Decoder did not reach Stopped within 1s";

MdkStandinPlayerInfo Newest() {
  MdkStandinPlayerInfo info{};
  EXPECT_TRUE(MdkStandin_PlayerInfo(0, &info));
  return info;
}

std::vector<float> Volumes() {
  std::vector<float> values(256);
  values.resize(static_cast<std::size_t>(MdkStandin_VolumeHistory(0, values.data(), 256)));
  return values;
}

class VideoDecoderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    LogText();  // the log goes to a folder of its own from here on
    MdkStandin_Reset();
    MdkStandin_SetFrameIntervalMs(0);  // frames only when a test delivers them
    ASSERT_TRUE(SUCCEEDED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr,
                                            D3D11_CREATE_DEVICE_BGRA_SUPPORT, nullptr, 0,
                                            D3D11_SDK_VERSION, &device_, nullptr, &context_)));
    std::ofstream(video_path_) << "stand-in video";
    ASSERT_TRUE(decoder_.Initialize(device_.Get(), context_.Get()));
  }
  void TearDown() override {
    MdkStandin_ReleaseHungStops();
    decoder_.Shutdown();
    std::remove(video_path_.c_str());
  }

  bool Play(FitMode fit = FitMode::Cover, int width = 64, int height = 32,
            const std::vector<std::string>& decoders = {}, bool loop = false) {
    const bool started = decoder_.PlayVideo(video_path_, fit, loop, decoders, width, height);
    MdkStandin_Settle();
    return started;
  }
  // One frame delivered by the player and drawn by the decoder, at the given clock time.
  bool DeliverAndRender(std::int64_t at_ms) {
    now_ms_ = at_ms;
    MdkStandin_AdvanceFrames(1);
    return decoder_.RenderFrame();
  }
  void TickAt(std::int64_t at_ms) {
    now_ms_ = at_ms;
    decoder_.RenderFrame();
  }
  std::uint32_t LeftPixel() {
    D3D11_TEXTURE2D_DESC desc;
    decoder_.GetTexture()->GetDesc(&desc);
    desc.Usage = D3D11_USAGE_STAGING;
    desc.BindFlags = 0;
    desc.CPUAccessFlags = D3D11_CPU_ACCESS_READ;
    ComPtr<ID3D11Texture2D> staging;
    EXPECT_TRUE(SUCCEEDED(device_->CreateTexture2D(&desc, nullptr, &staging)));
    context_->CopyResource(staging.Get(), decoder_.GetTexture());
    D3D11_MAPPED_SUBRESOURCE mapped{};
    EXPECT_TRUE(SUCCEEDED(context_->Map(staging.Get(), 0, D3D11_MAP_READ, 0, &mapped)));
    const std::uint32_t pixel = *static_cast<const std::uint32_t*>(mapped.pData) & 0xFFFFFFu;
    context_->Unmap(staging.Get(), 0);
    return pixel;
  }

  ComPtr<ID3D11Device> device_;
  ComPtr<ID3D11DeviceContext> context_;
  std::atomic<std::int64_t> now_ms_{1000};
  VideoDecoder decoder_{[this] {
                          return VideoDecoder::TimePoint(std::chrono::milliseconds(now_ms_.load()));
                        },
                        nullptr};
  std::string video_path_ = "video_decoder_test_" + std::to_string(GetCurrentProcessId()) + ".mp4";
};

TEST_F(VideoDecoderTest, SoundWaitsForTheFirstFrameAndAVolumeRequestThenRampsOver60Ms) {
  ASSERT_TRUE(Play());
  // The aspect ratio's render callback brings no frame: nothing drawn, the gate stays shut.
  now_ms_ = 1000;
  EXPECT_FALSE(decoder_.RenderFrame());
  decoder_.SetVolume(0.8);
  TickAt(1100);  // no frame yet: still silent
  EXPECT_EQ(Volumes(), std::vector<float>{0.0f});

  EXPECT_TRUE(DeliverAndRender(1200));  // first frame drawn; the gate opens on the next tick
  EXPECT_EQ(Volumes(), std::vector<float>{0.0f});
  for (std::int64_t at : {1300, 1330, 1360, 1400}) TickAt(at);
  EXPECT_THAT(Volumes(), Pointwise(FloatNear(1e-6f), {0.0f, 0.0f, 0.4f, 0.8f}));

  now_ms_ = 1500;
  decoder_.SetVolume(0.2);  // open gate: ramps from where it is
  for (std::int64_t at : {1500, 1530, 1560, 1600}) TickAt(at);
  EXPECT_THAT(Volumes(), Pointwise(FloatNear(1e-6f), {0.0f, 0.0f, 0.4f, 0.8f, 0.8f, 0.5f, 0.2f}));
}

TEST_F(VideoDecoderTest, WithoutAVolumeRequestTheGateOpensSilent) {
  ASSERT_TRUE(Play());
  EXPECT_TRUE(DeliverAndRender(1000));
  for (std::int64_t at : {1100, 1200, 9000}) TickAt(at);
  EXPECT_EQ(Volumes(), std::vector<float>{0.0f});
}

// Two quick seeks; how the player completes them decides when the sound returns.
TEST_F(VideoDecoderTest, SeekGateOpensOnTheNewestCompletionOrByDeadline) {
  struct Case {
    const char* completions;  // of the two seeks, in order
    bool release_late;        // the player then completes held seeks
    std::int64_t opens_at;    // ms after the second seek
    bool warns;
  };
  const Case cases[] = {
      {"immediate,immediate", false, 0, false},
      {"late,late", true, 0, false},
      {"late,skip", true, 700, true},  // the first one's completion must not open the second's gate
      {"never,never", false, 700, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.completions);
    ASSERT_TRUE(Play());
    ASSERT_TRUE(DeliverAndRender(1000));
    decoder_.SetVolume(1.0);
    TickAt(1000);
    TickAt(1100);  // gate open, full volume
    MdkStandin_ScriptSeeks(c.completions);
    decoder_.SeekTo(3000);
    decoder_.SeekTo(5000);
    decoder_.SetVolume(0.5);  // recorded only: the gate's release ramps to it
    MdkStandin_Settle();
    if (c.release_late) MdkStandin_CompleteLateSeeks();
    const std::size_t warnings = CountOf(LogText(), kGateWarning);

    const std::size_t silent = Volumes().size();
    TickAt(1100 + c.opens_at - 1);
    if (c.opens_at > 0) {
      EXPECT_EQ(Volumes().size(), silent) << "gate opened early";
    }
    TickAt(1100 + c.opens_at);
    TickAt(1100 + c.opens_at + 60);
    EXPECT_EQ(Volumes().back(), 0.5f);
    EXPECT_EQ(CountOf(LogText(), kGateWarning), warnings + (c.warns ? 1 : 0));
    decoder_.Stop();
  }
}

TEST_F(VideoDecoderTest, APlayerThatWillNotStopIsParkedAndDestroyedByALaterStop) {
  MdkStandin_SetStopHangMs(-1);
  ASSERT_TRUE(Play());
  const std::size_t warnings = CountOf(LogText(), kQuarantineWarning);
  decoder_.Stop();
  EXPECT_EQ(decoder_.QuarantinedPlayerCount(), 1u);
  EXPECT_EQ(MdkStandin_LivePlayers(), 1);
  EXPECT_EQ(CountOf(LogText(), kQuarantineWarning), warnings + 1);
  EXPECT_EQ(decoder_.GetPosition(), 0);

  decoder_.Stop();  // still running: kept
  EXPECT_EQ(decoder_.QuarantinedPlayerCount(), 1u);

  MdkStandin_SetStopHangMs(0);
  MdkStandin_ReleaseHungStops();
  ASSERT_TRUE(Play());  // the Stop at the start of a new video sweeps the parked player
  EXPECT_EQ(decoder_.QuarantinedPlayerCount(), 0u);
  EXPECT_EQ(MdkStandin_LivePlayers(), 1);
  decoder_.Stop();
  EXPECT_EQ(MdkStandin_LivePlayers(), 0);
}

// Wedged players: stopped together within one deadline, destroyed off the caller's thread, and
// their late callbacks land nowhere once they are gone.
TEST_F(VideoDecoderTest, WedgedPlayersStopTogetherAndNeverBlockTheirOwner) {
  MdkStandin_SetStopHangMs(-1);
  MdkStandin_SetFrameIntervalMs(0);
  std::vector<std::unique_ptr<VideoDecoder>> decoders;
  std::vector<VideoDecoder*> stopping;
  for (int n = 0; n < 3; ++n) {
    decoders.push_back(std::make_unique<VideoDecoder>());
    ASSERT_TRUE(decoders.back()->Initialize(device_.Get(), context_.Get()));
    ASSERT_TRUE(decoders.back()->PlayVideo(video_path_, FitMode::Cover, false, {}, 16, 16));
    stopping.push_back(decoders.back().get());
  }
  MdkStandin_Settle();
  MdkStandin_ScriptSeeks("late,late,late");
  for (VideoDecoder* decoder : stopping) decoder->SeekTo(500);  // completions held
  VideoDecoder::StopTogether(stopping);
  for (int newest = 0; newest < 3; ++newest) {
    MdkStandinPlayerInfo info{};
    ASSERT_TRUE(MdkStandin_PlayerInfo(newest, &info));
    EXPECT_EQ(info.stops_pending_at_wait, 3) << "waited for one after another";
  }
  decoders.clear();  // their deletion would block until the stops are released
  EXPECT_EQ(MdkStandin_LivePlayers(), 3);
  MdkStandin_ReleaseHungStops();
  for (int waited = 0; waited < 1000 && MdkStandin_LivePlayers() > 0; ++waited) Sleep(10);
  EXPECT_EQ(MdkStandin_LivePlayers(), 0) << "the reaper destroys them once they stop";
  // Whatever the players and their callbacks occupied is reused, then the library calls back late
  // (seek completions and events after deletion): nothing of the freed memory may be touched.
  std::vector<std::vector<std::uint8_t>> reuse;
  for (int n = 0; n < 20000; ++n) reuse.emplace_back(static_cast<std::size_t>(16 + n % 240), 0xA5);
  MdkStandin_FireCallbacksOfDeletedPlayers();
}

TEST_F(VideoDecoderTest, AtTheEndOfTheMediaALoopingVideoStartsAgain) {
  MdkStandin_SetDurationMs(80);
  ASSERT_TRUE(Play(FitMode::Cover, 64, 32, {}, true));
  const std::uint64_t loops = decoder_.GetLoopCount();  // setMedia changed the media too
  MdkStandin_AdvanceFrames(3);  // 40, 80 (the end: the queued file starts again), 40
  EXPECT_EQ(decoder_.GetLoopCount(), loops + 1);
  EXPECT_EQ(decoder_.GetPosition(), 40);
  EXPECT_STREQ(Newest().next_url, video_path_.c_str()) << "queued again for the next end";
  EXPECT_TRUE(decoder_.RenderFrame());
}

TEST_F(VideoDecoderTest, RenderTargetIsReusedAtTheSameSizeAndDrawnByThePlayer) {
  ASSERT_TRUE(Play(FitMode::Cover, 64, 32));
  ComPtr<ID3D11Texture2D> first = decoder_.GetTexture();
  ASSERT_TRUE(Play(FitMode::Contain, 64, 32));
  EXPECT_EQ(decoder_.GetTexture(), first.Get());
  ASSERT_TRUE(Play(FitMode::Cover, 48, 24));
  EXPECT_NE(decoder_.GetTexture(), first.Get());
  EXPECT_EQ(decoder_.GetWidth(), 48u);
  EXPECT_EQ(decoder_.GetHeight(), 24u);
  const MdkStandinPlayerInfo info = Newest();
  EXPECT_EQ(info.render_api_type, 0x40400004u);
  EXPECT_EQ(info.render_context, static_cast<void*>(context_.Get()));
  EXPECT_EQ(info.surface_width, 48);
  EXPECT_EQ(info.surface_height, 24);

  EXPECT_FALSE(decoder_.RenderFrame()) << "no frame announced yet";
  decoder_.SeekTo(2000);
  MdkStandin_Settle();
  ASSERT_TRUE(DeliverAndRender(1000));
  EXPECT_EQ(decoder_.GetPosition(), 2040);
  EXPECT_EQ(LeftPixel(), StandinFrameColor(2040));
}

TEST_F(VideoDecoderTest, FitModeDecodersAndLoopReachThePlayer) {
  struct Case {
    std::int32_t fit;
    int aspect_calls;
    float aspect;
    std::vector<std::string> decoders;
    const char* decoders_given;
    bool loop;
  };
  const Case cases[] = {
      {0, 1, -FLT_EPSILON, {}, "D3D11,MFT:d3d=11,FFmpeg", false},
      {1, 1, FLT_EPSILON, {"FFmpeg", "D3D11"}, "FFmpeg,D3D11", true},
      {2, 1, 0.0f, {"dav1d"}, "dav1d", false},
      {3, 0, 0.0f, {}, "D3D11,MFT:d3d=11,FFmpeg", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.fit);
    ASSERT_TRUE(Play(static_cast<FitMode>(c.fit), 64, 32, c.decoders, c.loop));
    const MdkStandinPlayerInfo info = Newest();
    EXPECT_EQ(info.aspect_ratio_calls, c.aspect_calls);
    EXPECT_EQ(std::memcmp(&info.aspect_ratio, &c.aspect, sizeof(float)), 0);
    EXPECT_STREQ(info.decoders, c.decoders_given);
    // Looping queues the same file from the start; otherwise the player's loop is switched off.
    EXPECT_STREQ(info.next_url, c.loop ? video_path_.c_str() : "");
    EXPECT_EQ(info.loop_setting, c.loop ? -1 : 0);
  }
  decoder_.Stop();
  EXPECT_STREQ(Newest().next_url, "") << "Stop drops the queued loop";
}

TEST_F(VideoDecoderTest, LoadErrorsAndTheChosenDecoderAreLogged) {
  const std::size_t loaded = CountOf(LogText(), "INFO  [VIDEO_DECODER] Loaded (duration: 10000 ms)");
  ASSERT_TRUE(Play(FitMode::Cover, 64, 32, {"D3D11"}));
  EXPECT_EQ(CountOf(LogText(), "INFO  [VIDEO_DECODER] Loaded (duration: 10000 ms)"), loaded + 1);
  EXPECT_EQ(decoder_.GetDurationMs(), 10000);
  EXPECT_NE(LogText().find("INFO  [VIDEO_DECODER] MDK decoder: D3D11"), std::string::npos);

  ASSERT_TRUE(decoder_.PlayVideo("no_such_video.mp4", FitMode::Cover, false, {}, 64, 32));
  MdkStandin_Settle();
  const std::string log = LogText();
  EXPECT_NE(log.find("ERROR [VIDEO_DECODER] MDK error: reader - No such file or directory: "
                     "no_such_video.mp4"),
            std::string::npos);
  EXPECT_NE(log.find("ERROR [VIDEO_DECODER] MediaStatus: Invalid"), std::string::npos);
}

TEST_F(VideoDecoderTest, MisuseFailsWithAClearError) {
  VideoDecoder missing(nullptr, mdk::Library::Load(L"C:\\no-such-folder\\mdk.dll"));
  EXPECT_FALSE(missing.PlayVideo(video_path_, FitMode::Cover, false, {}, 64, 32));
  EXPECT_NE(LogText().find("ERROR [VIDEO_DECODER] PlayVideo called before Initialize"),
            std::string::npos);
  EXPECT_FALSE(missing.Initialize(nullptr, context_.Get()));
  missing.Stop();  // harmless without a player
  EXPECT_EQ(missing.GetPosition(), 0);
}

}  // namespace
}  // namespace native_live_window
