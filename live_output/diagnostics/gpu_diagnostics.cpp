#include "live_output/diagnostics/gpu_diagnostics.h"

#include <dxgi.h>
#include <wrl/client.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "live_output/log/logger.h"

namespace native_live_window {
namespace {

using Microsoft::WRL::ComPtr;

constexpr const char* kCategory = "VIDEO";

// UTF-8 of a wide text, cut to at most max_bytes without splitting a character.
std::string ToUtf8(const wchar_t* text, std::size_t max_bytes) {
  std::string result;
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 1) {
    return result;
  }
  result.resize(static_cast<std::size_t>(size));
  WideCharToMultiByte(CP_UTF8, 0, text, -1, &result[0], size, nullptr, nullptr);
  result.resize(static_cast<std::size_t>(size - 1));
  if (result.size() > max_bytes) {
    std::size_t cut = max_bytes;
    // Back up over continuation bytes to the start of the character that does not fit.
    while (cut > 0 && (static_cast<unsigned char>(result[cut]) & 0xC0) == 0x80) {
      --cut;
    }
    result.resize(cut);
  }
  return result;
}

int MiB(SIZE_T bytes) { return static_cast<int>(static_cast<std::uint64_t>(bytes) >> 20); }

std::atomic<AdapterFactsSource> g_adapter_source{nullptr};

// The adapters and outputs DXGI enumerates, each released as the enumeration moves on.
bool ReadDxgiAdapters(std::vector<AdapterFacts>* adapters) {
  ComPtr<IDXGIFactory1> factory;
  if (FAILED(CreateDXGIFactory1(IID_PPV_ARGS(&factory)))) {
    return false;
  }
  ComPtr<IDXGIAdapter1> adapter;
  for (UINT i = 0; factory->EnumAdapters1(i, &adapter) != DXGI_ERROR_NOT_FOUND; ++i) {
    AdapterFacts facts;
    facts.index = i;
    if (adapter && SUCCEEDED(adapter->GetDesc1(&facts.desc))) {
      ComPtr<IDXGIOutput> output;
      for (UINT j = 0; adapter->EnumOutputs(j, &output) != DXGI_ERROR_NOT_FOUND; ++j) {
        DXGI_OUTPUT_DESC output_desc = {};
        if (output && SUCCEEDED(output->GetDesc(&output_desc))) {
          facts.outputs.push_back(output_desc);
        }
        output.Reset();
      }
      adapters->push_back(std::move(facts));
    }
    adapter.Reset();
  }
  return true;
}

bool ReadAdapters(std::vector<AdapterFacts>* adapters) {
  const AdapterFactsSource source = g_adapter_source.load();
  return source != nullptr ? source(adapters) : ReadDxgiAdapters(adapters);
}

}  // namespace

const char* DeviceRemovedReasonText(HRESULT reason) {
  switch (static_cast<std::uint32_t>(reason)) {
    case 0x00000000u:
      return "S_OK - No error";
    case 0x887A0001u:
      return "DXGI_ERROR_INVALID_CALL - Invalid API call";
    case 0x887A0005u:
      return "DXGI_ERROR_DEVICE_REMOVED - GPU was physically removed or driver upgrade";
    case 0x887A0006u:
      return "DXGI_ERROR_DEVICE_HUNG - GPU took too long to execute commands";
    case 0x887A0007u:
      return "DXGI_ERROR_DEVICE_RESET - GPU reset due to badly formed command";
    case 0x887A0020u:
      return "DXGI_ERROR_DRIVER_INTERNAL_ERROR - Driver encountered internal error";
    default:
      return "Unknown error";
  }
}

