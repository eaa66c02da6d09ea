// How a picture (still image or video frame) meets the area it is drawn into. Carried on the
// channel as a 32-bit integer. Images draw any other value like kStretch; video makes no
// aspect-ratio choice of its own for other values and keeps the player's default.

#ifndef KESTRUN_LIVE_OUTPUT_IMAGES_FIT_MODE_H_
#define KESTRUN_LIVE_OUTPUT_IMAGES_FIT_MODE_H_

#include <cstdint>

namespace native_live_window {

// kCover keeps the aspect ratio and fills the target, cropping the overflow; kContain keeps the
// aspect ratio and fits inside, leaving bars; kStretch fills the target, ignoring the ratio.
enum class FitMode : std::int32_t { kCover = 0, kContain = 1, kStretch = 2 };

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_IMAGES_FIT_MODE_H_
