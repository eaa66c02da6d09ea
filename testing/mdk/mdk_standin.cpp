// Stand-in for the media library: the library's C function table over the player of
// standin_player.h, and the scripting interface of mdk_standin.h.

#include "testing/mdk/mdk_standin.h"

#include <atomic>
#include <cstdint>

#include "testing/mdk/standin_player.h"

namespace {

using namespace mdk_standin;  // NOLINT: the stand-in's own types throughout this file

StandinPlayer* Self(mdkPlayer* object) { return reinterpret_cast<StandinPlayer*>(object); }

// Set by MdkStandin_FaultNextRender; the address the faulting render writes to (never mapped).
std::atomic<bool> g_fault_next_render{false};
std::atomic<std::uintptr_t> g_fault_address{0};
int g_renders_waiting = 0;  // guarded by g_mutex

// Draws the frame at the player's position into its render target with its context.
double RenderVideo(mdkPlayer* object, void*) {
  if (g_fault_next_render.exchange(false)) {
    // A crash inside the library's drawing, before it holds any lock of its own.
    *reinterpret_cast<volatile int*>(g_fault_address.load()) = 1;
  }
  ComPtr<ID3D11DeviceContext> context;
  ComPtr<ID3D11DeviceChild> target;
  std::int64_t position;
  StandinPlayer* self = Self(object);
  {
    std::unique_lock<std::mutex> lock(g_mutex);
    if (g_settings.render_hang) {
      ++g_renders_waiting;
      g_changed.wait(lock, [] { return !g_settings.render_hang; });
      --g_renders_waiting;
    }
    // Nothing is drawn before the first frame.
    if ((self->status & MDK_MediaStatus_Loaded) == 0 || !self->frame_delivered) return -1.0;
    context = self->context;
    target = self->target;
    position = self->position;
  }
  if (!target) return -1.0;
  ComPtr<ID3D11Resource> resource;
  ComPtr<ID3D11RenderTargetView> view;
  if (SUCCEEDED(target.As(&view))) {
    view->GetResource(&resource);
  } else {
    target.As(&resource);
  }
  ComPtr<ID3D11Texture2D> texture;
  if (!resource || FAILED(resource.As(&texture))) return -1.0;
  if (!context) {
    ComPtr<ID3D11Device> device;
    texture->GetDevice(&device);
    device->GetImmediateContext(&context);
  }
  D3D11_TEXTURE2D_DESC desc;
  texture->GetDesc(&desc);
  const std::uint32_t rgb = StandinFrameColor(position);
  const std::uint32_t left = 0xFF000000u | rgb;  // BGRA in memory is 0xAARRGGBB little-endian
  const std::uint32_t right = 0xFF000000u | (~rgb & 0xFFFFFFu);
  std::vector<std::uint32_t>& pixels = self->pixels;  // used on the render thread only
  pixels.resize(static_cast<std::size_t>(desc.Width) * desc.Height);
  for (UINT y = 0; y < desc.Height; ++y) {
    std::uint32_t* row = pixels.data() + static_cast<std::size_t>(y) * desc.Width;
    std::fill(row, row + desc.Width / 2, left);
    std::fill(row + desc.Width / 2, row + desc.Width, right);
  }
  context->UpdateSubresource(texture.Get(), 0, nullptr, pixels.data(), desc.Width * 4, 0);
  return static_cast<double>(position) / 1000.0;
}

void SetVolume(mdkPlayer* object, float value) {
  std::lock_guard<std::mutex> lock(g_mutex);
  Self(object)->record->info.volume = value;
  Self(object)->record->volumes.push_back(value);
}

void SetMute(mdkPlayer*, bool) {}

void SetMedia(mdkPlayer* object, const char* url) {
  StandinPlayer* self = Self(object);
  std::vector<std::function<void()>> calls;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    self->url = url != nullptr ? url : "";
    self->position = 0;
    self->frame_delivered = false;
    self->status = MDK_MediaStatus_NoMedia;
    self->Sync();
    if (self->media_changed_cb.opaque != nullptr) {
      auto cb = self->media_changed_cb;
      calls.push_back([cb] { cb.cb(cb.opaque); });
    }
    const std::string media = self->url;
    if (!media.empty()) self->Post([self, media] { self->Load(media); });
  }
  RunCalls(calls);
}

