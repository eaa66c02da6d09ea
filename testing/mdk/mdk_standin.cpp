// Stand-in for the media library: a player state machine behind the library's C function table,
// with a thread per player that loads, delivers frames and completes seeks. See mdk_standin.h.

#include "testing/mdk/mdk_standin.h"

#include <d3d11.h>
#include <windows.h>
#include <wrl/client.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "live_output/video/mdk/mdk_c_api.h"

using Microsoft::WRL::ComPtr;
using SteadyClock = std::chrono::steady_clock;

namespace {

enum class SeekMode { kImmediate, kLate, kSkip, kNever };

constexpr std::int64_t kFrameMediaMs = 40;

struct Settings {
  int frame_ms = 40;
  long long duration_ms = 10000;
  SeekMode seek_mode = SeekMode::kImmediate;
  int late_seek_ms = 300;
  int stop_hang_ms = 0;
};

SeekMode ParseSeekMode(const std::string& text) {
  if (text == "late") return SeekMode::kLate;
  if (text == "skip") return SeekMode::kSkip;
  if (text == "never") return SeekMode::kNever;
  return SeekMode::kImmediate;
}

long long EnvNumber(const char* name, long long fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? std::atoll(value) : fallback;
}

Settings SettingsFromEnvironment() {
  Settings settings;
  settings.frame_ms = static_cast<int>(EnvNumber("MDK_STANDIN_FRAME_MS", settings.frame_ms));
  settings.duration_ms = EnvNumber("MDK_STANDIN_DURATION_MS", settings.duration_ms);
  settings.late_seek_ms = static_cast<int>(EnvNumber("MDK_STANDIN_LATE_SEEK_MS", settings.late_seek_ms));
  settings.stop_hang_ms = static_cast<int>(EnvNumber("MDK_STANDIN_STOP_HANG_MS", 0));
  if (const char* mode = std::getenv("MDK_STANDIN_SEEK")) settings.seek_mode = ParseSeekMode(mode);
  return settings;
}

struct Record {
  MdkStandinPlayerInfo info{};
  std::vector<float> volumes;
};

struct LateSeek {
  std::int64_t position;
  mdkSeekCallback callback;
  SteadyClock::time_point due;  // max() = held until released
};

struct StandinPlayer;

// Everything of the stand-in is guarded by one lock; callbacks are always called without it.
std::mutex g_mutex;
std::condition_variable g_changed;
Settings g_settings = SettingsFromEnvironment();
std::deque<SeekMode> g_scripted_seeks;
std::vector<std::shared_ptr<Record>> g_records;
std::vector<StandinPlayer*> g_players;
int g_next_id = 1;

void CopyText(char* out, std::size_t size, const std::string& text) {
  std::snprintf(out, size, "%s", text.c_str());
}

struct StandinPlayer {
  mdkPlayerAPI api{};
  std::shared_ptr<Record> record = std::make_shared<Record>();

  MDK_State state = MDK_State_Stopped;
  std::int32_t status = MDK_MediaStatus_NoMedia;
  std::string url;
  std::vector<std::string> decoders;
  std::int64_t position = 0;
  std::string next_url;
  std::int64_t next_position = 0;
  mdkMediaInfo info{0, 0};
  ComPtr<ID3D11DeviceContext> context;
  ComPtr<ID3D11DeviceChild> target;
  std::vector<std::uint32_t> pixels;

  mdkRenderCallback render_cb{};
  mdkStateChangedCallback state_cb{};
  std::vector<mdkMediaStatusChangedCallback> status_cbs;
  std::vector<std::pair<mdkMediaEventToken, mdkMediaEventCallback>> event_cbs;
  mdkMediaEventToken next_token = 1;
  mdkCurrentMediaChangedCallback media_changed_cb{};

  std::vector<LateSeek> late_seeks;
  bool stop_pending = false;
  SteadyClock::time_point stop_due{};
  SteadyClock::time_point next_frame{};

  // The player's thread and its work.
  std::deque<std::function<void()>> tasks;  // run without the lock
  bool busy = false;
  bool quit = false;
  std::thread thread;

  void Post(std::function<void()> task) {
    tasks.push_back(std::move(task));
    g_changed.notify_all();
  }

  bool Idle() const { return tasks.empty() && !busy; }

  void Sync() {  // caller holds g_mutex
    MdkStandinPlayerInfo& i = record->info;
    i.state = state;
    i.media_status = status;
    i.position_ms = position;
    CopyText(i.url, sizeof(i.url), url);
    CopyText(i.next_url, sizeof(i.next_url), next_url);
    i.next_position = next_position;
  }

  // Caller holds g_mutex. Calls are collected and made by the caller after unlocking.
  void SetStateLocked(MDK_State value, std::vector<std::function<void()>>* calls) {
    if (state == value) return;
    state = value;
    if (value == MDK_State_Playing) next_frame = SteadyClock::now();
    Sync();
    g_changed.notify_all();
    if (state_cb.opaque != nullptr) {
      auto cb = state_cb;
      calls->push_back([cb, value] { cb.cb(value, cb.opaque); });
    }
  }

  void SetStatusLocked(std::int32_t value, std::vector<std::function<void()>>* calls) {
    status = value;
    Sync();
    for (auto cb : status_cbs) {
      calls->push_back([cb, value] { cb.cb(static_cast<MDK_MediaStatus>(value), cb.opaque); });
    }
  }

