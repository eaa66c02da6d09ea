#include "live_output/video/video_decoder.h"

#include <cfloat>
#include <utility>

#include "live_output/log/held_locks.h"
#include "live_output/log/logger.h"
#include "live_output/video/mdk/mdk_library.h"
#include "live_output/video/mdk/mdk_player.h"

namespace native_live_window {
namespace {

constexpr const char* kCategory = "VIDEO_DECODER";
constexpr std::chrono::nanoseconds kPlayGateDeadline = std::chrono::seconds(5);
constexpr std::chrono::nanoseconds kSeekGateDeadline = std::chrono::milliseconds(700);
constexpr float kRampMs = 60.0f;
constexpr long kStopTimeoutMs = 1000;
constexpr MDK_SeekFlag kLoopSeekFlag = MDK_SeekFlag_FromStart;

Logger& Log() { return Logger::Instance(); }

const char* StateName(mdk::State state) {
  switch (state) {
    case mdk::State::kStopped:
      return "Stopped";
    case mdk::State::kPlaying:
      return "Playing";
    case mdk::State::kPaused:
      return "Paused";
  }
  return "unknown";
}

// The player's aspect-ratio value for a fit mode; false for values without one.
bool AspectRatioFor(FitMode fit, float* value) {
  switch (fit) {
    case FitMode::Cover:
      *value = -FLT_EPSILON;  // keep the ratio, fill and crop
      return true;
    case FitMode::Contain:
      *value = FLT_EPSILON;  // keep the ratio, fit inside
      return true;
    case FitMode::Stretch:
      *value = 0.0f;  // ignore the ratio
      return true;
  }
  return false;
}

}  // namespace

const std::vector<std::string>& VideoDecoder::DefaultDecoders() {
  static const std::vector<std::string> names = {"D3D11", "MFT:d3d=11", "FFmpeg"};
  return names;
}

VideoDecoder::VideoDecoder() : VideoDecoder(Clock(), nullptr) {}

VideoDecoder::VideoDecoder(Clock clock, std::shared_ptr<mdk::Library> library)
    : clock_(std::move(clock)),
      library_(std::move(library)),
      seek_state_(std::make_shared<SeekState>()) {}

VideoDecoder::~VideoDecoder() {
  Shutdown();
  std::vector<std::unique_ptr<mdk::Player>> parked;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    parked.swap(quarantined_players_);
  }
  // Destroying a player that has not stopped may block until it does: that happens on the
  // reaper's thread, never on the caller's.
  for (auto& player : parked) mdk::PlayerReaper::Park(std::move(player));
}

void VideoDecoder::StopTogether(const std::vector<VideoDecoder*>& decoders) {
  for (VideoDecoder* decoder : decoders) {
    if (decoder != nullptr) decoder->BeginStop();
  }
  // One deadline for all: N wedged players cost one timeout, not N.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStopTimeoutMs);
  for (VideoDecoder* decoder : decoders) {
    if (decoder != nullptr) decoder->FinishStop(deadline);
  }
}

VideoDecoder::TimePoint VideoDecoder::Now() const {
  return clock_ ? clock_() : std::chrono::steady_clock::now();
}

bool VideoDecoder::Initialize(ID3D11Device* device, ID3D11DeviceContext* context) {
  if (device == nullptr || context == nullptr) {
    Log().Error(kCategory, "Initialize called with null device or context");
    return false;
  }
  device_ = device;
  context_ = context;
  Log().Info(kCategory, "Initialized");
  return true;
}

void VideoDecoder::ReleaseRenderTarget() {
  render_target_view_.Reset();
  render_texture_.Reset();
  width_ = 0;
  height_ = 0;
}