const char* Url(mdkPlayer* object) { return Self(object)->url.c_str(); }

void SetNextMedia(mdkPlayer* object, const char* url, std::int64_t position, MDK_SeekFlag flags) {
  std::lock_guard<std::mutex> lock(g_mutex);
  StandinPlayer* self = Self(object);
  self->next_url = url != nullptr ? url : "";
  self->next_position = position;
  self->record->info.next_flags = flags;
  self->Sync();
}

void CurrentMediaChanged(mdkPlayer* object, mdkCurrentMediaChangedCallback cb) {
  std::lock_guard<std::mutex> lock(g_mutex);
  Self(object)->media_changed_cb = cb.opaque != nullptr ? cb : mdkCurrentMediaChangedCallback{};
}

const mdkMediaInfo* MediaInfo(mdkPlayer* object) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return &Self(object)->info;
}

void SetState(mdkPlayer* object, MDK_State value) {
  StandinPlayer* self = Self(object);
  std::vector<std::function<void()>> calls;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (value == MDK_State_Stopped) {
      ++self->record->info.stop_requests;
      if (g_settings.stop_hang_ms != 0 && self->state != MDK_State_Stopped) {
        self->stop_pending = true;
        self->stop_due = g_settings.stop_hang_ms > 0
                             ? SteadyClock::now() + std::chrono::milliseconds(g_settings.stop_hang_ms)
                             : SteadyClock::time_point::max();
        g_changed.notify_all();
        return;
      }
      self->position = 0;
    }
    self->SetStateLocked(value, &calls);
    // State callbacks come from the player's thread.
    auto moved = std::make_shared<std::vector<std::function<void()>>>(std::move(calls));
    if (!moved->empty()) self->Post([moved] { RunCalls(*moved); });
  }
}

MDK_State GetState(mdkPlayer* object) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return Self(object)->state;
}

void OnStateChanged(mdkPlayer* object, mdkStateChangedCallback cb) {
  std::lock_guard<std::mutex> lock(g_mutex);
  Self(object)->state_cb = cb.opaque != nullptr ? cb : mdkStateChangedCallback{};
}

bool WaitFor(mdkPlayer* object, MDK_State value, long timeout_ms) {
  std::unique_lock<std::mutex> lock(g_mutex);
  StandinPlayer* self = Self(object);
  self->record->info.stops_pending_at_wait = static_cast<int>(
      std::count_if(g_players.begin(), g_players.end(),
                    [](StandinPlayer* p) { return p->stop_pending; }));
  auto reached = [self, value] { return self->state == value; };
  if (timeout_ms < 0) {
    g_changed.wait(lock, reached);
    return true;
  }
  return g_changed.wait_for(lock, std::chrono::milliseconds(timeout_ms), reached);
}

MDK_MediaStatus MediaStatus(mdkPlayer* object) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return static_cast<MDK_MediaStatus>(Self(object)->status);
}

void OnMediaStatusChanged(mdkPlayer* object, mdkMediaStatusChangedCallback cb) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (cb.opaque == nullptr) {
    Self(object)->status_cbs.clear();
  } else {
    Self(object)->status_cbs.push_back(cb);
  }
}

// The real library asks for a redraw whenever the picture's geometry changes.
void NotifyRender(StandinPlayer* self) {
  mdkRenderCallback cb;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    cb = self->render_cb;
  }
  if (cb.opaque != nullptr) cb.cb(nullptr, cb.opaque);
}

void SetVideoSurfaceSize(mdkPlayer* object, int width, int height, void*) {
  struct Notify {
    StandinPlayer* self;
    bool on;
    ~Notify() {
      if (on) NotifyRender(self);
    }
  } notify{Self(object), width > 0 && height > 0};
  std::lock_guard<std::mutex> lock(g_mutex);
  StandinPlayer* self = Self(object);
  self->record->info.surface_width = width;
  self->record->info.surface_height = height;
  if (width < 0 || height < 0) {  // the renderer and its resources go
    self->context.Reset();
    self->target.Reset();
    self->record->info.render_context = nullptr;
    self->record->info.render_target = nullptr;
  }
}

