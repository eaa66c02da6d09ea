#include "live_output/video/video_decoder.h"

#include "live_output/video/mdk/mdk_library.h"
#include "live_output/video/mdk/mdk_player.h"

namespace native_live_window {

const std::vector<std::string>& VideoDecoder::DefaultDecoders() {
  static const std::vector<std::string> names = {"D3D11", "MFT:d3d=11", "FFmpeg"};
  return names;
}

VideoDecoder::VideoDecoder() : VideoDecoder(Clock(), nullptr) {}
VideoDecoder::VideoDecoder(Clock clock, std::shared_ptr<mdk::Library> library)
    : clock_(std::move(clock)), library_(std::move(library)), seek_state_(std::make_shared<SeekState>()) {}
VideoDecoder::~VideoDecoder() = default;
bool VideoDecoder::Initialize(ID3D11Device*, ID3D11DeviceContext*) { return false; }
bool VideoDecoder::PlayVideo(const std::string&, FitMode, bool, const std::vector<std::string>&, int,
                             int) {
  return false;
}
bool VideoDecoder::RenderFrame() { return false; }
void VideoDecoder::SeekTo(std::int64_t) {}
void VideoDecoder::SetVolume(double) {}
void VideoDecoder::SetPaused(bool) {}
std::int64_t VideoDecoder::GetPosition() { return 0; }
void VideoDecoder::Stop() {}
void VideoDecoder::Shutdown() {}
std::size_t VideoDecoder::QuarantinedPlayerCount() { return 0; }

}  // namespace native_live_window
