// GPU diagnostics of live output: device-removed reasons as text, which adapter renders a window
// compared with the adapter that drives its monitor (a mismatch means every frame crosses
// adapters), and a one-time snapshot of all adapters and outputs. They only read DXGI state and
// log under "VIDEO"; no failure reaches the caller. Callable from any thread.

#ifndef KESTRUN_LIVE_OUTPUT_DIAGNOSTICS_GPU_DIAGNOSTICS_H_
#define KESTRUN_LIVE_OUTPUT_DIAGNOSTICS_GPU_DIAGNOSTICS_H_

#include <windows.h>

#include <d3d11.h>
#include <dxgi.h>

#include <vector>

namespace native_live_window {

// Fixed text for a device-removed reason ("Unknown error" for codes without one).
const char* DeviceRemovedReasonText(HRESULT reason);

// Logs the adapter that renders for `device` and, when `monitor` is given, whether the adapter
// driving that monitor is the same one. `label` names the window ("(no context)" when null).
void LogAdapterForWindow(ID3D11Device* device, HMONITOR monitor, const char* label);

// Logs every adapter and its outputs, once per process; later calls return at once.
void LogAdapterTopologyOnce();
// The same snapshot, each time it is called.
void LogAdapterTopology();

// What DXGI reports about one adapter (whose description could be read) and its outputs (whose
// descriptions could be read), with the adapter's index in DXGI's enumeration.
struct AdapterFacts {
  UINT index = 0;
  DXGI_ADAPTER_DESC1 desc = {};
  std::vector<DXGI_OUTPUT_DESC> outputs;
};
// Reads the facts of every adapter; false when DXGI's factory cannot be made.
using AdapterFactsSource = bool (*)(std::vector<AdapterFacts>* adapters);
// Test seam: the reports read their adapters from `source` instead of DXGI (null: DXGI again).
// The render adapter of a device is still asked of the device.
void SetAdapterFactsSourceForTesting(AdapterFactsSource source);

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_DIAGNOSTICS_GPU_DIAGNOSTICS_H_
