#include "live_output/video/video_topology.h"

#include <set>
#include <thread>
#include <utility>

#include "live_output/diagnostics/gpu_diagnostics.h"
#include "live_output/log/logger.h"

namespace native_live_window {

namespace {

constexpr char kCategory[] = "PLUGIN";

bool IsAssigned(const std::vector<AssignmentSpec>& assignments, const std::string& display_id) {
  for (const AssignmentSpec& assignment : assignments) {
    if (assignment.display_id == display_id) {
      return true;
    }
  }
  return false;
}

}  // namespace

VideoTopology::VideoTopology() { SetFactories(nullptr, nullptr); }

VideoTopology::~VideoTopology() {
  TearDown();
  // Whatever a stuck render thread may still touch stays allocated until the process ends.
  for (auto& coordinator : abandoned_coordinators_) {
    coordinator.release();  // NOLINT: deliberately never destroyed
  }
  for (auto& decoder : abandoned_decoders_) {
    decoder.release();  // NOLINT: deliberately never destroyed
  }
  for (auto& device : abandoned_devices_) {
    device.Detach();  // deliberately never released
  }
}

void VideoTopology::SetFactories(DecoderFactory decoder_factory,
                                 CoordinatorFactory coordinator_factory) {
  decoder_factory_ = decoder_factory
                         ? std::move(decoder_factory)
                         : DecoderFactory([] { return std::make_unique<VideoDecoder>(); });
  coordinator_factory_ =
      coordinator_factory ? std::move(coordinator_factory)
                          : CoordinatorFactory([] { return std::make_unique<DCompCoordinator>(); });
}

bool VideoTopology::EnsureDevice() {
  if (device_) {
    return true;
  }
  Logger& log = Logger::Instance();
  const D3D_FEATURE_LEVEL level = D3D_FEATURE_LEVEL_11_0;
  Microsoft::WRL::ComPtr<ID3D11Device> device;
  Microsoft::WRL::ComPtr<ID3D11DeviceContext> context;
  const HRESULT hr = D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr,
                                       D3D11_CREATE_DEVICE_BGRA_SUPPORT, &level, 1,
                                       D3D11_SDK_VERSION, &device, nullptr, &context);
  if (FAILED(hr) || !device || !context) {
    log.Error(kCategory, "Failed to create shared D3D11 device, hr=0x%08X",
              static_cast<unsigned>(FAILED(hr) ? hr : E_FAIL));
    return false;
  }
  device_ = std::move(device);
  context_ = std::move(context);
  log.Info(kCategory, "Created shared D3D11 device for DComp");
  LogAdapterTopologyOnce();
  LogAdapterForWindow(device_.Get(), nullptr, "shared device (mirrored/spanned)");
  return true;
}

VideoTopology::ApplyResult VideoTopology::Apply(const std::vector<DecoderSpec>& decoders,
                                                const std::vector<AssignmentSpec>& assignments,
                                                const Windows& windows) {
  Logger& log = Logger::Instance();
  log.Info(kCategory, "SetVideoTopology: %zu decoder(s), %zu assignment(s)", decoders.size(),
           assignments.size());
  // A lost device (or a render thread left stuck in it) cannot show video again: everything
  // made on it goes, and this topology is built on a fresh device and coordinator.
  if (coordinator_ && (coordinator_->device_lost() || coordinator_->render_loop_abandoned())) {
    log.Warning(kCategory, "SetVideoTopology: the shared D3D11 device was lost%s; recreating the "
                           "device, the coordinator and every decoder",
                coordinator_->render_loop_abandoned() ? " (render loop stuck)" : "");
    Release();
  } else if (device_ && FAILED(device_->GetDeviceRemovedReason())) {
    log.Warning(kCategory, "SetVideoTopology: the shared D3D11 device was lost; recreating the "
                           "device, the coordinator and every decoder");
    Release();
  }
  if (!EnsureDevice()) {
    return ApplyResult::kDeviceFailed;
  }
  if (!coordinator_) {
    std::unique_ptr<DCompCoordinator> coordinator = coordinator_factory_();
    if (!coordinator || !coordinator->Initialize(device_.Get(), context_.Get())) {
      return ApplyResult::kCoordinatorFailed;
    }
    coordinator_ = std::move(coordinator);
  }

  // Decoders, pipelines and displays change while nothing presents.
  const bool was_running = coordinator_->IsRenderLoopRunning();
  if (was_running) {
    coordinator_->StopRenderLoop();
    if (coordinator_->render_loop_abandoned()) {
      // The stuck thread may still be inside the coordinator or a decoder: start afresh.
      log.Warning(kCategory, "SetVideoTopology: render loop stuck; recreating the device, the "
                             "coordinator and every decoder");
      Release();
      return Apply(decoders, assignments, windows);
    }
  }
  RemoveStaleDecoders(decoders);
  const std::vector<const DecoderSpec*> prepared = PrepareNewDecoders(decoders);

  for (const auto& window : windows) {
    if (!IsAssigned(assignments, window.first)) {
      coordinator_->UnassignDisplay(window.first);
    }
  }
  SilenceWindows(assignments, windows);
  for (const AssignmentSpec& assignment : assignments) {
    Wire(assignment, windows);
  }

  for (const DecoderSpec* wanted : prepared) {
    const auto it = decoders_.find(wanted->key);
    if (it == decoders_.end()) {
      continue;
    }
    if (!it->second->PlayVideo(wanted->path, wanted->fit_mode, wanted->loop,
                               wanted->decoder_priority, wanted->canvas_width,
                               wanted->canvas_height)) {
      log.Error(kCategory, "SetVideoTopology: PlayVideo failed for '%s' (path=%s)",
                wanted->key.c_str(), wanted->path.c_str());
      coordinator_->RemoveDecoderPipeline(wanted->key);
      EraseDecoder(wanted->key);
    }
  }
  // Re-sending a topology restarts kept decoders at their start positions.
  for (const DecoderSpec& wanted : decoders) {
    const auto it = decoders_.find(wanted.key);
    if (it != decoders_.end()) {
      it->second->SeekTo(wanted.start_position_ms);
    }
  }

  if (decoders_.empty()) {
    if (was_running) {
      log.Info(kCategory, "SetVideoTopology: empty topology, render loop remains stopped");
    }
  } else {
    coordinator_->StartRenderLoop();
  }
  active_ = !decoders_.empty();
  return ApplyResult::kApplied;
}

