// One media player of the library, with the operations the video decoder needs, over the
// library's C function table. Callbacks are std::functions registered process-wide under ids that
// are never reused; the library gets the id, not an address. Each registration stays until the
// player is destroyed (one-shot seek callbacks until they have run), so that a callback the
// library runs while it is being replaced still finds its target, and one that arrives after the
// player was destroyed finds nothing and touches no freed memory.
//
// Callbacks run on the library's threads.

#ifndef KESTRUN_LIVE_OUTPUT_VIDEO_MDK_MDK_PLAYER_H_
#define KESTRUN_LIVE_OUTPUT_VIDEO_MDK_MDK_PLAYER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "foreign_interfaces/mdk/mdk_c_api.h"
#include "live_output/video/mdk/mdk_library.h"

struct ID3D11DeviceContext;
struct ID3D11RenderTargetView;

namespace mdk {

enum class State : std::int32_t { kStopped = 0, kPlaying = 1, kPaused = 2 };

// The event as the library described it, copied out of its temporary record.
struct MediaEvent {
  std::int64_t error = 0;
  std::string category;
  std::string detail;
};

class Player {
 public:
  using RenderCallback = std::function<void(void* vo_opaque)>;
  using StateCallback = std::function<void(State)>;
  using MediaStatusCallback = std::function<bool(std::int32_t status)>;
  using EventCallback = std::function<bool(const MediaEvent&)>;
  using CurrentMediaChangedCallback = std::function<void()>;
  using SeekCallback = std::function<void(std::int64_t result)>;

  // A player of the given library, or null when the library is unavailable or creates none.
  static std::unique_ptr<Player> Create(std::shared_ptr<Library> library);

  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;
  // Destroys the library's player (which stops every callback) and then frees the callbacks.
  ~Player();

  void SetVolume(float value);
  void SetMedia(const char* url);
  // A null url with position -1 drops a queued next media.
  void SetNextMedia(const char* url, std::int64_t start_position, MDK_SeekFlag flags);
  void SetLoop(int count);
  void SetDecoders(MDK_MediaType type, const std::vector<std::string>& names);
  // Render into the given target with the given context; no renderer key (null vo_opaque).
  void SetRenderApiD3D11(ID3D11DeviceContext* context, ID3D11RenderTargetView* target);
  void SetVideoSurfaceSize(int width, int height);
  void SetAspectRatio(float value);
  // Draws the current frame into the render target; the frame's time, < 0 when none was drawn.
  double RenderVideo();

  // An empty function removes the callback.
  void SetRenderCallback(RenderCallback callback);
  void OnStateChanged(StateCallback callback);
  void OnMediaStatusChanged(MediaStatusCallback callback);
  void OnEvent(EventCallback callback);
  void OnCurrentMediaChanged(CurrentMediaChangedCallback callback);

  // Duration of the loaded media in ms; 0 when unknown.
  std::int64_t MediaDurationMs();
  void Set(State state);
  State GetState();
  bool WaitFor(State state, long timeout_ms);
  std::int64_t Position();
  bool Seek(std::int64_t position_ms, MDK_SeekFlag flags, SeekCallback callback);

 private:
  Player(std::shared_ptr<Library> library, const mdkPlayerAPI* api);
  static void SeekTrampoline(std::int64_t ms, void* opaque);

  // Registers a callback for the player's lifetime; answers the opaque value for the library.
  template <typename T>
  void* Keep(T value);

  std::shared_ptr<Library> library_;
  const mdkPlayerAPI* api_;
  std::vector<std::uintptr_t> callback_ids_;
  mdkMediaEventToken event_token_ = 0;
  bool event_registered_ = false;
};

// Destroys players that would not stop, on a thread of its own, once they report Stopped: the
// library may block in their destruction until then, and no caller (least of all the interface's
// thread) may wait for that. A player that never stops is kept until the process ends.
class PlayerReaper {
 public:
  static void Park(std::unique_ptr<Player> player);
  static std::size_t ParkedCount();
};

}  // namespace mdk

#endif  // KESTRUN_LIVE_OUTPUT_VIDEO_MDK_MDK_PLAYER_H_