bool VideoDecoder::EnsureRenderTarget(int width, int height) {
  if (device_ == nullptr) return false;
  if (render_texture_ && (static_cast<int>(width_) != width || static_cast<int>(height_) != height)) {
    ReleaseRenderTarget();
  }
  if (render_texture_) return true;

  D3D11_TEXTURE2D_DESC desc = {};
  desc.Width = static_cast<UINT>(width);
  desc.Height = static_cast<UINT>(height);
  desc.MipLevels = 1;
  desc.ArraySize = 1;
  desc.Format = DXGI_FORMAT_B8G8R8A8_UNORM;
  desc.SampleDesc.Count = 1;
  desc.Usage = D3D11_USAGE_DEFAULT;
  desc.BindFlags = D3D11_BIND_RENDER_TARGET;
  HRESULT hr = width > 0 && height > 0
                   ? device_->CreateTexture2D(&desc, nullptr, render_texture_.ReleaseAndGetAddressOf())
                   : E_INVALIDARG;
  if (FAILED(hr)) {
    Log().Error(kCategory, "Failed to create render texture %dx%d, hr=0x%08X", width, height,
                static_cast<unsigned>(hr));
    render_texture_.Reset();
    return false;
  }
  hr = device_->CreateRenderTargetView(render_texture_.Get(), nullptr,
                                       render_target_view_.ReleaseAndGetAddressOf());
  if (FAILED(hr)) {
    Log().Error(kCategory, "Failed to create render target view, hr=0x%08X",
                static_cast<unsigned>(hr));
    render_target_view_.Reset();
    render_texture_.Reset();
    return false;
  }
  width_ = static_cast<std::uint32_t>(width);
  height_ = static_cast<std::uint32_t>(height);
  Log().Info(kCategory, "Created render target %dx%d", width, height);
  return true;
}

bool VideoDecoder::PlayVideo(const std::string& path, FitMode fit, bool loop,
                             const std::vector<std::string>& decoders, int width, int height) {
  if (device_ == nullptr || context_ == nullptr) {
    Log().Error(kCategory, "PlayVideo called before Initialize");
    return false;
  }
  if (!library_) library_ = mdk::Library::Default();
  if (!library_ || !library_->available()) {
    Log().Error(kCategory, "PlayVideo failed: the media library is unavailable: %s",
                library_ ? library_->failure().c_str() : "mdk.dll");
    return false;
  }
  Stop();
  if (!EnsureRenderTarget(width, height)) {
    Log().Error(kCategory, "Failed to create render target for video");
    return false;
  }

  std::lock_guard<std::mutex> lock(mutex_);
  player_ = mdk::Player::Create(library_);
  if (!player_) {
    Log().Error(kCategory, "PlayVideo failed: the media library created no player");
    return false;
  }

  // A new video starts silent; a fresh play counts as an already completed seek.
  player_->SetVolume(0.0f);
  applied_volume_ = 0.0f;
  volume_ramp_active_ = false;
  audio_gated_ = true;
  awaiting_first_frame_ = true;
  seek_state_->completed_generation.store(++seek_generation_);
  requested_volume_ = 0.0f;
  gate_deadline_ = Now() + kPlayGateDeadline;

  Log().Info(kCategory, "Playing video: %s (%dx%d)", path.c_str(), width, height);

  loop_count_ = 0;
  duration_ms_ = 0;
  current_path_ = path;
  fit_mode_ = fit;
  frame_ready_ = false;
  render_api_set_ = false;

  RegisterCallbacksLocked();
  player_->SetDecoders(MDK_MediaType_Video, decoders.empty() ? DefaultDecoders() : decoders);
  HandRenderApiToPlayerLocked();
  player_->SetRenderCallback([this](void*) { frame_ready_ = true; });
  SetUpLoopLocked(loop);

  float aspect = 0.0f;
  if (AspectRatioFor(fit, &aspect)) player_->SetAspectRatio(aspect);

  player_->SetMedia(path.c_str());
  player_->Set(mdk::State::kPlaying);
  Log().Info(kCategory, "Video playback started");
  return true;
}

