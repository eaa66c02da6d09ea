#include "live_output/video/mdk/mdk_player.h"

#include <d3d11.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <thread>

namespace mdk {

namespace {

// Every callback handed to the library, by an id that is never reused. The library gets the id as
// its opaque value; a call finds the callback here or, once its player is gone, nothing. So a seek
// completion or an event that arrives after the player was destroyed touches no freed memory.
struct CallbackRegistry {
  std::mutex mutex;
  std::map<std::uintptr_t, std::shared_ptr<void>> live;
  std::uintptr_t next = 1;
};

CallbackRegistry& Registry() {
  static CallbackRegistry* registry = new CallbackRegistry();  // outlives late callbacks at exit
  return *registry;
}

void* Register(std::shared_ptr<void> callback, std::vector<std::uintptr_t>* ids) {
  CallbackRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  const std::uintptr_t id = registry.next++;
  registry.live.emplace(id, std::move(callback));
  ids->push_back(id);
  return reinterpret_cast<void*>(id);
}

// The callback behind an opaque value; null once its player is gone. `once` also unregisters it.
template <typename T>
std::shared_ptr<T> Find(void* opaque, bool once = false) {
  CallbackRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  const auto it = registry.live.find(reinterpret_cast<std::uintptr_t>(opaque));
  if (it == registry.live.end()) return nullptr;
  std::shared_ptr<T> found = std::static_pointer_cast<T>(it->second);
  if (once) registry.live.erase(it);
  return found;
}

void Unregister(const std::vector<std::uintptr_t>& ids) {
  CallbackRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mutex);
  for (std::uintptr_t id : ids) registry.live.erase(id);
}

}  // namespace

std::unique_ptr<Player> Player::Create(std::shared_ptr<Library> library) {
  if (!library || !library->available()) return nullptr;
  const mdkPlayerAPI* api = library->NewPlayer();
  if (api == nullptr) return nullptr;
  return std::unique_ptr<Player>(new Player(std::move(library), api));
}

Player::Player(std::shared_ptr<Library> library, const mdkPlayerAPI* api)
    : library_(std::move(library)), api_(api) {}

Player::~Player() {
  library_->DeletePlayer(&api_);
  // Whatever the library still calls from now on finds nothing.
  Unregister(callback_ids_);
}

template <typename T>
void* Player::Keep(T value) {
  return Register(std::make_shared<T>(std::move(value)), &callback_ids_);
}

void Player::SetVolume(float value) { api_->setVolume(api_->object, value); }

void Player::SetMedia(const char* url) { api_->setMedia(api_->object, url); }

void Player::SetNextMedia(const char* url, std::int64_t start_position, MDK_SeekFlag flags) {
  api_->setNextMedia(api_->object, url, start_position, flags);
}

void Player::SetLoop(int count) { api_->setLoop(api_->object, count); }

void Player::SetDecoders(MDK_MediaType type, const std::vector<std::string>& names) {
  if (api_->setDecoders == nullptr) return;
  std::vector<const char*> list;
  list.reserve(names.size() + 1);
  for (const std::string& name : names) list.push_back(name.c_str());
  list.push_back(nullptr);
  api_->setDecoders(api_->object, type, list.data());
}

void Player::SetRenderApiD3D11(ID3D11DeviceContext* context, ID3D11RenderTargetView* target) {
  if (api_->setRenderAPI == nullptr) return;
  mdkD3D11RenderAPI record{};
  record.type = kMdkD3D11RenderApiTypeWord;
  record.context = context;
  record.rtv = target;
  record.buffers = 2;
  api_->setRenderAPI(api_->object, reinterpret_cast<const mdkRenderAPI*>(&record), nullptr);
}

void Player::SetVideoSurfaceSize(int width, int height) {
  api_->setVideoSurfaceSize(api_->object, width, height, nullptr);
}

void Player::SetAspectRatio(float value) { api_->setAspectRatio(api_->object, value, nullptr); }

double Player::RenderVideo() { return api_->renderVideo(api_->object, nullptr); }

void Player::SetRenderCallback(RenderCallback callback) {
  mdkRenderCallback record{};
  if (callback) {
    record.opaque = Keep(std::move(callback));
    record.cb = [](void* vo_opaque, void* opaque) {
      if (auto callback = Find<RenderCallback>(opaque)) (*callback)(vo_opaque);
    };
  }
  api_->setRenderCallback(api_->object, record);
}

void Player::OnStateChanged(StateCallback callback) {
  mdkStateChangedCallback record{};
  if (callback) {
    record.opaque = Keep(std::move(callback));
    record.cb = [](MDK_State state, void* opaque) {
      if (auto callback = Find<StateCallback>(opaque)) (*callback)(static_cast<State>(state));
    };
  }
  api_->onStateChanged(api_->object, record);
}

