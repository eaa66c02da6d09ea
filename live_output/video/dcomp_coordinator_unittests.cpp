// The composition coordinator against the recording composition services: what each display's
// committed composition holds after assignments and crops, what it shows, and the fades.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "live_output/test_support/hang_watchdog.h"
#include "live_output/test_support/live_window_test_support.h"
#include "live_output/test_support/video_test_support.h"
#include "live_output/video/dcomp_coordinator.h"
#include "live_output/video/video_decoder.h"
#include "testing/mdk/mdk_standin.h"

namespace native_live_window {
namespace {

using live_window_test::CountOf;
using live_window_test::HangWatchdog;
using live_window_test::LogText;
using live_window_test::PumpUntil;
using video_test::ManualSteadyClock;
using video_test::RecordingFactory;
using video_test::TestWindow;

class DCompCoordinatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    LogText();  // the log starts before the first line of the test
    d3d_ = video_test::CreateDevice();
    ASSERT_TRUE(d3d_.device);
    coordinator_ = std::make_unique<DCompCoordinator>(clock_.AsFunction(), factory_.AsFunction());
    ASSERT_TRUE(coordinator_->Initialize(d3d_.device.Get(), d3d_.context.Get()));
    recording_ = factory_.last();
  }
  void TearDown() override { coordinator_.reset(); }

  // A window of the given size registered as display `id`.
  HWND AddDisplay(const std::string& id, int width, int height) {
    windows_.push_back(std::make_unique<TestWindow>(0, 0, width, height));
    EXPECT_TRUE(coordinator_->AddDisplay(windows_.back()->hwnd(), id, width, height, false));
    return windows_.back()->hwnd();
  }
  void AddPipeline(const std::string& key, int width, int height) {
    decoders_.push_back(std::make_unique<VideoDecoder>());
    ASSERT_TRUE(coordinator_->AddDecoderPipeline(key, decoders_.back().get(), width, height));
  }
  float Opacity(HWND hwnd) const { return recording_->CommittedFor(hwnd).opacity; }
  // Waits until the loop has committed opacity `value` on the window.
  bool WaitForOpacity(HWND hwnd, float value) {
    return PumpUntil([&] { return Opacity(hwnd) == value; }, recording_->change_event());
  }

  ManualSteadyClock clock_;
  RecordingFactory factory_;
  video_test::D3DDevice d3d_;
  std::vector<std::unique_ptr<TestWindow>> windows_;
  std::vector<std::unique_ptr<VideoDecoder>> decoders_;
  std::unique_ptr<DCompCoordinator> coordinator_;
  std::shared_ptr<RecordingCompositionDevice> recording_;
};

// ---------------------------------------------------------------------------------------------
// Assignment, scale and crop

struct PlacementCase {
  const char* name;
  int canvas_width, canvas_height;
  int display_width, display_height;
  // Crop width 0: no crop.
  int crop_x, crop_y, crop_width, crop_height;
  bool has_transform;
  float scale_x, scale_y;
};

class PlacementTest : public DCompCoordinatorTest,
                      public ::testing::WithParamInterface<PlacementCase> {};

TEST_P(PlacementTest, CommitsScaleOffsetAndClip) {
  const PlacementCase& c = GetParam();
  AddPipeline("video", c.canvas_width, c.canvas_height);
  const HWND hwnd = AddDisplay("display", c.display_width, c.display_height);
  ASSERT_TRUE(coordinator_->AssignDisplayToDecoder("display", "video"));
  if (c.crop_width > 0) {
    coordinator_->SetDisplayCrop("display", c.crop_x, c.crop_y, c.crop_width, c.crop_height);
  }
  const CommittedComposition committed = recording_->CommittedFor(hwnd);
  ASSERT_TRUE(committed.has_root);
  ASSERT_TRUE(committed.content);
  EXPECT_EQ(committed.content->width(), static_cast<UINT>(c.canvas_width));
  ASSERT_EQ(committed.has_transform, c.has_transform);
  if (c.has_transform) {
    EXPECT_FLOAT_EQ(committed.transform.m11, c.scale_x);
    EXPECT_FLOAT_EQ(committed.transform.m22, c.scale_y);
    EXPECT_EQ(committed.transform.m12, 0.0f);
    EXPECT_EQ(committed.transform.m21, 0.0f);
    EXPECT_EQ(committed.transform.dx, 0.0f);
    EXPECT_EQ(committed.transform.dy, 0.0f);
  }
  // Where the crop's clip and offset put the picture: ACropShowsExactlyItsRegion... below.
  EXPECT_EQ(committed.has_clip, c.crop_width > 0);
}