void SetAspectRatio(mdkPlayer* object, float value, void*) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    ++Self(object)->record->info.aspect_ratio_calls;
    Self(object)->record->info.aspect_ratio = value;
  }
  NotifyRender(Self(object));
}

void SetRenderCallback(mdkPlayer* object, mdkRenderCallback cb) {
  std::lock_guard<std::mutex> lock(g_mutex);
  Self(object)->render_cb = cb.opaque != nullptr ? cb : mdkRenderCallback{};
}

std::int64_t Position(mdkPlayer* object) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return Self(object)->position;
}

bool SeekWithFlags(mdkPlayer* object, std::int64_t position, MDK_SeekFlag, mdkSeekCallback cb) {
  std::lock_guard<std::mutex> lock(g_mutex);
  StandinPlayer* self = Self(object);
  SeekMode mode = g_settings.seek_mode;
  if (!g_scripted_seeks.empty()) {
    mode = g_scripted_seeks.front();
    g_scripted_seeks.pop_front();
  }
  const bool has_callback = cb.opaque != nullptr;
  switch (mode) {
    case SeekMode::kImmediate:
      self->Post([self, position, cb, has_callback] {
        {
          std::lock_guard<std::mutex> inner(g_mutex);
          self->position = position;
          self->Sync();
        }
        if (has_callback) cb.cb(position, cb.opaque);
      });
      break;
    case SeekMode::kLate:
      if (has_callback) {
        const auto due = g_settings.late_seek_ms > 0
                             ? SteadyClock::now() + std::chrono::milliseconds(g_settings.late_seek_ms)
                             : SteadyClock::time_point::max();
        self->late_seeks.push_back(LateSeek{position, cb, due});
        g_changed.notify_all();
      }
      break;
    case SeekMode::kSkip:
      if (has_callback) self->Post([cb] { cb.cb(kMdkSeekSkipped, cb.opaque); });
      break;
    case SeekMode::kNever:
      break;
  }
  return true;
}

bool Seek(mdkPlayer* object, std::int64_t position, mdkSeekCallback cb) {
  return SeekWithFlags(object, position, MDK_SeekFlag_Default, cb);
}

void OnEvent(mdkPlayer* object, mdkMediaEventCallback cb, mdkMediaEventToken* token) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto& list = Self(object)->event_cbs;
  if (cb.opaque != nullptr) {
    const mdkMediaEventToken id = Self(object)->next_token++;
    list.emplace_back(id, cb);
    Self(object)->all_event_cbs.push_back(cb);
    if (token != nullptr) *token = id;
  } else if (token == nullptr) {
    list.clear();
  } else {
    const mdkMediaEventToken id = *token;
    list.erase(std::remove_if(list.begin(), list.end(),
                              [id](const auto& entry) { return entry.first == id; }),
               list.end());
  }
}

void SetLoop(mdkPlayer* object, int count) {
  std::lock_guard<std::mutex> lock(g_mutex);
  Self(object)->record->info.loop_setting = count;
}

void SetRenderAPI(mdkPlayer* object, const mdkRenderAPI* api, void*) {
  if (api == nullptr) return;
  const auto* d3d11 = reinterpret_cast<const mdkD3D11RenderAPI*>(api);
  std::lock_guard<std::mutex> lock(g_mutex);
  StandinPlayer* self = Self(object);
  self->record->info.render_api_type = d3d11->type;
  if ((d3d11->type & 0xFFFFu) != MDK_RenderAPI_D3D11) return;
  self->context = d3d11->context;
  self->target = d3d11->rtv;
  self->record->info.render_context = d3d11->context;
  self->record->info.render_target = d3d11->rtv;
}

void SetDecoders(mdkPlayer* object, MDK_MediaType type, const char** names) {
  if (names == nullptr || type != MDK_MediaType_Video) return;
  std::lock_guard<std::mutex> lock(g_mutex);
  StandinPlayer* self = Self(object);
  self->decoders.clear();
  std::string joined;
  for (; *names != nullptr; ++names) {
    self->decoders.emplace_back(*names);
    joined += (joined.empty() ? "" : ",") + std::string(*names);
  }
  CopyText(self->record->info.decoders, sizeof(self->record->info.decoders), joined);
}

std::vector<StandinPlayer*> PlayersLocked() { return g_players; }

