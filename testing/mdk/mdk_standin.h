// Scripting interface of the stand-in media library (mdk.dll under testing/). The stand-in exports
// the library's C interface (foreign_interfaces/mdk/mdk_c_api.h) and these functions, which tests
// reach through its import library.
//
// Behaviour, per player: setMedia loads on the player's own thread (status Loading, then
// Loaded|Prepared with the scripted duration and a "decoder" event naming the first decoder asked
// for; a file that does not exist gives an "error" event and status Invalid). While Playing and
// loaded it delivers a frame every frame interval (40 ms of media time per frame) by calling the
// render callback from its thread; at the end it plays the queued next media (after calling the
// current-media-changed callback) or stops. renderVideo fills the render target: the left half
// with StandinFrameColor(position), the right half with its inverse.
//
// Environment (read at load and by MdkStandin_Reset): MDK_STANDIN_FRAME_MS (40; 0 = frames only
// through MdkStandin_AdvanceFrames), MDK_STANDIN_DURATION_MS (10000), MDK_STANDIN_SEEK (default
// seek completion: immediate, late, skip or never), MDK_STANDIN_LATE_SEEK_MS (300; 0 = late seeks
// complete only through MdkStandin_CompleteLateSeeks), MDK_STANDIN_STOP_HANG_MS (0; -1 = a stop
// hangs until MdkStandin_ReleaseHungStops).

#ifndef KESTRUN_TESTING_MDK_MDK_STANDIN_H_
#define KESTRUN_TESTING_MDK_MDK_STANDIN_H_

#include <cstdint>

#if defined(KESTRUN_MDK_STANDIN_BUILD)
#define MDK_STANDIN_API extern "C" __declspec(dllexport)
#else
#define MDK_STANDIN_API extern "C" __declspec(dllimport)
#endif

struct MdkStandinPlayerInfo {
  int id;  // creation order, from 1
  int destroyed;
  int state;
  int media_status;
  float volume;
  int aspect_ratio_calls;
  float aspect_ratio;
  std::uint32_t render_api_type;
  void* render_context;
  void* render_target;
  int surface_width;
  int surface_height;
  int loop_setting;  // -1 until setLoop is called
  int stop_requests;
  long long position_ms;
  char decoders[256];  // names joined by ','
  char url[260];
  char next_url[260];  // empty when none is queued
  long long next_position;
  int next_flags;
};

// Settings from the environment (or the defaults); forgets destroyed players.
MDK_STANDIN_API void MdkStandin_Reset();
MDK_STANDIN_API void MdkStandin_SetFrameIntervalMs(int milliseconds);
MDK_STANDIN_API void MdkStandin_SetDurationMs(long long milliseconds);
// How the next seeks complete, in order, e.g. "late,skip"; later seeks use the default mode.
MDK_STANDIN_API void MdkStandin_ScriptSeeks(const char* modes);
// 0: stops complete at once; > 0: after that long; -1: only through MdkStandin_ReleaseHungStops.
MDK_STANDIN_API void MdkStandin_SetStopHangMs(int milliseconds);

// The next renderVideo call, by any player, raises an access violation.
MDK_STANDIN_API void MdkStandin_FaultNextRender();
// Each playing, loaded player delivers `count` frames; returns once their callbacks have run.
MDK_STANDIN_API void MdkStandin_AdvanceFrames(int count);
// Completes every held (late) seek; returns once the callbacks have run.
MDK_STANDIN_API void MdkStandin_CompleteLateSeeks();
// Lets every hung stop reach Stopped.
MDK_STANDIN_API void MdkStandin_ReleaseHungStops();
// Returns when every player's thread has nothing left to do (at most 10 s).
MDK_STANDIN_API void MdkStandin_Settle();

MDK_STANDIN_API int MdkStandin_LivePlayers();
// Player `newest_index` counted back from the newest (0) among those created since the last reset.
MDK_STANDIN_API bool MdkStandin_PlayerInfo(int newest_index, MdkStandinPlayerInfo* info);
// Every volume given to that player, oldest first; returns how many there are.
MDK_STANDIN_API int MdkStandin_VolumeHistory(int newest_index, float* values, int capacity);

// Colour (0xRRGGBB) of the left half of the frame at a position.
inline std::uint32_t StandinFrameColor(long long position_ms) {
  const std::uint32_t frame = static_cast<std::uint32_t>(position_ms / 40);
  const std::uint32_t red = (frame * 7u) & 0xFFu;
  const std::uint32_t green = (frame / 37u * 29u + 96u) & 0xFFu;
  return (red << 16) | (green << 8) | (255u - red);
}

#endif  // KESTRUN_TESTING_MDK_MDK_STANDIN_H_