INSTANTIATE_TEST_SUITE_P(
    Placements, PlacementTest,
    ::testing::Values(
        PlacementCase{"MirroredSameSize", 1920, 1080, 1920, 1080, 0, 0, 0, 0, false, 1, 1},
        PlacementCase{"MirroredSmaller", 1920, 1080, 1280, 720, 0, 0, 0, 0, true, 2.0f / 3,
                      2.0f / 3},
        PlacementCase{"MirroredAspectNotKept", 1920, 1080, 1024, 768, 0, 0, 0, 0, true,
                      1024.0f / 1920, 768.0f / 1080},
        PlacementCase{"SpannedLeftHalf", 3840, 1080, 1920, 1080, 0, 0, 1920, 1080, false, 1, 1},
        PlacementCase{"SpannedRightHalf", 3840, 1080, 1920, 1080, 1920, 0, 1920, 1080, false, 1, 1},
        PlacementCase{"SpannedScaledUp", 1920, 540, 1280, 720, 960, 0, 960, 540, true,
                      1280.0f / 960, 720.0f / 540}),
    [](const ::testing::TestParamInfo<PlacementCase>& info) { return info.param.name; });

TEST_F(DCompCoordinatorTest, RemovingAPipelineBlanksItsDisplaysAndClearsTheirKeys) {
  AddPipeline("a", 64, 64);
  AddPipeline("b", 64, 64);
  const HWND first = AddDisplay("one", 64, 64);
  AddDisplay("two", 64, 64);
  AddDisplay("three", 64, 64);
  coordinator_->AssignDisplayToDecoder("one", "a");
  coordinator_->AssignDisplayToDecoder("two", "a");
  coordinator_->AssignDisplayToDecoder("three", "b");
  coordinator_->SetDisplayCrop("one", 8, 8, 32, 32);
  coordinator_->RemoveDecoderPipeline("a");
  EXPECT_EQ(coordinator_->GetAssignedDecoderKey("one"), "");
  EXPECT_EQ(coordinator_->GetAssignedDecoderKey("two"), "");
  EXPECT_EQ(coordinator_->GetAssignedDecoderKey("three"), "b");
  const CommittedComposition blanked = recording_->CommittedFor(first);
  EXPECT_FALSE(blanked.content);
  EXPECT_FALSE(blanked.has_clip);
  EXPECT_EQ(blanked.offset_x, 0.0f);
}

// ---------------------------------------------------------------------------------------------
// Render loop with a playing decoder (the stand-in media library, frames delivered by the test)

class RenderLoopTest : public DCompCoordinatorTest {
 protected:
  void SetUp() override {
    DCompCoordinatorTest::SetUp();
    MdkStandin_Reset();
    MdkStandin_SetFrameIntervalMs(0);
    const std::string media =
        (std::filesystem::temp_directory_path() / "kestrun-coordinator.mp4").string();
    std::ofstream(media) << "stand-in media";
    decoder_ = std::make_unique<VideoDecoder>();
    ASSERT_TRUE(decoder_->Initialize(d3d_.device.Get(), d3d_.context.Get()));
    ASSERT_TRUE(decoder_->PlayVideo(media, FitMode::Stretch, true, {}, 320, 90));
    MdkStandin_Settle();
    ASSERT_TRUE(coordinator_->AddDecoderPipeline("wall", decoder_.get(), 320, 90));
  }
  void TearDown() override {
    if (coordinator_) coordinator_->StopRenderLoop();
    coordinator_.reset();
    decoder_.reset();
    MdkStandin_Settle();
  }
  // Delivers one frame and waits until the loop has tried to present it.
  bool RenderOneFrame() {
    const std::uint64_t calls = recording_->present_calls();
    MdkStandin_AdvanceFrames(1);
    return PumpUntil([&] { return recording_->present_calls() > calls; },
                     recording_->change_event());
  }

  std::unique_ptr<VideoDecoder> decoder_;
};

