// The video set-up the interface asks for in one "setVideoTopology" call: the decoders (one video
// file each, decoded into a canvas of a given size) and the assignments (which display shows
// which decoder, optionally a crop of its canvas).

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_TOPOLOGY_DESCRIPTION_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_TOPOLOGY_DESCRIPTION_H_

#include <cstdint>
#include <string>
#include <vector>

#include "live_output/images/fit_mode.h"

namespace native_live_window {

struct DecoderSpec {
  // Identity of the decoder within the topology.
  std::string key;
  // Media file or URL (UTF-8).
  std::string path;
  FitMode fit_mode = FitMode::Cover;
  bool loop = true;
  // Decoder names in order of preference; empty means the decoder's defaults.
  std::vector<std::string> decoder_priority;
  std::int32_t canvas_width = 0;
  std::int32_t canvas_height = 0;
  std::int64_t start_position_ms = 0;
};

struct AssignmentSpec {
  std::string display_id;
  std::string decoder_key;
  // Set only when all four crop values were given with a positive width and height.
  bool has_crop = false;
  std::int32_t crop_x = 0;
  std::int32_t crop_y = 0;
  std::int32_t crop_width = 0;
  std::int32_t crop_height = 0;
};

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_VIDEO_TOPOLOGY_DESCRIPTION_H_
