// Our WebView2 declarations against the browser's binary interface: the structs' sizes, and the
// vtable slot of every method the host calls (the slot numbers count IUnknown's three methods).
#include <gtest/gtest.h>
#include <windows.h>

#include <cstddef>
#include <cstring>
#include <utility>

#include "foreign_interfaces/webview2/webview2_api.h"

namespace webview2 {
namespace {

static_assert(sizeof(COREWEBVIEW2_COLOR) == 4, "COREWEBVIEW2_COLOR");
static_assert(sizeof(COREWEBVIEW2_PROCESS_FAILED_KIND) == 4, "COREWEBVIEW2_PROCESS_FAILED_KIND");
static_assert(sizeof(COREWEBVIEW2_PHYSICAL_KEY_STATUS) == 24, "COREWEBVIEW2_PHYSICAL_KEY_STATUS");
static_assert(sizeof(EventRegistrationToken) == 8, "EventRegistrationToken");

// The slot of a virtual method as MinGW encodes it in a pointer to member (byte offset + 1).
template <typename Method>
std::ptrdiff_t SlotOf(Method method) {
  std::ptrdiff_t encoded = 0;
  static_assert(sizeof(method) >= sizeof(encoded), "pointer to member");
  std::memcpy(&encoded, &method, sizeof(encoded));
  return (encoded - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(WebView2DeclarationsTest, SlotsMatchTheBrowserAbi) {
#if defined(__GNUC__)
  const std::pair<std::ptrdiff_t, int> slots[] = {
      {SlotOf(&ICoreWebView2Controller::put_IsVisible), 4},
      {SlotOf(&ICoreWebView2Controller::put_Bounds), 6},
      {SlotOf(&ICoreWebView2Controller::put_ZoomFactor), 8},
      {SlotOf(&ICoreWebView2Controller::add_GotFocus), 15},
      {SlotOf(&ICoreWebView2Controller::add_AcceleratorKeyPressed), 19},
      {SlotOf(&ICoreWebView2Controller::Close), 24},
      {SlotOf(&ICoreWebView2Controller::get_CoreWebView2), 25},
      {SlotOf(&ICoreWebView2Controller2::put_DefaultBackgroundColor), 27},
      {SlotOf(&ICoreWebView2::Navigate), 5},
      {SlotOf(&ICoreWebView2::add_NavigationStarting), 7},
      {SlotOf(&ICoreWebView2::add_NavigationCompleted), 15},
      {SlotOf(&ICoreWebView2::add_ProcessFailed), 25},
      {SlotOf(&ICoreWebView2::AddScriptToExecuteOnDocumentCreated), 27},
      {SlotOf(&ICoreWebView2::CapturePreview), 30},
      {SlotOf(&ICoreWebView2::Reload), 31},
      {SlotOf(&ICoreWebView2::remove_WindowCloseRequested), 60},
      {SlotOf(&ICoreWebView2_2::add_DOMContentLoaded), 64},
      {SlotOf(&ICoreWebView2_2::get_Environment), 67},
      {SlotOf(&ICoreWebView2Settings::put_AreDefaultContextMenusEnabled), 14},
      {SlotOf(&ICoreWebView2Settings::put_IsBuiltInErrorPageEnabled), 20},
      {SlotOf(&ICoreWebView2Environment::CreateCoreWebView2Controller), 3},
      {SlotOf(&ICoreWebView2AcceleratorKeyPressedEventArgs::put_Handled), 8},
      {SlotOf(&ICoreWebView2ProcessFailedEventArgs::get_ProcessFailedKind), 3},
  };
  for (std::size_t i = 0; i < sizeof(slots) / sizeof(slots[0]); ++i) {
    EXPECT_EQ(slots[i].first, slots[i].second) << "entry " << i;
  }
#endif
}

}  // namespace
}  // namespace webview2
