// Display records, ids, names and the arrangement signature, from made-up monitors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "display_encoding.h"
#include "display_records.h"

namespace kestrun_display {
namespace {

using flutter::EncodableMap;
using flutter::EncodableValue;

constexpr uint32_t kActive = DISPLAY_DEVICE_ACTIVE;
constexpr uint32_t kAttachedOnly = DISPLAY_DEVICE_ATTACHED;  // on the port, but not active

MonitorSnapshot::Device Device(uint32_t flags, std::wstring id, std::wstring text) {
  return MonitorSnapshot::Device{flags, std::move(id), std::move(text)};
}

// A primary 1920x1080 at the origin with a task bar at the bottom, and a 150% 2560x1440 to its
// left, a little higher, with a task bar at its top.
std::vector<MonitorSnapshot> TwoMonitors() {
  MonitorSnapshot primary;
  primary.device_name = L"\\\\.\\DISPLAY1";
  primary.is_primary = true;
  primary.bounds = {0, 0, 1920, 1080};
  primary.work_area = {0, 0, 1920, 1040};
  primary.dpi = 96;
  primary.devices = {Device(kActive, L"\\\\?\\DISPLAY#DEL4109#5&1#0#{e6f07b5f}", L"Dell U2419H")};

  MonitorSnapshot side;
  side.device_name = L"\\\\.\\DISPLAY2";
  side.bounds = {-2560, -200, 0, 1240};
  side.work_area = {-2560, -160, 0, 1240};
  side.dpi = 144;
  side.devices = {Device(kActive, L"\\\\?\\DISPLAY#GSM5B09#5&2#1#{e6f07b5f}", L"LG Ultra HD")};
  return {primary, side};
}

const EncodableValue& Member(const EncodableValue& map, const char* key) {
  return std::get<EncodableMap>(map).at(EncodableValue(key));
}

TEST(DisplayIdentityTest, IdAndNameComeFromTheFirstActiveDeviceThatHasThem) {
  MonitorSnapshot monitor;
  monitor.device_name = L"\\\\.\\DISPLAY3";
  monitor.devices = {
      Device(kAttachedOnly, L"inactive-path", L"Inactive Panel"),  // never used
      Device(kActive, L"", L"Built-in Screen"),                    // no interface path
      Device(kActive, L"active-path", L""),
      Device(kActive, L"later-path", L"Later Screen"),
  };
  EXPECT_EQ(DisplayIdOf(monitor), "active-path");
  EXPECT_EQ(DisplayNameOf(monitor), "Built-in Screen");

  // Nothing usable: the monitor's device name stands for both.
  monitor.devices = {Device(kAttachedOnly, L"path", L"Name"), Device(kActive, L"", L"")};
  EXPECT_EQ(DisplayIdOf(monitor), "\\\\.\\DISPLAY3");
  EXPECT_EQ(DisplayNameOf(monitor), "\\\\.\\DISPLAY3");
}

TEST(DisplayIdentityTest, TextIsPassedOnAsUtf8) {
  MonitorSnapshot monitor;
  // "Écran" with a character outside the BMP (U+1F5B5, a surrogate pair) in the name.
  monitor.devices = {Device(kActive, L"\\\\?\\DISPLAY#\u00C9cran", L"\u00C9cran \xD83D\xDDB5")};
  EXPECT_EQ(DisplayIdOf(monitor), "\\\\?\\DISPLAY#\xC3\x89" "cran");
  EXPECT_EQ(DisplayNameOf(monitor), "\xC3\x89" "cran \xF0\x9F\x96\xB5");
}

TEST(DisplayRecordTest, RecordsKeepOrderGeometryPrimaryFlagAndScaleFromDpi) {
  const std::vector<DisplayRecord> records = MakeDisplayRecords(TwoMonitors());
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].name, "Dell U2419H");
  EXPECT_TRUE(records[0].is_primary);
  EXPECT_EQ(records[0].work_area, (DisplayRect{0, 0, 1920, 1040}));
  EXPECT_DOUBLE_EQ(records[0].ScaleFactor(), 1.0);
  EXPECT_EQ(records[1].name, "LG Ultra HD");
  EXPECT_FALSE(records[1].is_primary);
  EXPECT_EQ(records[1].bounds, (DisplayRect{-2560, -200, 0, 1240}));
  EXPECT_DOUBLE_EQ(records[1].ScaleFactor(), 1.5);
  EXPECT_EQ(FindPrimaryDisplay(records), &records[0]);

