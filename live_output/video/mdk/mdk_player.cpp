#include "live_output/video/mdk/mdk_player.h"
