// The stand-in media library's player: its state, the thread that loads, delivers frames and
// completes seeks, and the process-wide settings and records the scripting interface works on.
// Everything is guarded by g_mutex; callbacks into the program are always made without it.

#ifndef KESTRUN_TESTING_MDK_STANDIN_PLAYER_H_
#define KESTRUN_TESTING_MDK_STANDIN_PLAYER_H_

#include <d3d11.h>
#include <windows.h>
#include <wrl/client.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foreign_interfaces/mdk/mdk_c_api.h"
#include "testing/mdk/mdk_standin.h"

namespace mdk_standin {

using Microsoft::WRL::ComPtr;
using SteadyClock = std::chrono::steady_clock;

enum class SeekMode { kImmediate, kLate, kSkip, kNever };

constexpr std::int64_t kFrameMediaMs = 40;

struct Settings {
  int frame_ms = 40;
  long long duration_ms = 10000;
  SeekMode seek_mode = SeekMode::kImmediate;
  int late_seek_ms = 300;
  int stop_hang_ms = 0;
  bool hung_delete_blocks = true;
  bool render_hang = false;
};

inline SeekMode ParseSeekMode(const std::string& text) {
  if (text == "late") return SeekMode::kLate;
  if (text == "skip") return SeekMode::kSkip;
  if (text == "never") return SeekMode::kNever;
  return SeekMode::kImmediate;
}

inline long long EnvNumber(const char* name, long long fallback) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? std::atoll(value) : fallback;
}

inline Settings SettingsFromEnvironment() {
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

inline std::mutex g_mutex;
inline std::condition_variable g_changed;
inline Settings g_settings = SettingsFromEnvironment();
inline std::deque<SeekMode> g_scripted_seeks;
inline std::vector<std::shared_ptr<Record>> g_records;
inline std::vector<StandinPlayer*> g_players;
inline int g_next_id = 1;
// Callbacks of deleted players that were still outstanding (MdkStandin_FireCallbacksOfDeletedPlayers).
inline std::vector<LateSeek> g_orphan_seeks;
inline std::vector<mdkMediaEventCallback> g_orphan_events;

inline void CopyText(char* out, std::size_t size, const std::string& text) {
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
  // Every listener ever registered: a late event may still reach a removed one.
  std::vector<mdkMediaEventCallback> all_event_cbs;
  mdkCurrentMediaChangedCallback media_changed_cb{};

  std::vector<LateSeek> late_seeks;
  bool frame_delivered = false;
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
        EventLocked(-2, "reader", "No such file or directory: " + media, &calls);
        SetStatusLocked(MDK_MediaStatus_Invalid, &calls);
      } else {
        info.duration = g_settings.duration_ms;
        SetStatusLocked(MDK_MediaStatus_Loaded | MDK_MediaStatus_Prepared, &calls);
        EventLocked(0, "decoder.audio", "FFmpeg", &calls);
        EventLocked(0, "decoder.video", decoders.empty() ? "FFmpeg" : decoders.front(), &calls);
      }
    }
    for (auto& call : calls) call();
  }

  // One frame of media time; caller holds g_mutex.
  void FrameLocked(std::vector<std::function<void()>>* calls) {
    // A player wedged in its stop delivers nothing more.
    if (state != MDK_State_Playing || (status & MDK_MediaStatus_Loaded) == 0 || stop_pending) return;
    position += kFrameMediaMs;
    frame_delivered = true;
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

inline void RunCalls(std::vector<std::function<void()>>& calls) {
  for (auto& call : calls) call();
}

}  // namespace mdk_standin

#endif  // KESTRUN_TESTING_MDK_STANDIN_PLAYER_H_