void VideoDecoder::RegisterCallbacksLocked() {
  player_->OnStateChanged(
      [](mdk::State state) { Log().Info(kCategory, "MDK state: %s", StateName(state)); });

  // The player reports load and events on its own threads, while the decoder may hold its lock
  // calling into the player: these callbacks take no lock.
  mdk::Player* player = player_.get();
  player_->OnMediaStatusChanged([this, player](std::int32_t status) {
    if ((status & MDK_MediaStatus_Loaded) != 0) {
      duration_ms_ = player->MediaDurationMs();
      Log().Info(kCategory, "Loaded (duration: %lld ms)",
                 static_cast<long long>(duration_ms_.load()));
    }
    if ((status & MDK_MediaStatus_Invalid) != 0) Log().Error(kCategory, "MediaStatus: Invalid");
    return true;
  });
  // The library reports errors as negative codes with the error text as detail, under the
  // category of whatever failed ("decoder.video", "reader", ...), and the decoder it opened for a
  // stream under "decoder.video" / "decoder.audio". Builds that report under the plain "error" and
  // "decoder" categories are understood too.
  player_->OnEvent([](const mdk::MediaEvent& event) {
    if (event.error < 0 || event.category == "error") {
      Log().Error(kCategory, "MDK error: %s - %s", event.category.c_str(), event.detail.c_str());
    } else if (event.category == "decoder.video" || event.category == "decoder") {
      Log().Info(kCategory, "MDK decoder: %s", event.detail.c_str());
    }
    return false;
  });
}

void VideoDecoder::SetUpLoopLocked(bool loop) {
  if (loop) {
    // Gapless looping: each time the current media changes, queue the same file again.
    // The callback keeps its own copy of the path: it runs on the player's threads, without the
    // lock, and Stop removes it before the path is cleared.
    mdk::Player* player = player_.get();
    const std::string path = current_path_;
    player_->OnCurrentMediaChanged([this, player, path] {
      if (path.empty()) return;
      player->SetNextMedia(path.c_str(), 0, kLoopSeekFlag);
      ++loop_count_;
    });
  } else {
    player_->SetLoop(0);
  }
}

void VideoDecoder::HandRenderApiToPlayerLocked() {
  player_->SetRenderApiD3D11(context_, render_target_view_.Get());
  player_->SetVideoSurfaceSize(static_cast<int>(width_), static_cast<int>(height_));
  render_api_set_ = true;
}

bool VideoDecoder::RenderFrame() {
  // Runs inside the composition loop's fault guard: a fault in the player's drawing must not
  // leave this lock held for the platform thread's next call.
  HeldLocks::Scoped<std::mutex> lock(mutex_);
  if (!player_ || !render_target_view_ || context_ == nullptr) return false;
  if (!render_api_set_) HandRenderApiToPlayerLocked();

  const TimePoint now = Now();
  if (audio_gated_ && !awaiting_first_frame_) {
    const std::int32_t generation = seek_generation_.load();
    const bool seek_pending = seek_state_->completed_generation.load() != generation;
    if (!seek_pending || now >= gate_deadline_) {
      if (seek_pending) {
        Log().Warning(kCategory,
                      "Audio gate released by deadline (gen %d) \xE2\x80\x94 seek completion "
                      "callback never fired",
                      static_cast<int>(generation));
      }
      audio_gated_ = false;
      StartRampLocked(requested_volume_.load(), now);
    }
  }
  StepRampLocked(now);

  // The render callback also comes without a new frame (a changed aspect ratio or surface size),
  // and before the first frame the player draws nothing: only a drawn frame counts.
  if (frame_ready_.exchange(false) && player_->RenderVideo() >= 0.0) {
    awaiting_first_frame_ = false;
    return true;
  }
  return false;
}

void VideoDecoder::StartRampLocked(float target, TimePoint now) {
  if (applied_volume_ == target) {
    volume_ramp_active_ = false;
    return;
  }
  ramp_from_ = applied_volume_;
  ramp_to_ = target;
  ramp_start_ = now;
  volume_ramp_active_ = true;
}

void VideoDecoder::StepRampLocked(TimePoint now) {
  if (!volume_ramp_active_ || !player_) return;
  const auto elapsed_ns = std::chrono::duration_cast<std::chrono::nanoseconds>(now - ramp_start_);
  float t = static_cast<float>(elapsed_ns.count()) / 1000000.0f / kRampMs;
  if (t < 0.0f) t = 0.0f;
  if (t >= 1.0f) {
    volume_ramp_active_ = false;
    t = 1.0f;
  }
  applied_volume_ = ramp_from_ + (ramp_to_ - ramp_from_) * t;
  player_->SetVolume(applied_volume_);
}

