#include "live_output/video/composition_services.h"

#include <string>
#include <vector>

#include "live_output/log/logger.h"
#include "live_output/video/dcomp_composition_device.h"
#include "live_output/video/recording_composition_device.h"

namespace native_live_window {

CompositionDeviceFactory DefaultCompositionDeviceFactory() {
  std::vector<char> folder(MAX_PATH * 4);
  SetLastError(ERROR_SUCCESS);
  const DWORD length = GetEnvironmentVariableA(kRecordingCompositionVariable, folder.data(),
                                               static_cast<DWORD>(folder.size()));
  if (length == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND) {
    return &CreateDCompCompositionDevice;
  }
  std::string image_folder(folder.data(), length < folder.size() ? length : 0);
  return [image_folder](IDXGIDevice* /*device*/, std::shared_ptr<CompositionDevice>* out) {
    // Never silently: on a real display nothing of the video would be seen.
    Logger::Instance().Warning("DCOMP",
                               "%s is set: video is composed by the recording stand-in, not by "
                               "DirectComposition; the displays show no video",
                               kRecordingCompositionVariable);
    *out = std::make_shared<RecordingCompositionDevice>(image_folder);
    return S_OK;
  };
}

}  // namespace native_live_window
