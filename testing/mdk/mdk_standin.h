// Scripting interface of the stand-in media library (mdk.dll under testing/). The stand-in exports
// the library's C interface (foreign_interfaces/mdk/mdk_c_api.h) and these functions, which tests
// reach through its import library.
//
// Behaviour, per player: setMedia loads on the player's own thread (status Loading, then
// Loaded|Prepared with the scripted duration and a "decoder.video" event, error 0, naming the first
// decoder asked for; a file that does not exist gives an event with a negative error code and the
// error text as detail, and status Invalid). While Playing and loaded it delivers a frame every
// frame interval (40 ms of media time per frame) by calling the render callback from its thread;
// at the end it plays the queued next media (after calling the current-media-changed callback) or
// stops. As the real library does, setAspectRatio and setVideoSurfaceSize also call the render
// callback (on the caller's thread) though no new frame exists. renderVideo answers -1 (nothing
// drawn) until the first frame was delivered; then it fills the render target: the left half with
// StandinFrameColor(position), the right half with its inverse.
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
  // Players (process-wide) whose stop was requested and not yet reached when this one's last
  // waitFor began: 1 when stops are waited for one after another, N when N are waited together.
  int stops_pending_at_wait;
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
// Lets every hung stop reach Stopped (and so every deletion blocked on one return).
MDK_STANDIN_API void MdkStandin_ReleaseHungStops();
// 1 (the default): deleting a player whose stop hangs blocks until the stop is released, as the
// real library's teardown waits for its threads; 0: deletion returns at once.
MDK_STANDIN_API void MdkStandin_SetHungDeleteBlocks(int blocks);
// 1: every renderVideo call blocks (a decoder stuck in the library) until set back to 0.
MDK_STANDIN_API void MdkStandin_SetRenderHang(int hang);
// renderVideo calls blocked by MdkStandin_SetRenderHang right now.
MDK_STANDIN_API int MdkStandin_RendersWaiting();
// Runs, late, the callbacks of destroyed players that were still outstanding when they were
// deleted: held seek completions (with their position) and an error event to every event
// listener. Returns once they have run.
MDK_STANDIN_API void MdkStandin_FireCallbacksOfDeletedPlayers();
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
