// How a picture (still image or video frame) meets the area it is drawn into. Carried on the
// channel as a 32-bit integer. Images draw any other value like Stretch; video makes no
// aspect-ratio choice of its own for other values and keeps the player's default.

#ifndef KESTRUN_LIVE_OUTPUT_IMAGES_FIT_MODE_H_
#define KESTRUN_LIVE_OUTPUT_IMAGES_FIT_MODE_H_

#include <cstdint>

namespace native_live_window {

// Cover keeps the aspect ratio and fills the target, cropping the overflow; Contain keeps the
// aspect ratio and fits inside, leaving bars; Stretch fills the target, ignoring the ratio.
enum class FitMode : std::int32_t { Cover = 0, Contain = 1, Stretch = 2 };

}  // namespace native_live_window

#endif  // KESTRUN_LIVE_OUTPUT_IMAGES_FIT_MODE_H_
