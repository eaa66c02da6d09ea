// The display plugin on its channels and its window-procedure delegate, against the engine
// stand-in: with the system's own monitors (Wine shows one), and with arrangements the test
// hands the plugin to see when change events are sent. Through the real program the channels are
// reached in kestrun_end_to_end_tests and headless_end_to_end_tests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <test_flutter_engine.h>
#include <windows.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "encodable_value.h"
#include "kestrun_display_plugin.h"
#include "kestrun_display_plugin_c_api.h"
#include "method_call.h"
#include "plugin_registrar_manager.h"
#include "plugin_registrar_windows.h"
#include "reply_test_support.h"

namespace kestrun_display {
namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using flutter::reply_test::Outcome;
using flutter::reply_test::ReplyTo;

constexpr char kMethods[] = "com.kestrun.kestrun_display";
constexpr char kEvents[] = "com.kestrun.kestrun_display/events";


const EncodableValue& Member(const EncodableValue& map, const char* key) {
  return std::get<EncodableMap>(map).at(EncodableValue(key));
}
int32_t IntMember(const EncodableValue& map, const char* key) {
  return std::get<int32_t>(Member(map, key));
}

MonitorSnapshot Monitor(const wchar_t* id, bool primary, int32_t left, int32_t width) {
  MonitorSnapshot monitor;
  monitor.is_primary = primary;
  monitor.bounds = {left, 0, left + width, 1080};
  monitor.work_area = {left, 0, left + width, 1040};
  monitor.dpi = 96;
  monitor.devices = {{DISPLAY_DEVICE_ACTIVE, id, L"Generic Monitor"}};
  return monitor;
}

class DisplayPluginTest : public ::testing::Test {
 protected:
  void SetUp() override {
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    FlutterTestReset();
    core_ = FlutterTestCreateRegistrar();
    messenger_ = FlutterDesktopPluginRegistrarGetMessenger(core_);
  }
  void TearDown() override {
    flutter::PluginRegistrarManager::GetInstance()->Reset();
    FlutterTestReset();
  }

  flutter::PluginRegistrarWindows* Registrar() {
    return flutter::PluginRegistrarManager::GetInstance()
        ->GetRegistrar<flutter::PluginRegistrarWindows>(core_);
  }

  // The plugin as the program registers it: the system's monitors.
  void RegisterWithSystemMonitors() { KestrunDisplayPluginRegisterWithRegistrar(core_); }

  // The plugin reading `monitors_`, which the test rearranges at will.
  void RegisterWithTestMonitors() {
    flutter::PluginRegistrarWindows* registrar = Registrar();
    registrar->AddPlugin(std::make_unique<KestrunDisplayPlugin>(
        registrar, [this] { return monitors_; }));
  }

  Outcome Call(const std::string& channel, const std::string& method) {
    const Outcome outcome = ReplyTo(
        flutter::reply_test::Deliver(messenger_, channel.c_str(), method, EncodableValue()));
    EXPECT_EQ(outcome.replies, 1) << method << " must be answered exactly once";
    return outcome;
  }

  // Offers a message to the top-level delegates; answers whether one consumed it.
  bool Offer(UINT message, WPARAM wparam = 0, LPARAM lparam = 0) {
    LRESULT result = 0;
    return FlutterTestDispatchTopLevelMessage(core_, nullptr, message, wparam, lparam, &result);
  }

  // Messages the plugin sent on the event channel, each as raw bytes.
  std::vector<std::vector<uint8_t>> Events() const {
    std::vector<std::vector<uint8_t>> events;
    for (size_t i = 0; i < FlutterTestSentMessageCount(messenger_); ++i) {
      const char* channel = nullptr;
      const uint8_t* data = nullptr;
      size_t size = 0;
      bool awaits_reply = false;
      FlutterTestGetSentMessage(messenger_, i, &channel, &data, &size, &awaits_reply);
      EXPECT_FALSE(awaits_reply);
      if (std::string(channel) == kEvents) {
        events.emplace_back(data, data + size);
      }
    }
    return events;
  }

