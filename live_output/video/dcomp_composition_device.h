// The composition services of the program: DirectComposition and DXGI composition swap chains.

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_DCOMP_COMPOSITION_DEVICE_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_DCOMP_COMPOSITION_DEVICE_H_

#include <memory>

#include "live_output/video/composition_services.h"

namespace native_live_window {

// DCompositionCreateDevice on `device`; the HRESULT of that call.
HRESULT CreateDCompCompositionDevice(IDXGIDevice* device, std::shared_ptr<CompositionDevice>* out);

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_DCOMP_COMPOSITION_DEVICE_H_