void WaitIdleLocked(std::unique_lock<std::mutex>& lock) {
  g_changed.wait_for(lock, std::chrono::seconds(10), [] {
    return std::all_of(g_players.begin(), g_players.end(), [](StandinPlayer* p) { return p->Idle(); });
  });
}

std::shared_ptr<Record> RecordAt(int newest_index) {
  if (newest_index < 0 || newest_index >= static_cast<int>(g_records.size())) return nullptr;
  return g_records[g_records.size() - 1 - static_cast<std::size_t>(newest_index)];
}

}  // namespace

extern "C" __declspec(dllexport) const mdkPlayerAPI* mdkPlayerAPI_new() {
  auto* self = new StandinPlayer();
  mdkPlayerAPI& api = self->api;
  api.object = reinterpret_cast<mdkPlayer*>(self);
  api.setMute = &SetMute;
  api.setVolume = &SetVolume;
  api.setMedia = &SetMedia;
  api.url = &Url;
  api.setNextMedia = &SetNextMedia;
  api.currentMediaChanged = &CurrentMediaChanged;
  api.mediaInfo = &MediaInfo;
  api.setState = &SetState;
  api.state = &GetState;
  api.onStateChanged = &OnStateChanged;
  api.waitFor = &WaitFor;
  api.mediaStatus = &MediaStatus;
  api.onMediaStatusChanged = &OnMediaStatusChanged;
  api.setVideoSurfaceSize = &SetVideoSurfaceSize;
  api.setAspectRatio = &SetAspectRatio;
  api.renderVideo = &RenderVideo;
  api.setRenderCallback = &SetRenderCallback;
  api.position = &Position;
  api.seekWithFlags = &SeekWithFlags;
  api.seek = &Seek;
  api.onEvent = &OnEvent;
  api.setLoop = &SetLoop;
  api.setRenderAPI = &SetRenderAPI;
  api.setDecoders = &SetDecoders;
  api.size = static_cast<int>(sizeof(mdkPlayerAPI));
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    self->record->info.id = g_next_id++;
    self->record->info.loop_setting = -1;
    g_records.push_back(self->record);
    g_players.push_back(self);
  }
  self->thread = std::thread([self] { self->Run(); });
  return &self->api;
}

extern "C" __declspec(dllexport) void mdkPlayerAPI_delete(const mdkPlayerAPI** pp) {
  if (pp == nullptr || *pp == nullptr) return;
  StandinPlayer* self = Self((*pp)->object);
  {
    std::unique_lock<std::mutex> lock(g_mutex);
    // The library's teardown waits for a player that is still stopping.
    g_changed.wait(lock, [self] { return !self->stop_pending || !g_settings.hung_delete_blocks; });
    for (const LateSeek& seek : self->late_seeks) g_orphan_seeks.push_back(seek);
    for (const auto& cb : self->all_event_cbs) g_orphan_events.push_back(cb);
    self->quit = true;
    self->render_cb = {};
    self->state_cb = {};
    self->status_cbs.clear();
    self->event_cbs.clear();
    self->media_changed_cb = {};
    g_changed.notify_all();
  }
  self->thread.join();
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    self->record->info.destroyed = 1;
    g_players.erase(std::remove(g_players.begin(), g_players.end(), self), g_players.end());
    g_changed.notify_all();
  }
  delete self;
  *pp = nullptr;
}

extern "C" __declspec(dllexport) int MDK_version() { return (0 << 16) | (37 << 8) | 0; }

MDK_STANDIN_API void MdkStandin_Reset() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_settings = SettingsFromEnvironment();
  g_scripted_seeks.clear();
  g_orphan_seeks.clear();
  g_orphan_events.clear();
  g_records.erase(std::remove_if(g_records.begin(), g_records.end(),
                                 [](const auto& r) { return r->info.destroyed != 0; }),
                  g_records.end());
}

MDK_STANDIN_API void MdkStandin_SetFrameIntervalMs(int milliseconds) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_settings.frame_ms = milliseconds;
  g_changed.notify_all();
}

MDK_STANDIN_API void MdkStandin_SetDurationMs(long long milliseconds) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_settings.duration_ms = milliseconds;
}