  FlutterDesktopPluginRegistrarRef core_ = nullptr;
  FlutterDesktopMessengerRef messenger_ = nullptr;
  std::vector<MonitorSnapshot> monitors_ = {Monitor(L"left", true, 0, 1920),
                                            Monitor(L"right", false, 1920, 1280)};
};

// A null event: the success envelope (0) holding null (0).
const std::vector<uint8_t> kNullEvent = {0x00, 0x00};

// ---- The system's monitors -----------------------------------------------------------------

TEST_F(DisplayPluginTest, ListsTheSystemMonitorsAndReportsNoChangeWhenNothingMoved) {
  RegisterWithSystemMonitors();
  const Outcome all = Call(kMethods, "getAllDisplays");
  ASSERT_EQ(all.kind, "success");
  const auto& displays = std::get<EncodableList>(Member(all.value, "displays"));
  ASSERT_EQ(displays.size(), static_cast<size_t>(GetSystemMetrics(SM_CMONITORS)));

  std::vector<EncodableValue> primaries;
  for (const EncodableValue& display : displays) {
    EXPECT_FALSE(std::get<std::string>(Member(display, "id")).empty());
    EXPECT_FALSE(std::get<std::string>(Member(display, "name")).empty());
    const EncodableValue& bounds = Member(display, "bounds");
    const EncodableValue& work = Member(display, "workArea");
    EXPECT_LT(IntMember(bounds, "left"), IntMember(bounds, "right"));
    EXPECT_LT(IntMember(bounds, "top"), IntMember(bounds, "bottom"));
    // The work area lies within the monitor.
    EXPECT_GE(IntMember(work, "left"), IntMember(bounds, "left"));
    EXPECT_GE(IntMember(work, "top"), IntMember(bounds, "top"));
    EXPECT_LE(IntMember(work, "right"), IntMember(bounds, "right"));
    EXPECT_LE(IntMember(work, "bottom"), IntMember(bounds, "bottom"));
    const int32_t dpi = IntMember(display, "dpi");
    EXPECT_GE(dpi, 96);
    EXPECT_DOUBLE_EQ(std::get<double>(Member(display, "scaleFactor")), dpi / 96.0);
    if (std::get<bool>(Member(display, "isPrimary"))) {
      primaries.push_back(display);
      // At the origin, with the size the system gives for the screen.
      EXPECT_EQ(IntMember(bounds, "left"), 0);
      EXPECT_EQ(IntMember(bounds, "top"), 0);
      EXPECT_EQ(IntMember(bounds, "right"), GetSystemMetrics(SM_CXSCREEN));
      EXPECT_EQ(IntMember(bounds, "bottom"), GetSystemMetrics(SM_CYSCREEN));
    }
  }
  ASSERT_EQ(primaries.size(), 1u);
  const Outcome primary = Call(kMethods, "getPrimaryDisplay");
  ASSERT_EQ(primary.kind, "success");
  EXPECT_EQ(primary.value, primaries[0]);

  EXPECT_EQ(Call(kMethods, "getDisplays").kind, "not implemented");

  // Nothing moved: no event, and no message is consumed.
  ASSERT_EQ(Call(kEvents, "listen").kind, "success");
  EXPECT_FALSE(Offer(WM_DISPLAYCHANGE, 32, MAKELPARAM(1024, 768)));
  EXPECT_FALSE(Offer(WM_SETTINGCHANGE));
  EXPECT_FALSE(Offer(WM_DPICHANGED));
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(Call(kEvents, "cancel").kind, "success");
}

// ---- Registration and lifetime -------------------------------------------------------------

TEST_F(DisplayPluginTest, DestroyingTheRegistrarRemovesTheDelegateAndTheChannelHandlers) {
  RegisterWithSystemMonitors();
  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core_), 1);
  EXPECT_TRUE(FlutterTestHasHandler(messenger_, kMethods));
  EXPECT_TRUE(FlutterTestHasHandler(messenger_, kEvents));
  ASSERT_EQ(Call(kEvents, "listen").kind, "success");

  FlutterTestDestroyRegistrar(core_);  // the engine shutting down

  EXPECT_EQ(FlutterTestTopLevelDelegateCount(core_), 0);
  EXPECT_FALSE(FlutterTestHasHandler(messenger_, kMethods));
  EXPECT_FALSE(FlutterTestHasHandler(messenger_, kEvents));
}

// ---- Change events -------------------------------------------------------------------------

