// GPU diagnostics against the real DXGI of this machine (Wine's, under test).
#include "live_output/diagnostics/gpu_diagnostics.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <d3d11.h>
#include <wrl/client.h>

#include <cstdint>
#include <string>

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

}  // namespace
}  // namespace native_live_window
