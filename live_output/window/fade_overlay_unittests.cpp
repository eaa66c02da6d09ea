// The fade overlay over a plain window, stepped by hand with a clock moved by hand. The alpha is
// read back from the overlay window itself.
#include "live_output/window/fade_overlay.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <utility>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"

namespace native_live_window {
namespace {

using live_window_test::ManualClock;

// Alpha the system holds for a layered window.
int WindowAlpha(HWND window) {
  BYTE alpha = 0;
  DWORD flags = 0;
  if (!GetLayeredWindowAttributes(window, nullptr, &alpha, &flags) || (flags & LWA_ALPHA) == 0) {
    return -1;
  }
  return alpha;
}

class FadeOverlayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    parent_ = CreateWindowExW(0, L"STATIC", L"fade parent", WS_POPUP | WS_VISIBLE, 40, 40, 320, 180,
                              nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
    ASSERT_NE(parent_, nullptr);
    clock_ = std::make_shared<ManualClock>();
    fade_ = std::make_unique<FadeOverlay>(clock_);
  }
  void TearDown() override {
    fade_.reset();
    DestroyWindow(parent_);
  }

  // Moves the fade clock to `ms` and steps once; answers the window's alpha.
  int StepAt(std::int64_t ms) {
    clock_->SetFadeTimeMs(ms);
    fade_->Step();
    EXPECT_EQ(WindowAlpha(fade_->overlay_window()), fade_->overlay_alpha());
    return fade_->overlay_alpha();
  }

