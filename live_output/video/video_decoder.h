// One video of the composition: a media player decoding one file into a Direct3D 11 texture that
// the decoder owns. It presents nothing itself; the composition render loop calls RenderFrame once
// per tick and copies the texture into its swap chain when a new frame was drawn.
//
// Sound follows three rules:
//  - every new video and every seek start silent; the sound is released when the picture is
//    ready (first frame drawn, seek completed), or at a deadline so that a lost completion cannot
//    leave the output mute for ever;
//  - volume changes ramp over 60 ms instead of jumping;
//  - a player that does not stop within 1 s is never destroyed while it may still be working: it
//    is parked and destroyed by a later Stop once it reports Stopped, or, when the decoder goes,
//    handed to the player reaper, which destroys it on its own thread (mdk_player.h).
//
// Threads: the platform thread calls everything but RenderFrame; the composition render thread
// calls RenderFrame and reads the texture and its size (without the lock: the caller keeps the
// render loop stopped while it plays, stops or shuts a decoder down). The player's threads touch
// only atomics and the shared seek state.

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_DECODER_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_DECODER_H_

#include <d3d11.h>
#include <wrl/client.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "live_output/images/fit_mode.h"

namespace mdk {
class Library;
class Player;
}  // namespace mdk

namespace native_live_window {

class VideoDecoder {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Clock = std::function<TimePoint()>;

  // Decoders used, in this order, when PlayVideo is given none.
  static const std::vector<std::string>& DefaultDecoders();

  // The steady clock and mdk.dll beside the program.
  VideoDecoder();
  // For tests: an empty clock means the steady clock, a null library mdk.dll beside the program.
  VideoDecoder(Clock clock, std::shared_ptr<mdk::Library> library);
  VideoDecoder(const VideoDecoder&) = delete;
  VideoDecoder& operator=(const VideoDecoder&) = delete;
  // Shutdown, then destroys the parked players too.
  ~VideoDecoder();

  // Keeps the shared device and its immediate context (not owned). False if either is null.
  bool Initialize(ID3D11Device* device, ID3D11DeviceContext* context);

  // Stops what plays, makes sure the render target is width x height (a texture of that size is
  // reused) and starts a new player on path (UTF-8). decoders names the decoders in order of
  // preference; empty means DefaultDecoders(). Sound stays at 0 until SetVolume is called and the
  // first frame was drawn. False, with an ERROR line, when playback could not be started
  // (including when mdk.dll cannot be loaded).
  bool PlayVideo(const std::string& path, FitMode fit, bool loop,
                 const std::vector<std::string>& decoders, int width, int height);

  // Render thread, once per tick: advances the audio gate and ramp, and draws the player's newest
  // frame into the texture if it announced one. True when a new frame was drawn.
  bool RenderFrame();

  // Asynchronous seek; sound is gated until it completes (or 700 ms pass).
  void SeekTo(std::int64_t position_ms);
  // Player volume, 1.0 = full; ramped over 60 ms, or remembered while the sound is gated.
  void SetVolume(double volume);
  void SetPaused(bool paused);
  // Playback position in ms; 0 without a player.
  std::int64_t GetPosition();
  // Stops and releases the player (parking it if it will not stop). Idempotent.
  void Stop();
  // Stop, release the texture and forget the device.
  void Shutdown();
  // Stops several decoders at once: every player is asked to stop first, then all are waited for
  // within one common 1 s deadline (players that miss it are parked as by Stop).
  static void StopTogether(const std::vector<VideoDecoder*>& decoders);

  // The render target and its size; null and 0 x 0 while there is none.
  ID3D11Texture2D* GetTexture() const { return render_texture_.Get(); }
  std::uint32_t GetWidth() const { return width_; }
  std::uint32_t GetHeight() const { return height_; }

  // For diagnostics and tests.
  std::size_t QuarantinedPlayerCount();
  std::int64_t GetDurationMs() const { return duration_ms_.load(); }
  std::uint64_t GetLoopCount() const { return loop_count_.load(); }

 private:
  // Written by seek completions, which may outlive a player or the decoder.
  struct SeekState {
    std::atomic<std::int32_t> completed_generation{0};
  };

  TimePoint Now() const;
  // The two halves of Stop: ask the player to stop, then wait for it until the deadline.
  void BeginStop();
  void FinishStop(std::chrono::steady_clock::time_point deadline);
  bool EnsureRenderTarget(int width, int height);
  void ReleaseRenderTarget();
  void HandRenderApiToPlayerLocked();
  void RegisterCallbacksLocked();
  void SetUpLoopLocked(bool loop);
  void StartRampLocked(float target, TimePoint now);
  void StepRampLocked(TimePoint now);

  Clock clock_;
  std::shared_ptr<mdk::Library> library_;

  ID3D11Device* device_ = nullptr;
  ID3D11DeviceContext* context_ = nullptr;
  Microsoft::WRL::ComPtr<ID3D11Texture2D> render_texture_;
  Microsoft::WRL::ComPtr<ID3D11RenderTargetView> render_target_view_;
  std::uint32_t width_ = 0;
  std::uint32_t height_ = 0;

  std::unique_ptr<mdk::Player> player_;
  std::vector<std::unique_ptr<mdk::Player>> quarantined_players_;

  // Guards everything below and every player call of the public operations.
  std::mutex mutex_;
  std::atomic<bool> frame_ready_{false};
  std::string current_path_;
  std::atomic<std::uint64_t> loop_count_{0};
  std::atomic<std::int64_t> duration_ms_{0};
  FitMode fit_mode_ = FitMode::Cover;
  bool render_api_set_ = false;
  std::shared_ptr<SeekState> seek_state_;
  std::atomic<float> requested_volume_{0.0f};
  float applied_volume_ = 0.0f;
  std::atomic<bool> audio_gated_{false};
  std::atomic<bool> awaiting_first_frame_{false};
  std::atomic<std::int32_t> seek_generation_{0};
  TimePoint gate_deadline_{};
  bool volume_ramp_active_ = false;
  float ramp_from_ = 0.0f;
  float ramp_to_ = 0.0f;
  TimePoint ramp_start_{};
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_DECODER_H_