void VideoTopology::EraseDecoder(const std::string& key) {
  const auto it = decoders_.find(key);
  if (it == decoders_.end()) {
    return;
  }
  std::unique_ptr<VideoDecoder> decoder = std::move(it->second);
  decoders_.erase(it);
  decoder->Shutdown();
}

void VideoTopology::RemoveStaleDecoders(const std::vector<DecoderSpec>& wanted_decoders) {
  std::set<std::string> named;
  for (const DecoderSpec& wanted : wanted_decoders) {
    named.insert(wanted.key);
  }
  std::vector<std::unique_ptr<VideoDecoder>> stale;
  for (auto it = decoders_.begin(); it != decoders_.end();) {
    if (named.count(it->first) != 0) {
      ++it;
      continue;
    }
    const std::string key = it->first;
    coordinator_->RemoveDecoderPipeline(key);
    stale.push_back(std::move(it->second));
    it = decoders_.erase(it);
    Logger::Instance().Info(kCategory, "SetVideoTopology: removed decoder '%s'", key.c_str());
  }
  DestroyTogether(std::move(stale));
}

void VideoTopology::DestroyTogether(std::vector<std::unique_ptr<VideoDecoder>> decoders) {
  std::vector<VideoDecoder*> stopping;
  for (const auto& decoder : decoders) {
    stopping.push_back(decoder.get());
  }
  VideoDecoder::StopTogether(stopping);
  decoders.clear();  // stopped (or their wedged players parked): destruction does not wait
}

void VideoTopology::Release() {
  if (coordinator_ && coordinator_->render_loop_abandoned()) {
    // Its render thread may come back into the coordinator and the decoders: they are kept, on
    // purpose, until the process ends; their players are asked to stop.
    Logger::Instance().Error(kCategory, "Video topology: keeping the coordinator and %zu "
                                        "decoder(s) of a stuck render loop until exit",
                             decoders_.size());
    for (auto& entry : decoders_) {
      std::thread([decoder = entry.second.get()] { decoder->Stop(); }).detach();
      abandoned_decoders_.push_back(std::move(entry.second));
    }
    // Its windows are free for a new coordinator's composition targets; the device and context
    // it draws with stay alive with it.
    coordinator_->RemoveAllDisplays();
    abandoned_coordinators_.push_back(std::move(coordinator_));
    abandoned_devices_.push_back(device_);
    abandoned_devices_.push_back(context_);
  } else if (coordinator_) {
    coordinator_->Shutdown();
    coordinator_.reset();
  }
  std::vector<std::unique_ptr<VideoDecoder>> decoders;
  for (auto& entry : decoders_) {
    if (entry.second) {
      decoders.push_back(std::move(entry.second));
    }
  }
  decoders_.clear();
  DestroyTogether(std::move(decoders));
  active_ = false;
  context_.Reset();
  device_.Reset();
}