TEST_F(RenderLoopTest, FramesAreCopiedPresentedAndSpanTheDisplays) {
  const HWND left = AddDisplay("left", 160, 90);
  const HWND right = AddDisplay("right", 160, 90);
  coordinator_->AssignDisplayToDecoder("left", "wall");
  coordinator_->AssignDisplayToDecoder("right", "wall");
  coordinator_->SetDisplayCrop("left", 0, 0, 160, 90);
  coordinator_->SetDisplayCrop("right", 160, 0, 160, 90);
  coordinator_->SetOpacity(1.0f);
  const std::uint64_t commits = recording_->commit_count();
  coordinator_->StartRenderLoop();
  ASSERT_TRUE(RenderOneFrame());
  coordinator_->StopRenderLoop();  // the context is the test's again
  EXPECT_EQ(recording_->present_count(), 1u);
  EXPECT_GT(recording_->commit_count(), commits);

  // The frame's left half has one colour and its right half the inverse.
  std::uint32_t shown[2] = {};
  int index = 0;
  for (const HWND hwnd : {left, right}) {
    std::vector<std::uint32_t> pixels;
    int width = 0;
    int height = 0;
    ASSERT_TRUE(recording_->ComposeWindow(hwnd, d3d_.context.Get(), &pixels, &width, &height));
    shown[index] = pixels[45 * 160 + 80] & 0xFFFFFFu;
    EXPECT_EQ(pixels[0] & 0xFFFFFFu, shown[index]);
    EXPECT_EQ(pixels[159] & 0xFFFFFFu, shown[index]);
    ++index;
  }
  EXPECT_EQ(shown[0] ^ shown[1], 0xFFFFFFu);
}

// A crop shows exactly its region, scaled to the display, whether it is smaller than the display,
// as large, or larger. The canvas is 320 x 90: its left half one colour, its right half the
// inverse; each crop here is centred on the middle, so the display's left half must show the one
// and its right half the other, edge to edge.
TEST_F(RenderLoopTest, ACropShowsExactlyItsRegionScaledToTheDisplay) {
  struct Case {
    const char* name;
    int crop_x, crop_y, crop_width, crop_height;
  };
  const Case cases[] = {{"smaller", 120, 25, 80, 40},
                        {"equal", 80, 22, 160, 45},
                        {"larger", 0, 0, 320, 90}};
  const HWND hwnd = AddDisplay("display", 160, 45);
  coordinator_->AssignDisplayToDecoder("display", "wall");
  coordinator_->SetOpacity(1.0f);
  coordinator_->StartRenderLoop();
  ASSERT_TRUE(RenderOneFrame());
  coordinator_->StopRenderLoop();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    coordinator_->SetDisplayCrop("display", c.crop_x, c.crop_y, c.crop_width, c.crop_height);
    std::vector<std::uint32_t> pixels;
    int width = 0;
    int height = 0;
    ASSERT_TRUE(recording_->ComposeWindow(hwnd, d3d_.context.Get(), &pixels, &width, &height));
    const std::uint32_t left = pixels[0] & 0xFFFFFFu;
    EXPECT_EQ(left ^ (pixels[44 * 160 + 159] & 0xFFFFFFu), 0xFFFFFFu) << "corners";
    for (int y : {0, 22, 44}) {
      for (int x = 0; x < 160; ++x) {
        ASSERT_EQ(pixels[y * 160 + x] & 0xFFFFFFu, x < 80 ? left : (~left & 0xFFFFFFu))
            << "x " << x << " y " << y;
      }
    }
  }
}

TEST_F(RenderLoopTest, DeviceLossIsLoggedOncePerLoopStartNamingTheDisplays) {
  AddDisplay("b-second", 160, 90);
  AddDisplay("a-first", 160, 90);
  coordinator_->AssignDisplayToDecoder("a-first", "wall");
  recording_->SetPresentResult(DXGI_ERROR_DEVICE_REMOVED);
  const std::string line =
      "Device lost during pipeline Present (displays=[a-first,b-second])! HRESULT=0x887A0005";
  const std::size_t before = CountOf(LogText(), line);
  for (int start = 1; start <= 2; ++start) {
    coordinator_->StartRenderLoop();
    ASSERT_TRUE(RenderOneFrame());
    ASSERT_TRUE(RenderOneFrame());
    coordinator_->StopRenderLoop();
    EXPECT_EQ(CountOf(LogText(), line), before + start);
  }
  EXPECT_EQ(recording_->present_count(), 0u);
}

// ---------------------------------------------------------------------------------------------
// Fades