  void EventLocked(std::int64_t error, const char* category, std::string detail,
                   std::vector<std::function<void()>>* calls) {
    for (auto& entry : event_cbs) {
      auto cb = entry.second;
      calls->push_back([cb, error, category, detail] {
        mdkMediaEvent event{};
        event.error = error;
        event.category = category;
        event.detail = detail.c_str();
        cb.cb(&event, cb.opaque);
      });
    }
  }

  void Load(const std::string& media) {
    std::vector<std::function<void()>> calls;
    {
      std::lock_guard<std::mutex> lock(g_mutex);
      if (media != url) return;  // replaced meanwhile
      SetStatusLocked(MDK_MediaStatus_Loading, &calls);
      const int wide_size = MultiByteToWideChar(CP_UTF8, 0, media.c_str(), -1, nullptr, 0);
      std::wstring wide(static_cast<std::size_t>(std::max(wide_size, 1)), L'\0');
      MultiByteToWideChar(CP_UTF8, 0, media.c_str(), -1, wide.data(), wide_size);
      if (GetFileAttributesW(wide.c_str()) == INVALID_FILE_ATTRIBUTES) {
        EventLocked(-1, "error", "cannot open " + media, &calls);
        SetStatusLocked(MDK_MediaStatus_Invalid, &calls);
      } else {
        info.duration = g_settings.duration_ms;
        SetStatusLocked(MDK_MediaStatus_Loaded | MDK_MediaStatus_Prepared, &calls);
        EventLocked(0, "decoder", decoders.empty() ? "FFmpeg" : decoders.front(), &calls);
      }
    }
    for (auto& call : calls) call();
  }

  // One frame of media time; caller holds g_mutex.
  void FrameLocked(std::vector<std::function<void()>>* calls) {
    // A player wedged in its stop delivers nothing more.
    if (state != MDK_State_Playing || (status & MDK_MediaStatus_Loaded) == 0 || stop_pending) return;
    position += kFrameMediaMs;
    if (position >= info.duration) {
      if (!next_url.empty()) {
        url = next_url;
        position = next_position;
        next_url.clear();
        if (media_changed_cb.opaque != nullptr) {
          auto cb = media_changed_cb;
          calls->push_back([cb] { cb.cb(cb.opaque); });
        }
      } else {
        position = info.duration;
        SetStatusLocked(status | MDK_MediaStatus_End, calls);
        SetStateLocked(MDK_State_Stopped, calls);
      }
    }
    Sync();
    if (render_cb.opaque != nullptr) {
      auto cb = render_cb;
      calls->push_back([cb] { cb.cb(nullptr, cb.opaque); });
    }
  }

  void CompleteSeekLocked(const LateSeek& seek, std::vector<std::function<void()>>* calls) {
    position = seek.position;
    Sync();
    auto cb = seek.callback;
    const std::int64_t result = seek.position;
    calls->push_back([cb, result] { cb.cb(result, cb.opaque); });
  }

  void Run() {
    std::unique_lock<std::mutex> lock(g_mutex);
    for (;;) {
      const auto now = SteadyClock::now();
      std::vector<std::function<void()>> calls;
      // Timed work: frames, late seeks, hung stops.
      if (g_settings.frame_ms > 0 && state == MDK_State_Playing && now >= next_frame) {
        next_frame = now + std::chrono::milliseconds(g_settings.frame_ms);
        FrameLocked(&calls);
      }
      for (auto it = late_seeks.begin(); it != late_seeks.end();) {
        if (now >= it->due) {
          CompleteSeekLocked(*it, &calls);
          it = late_seeks.erase(it);
        } else {
          ++it;
        }
      }
      if (stop_pending && now >= stop_due) {
        stop_pending = false;
        position = 0;
        SetStateLocked(MDK_State_Stopped, &calls);
      }
      if (!calls.empty() || !tasks.empty()) {
        busy = true;
        std::deque<std::function<void()>> work;
        work.swap(tasks);
        lock.unlock();
        for (auto& call : calls) call();
        for (auto& task : work) task();
        lock.lock();
        busy = false;
        g_changed.notify_all();
        continue;
      }
      if (quit) return;
      auto wake = SteadyClock::time_point::max();
      if (g_settings.frame_ms > 0 && state == MDK_State_Playing) wake = next_frame;
      for (const auto& seek : late_seeks) wake = std::min(wake, seek.due);
      if (stop_pending) wake = std::min(wake, stop_due);
      if (wake == SteadyClock::time_point::max()) {
        g_changed.wait(lock);
      } else {
        g_changed.wait_until(lock, wake);
      }
    }
  }
};

StandinPlayer* Self(mdkPlayer* object) { return reinterpret_cast<StandinPlayer*>(object); }

void RunCalls(std::vector<std::function<void()>>& calls) {
  for (auto& call : calls) call();
}

// Draws the frame at the player's position into its render target with its context.
double RenderVideo(mdkPlayer* object, void*) {
  ComPtr<ID3D11DeviceContext> context;
  ComPtr<ID3D11DeviceChild> target;
  std::int64_t position;
  StandinPlayer* self = Self(object);
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if ((self->status & MDK_MediaStatus_Loaded) == 0) return -1.0;
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

void SetVideoSurfaceSize(mdkPlayer* object, int width, int height, void*) {
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
  std::lock_guard<std::mutex> lock(g_mutex);
  ++Self(object)->record->info.aspect_ratio_calls;
  Self(object)->record->info.aspect_ratio = value;
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
    std::lock_guard<std::mutex> lock(g_mutex);
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
