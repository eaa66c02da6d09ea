// A WIC decoder that passes every call on to a real one, except that one frame cannot be read:
// getting it fails, or copying its pixels does. Stands in for a GIF whose later frame is damaged,
// which WIC on Windows reports only when that frame is read (and which Wine's decoder refuses as
// a whole when it opens the file, so no test file can show it).

#ifndef KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_FAILING_FRAME_WIC_DECODER_H_
#define KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_FAILING_FRAME_WIC_DECODER_H_

#include <windows.h>

#include <wincodec.h>
#include <wrl/client.h>

namespace native_live_window {

enum class FrameFailure { kGetFrame, kCopyPixels };

// real wrapped so that frame failing_index fails as failure says, with WINCODEC_ERR_BADIMAGE.
Microsoft::WRL::ComPtr<IWICBitmapDecoder> WrapWithFailingFrame(IWICBitmapDecoder* real,
                                                               UINT failing_index,
                                                               FrameFailure failure);

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_TEST_SUPPORT_FAILING_FRAME_WIC_DECODER_H_