TEST_F(DisplayPluginTest, EachOfTheThreeMessagesChecksTheArrangementAndAChangeSendsOneNullEvent) {
  RegisterWithTestMonitors();
  ASSERT_EQ(Call(kEvents, "listen").kind, "success");
  EXPECT_TRUE(Events().empty()) << "listening sends nothing";
  const struct {
    const char* change;
    std::function<void(std::vector<MonitorSnapshot>&)> apply;
    std::vector<UINT> messages;
    std::size_t events;  // in all, after the messages
  } steps[] = {
      // Windows sends several messages for one rearrangement; the later ones find nothing new.
      {"moved", [](auto& m) { m[1].bounds = {-1280, 0, 0, 1080}; },
       {WM_DISPLAYCHANGE, WM_SETTINGCHANGE, WM_DISPLAYCHANGE}, 1},
      {"rescaled, other messages", [](auto& m) { m[0].dpi = 120; }, {WM_SIZE, WM_DEVICECHANGE}, 1},
      {"rescaled", [](auto&) {}, {WM_DPICHANGED}, 2},
      {"task bar hidden", [](auto& m) { m[0].work_area.bottom = 1080; }, {WM_SETTINGCHANGE}, 3},
      {"added", [](auto& m) { m.push_back(Monitor(L"third", false, 3200, 1920)); },
       {WM_DISPLAYCHANGE}, 4},
      {"renamed only", [](auto& m) { m[1].devices[0].device_string = L"Renamed Monitor"; },
       {WM_SETTINGCHANGE, WM_DISPLAYCHANGE}, 4},
  };
  for (const auto& step : steps) {
    step.apply(monitors_);
    for (UINT message : step.messages) {
      Offer(message);
    }
    EXPECT_EQ(Events().size(), step.events) << step.change;
  }
  for (const std::vector<uint8_t>& event : Events()) {
    EXPECT_EQ(event, kNullEvent);
  }
}

TEST_F(DisplayPluginTest, WithoutAListenerNothingIsSentAndListeningSetsTheBaseline) {
  RegisterWithTestMonitors();
  monitors_[0].is_primary = false;
  monitors_[1].is_primary = true;
  Offer(WM_DISPLAYCHANGE);
  EXPECT_TRUE(Events().empty());

  // Measured against the arrangement at listening time, which already has the change.
  ASSERT_EQ(Call(kEvents, "listen").kind, "success");
  Offer(WM_DISPLAYCHANGE);
  EXPECT_TRUE(Events().empty());

  // After a cancel nothing is sent; listening twice does not double the events.
  EXPECT_EQ(Call(kEvents, "cancel").kind, "success");
  monitors_.pop_back();
  Offer(WM_DISPLAYCHANGE);
  EXPECT_TRUE(Events().empty());
  ASSERT_EQ(Call(kEvents, "listen").kind, "success");
  ASSERT_EQ(Call(kEvents, "listen").kind, "success");
  monitors_[0].dpi = 144;
  Offer(WM_DPICHANGED);
  EXPECT_EQ(Events().size(), 1u);
}

TEST_F(DisplayPluginTest, GetAllDisplaysRefreshesTheBaselineButGetPrimaryDisplayDoesNot) {
  RegisterWithTestMonitors();
  ASSERT_EQ(Call(kEvents, "listen").kind, "success");

  // The interface already saw the new arrangement: no event for it.
  monitors_[1].bounds.bottom = 1440;
  ASSERT_EQ(Call(kMethods, "getAllDisplays").kind, "success");
  Offer(WM_DISPLAYCHANGE);
  EXPECT_TRUE(Events().empty());

  monitors_[1].bounds.bottom = 1080;
  ASSERT_EQ(Call(kMethods, "getPrimaryDisplay").kind, "success");
  Offer(WM_DISPLAYCHANGE);
  EXPECT_EQ(Events().size(), 1u);
}

// ---- Answers from a given arrangement ------------------------------------------------------

TEST_F(DisplayPluginTest, PrimaryFollowsTheFlagAndIsNullWithoutOne) {
  RegisterWithTestMonitors();
  monitors_[0].is_primary = false;
  monitors_[1].is_primary = true;
  const Outcome all = Call(kMethods, "getAllDisplays");
  ASSERT_EQ(all.kind, "success");
  const auto& displays = std::get<EncodableList>(Member(all.value, "displays"));
  ASSERT_EQ(displays.size(), 2u);
  EXPECT_EQ(Member(displays[0], "id"), EncodableValue("left"));
  EXPECT_EQ(Call(kMethods, "getPrimaryDisplay").value, displays[1]);

  monitors_[1].is_primary = false;
  const Outcome none = Call(kMethods, "getPrimaryDisplay");
  EXPECT_EQ(none.kind, "success");
  EXPECT_TRUE(none.value.IsNull());
}

}  // namespace
}  // namespace kestrun_display