TEST_F(DCompCoordinatorTest, FadeOutDuringFadeInCompletesTheFirstOneFirst) {
  const HWND hwnd = AddDisplay("d", 64, 64);
  coordinator_->StartRenderLoop();
  std::vector<std::string> order;
  std::mutex order_mutex;
  const HANDLE done = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  auto note = [&order, &order_mutex, done](const char* what) {
    return [&order, &order_mutex, done, what] {
      std::lock_guard<std::mutex> lock(order_mutex);
      order.push_back(what);
      SetEvent(done);
    };
  };
  const std::size_t cancelled_before = CountOf(LogText(), "Fade cancelled");
  coordinator_->FadeIn(500, note("in"));
  coordinator_->FadeOut(500, note("out"));
  {
    std::lock_guard<std::mutex> lock(order_mutex);
    EXPECT_EQ(order, std::vector<std::string>{"in"});
  }
  EXPECT_EQ(CountOf(LogText(), "Fade cancelled"), cancelled_before + 1);
  clock_.Advance(600);
  ASSERT_TRUE(PumpUntil(
      [&] {
        std::lock_guard<std::mutex> lock(order_mutex);
        return order.size() == 2;
      },
      done));
  CloseHandle(done);
  EXPECT_EQ(order, (std::vector<std::string>{"in", "out"}));
  EXPECT_EQ(Opacity(hwnd), 0.0f);
}

// Instant paths: a duration below 1, or a display without an effect group, answers at once. An
// instant fade-in leaves a running fade alone; an instant fade-out cancels it.
struct InstantCase {
  const char* name;
  bool effect_groups_fail;
  bool running_fade_in;  // a 1000 ms fade-out runs first when false, a fade-in when true
  bool fade_out;
  int duration_ms;
  float opacity;
  bool running_fade_completed;
};

class InstantFadeTest : public DCompCoordinatorTest,
                        public ::testing::WithParamInterface<InstantCase> {};