  std::vector<MonitorSnapshot> none = TwoMonitors();
  none[0].is_primary = false;
  EXPECT_EQ(FindPrimaryDisplay(MakeDisplayRecords(none)), nullptr);
}

TEST(DisplayEncodingTest, DisplayMapCarriesEveryFieldWithItsChannelType) {
  const EncodableValue display = EncodeDisplay(MakeDisplayRecords(TwoMonitors())[1]);
  EXPECT_EQ(std::get<EncodableMap>(display).size(), 7u);
  EXPECT_EQ(Member(display, "id"), EncodableValue("\\\\?\\DISPLAY#GSM5B09#5&2#1#{e6f07b5f}"));
  EXPECT_EQ(Member(display, "name"), EncodableValue("LG Ultra HD"));
  EXPECT_EQ(Member(display, "isPrimary"), EncodableValue(false));
  // 32-bit ints and a double, never 64-bit ints: the interface reads them by kind.
  EXPECT_EQ(Member(display, "dpi"), EncodableValue(int32_t{144}));
  EXPECT_EQ(Member(display, "scaleFactor"), EncodableValue(1.5));
  const EncodableMap bounds{{EncodableValue("left"), EncodableValue(int32_t{-2560})},
                            {EncodableValue("top"), EncodableValue(int32_t{-200})},
                            {EncodableValue("right"), EncodableValue(int32_t{0})},
                            {EncodableValue("bottom"), EncodableValue(int32_t{1240})}};
  EXPECT_EQ(Member(display, "bounds"), EncodableValue(bounds));
  EXPECT_EQ(std::get<int32_t>(Member(Member(display, "workArea"), "top")), -160);
}

TEST(DisplaySignatureTest, ChangesWithWhatMovesOrRescalesADisplayButNotWithItsName) {
  const std::string original = DisplaySignature(MakeDisplayRecords(TwoMonitors()));
  EXPECT_EQ(DisplaySignature(MakeDisplayRecords(TwoMonitors())), original);
  EXPECT_NE(original, DisplaySignature({}));

  std::vector<MonitorSnapshot> renamed = TwoMonitors();
  renamed[0].devices[0].device_string = L"Dell U2419H (DisplayPort)";
  EXPECT_EQ(DisplaySignature(MakeDisplayRecords(renamed)), original);

  struct Change {
    const char* what;
    void (*apply)(std::vector<MonitorSnapshot>&);
  };
  const Change changes[] = {
      {"moved", [](auto& m) { m[1].bounds.left -= 1; }},
      {"resolution", [](auto& m) { m[0].bounds.bottom = 1200; }},
      {"task bar moved", [](auto& m) { m[0].work_area = {0, 40, 1920, 1080}; }},
      {"dpi", [](auto& m) { m[1].dpi = 120; }},
      {"primary moved", [](auto& m) { m[0].is_primary = false; m[1].is_primary = true; }},
      {"other monitor on the port", [](auto& m) { m[1].devices[0].device_id = L"other"; }},
      {"order", [](auto& m) { std::swap(m[0], m[1]); }},
      {"unplugged", [](auto& m) { m.pop_back(); }},
      {"plugged in", [](auto& m) { m.push_back(m[1]); }},
  };
  for (const Change& change : changes) {
    std::vector<MonitorSnapshot> monitors = TwoMonitors();
    change.apply(monitors);
    EXPECT_NE(DisplaySignature(MakeDisplayRecords(monitors)), original) << change.what;
  }
}

}  // namespace
}  // namespace kestrun_display