std::vector<const DecoderSpec*> VideoTopology::PrepareNewDecoders(
    const std::vector<DecoderSpec>& wanted_decoders) {
  Logger& log = Logger::Instance();
  std::vector<const DecoderSpec*> prepared;
  for (const DecoderSpec& wanted : wanted_decoders) {
    if (decoders_.count(wanted.key) != 0) {
      continue;  // kept as it runs, even if its path or size changed
    }
    std::unique_ptr<VideoDecoder> decoder = decoder_factory_();
    if (!decoder || !decoder->Initialize(device_.Get(), context_.Get())) {
      log.Error(kCategory, "SetVideoTopology: VideoDecoder::Initialize failed for '%s'",
                wanted.key.c_str());
      continue;
    }
    VideoDecoder* raw = decoder.get();
    decoders_[wanted.key] = std::move(decoder);
    if (!coordinator_->AddDecoderPipeline(wanted.key, raw, wanted.canvas_width,
                                          wanted.canvas_height)) {
      log.Error(kCategory, "SetVideoTopology: AddDecoderPipeline failed for '%s'",
                wanted.key.c_str());
      EraseDecoder(wanted.key);
      continue;
    }
    prepared.push_back(&wanted);
    log.Info(kCategory, "SetVideoTopology: prepared decoder '%s' (%dx%d, path=%s)",
             wanted.key.c_str(), wanted.canvas_width, wanted.canvas_height, wanted.path.c_str());
  }
  return prepared;
}

void VideoTopology::SilenceWindows(const std::vector<AssignmentSpec>& assignments,
                                   const Windows& windows) {
  for (const auto& entry : windows) {
    NativeLiveWindow* window = entry.second.get();
    if (window == nullptr) {
      continue;
    }
    const std::int32_t mode = window->content_mode();
    const bool shows_own_content = mode == kContentImage || mode == kContentWebpage;
    // A window without video that shows an image or a page keeps drawing it.
    if (!IsAssigned(assignments, entry.first) && shows_own_content) {
      continue;
    }
    window->StopRenderLoop();
  }
}

void VideoTopology::Wire(const AssignmentSpec& assignment, const Windows& windows) {
  Logger& log = Logger::Instance();
  const auto found = windows.find(assignment.display_id);
  NativeLiveWindow* window = found != windows.end() ? found->second.get() : nullptr;
  if (window == nullptr || window->GetHwnd() == nullptr) {
    log.Error(kCategory, "SetVideoTopology: window not found for display '%s'",
              assignment.display_id.c_str());
    return;
  }
  // Black until the video arrives.
  window->ClearContent();
  window->StopWebpage();
  window->StopRenderLoop();
  window->PresentBlackNow();

  int width = 0;
  int height = 0;
  bool is_primary = false;
  if (!window->displays().empty()) {
    width = window->displays().front().width;
    height = window->displays().front().height;
    is_primary = window->displays().front().is_primary;
  }
  if (!coordinator_->AddDisplay(window->GetHwnd(), assignment.display_id, width, height,
                                is_primary)) {
    log.Error(kCategory, "SetVideoTopology: AddDisplay failed for '%s'",
              assignment.display_id.c_str());
    return;
  }
  // The composition is drawn above the window's fade overlay: it follows the window's fade and
  // blanking itself.
  coordinator_->SetDisplayAudienceLevel(assignment.display_id, window->audience_level());
  if (!coordinator_->AssignDisplayToDecoder(assignment.display_id, assignment.decoder_key)) {
    log.Error(kCategory, "SetVideoTopology: AssignDisplayToDecoder failed for '%s' -> '%s'",
              assignment.display_id.c_str(), assignment.decoder_key.c_str());
    return;
  }
  if (assignment.has_crop) {
    coordinator_->SetDisplayCrop(assignment.display_id, assignment.crop_x, assignment.crop_y,
                                 assignment.crop_width, assignment.crop_height);
  }
}

VideoDecoder* VideoTopology::RoutedDecoder(const std::string& display_id) {
  if (!active_ || !coordinator_) {
    return nullptr;
  }
  const std::string key = coordinator_->GetAssignedDecoderKey(display_id);
  if (key.empty()) {
    return nullptr;
  }
  const auto it = decoders_.find(key);
  return it != decoders_.end() ? it->second.get() : nullptr;
}

void VideoTopology::ForEachDecoder(const std::function<void(VideoDecoder&)>& action) {
  for (auto& entry : decoders_) {
    if (entry.second) {
      action(*entry.second);
    }
  }
}

bool VideoTopology::TearDown() {
  // Without a topology the shared device stays (a coordinator that failed to initialise leaves
  // one behind, and the next call uses it).
  if (!coordinator_ && decoders_.empty() && !active_) {
    return false;
  }
  if (coordinator_) {
    coordinator_->StopRenderLoop();
  }
  Release();
  Logger::Instance().Info(kCategory, "Video topology torn down during CloseAll");
  return true;
}

}  // namespace native_live_window