void Player::OnMediaStatusChanged(MediaStatusCallback callback) {
  mdkMediaStatusChangedCallback record{};
  if (callback) {
    record.opaque = Keep(std::move(callback));
    record.cb = [](MDK_MediaStatus status, void* opaque) {
      auto callback = Find<MediaStatusCallback>(opaque);
      return callback ? (*callback)(static_cast<std::int32_t>(status)) : true;
    };
  }
  api_->onMediaStatusChanged(api_->object, record);
}

void Player::OnEvent(EventCallback callback) {
  mdkMediaEventCallback record{};
  if (callback) {
    record.opaque = Keep(std::move(callback));
    record.cb = [](const mdkMediaEvent* event, void* opaque) {
      auto callback = Find<EventCallback>(opaque);
      if (!callback) return false;
      MediaEvent copy;
      copy.error = event->error;
      copy.category = event->category != nullptr ? event->category : "";
      copy.detail = event->detail != nullptr ? event->detail : "";
      return (*callback)(copy);
    };
    // One listener per player: a new one replaces the previous.
    if (event_registered_) api_->onEvent(api_->object, mdkMediaEventCallback{}, &event_token_);
    api_->onEvent(api_->object, record, &event_token_);
    event_registered_ = true;
  } else if (event_registered_) {
    api_->onEvent(api_->object, record, &event_token_);
    event_registered_ = false;
  }
}

void Player::OnCurrentMediaChanged(CurrentMediaChangedCallback callback) {
  mdkCurrentMediaChangedCallback record{};
  if (callback) {
    record.opaque = Keep(std::move(callback));
    record.cb = [](void* opaque) {
      if (auto callback = Find<CurrentMediaChangedCallback>(opaque)) (*callback)();
    };
  }
  api_->currentMediaChanged(api_->object, record);
}

std::int64_t Player::MediaDurationMs() {
  const mdkMediaInfo* info = api_->mediaInfo(api_->object);
  return info != nullptr ? info->duration : 0;
}

void Player::Set(State state) { api_->setState(api_->object, static_cast<MDK_State>(state)); }

State Player::GetState() { return static_cast<State>(api_->state(api_->object)); }

bool Player::WaitFor(State state, long timeout_ms) {
  return api_->waitFor(api_->object, static_cast<MDK_State>(state), timeout_ms);
}

std::int64_t Player::Position() { return api_->position(api_->object); }

bool Player::Seek(std::int64_t position_ms, MDK_SeekFlag flags, SeekCallback callback) {
  mdkSeekCallback record{&Player::SeekTrampoline, Keep(std::move(callback))};
  return api_->seekWithFlags(api_->object, position_ms, flags, record);
}

void Player::SeekTrampoline(std::int64_t ms, void* opaque) {
  // One-shot: found (and forgotten) once, or not at all when the player is gone.
  if (auto callback = Find<SeekCallback>(opaque, true)) {
    if (*callback) (*callback)(ms);
  }
}

// ---------------------------------------------------------------------------------------------
// Reaper

namespace {

struct Reaper {
  std::mutex mutex;
  std::condition_variable parked_changed;
  std::vector<std::unique_ptr<Player>> parked;
  bool started = false;
};

Reaper& TheReaper() {
  static Reaper* reaper = new Reaper();  // its thread may still run at exit
  return *reaper;
}

void ReapForever() {
  Reaper& reaper = TheReaper();
  for (;;) {
    std::vector<std::unique_ptr<Player>> stopped;
    {
      std::unique_lock<std::mutex> lock(reaper.mutex);
      reaper.parked_changed.wait_for(lock, std::chrono::milliseconds(200));
      for (auto it = reaper.parked.begin(); it != reaper.parked.end();) {
        if ((*it)->GetState() == State::kStopped) {
          stopped.push_back(std::move(*it));
          it = reaper.parked.erase(it);
        } else {
          ++it;
        }
      }
    }
    for (auto& player : stopped) {
      player->SetVideoSurfaceSize(-1, -1);
    }
    stopped.clear();  // may block while the library winds the player down
  }
}

}  // namespace

void PlayerReaper::Park(std::unique_ptr<Player> player) {
  if (!player) return;
  Reaper& reaper = TheReaper();
  std::lock_guard<std::mutex> lock(reaper.mutex);
  reaper.parked.push_back(std::move(player));
  if (!reaper.started) {
    reaper.started = true;
    std::thread(&ReapForever).detach();
  }
  reaper.parked_changed.notify_all();
}

std::size_t PlayerReaper::ParkedCount() {
  Reaper& reaper = TheReaper();
  std::lock_guard<std::mutex> lock(reaper.mutex);
  return reaper.parked.size();
}

}  // namespace mdk