void LogAdapterForWindow(ID3D11Device* device, HMONITOR monitor, const char* label) {
  if (label == nullptr) {
    label = "(no context)";
  }
  if (device == nullptr) {
    return;
  }
  Logger& log = Logger::Instance();

  ComPtr<IDXGIDevice> dxgi_device;
  if (FAILED(device->QueryInterface(IID_PPV_ARGS(&dxgi_device))) || !dxgi_device) {
    return;
  }
  ComPtr<IDXGIAdapter> render_adapter;
  if (FAILED(dxgi_device->GetAdapter(&render_adapter)) || !render_adapter) {
    return;
  }
  DXGI_ADAPTER_DESC render_desc = {};
  const bool have_render_desc = SUCCEEDED(render_adapter->GetDesc(&render_desc));
  if (have_render_desc) {
    const std::string name = ToUtf8(render_desc.Description, 255);
    log.Info(kCategory,
             "Render adapter for %s: %s (LUID=%08lx-%08lx, VRAM=%dMB, Shared=%dMB, "
             "Vendor=0x%04x, Device=0x%04x)",
             label, name.c_str(), static_cast<unsigned long>(render_desc.AdapterLuid.HighPart),
             static_cast<unsigned long>(render_desc.AdapterLuid.LowPart),
             MiB(render_desc.DedicatedVideoMemory), MiB(render_desc.SharedSystemMemory),
             static_cast<unsigned>(render_desc.VendorId),
             static_cast<unsigned>(render_desc.DeviceId));
  }
  if (monitor == nullptr) {
    return;
  }

  std::vector<AdapterFacts> adapters;
  if (ReadAdapters(&adapters)) {
    for (const AdapterFacts& adapter : adapters) {
      for (const DXGI_OUTPUT_DESC& output : adapter.outputs) {
        if (output.Monitor != monitor) {
          continue;
        }
        const DXGI_ADAPTER_DESC1& output_adapter = adapter.desc;
        const std::string name = ToUtf8(output_adapter.Description, 255);
        const unsigned long high = static_cast<unsigned long>(output_adapter.AdapterLuid.HighPart);
        const unsigned long low = static_cast<unsigned long>(output_adapter.AdapterLuid.LowPart);
        if (have_render_desc &&
            output_adapter.AdapterLuid.HighPart == render_desc.AdapterLuid.HighPart &&
            output_adapter.AdapterLuid.LowPart == render_desc.AdapterLuid.LowPart) {
          log.Info(kCategory, "Output adapter for %s: %s (LUID=%08lx-%08lx) \xE2\x80\x94 matches render adapter",
                   label, name.c_str(), high, low);
        } else {
          log.Warning(kCategory,
                      "Output adapter for %s: %s (LUID=%08lx-%08lx) \xE2\x80\x94 MISMATCH with render adapter",
                      label, name.c_str(), high, low);
        }
        return;
      }
    }
  }
  log.Warning(kCategory, "Output adapter for %s: could not resolve via DXGI", label);
}

void LogAdapterTopologyOnce() {
  static std::atomic<bool> logged{false};
  if (logged.exchange(true)) {
    return;
  }
  LogAdapterTopology();
}

void LogAdapterTopology() {
  Logger& log = Logger::Instance();
  std::vector<AdapterFacts> adapters;
  if (!ReadAdapters(&adapters)) {
    log.Warning(kCategory, "Could not create DXGIFactory1 for adapter enumeration");
    return;
  }
  log.Info(kCategory, "--- DXGI adapter/output topology snapshot ---");
  for (const AdapterFacts& adapter : adapters) {
    const DXGI_ADAPTER_DESC1& desc = adapter.desc;
    const std::string name = ToUtf8(desc.Description, 255);
    log.Info(kCategory, "Adapter %u: %s%s (LUID=%08lx-%08lx, VRAM=%dMB, Vendor=0x%04x, Device=0x%04x)",
             adapter.index, name.c_str(),
             (desc.Flags & DXGI_ADAPTER_FLAG_SOFTWARE) != 0 ? " [software]" : "",
             static_cast<unsigned long>(desc.AdapterLuid.HighPart),
             static_cast<unsigned long>(desc.AdapterLuid.LowPart), MiB(desc.DedicatedVideoMemory),
             static_cast<unsigned>(desc.VendorId), static_cast<unsigned>(desc.DeviceId));
    for (std::size_t j = 0; j < adapter.outputs.size(); ++j) {
      const DXGI_OUTPUT_DESC& output_desc = adapter.outputs[j];
      const std::string device_name = ToUtf8(output_desc.DeviceName, 63);
      const RECT& r = output_desc.DesktopCoordinates;
      log.Info(kCategory, "  Output %u.%u: %s %ldx%ld at (%ld,%ld) HMONITOR=0x%p attached=%d",
               adapter.index, static_cast<unsigned>(j), device_name.c_str(),
               static_cast<long>(r.right - r.left), static_cast<long>(r.bottom - r.top),
               static_cast<long>(r.left), static_cast<long>(r.top),
               static_cast<void*>(output_desc.Monitor), output_desc.AttachedToDesktop ? 1 : 0);
    }
  }
  log.Info(kCategory, "--- end of adapter/output topology ---");
}

void SetAdapterFactsSourceForTesting(AdapterFactsSource source) { g_adapter_source.store(source); }

}  // namespace native_live_window