  HWND parent_ = nullptr;
  std::shared_ptr<ManualClock> clock_;
  std::unique_ptr<FadeOverlay> fade_;
};

TEST_F(FadeOverlayTest, OverlayIsABlackClickThroughLayeredChildOverTheClientArea) {
  fade_->FadeToBlack(parent_, 1000, nullptr);
  HWND overlay = fade_->overlay_window();
  ASSERT_NE(overlay, nullptr);
  EXPECT_EQ(GetParent(overlay), parent_);
  wchar_t class_name[64] = {};
  GetClassNameW(overlay, class_name, 64);
  EXPECT_STREQ(class_name, L"KestrunFadeOverlay");
  const LONG_PTR ex_style = GetWindowLongPtrW(overlay, GWL_EXSTYLE);
  EXPECT_NE(ex_style & WS_EX_LAYERED, 0);
  EXPECT_NE(ex_style & WS_EX_TRANSPARENT, 0);
  EXPECT_EQ(GetWindowLongPtrW(overlay, GWL_STYLE) & (WS_CHILD | WS_VISIBLE), WS_CHILD | WS_VISIBLE);
  RECT rect = {};
  GetClientRect(overlay, &rect);
  EXPECT_EQ(rect.right, 320);
  EXPECT_EQ(rect.bottom, 180);
  EXPECT_EQ(SendMessageW(overlay, WM_NCHITTEST, 0, MAKELPARAM(100, 100)), HTTRANSPARENT);
  EXPECT_EQ(WindowAlpha(overlay), 0);
  EXPECT_EQ(GetWindow(parent_, GW_CHILD), overlay);  // topmost among the parent's children

  // Resizing follows the parent; destroying removes the overlay and its pending callback, and a
  // later fade makes a new one.
  fade_->Resize(200, 100);
  GetClientRect(overlay, &rect);
  EXPECT_EQ(rect.right, 200);
  EXPECT_EQ(rect.bottom, 100);
  fade_->Destroy();
  EXPECT_FALSE(IsWindow(overlay));
  EXPECT_EQ(fade_->overlay_window(), nullptr);
  fade_->FadeToBlack(parent_, 0, nullptr);
  EXPECT_NE(fade_->overlay_window(), nullptr);
}

// Both directions over one second, eased: 2p^2 up to half way, 1 - 2(1-p)^2 after, truncated.
TEST_F(FadeOverlayTest, TimedFadesFollowTheEasedCurveAndCallBackOnceAtTheEnd) {
  const struct {
    bool to_black;
    std::vector<std::pair<std::int64_t, int>> steps;  // ms after the start, alpha
  } cases[] = {
      {true, {{0, 0}, {250, 31}, {500, 127}, {750, 223}, {999, 254}, {1000, 255}, {2000, 255}}},
      {false, {{0, 255}, {250, 223}, {500, 127}, {750, 31}, {1500, 0}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.to_black ? "to black" : "from black");
    int calls = 0;
    clock_->SetFadeTimeMs(10000);
    if (c.to_black) {
      fade_->FadeFromBlack(parent_, 0, nullptr);
      fade_->FadeToBlack(parent_, 1000, [&calls] { ++calls; });
    } else {
      fade_->FadeFromBlack(parent_, 1000, [&calls] { ++calls; });
    }
    for (const auto& step : c.steps) {
      EXPECT_EQ(StepAt(10000 + step.first), step.second) << step.first << " ms";
      EXPECT_EQ(calls, step.first >= 1000 ? 1 : 0) << step.first << " ms";
    }
    bool blank = true;
    bool fading = true;
    fade_->ReadState(&blank, &fading);
    EXPECT_FALSE(fading);
  }
}

TEST_F(FadeOverlayTest, AnInterruptingFadeContinuesFromTheAlphaReachedAndDropsTheFirstCallback) {
  int first_calls = 0;
  int second_calls = 0;
  clock_->SetFadeTimeMs(0);
  fade_->FadeToBlack(parent_, 1000, [&first_calls] { ++first_calls; });
  EXPECT_EQ(StepAt(500), 127);
  fade_->FadeFromBlack(parent_, 1000, [&second_calls] { ++second_calls; });
  EXPECT_EQ(WindowAlpha(fade_->overlay_window()), 127);  // no jump back to black
  EXPECT_EQ(StepAt(1000), 63);                           // half way: 127 * 0.5
  EXPECT_EQ(StepAt(1500), 0);
  EXPECT_EQ(first_calls, 0);
  EXPECT_EQ(second_calls, 1);

  // The same direction again keeps the alpha and takes the new duration.
  fade_->FadeToBlack(parent_, 1000, nullptr);
  EXPECT_EQ(StepAt(2000), 127);
  fade_->FadeToBlack(parent_, 200, [&second_calls] { ++second_calls; });
  EXPECT_EQ(StepAt(2100), 191);  // 127 + 128 * 0.5
  EXPECT_EQ(StepAt(2200), 255);
  EXPECT_EQ(second_calls, 2);
}

TEST_F(FadeOverlayTest, ImmediateFadesAndFadesWithoutAWindowFinishBeforeReturning) {
  int calls = 0;
  fade_->FadeToBlack(nullptr, 1000, [&calls] { ++calls; });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(fade_->overlay_window(), nullptr);

  fade_->FadeToBlack(parent_, 0, [&calls] { ++calls; });
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(WindowAlpha(fade_->overlay_window()), 255);
  fade_->FadeFromBlack(parent_, -40, [&calls] { ++calls; });
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(WindowAlpha(fade_->overlay_window()), 0);

  // An immediate fade ends a timed one, whose callback is then never called.
  int timed_calls = 0;
  clock_->SetFadeTimeMs(0);
  fade_->FadeToBlack(parent_, 1000, [&timed_calls] { ++timed_calls; });
  EXPECT_EQ(StepAt(500), 127);
  fade_->FadeToBlack(parent_, 0, [&calls] { ++calls; });
  EXPECT_EQ(calls, 4);
  EXPECT_EQ(StepAt(5000), 255);
  EXPECT_EQ(timed_calls, 0);
}

TEST(FadeOverlayCurveTest, AlphaTruncatesAlongTheEasedCurve) {
  EXPECT_EQ(FadeOverlay::AlphaAt(0.1f, 0, true), 5);     // 2 * 0.01 * 255 = 5.1
  EXPECT_EQ(FadeOverlay::AlphaAt(0.9f, 255, false), 5);  // (1 - 0.98) * 255 = 5.1
  int previous_up = -1;
  int previous_down = 256;
  for (int i = 0; i <= 100; ++i) {
    const float p = static_cast<float>(i) / 100.0f;
    const int up = FadeOverlay::AlphaAt(p, 0, true);
    const int down = FadeOverlay::AlphaAt(p, 255, false);
    EXPECT_GE(up, previous_up);
    EXPECT_LE(down, previous_down);
    previous_up = up;
    previous_down = down;
  }
  EXPECT_EQ(previous_up, 255);
  EXPECT_EQ(previous_down, 0);
}

}  // namespace
}  // namespace native_live_window