MDK_STANDIN_API void MdkStandin_ScriptSeeks(const char* modes) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_scripted_seeks.clear();
  std::string text = modes != nullptr ? modes : "";
  std::size_t start = 0;
  while (start <= text.size() && !text.empty()) {
    const std::size_t comma = std::min(text.find(',', start), text.size());
    g_scripted_seeks.push_back(ParseSeekMode(text.substr(start, comma - start)));
    start = comma + 1;
  }
}

MDK_STANDIN_API void MdkStandin_FaultNextRender() { g_fault_next_render.store(true); }

MDK_STANDIN_API void MdkStandin_SetStopHangMs(int milliseconds) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_settings.stop_hang_ms = milliseconds;
}

MDK_STANDIN_API void MdkStandin_AdvanceFrames(int count) {
  for (int n = 0; n < count; ++n) {
    std::unique_lock<std::mutex> lock(g_mutex);
    for (StandinPlayer* self : PlayersLocked()) {
      self->Post([self] {
        std::vector<std::function<void()>> calls;
        {
          std::lock_guard<std::mutex> inner(g_mutex);
          self->FrameLocked(&calls);
        }
        RunCalls(calls);
      });
    }
    WaitIdleLocked(lock);
  }
}

MDK_STANDIN_API void MdkStandin_CompleteLateSeeks() {
  std::unique_lock<std::mutex> lock(g_mutex);
  for (StandinPlayer* self : PlayersLocked()) {
    for (auto& seek : self->late_seeks) seek.due = SteadyClock::time_point::min();
  }
  g_changed.notify_all();
  g_changed.wait_for(lock, std::chrono::seconds(10), [] {
    return std::all_of(g_players.begin(), g_players.end(),
                       [](StandinPlayer* p) { return p->late_seeks.empty() && p->Idle(); });
  });
}

MDK_STANDIN_API void MdkStandin_ReleaseHungStops() {
  std::unique_lock<std::mutex> lock(g_mutex);
  for (StandinPlayer* self : PlayersLocked()) {
    if (self->stop_pending) self->stop_due = SteadyClock::time_point::min();
  }
  g_changed.notify_all();
  g_changed.wait_for(lock, std::chrono::seconds(10), [] {
    return std::all_of(g_players.begin(), g_players.end(),
                       [](StandinPlayer* p) { return !p->stop_pending && p->Idle(); });
  });
}

MDK_STANDIN_API void MdkStandin_Settle() {
  std::unique_lock<std::mutex> lock(g_mutex);
  WaitIdleLocked(lock);
}

MDK_STANDIN_API int MdkStandin_LivePlayers() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return static_cast<int>(g_players.size());
}

MDK_STANDIN_API bool MdkStandin_PlayerInfo(int newest_index, MdkStandinPlayerInfo* info) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto record = RecordAt(newest_index);
  if (!record || info == nullptr) return false;
  *info = record->info;
  return true;
}

MDK_STANDIN_API int MdkStandin_VolumeHistory(int newest_index, float* values, int capacity) {
  std::lock_guard<std::mutex> lock(g_mutex);
  auto record = RecordAt(newest_index);
  if (!record) return 0;
  const int count = static_cast<int>(record->volumes.size());
  for (int i = 0; i < count && i < capacity; ++i) values[i] = record->volumes[static_cast<std::size_t>(i)];
  return count;
}

MDK_STANDIN_API void MdkStandin_SetHungDeleteBlocks(int blocks) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_settings.hung_delete_blocks = blocks != 0;
  g_changed.notify_all();
}

MDK_STANDIN_API void MdkStandin_SetRenderHang(int hang) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_settings.render_hang = hang != 0;
  g_changed.notify_all();
}

MDK_STANDIN_API void MdkStandin_FireCallbacksOfDeletedPlayers() {
  std::vector<LateSeek> seeks;
  std::vector<mdkMediaEventCallback> events;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    seeks.swap(g_orphan_seeks);
    events.swap(g_orphan_events);
  }
  for (const LateSeek& seek : seeks) seek.callback.cb(seek.position, seek.callback.opaque);
  for (const mdkMediaEventCallback& cb : events) {
    mdkMediaEvent event{};
    event.error = -1;
    event.category = "decoder.video";
    event.detail = "late event";
    cb.cb(&event, cb.opaque);
  }
}

MDK_STANDIN_API int MdkStandin_RendersWaiting() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_renders_waiting;
}
