// The running video set-up of the live output plugin: one Direct3D 11 device shared by every
// decoder and the composition coordinator, the coordinator, and the decoders by key.
//
// Apply makes the running state equal to a described topology: it keeps decoders whose key is
// still named (even when their path or size changed: a new file needs a new key), removes stale
// ones, prepares new ones, wires displays to decoders, starts playback, seeks every decoder to its
// start position and restarts the render loop. The whole change happens with the render loop
// stopped. Failures of single decoders or displays are logged under "PLUGIN" and skipped.
//
// Platform thread only. Device, context and coordinator are made by the first Apply and kept
// until TearDown.

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_TOPOLOGY_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_TOPOLOGY_H_

#include <d3d11.h>
#include <wrl/client.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "live_output/video/dcomp_coordinator.h"
#include "live_output/video/timer_resolution.h"
#include "live_output/video/video_decoder.h"
#include "live_output/video/video_topology_description.h"
#include "live_output/window/native_live_window.h"

namespace native_live_window {

class VideoTopology {
 public:
  using DecoderFactory = std::function<std::unique_ptr<VideoDecoder>()>;
  using CoordinatorFactory = std::function<std::unique_ptr<DCompCoordinator>()>;
  // The output windows by display id, as the plugin keeps them (entries may be null).
  using Windows = std::map<std::string, std::unique_ptr<NativeLiveWindow>>;

  enum class ApplyResult { kApplied, kDeviceFailed, kCoordinatorFailed };

  VideoTopology();
  ~VideoTopology();
  VideoTopology(const VideoTopology&) = delete;
  VideoTopology& operator=(const VideoTopology&) = delete;

  // Where decoders and the coordinator come from; empty functions mean the program's own.
  void SetFactories(DecoderFactory decoder_factory, CoordinatorFactory coordinator_factory);

  ApplyResult Apply(const std::vector<DecoderSpec>& decoders,
                    const std::vector<AssignmentSpec>& assignments, const Windows& windows);

  // The decoder shown on the display, or null when the topology is not active or the display
  // shows none.
  VideoDecoder* RoutedDecoder(const std::string& display_id);
  // Every decoder, in key order, active topology or not.
  void ForEachDecoder(const std::function<void(VideoDecoder&)>& action);

  // Shuts down the coordinator and every decoder and releases the device. True when there was
  // anything to tear down (then it logs "Video topology torn down during CloseAll").
  bool TearDown();

  bool active() const { return active_; }
  // Null until the first successful Apply and after TearDown.
  DCompCoordinator* coordinator() const { return coordinator_.get(); }
  const std::map<std::string, std::unique_ptr<VideoDecoder>>& decoders() const { return decoders_; }

 private:
  bool EnsureDevice();
  void RemoveStaleDecoders(const std::vector<DecoderSpec>& wanted_decoders);
  // Adds the decoders whose key is new, in order; answers the descriptions of those prepared.
  std::vector<const DecoderSpec*> PrepareNewDecoders(
      const std::vector<DecoderSpec>& wanted_decoders);
  void SilenceWindows(const std::vector<AssignmentSpec>& assignments, const Windows& windows);
  void Wire(const AssignmentSpec& assignment, const Windows& windows);
  void EraseDecoder(const std::string& key);
  // Stops the decoders together (one common wait), then destroys them.
  static void DestroyTogether(std::vector<std::unique_ptr<VideoDecoder>> decoders);
  // Shuts down and drops the coordinator and every decoder and releases the device (keeping, until
  // exit, whatever a stuck render thread may still use).
  void Release();

  // Both render loops pace with Sleep(1): 1 ms timer periods for the plugin's (the program's)
  // lifetime.
  TimerResolution timer_resolution_;
  DecoderFactory decoder_factory_;
  CoordinatorFactory coordinator_factory_;
  Microsoft::WRL::ComPtr<ID3D11Device> device_;
  Microsoft::WRL::ComPtr<ID3D11DeviceContext> context_;
  std::unique_ptr<DCompCoordinator> coordinator_;
  std::map<std::string, std::unique_ptr<VideoDecoder>> decoders_;
  bool active_ = false;
  // Left behind by a render thread that would not stop; never destroyed.
  std::vector<std::unique_ptr<DCompCoordinator>> abandoned_coordinators_;
  std::vector<std::unique_ptr<VideoDecoder>> abandoned_decoders_;
  std::vector<Microsoft::WRL::ComPtr<IUnknown>> abandoned_devices_;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_TOPOLOGY_H_