void VideoDecoder::SetVolume(double volume) {
  std::lock_guard<std::mutex> lock(mutex_);
  requested_volume_ = static_cast<float>(volume);
  if (!audio_gated_) StartRampLocked(requested_volume_.load(), Now());
}

void VideoDecoder::SetPaused(bool paused) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (player_) player_->Set(paused ? mdk::State::kPaused : mdk::State::kPlaying);
}

std::int64_t VideoDecoder::GetPosition() {
  std::lock_guard<std::mutex> lock(mutex_);
  return player_ ? player_->Position() : 0;
}

void VideoDecoder::SeekTo(std::int64_t position_ms) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!player_) return;
  volume_ramp_active_ = false;
  audio_gated_ = true;
  player_->SetVolume(0.0f);
  applied_volume_ = 0.0f;

  const std::int32_t generation = ++seek_generation_;
  gate_deadline_ = Now() + kSeekGateDeadline;

  // The completion may run after the player was parked or the decoder destroyed: it holds the
  // seek state itself. Completions only ever raise the completed generation, so a late one of an
  // older seek cannot open the gate of a newer one; a skipped seek leaves it to the deadline.
  std::shared_ptr<SeekState> state = seek_state_;
  player_->Seek(position_ms, MDK_SeekFlag_Default, [state, generation](std::int64_t result) {
    if (result == kMdkSeekSkipped) return;
    std::int32_t seen = state->completed_generation.load();
    while (seen < generation &&
           !state->completed_generation.compare_exchange_weak(seen, generation)) {
    }
  });
}

std::size_t VideoDecoder::QuarantinedPlayerCount() {
  std::lock_guard<std::mutex> lock(mutex_);
  return quarantined_players_.size();
}

void VideoDecoder::Stop() {
  BeginStop();
  FinishStop(std::chrono::steady_clock::now() + std::chrono::milliseconds(kStopTimeoutMs));
}

void VideoDecoder::BeginStop() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto it = quarantined_players_.begin(); it != quarantined_players_.end();) {
    if ((*it)->GetState() == mdk::State::kStopped) {
      it = quarantined_players_.erase(it);
    } else {
      ++it;
    }
  }

  ++seek_generation_;  // pending seek completions no longer concern anything
  audio_gated_ = false;
  awaiting_first_frame_ = false;
  volume_ramp_active_ = false;
  requested_volume_ = 0.0f;

  if (player_) {
    player_->SetVolume(0.0f);
    applied_volume_ = 0.0f;
    player_->SetRenderCallback(nullptr);
    player_->OnMediaStatusChanged(nullptr);
    player_->OnStateChanged(nullptr);
    player_->OnCurrentMediaChanged(nullptr);
    player_->OnEvent(nullptr);
    player_->SetNextMedia(nullptr, -1, kLoopSeekFlag);
    player_->Set(mdk::State::kStopped);
  }
}

void VideoDecoder::FinishStop(std::chrono::steady_clock::time_point deadline) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (player_) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    const long wait_ms = left.count() > 0 ? static_cast<long>(left.count()) : 0;
    if (!player_->WaitFor(mdk::State::kStopped, wait_ms)) {
      Log().Warning(kCategory,
                    "Decoder did not reach Stopped within 1s \xE2\x80\x94 quarantining the wedged "
                    "player instead of destroying it (avoids the teardown heap-corruption race)");
      quarantined_players_.push_back(std::move(player_));
    } else {
      player_->SetVideoSurfaceSize(-1, -1);
      player_.reset();
      Log().Info(kCategory, "Video stopped");
    }
  }

  frame_ready_ = false;
  current_path_.clear();
  render_api_set_ = false;
}

void VideoDecoder::Shutdown() {
  Stop();
  ReleaseRenderTarget();
  device_ = nullptr;
  context_ = nullptr;
  Log().Info(kCategory, "Shutdown");
}

}  // namespace native_live_window
