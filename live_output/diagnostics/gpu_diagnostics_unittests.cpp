// GPU diagnostics against the real DXGI of this machine (Wine's, under test).
#include "live_output/diagnostics/gpu_diagnostics.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <d3d11.h>
#include <wrl/client.h>

#include <cstdint>
#include <string>
#include <vector>

#include "live_output/test_support/live_window_test_support.h"

namespace native_live_window {
namespace {

using Microsoft::WRL::ComPtr;
using live_window_test::CountOf;
using live_window_test::LogText;

TEST(GpuDiagnosticsTest, DeviceRemovedReasonsHaveTheirFixedTexts) {
  const struct {
    std::uint32_t reason;
    const char* text;
  } cases[] = {
      {0, "S_OK - No error"},
      {0x887A0001, "DXGI_ERROR_INVALID_CALL - Invalid API call"},
      {0x887A0005, "DXGI_ERROR_DEVICE_REMOVED - GPU was physically removed or driver upgrade"},
      {0x887A0006, "DXGI_ERROR_DEVICE_HUNG - GPU took too long to execute commands"},
      {0x887A0007, "DXGI_ERROR_DEVICE_RESET - GPU reset due to badly formed command"},
      {0x887A0020, "DXGI_ERROR_DRIVER_INTERNAL_ERROR - Driver encountered internal error"},
      {0x887A0002, "Unknown error"},
      {0x80004005, "Unknown error"},
  };
  for (const auto& c : cases) {
    EXPECT_STREQ(DeviceRemovedReasonText(static_cast<HRESULT>(c.reason)), c.text);
  }
}

class AdapterReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    LogText();  // initialises the log
    ASSERT_TRUE(SUCCEEDED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr,
                                            0, D3D11_SDK_VERSION, &device_, nullptr, nullptr)));
  }
  ComPtr<ID3D11Device> device_;
};

TEST_F(AdapterReportTest, ReportsTheRenderAdapterAndResolvesTheMonitorsAdapter) {
  const std::size_t mark = LogText().size();
  const HMONITOR primary = MonitorFromPoint(POINT{0, 0}, MONITOR_DEFAULTTOPRIMARY);
  LogAdapterForWindow(device_.Get(), primary, "Adapter test display");
  const std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "INFO  [VIDEO] Render adapter for Adapter test display: "), 1u) << log;
  EXPECT_NE(log.find("(LUID="), std::string::npos) << log;
  EXPECT_NE(log.find(", VRAM="), std::string::npos) << log;
  // Wine's single adapter drives its single monitor: the output adapter is found and matches.
  EXPECT_EQ(CountOf(log, "[VIDEO] Output adapter for Adapter test display: "), 1u) << log;
  EXPECT_EQ(CountOf(log, "\xE2\x80\x94 matches render adapter"), 1u) << log;
}

TEST(GpuDiagnosticsTest, TopologySnapshotIsLoggedOncePerProcess) {
  LogText();
  LogAdapterTopologyOnce();
  LogAdapterTopologyOnce();
  const std::string log = LogText();
  // Whichever call came first in this process (windows log it when they are created).
  EXPECT_EQ(CountOf(log, "INFO  [VIDEO] --- DXGI adapter/output topology snapshot ---"), 1u);
  EXPECT_EQ(CountOf(log, "INFO  [VIDEO] --- end of adapter/output topology ---"), 1u);
  EXPECT_GE(CountOf(log, "INFO  [VIDEO] Adapter 0: "), 1u);
  EXPECT_GE(CountOf(log, "INFO  [VIDEO]   Output 0.0: "), 1u);
}

// Runs after the once-per-process snapshot above, which counts the snapshots of the whole log.
// One software adapter, not the one that renders, driving the primary monitor.
bool SoftwareAdapterOnThePrimaryMonitor(std::vector<AdapterFacts>* adapters) {
  AdapterFacts adapter;
  adapter.index = 0;
  wcscpy_s(adapter.desc.Description, L"Seam Basic Render Driver");
  adapter.desc.Flags = DXGI_ADAPTER_FLAG_SOFTWARE;
  adapter.desc.AdapterLuid = LUID{0x00C0FFEE, 0x7};
  adapter.desc.VendorId = 0x1414;
  adapter.desc.DeviceId = 0x8C;
  DXGI_OUTPUT_DESC output = {};
  wcscpy_s(output.DeviceName, L"\\\\.\\DISPLAY9");
  output.DesktopCoordinates = RECT{0, 0, 640, 480};
  output.AttachedToDesktop = TRUE;
  output.Monitor = MonitorFromPoint(POINT{0, 0}, MONITOR_DEFAULTTOPRIMARY);
  adapter.outputs.push_back(output);
  adapters->push_back(adapter);
  return true;
}

TEST_F(AdapterReportTest, MonitorOnAnotherAdapterWarnsAndSoftwareAdaptersAreMarked) {
  const std::size_t mark = LogText().size();
  SetAdapterFactsSourceForTesting(&SoftwareAdapterOnThePrimaryMonitor);
  LogAdapterForWindow(device_.Get(), MonitorFromPoint(POINT{0, 0}, MONITOR_DEFAULTTOPRIMARY),
                      "Crossing display");
  LogAdapterTopology();
  SetAdapterFactsSourceForTesting(nullptr);
  const std::string log = LogText().substr(mark);
  EXPECT_EQ(CountOf(log, "WARNING [VIDEO] Output adapter for Crossing display: Seam Basic Render "
                         "Driver (LUID=00000007-00c0ffee) \xE2\x80\x94 MISMATCH with render adapter"),
            1u)
      << log;
  EXPECT_EQ(CountOf(log, "INFO  [VIDEO] Adapter 0: Seam Basic Render Driver [software] "
                         "(LUID=00000007-00c0ffee, VRAM=0MB, Vendor=0x1414, Device=0x008c)"),
            1u)
      << log;
  EXPECT_EQ(CountOf(log, "INFO  [VIDEO]   Output 0.0: \\\\.\\DISPLAY9 640x480 at (0,0) HMONITOR="), 1u)
      << log;
}

}  // namespace
}  // namespace native_live_window