TEST_P(InstantFadeTest, AnswersAtOnce) {
  const InstantCase& c = GetParam();
  HWND probe = AddDisplay("with-group", 32, 32);
  recording_->SetEffectGroupsFail(c.effect_groups_fail);
  AddDisplay("maybe-without", 32, 32);
  int running_completions = 0;
  if (!c.effect_groups_fail) {
    if (c.running_fade_in) {
      coordinator_->FadeIn(1000, [&running_completions] { ++running_completions; });
    } else {
      coordinator_->FadeOut(1000, [&running_completions] { ++running_completions; });
    }
  }
  int completions = 0;
  if (c.fade_out) {
    coordinator_->FadeOut(c.duration_ms, [&completions] { ++completions; });
  } else {
    coordinator_->FadeIn(c.duration_ms, [&completions] { ++completions; });
  }
  EXPECT_EQ(completions, 1);
  EXPECT_EQ(Opacity(probe), c.opacity);
  EXPECT_EQ(running_completions, c.running_fade_completed ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Fades, InstantFadeTest,
    ::testing::Values(
        InstantCase{"ZeroFadeInLeavesRunningFadeOut", false, false, false, 0, 1.0f, false},
        InstantCase{"ZeroFadeOutCancelsRunningFadeIn", false, true, true, 0, 0.0f, true},
        InstantCase{"NoEffectGroupFadeOut", true, false, true, 500, 0.0f, false},
        InstantCase{"NoEffectGroupFadeIn", true, false, false, 500, 1.0f, false}),
    [](const ::testing::TestParamInfo<InstantCase>& info) { return info.param.name; });

// What the audience sees is where a fade starts: a fade-out from 0.5 never flashes to 1; an
// instant opacity ends a running fade (its completion runs once); a fade-in starts from black.
TEST_F(DCompCoordinatorTest, FadesStartFromWhatTheAudienceSees) {
  const HWND hwnd = AddDisplay("d", 32, 32);
  coordinator_->SetOpacity(0.5f);
  coordinator_->StartRenderLoop();
  std::atomic<int> completions{0};
  auto done = [&completions] { completions.fetch_add(1); };
  coordinator_->FadeOut(1000, done);
  clock_.Advance(500);
  ASSERT_TRUE(WaitForOpacity(hwnd, 0.25f));  // half of 0.5 at the curve's middle
  coordinator_->SetOpacity(0.8f);
  EXPECT_EQ(completions.load(), 1);
  EXPECT_EQ(Opacity(hwnd), 0.8f);
  coordinator_->FadeIn(300, done);
  EXPECT_EQ(Opacity(hwnd), 0.0f);
  clock_.Advance(150);
  ASSERT_TRUE(WaitForOpacity(hwnd, 0.5f));
  clock_.Advance(1000);
  ASSERT_TRUE(WaitForOpacity(hwnd, 1.0f));
  coordinator_->StopRenderLoop();
  EXPECT_EQ(completions.load(), 2);
}

// A render thread stuck in the media library is reported and left behind, not waited on.
TEST_F(RenderLoopTest, AStuckRenderThreadIsReportedNotWaitedOn) {
  HangWatchdog watchdog(60000, "stopping a render loop stuck in the media library");
  AddDisplay("d", 160, 90);
  coordinator_->AssignDisplayToDecoder("d", "wall");
  coordinator_->SetStopTimeoutForTesting(200);
  MdkStandin_SetRenderHang(1);
  coordinator_->StartRenderLoop();
  MdkStandin_AdvanceFrames(1);
  ASSERT_TRUE(PumpUntil([&] { return MdkStandin_RendersWaiting() > 0; }, nullptr));
  coordinator_->StopRenderLoop();
  EXPECT_TRUE(coordinator_->render_loop_abandoned());
  EXPECT_EQ(CountOf(LogText(), "Render loop did not stop within 200 ms"), 1u);
  MdkStandin_SetRenderHang(0);
  // The abandoned thread still refers to both: they stay for the rest of the process.
  coordinator_.release();  // NOLINT
  decoder_.release();  // NOLINT
}

TEST_F(DCompCoordinatorTest, AWindowTakesOneTargetPerLayerAndTheTopmostOneIsAboveItsChildren) {
  const HWND hwnd = AddDisplay("d", 32, 32);
  std::shared_ptr<CompositionTarget> second;
  EXPECT_EQ(recording_->CreateTargetForHwnd(hwnd, true, &second),
            static_cast<HRESULT>(0x88980800L));
  RecordingCompositionDevice other;
  EXPECT_EQ(other.CreateTargetForHwnd(hwnd, true, &second), static_cast<HRESULT>(0x88980800L));
  std::shared_ptr<CompositionTarget> below;
  ASSERT_EQ(other.CreateTargetForHwnd(hwnd, false, &below), S_OK) << "the other layer is free";
  EXPECT_TRUE(recording_->CommittedFor(hwnd).topmost);
  coordinator_->RemoveAllDisplays();
  EXPECT_EQ(other.CreateTargetForHwnd(hwnd, true, &second), S_OK) << "free once destroyed";
}

TEST_F(RenderLoopTest, TheHeartbeatComesAfterSixtySecondsOfRunning) {
  AddDisplay("d", 160, 90);
  coordinator_->AssignDisplayToDecoder("d", "wall");
  const std::size_t before = CountOf(LogText(), "INFO  [DCOMP] Render heartbeat: ");
  coordinator_->StartRenderLoop();
  ASSERT_TRUE(RenderOneFrame());  // the loop runs, its minute counted from its start
  clock_.Advance(59999);
  ASSERT_TRUE(RenderOneFrame());
  EXPECT_EQ(CountOf(LogText(), "INFO  [DCOMP] Render heartbeat: "), before);
  clock_.Advance(1);
  ASSERT_TRUE(RenderOneFrame());
  coordinator_->StopRenderLoop();
  EXPECT_EQ(CountOf(LogText(), "INFO  [DCOMP] Render heartbeat: "), before + 1);
}

TEST(CompositionServicesTest, TheRecordingCompositionNeverReplacesDirectCompositionSilently) {
  LogText();
  SetEnvironmentVariableA(kRecordingCompositionVariable, "");
  std::shared_ptr<CompositionDevice> device;
  EXPECT_EQ(DefaultCompositionDeviceFactory()(nullptr, &device), S_OK);
  SetEnvironmentVariableA(kRecordingCompositionVariable, nullptr);
  EXPECT_EQ(CountOf(LogText(), "WARNING [DCOMP] KESTRUN_RECORDING_COMPOSITION is set"), 1u);
}

TEST_F(DCompCoordinatorTest, ShutdownCancelsAFadeAndEmptiesEveryWindow) {
  const HWND hwnd = AddDisplay("d", 32, 32);
  AddPipeline("v", 32, 32);
  coordinator_->AssignDisplayToDecoder("d", "v");
  coordinator_->StartRenderLoop();
  int completions = 0;
  coordinator_->FadeIn(1000, [&completions] { ++completions; });
  coordinator_->Shutdown();
  EXPECT_EQ(completions, 1);
  EXPECT_FALSE(coordinator_->IsRenderLoopRunning());
  EXPECT_TRUE(recording_->Committed().empty());
  EXPECT_EQ(recording_->CommittedFor(hwnd).hwnd, nullptr);
}

}  // namespace
}  // namespace native_live_window
