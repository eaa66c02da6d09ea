#include "live_output/video/mdk/mdk_player.h"

#include <d3d11.h>

#include <algorithm>

namespace mdk {

struct Player::PendingSeek {
  Player* owner;
  SeekCallback callback;
};

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
  // No callback runs any more: free the seeks that never completed.
  std::lock_guard<std::mutex> lock(seeks_mutex_);
  for (PendingSeek* seek : pending_seeks_) delete seek;
  pending_seeks_.clear();
}

template <typename T>
T* Player::Keep(T value) {
  auto kept = std::make_shared<T>(std::move(value));
  T* raw = kept.get();
  kept_callbacks_.push_back(std::move(kept));
  return raw;
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
      (*static_cast<RenderCallback*>(opaque))(vo_opaque);
    };
  }
  api_->setRenderCallback(api_->object, record);
}

void Player::OnStateChanged(StateCallback callback) {
  mdkStateChangedCallback record{};
  if (callback) {
    record.opaque = Keep(std::move(callback));
    record.cb = [](MDK_State state, void* opaque) {
      (*static_cast<StateCallback*>(opaque))(static_cast<State>(state));
    };
  }
  api_->onStateChanged(api_->object, record);
}

void Player::OnMediaStatusChanged(MediaStatusCallback callback) {
  mdkMediaStatusChangedCallback record{};
  if (callback) {
    record.opaque = Keep(std::move(callback));
    record.cb = [](MDK_MediaStatus status, void* opaque) {
      return (*static_cast<MediaStatusCallback*>(opaque))(static_cast<std::int32_t>(status));
    };
  }
  api_->onMediaStatusChanged(api_->object, record);
}

void Player::OnEvent(EventCallback callback) {
  mdkMediaEventCallback record{};
  if (callback) {
    record.opaque = Keep(std::move(callback));
    record.cb = [](const mdkMediaEvent* event, void* opaque) {
      MediaEvent copy;
      copy.error = event->error;
      copy.category = event->category != nullptr ? event->category : "";
      copy.detail = event->detail != nullptr ? event->detail : "";
      return (*static_cast<EventCallback*>(opaque))(copy);
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
    record.cb = [](void* opaque) { (*static_cast<CurrentMediaChangedCallback*>(opaque))(); };
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
  auto* pending = new PendingSeek{this, std::move(callback)};
  {
    std::lock_guard<std::mutex> lock(seeks_mutex_);
    pending_seeks_.push_back(pending);
  }
  mdkSeekCallback record{&Player::SeekTrampoline, pending};
  return api_->seekWithFlags(api_->object, position_ms, flags, record);
}

void Player::SeekTrampoline(std::int64_t ms, void* opaque) {
  auto* pending = static_cast<PendingSeek*>(opaque);
  Player* owner = pending->owner;
  {
    std::lock_guard<std::mutex> lock(owner->seeks_mutex_);
    auto it = std::find(owner->pending_seeks_.begin(), owner->pending_seeks_.end(), pending);
    if (it == owner->pending_seeks_.end()) return;  // already freed with its player
    owner->pending_seeks_.erase(it);
  }
  if (pending->callback) pending->callback(ms);
  delete pending;
}

}  // namespace mdk
