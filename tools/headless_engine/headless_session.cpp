#include "headless_session.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "child_process.h"
#include "line_connection.h"
#include "text_conversion.h"
#include "winsock_library.h"

namespace kestrun_headless {
namespace {

using Clock = std::chrono::steady_clock;

// Events kept in the queue and in the history; older ones go first beyond this.
constexpr size_t kMaxKeptEvents = 100000;

DWORD WaitMilliseconds(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<DWORD>(std::clamp<long long>(left.count(), 0, 0x7FFFFFFF));
}

// Lenient readers of the engine's lines: a member that is missing or of another kind reads as
// empty, false or zero.
std::string TextOf(const Json& object, const std::string& key) {
  const Json& member = JsonMember(object, key);
  return member.is_string() ? member.get<std::string>() : std::string();
}

bool FlagOf(const Json& object, const std::string& key) {
  const Json& member = JsonMember(object, key);
  return member.is_boolean() && member.get<bool>();
}

HeadlessEvent EventFromJson(Json json) {
  HeadlessEvent event;
  event.type = TextOf(json, "event");
  event.channel = TextOf(json, "channel");
  event.method = TextOf(json, "method");
  if (event.type == "message") {
    event.value = ToEncodable(JsonMember(json, "args"));
  } else if (event.type == "stream") {
    event.value = ToEncodable(JsonMember(json, "value"));
  } else if (event.type == "streamError") {
    event.error_code = TextOf(json, "code");
    event.error_message = TextOf(json, "message");
    event.value = ToEncodable(JsonMember(json, "details"));
  }
  event.json = std::move(json);
  return event;
}

Reply ReplyFromAnswer(const std::optional<Json>& answer, const std::string& failure) {
  Reply reply;
  if (!answer) {
    reply.failure = failure;
    return reply;
  }
  reply.json = *answer;
  const std::string kind = TextOf(*answer, "reply");
  std::string error;
  if (kind == "success") {
    if (!JsonToEncodable(JsonMember(*answer, "value"), &reply.value, &error)) {
      reply.failure = "reply value: " + error;
      return reply;
    }
    reply.kind = ReplyKind::kSuccess;
  } else if (kind == "error") {
    reply.kind = ReplyKind::kError;
    reply.error_code = TextOf(*answer, "code");
    reply.error_message = TextOf(*answer, "message");
    if (!JsonToEncodable(JsonMember(*answer, "details"), &reply.error_details, &error)) {
      reply.kind = ReplyKind::kFailed;
      reply.failure = "error details: " + error;
    }
  } else if (kind == "notImplemented") {
    reply.kind = ReplyKind::kNotImplemented;
  } else if (answer->contains("error")) {
    reply.failure = TextOf(*answer, "error");
  } else {
    reply.failure = "unexpected answer " + JsonLine(*answer);
  }
  return reply;
}

bool AnswerOk(const std::optional<Json>& answer) {
  return answer && FlagOf(*answer, "ok");
}

}  // namespace

class HeadlessSession::Impl {
 public:
  ~Impl() {
    process_.Kill(1);
    if (connection_) {
      connection_->Shutdown();
    }
    if (reader_.joinable()) {
      reader_.join();
    }
  }

  bool Start(const SessionOptions& options) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (started_) {
        return Fail("a session runs one program once");
      }
      started_ = true;
    }
    if (!winsock_.ready()) {
      return Fail("Winsock could not be initialised");
    }
    SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (listener == INVALID_SOCKET) {
      return Fail("socket failed, error " + std::to_string(WSAGetLastError()));
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = 0;  // any free port
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int address_size = sizeof(address);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 4) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &address_size) != 0) {
      const int error = WSAGetLastError();
      closesocket(listener);
      return Fail("could not listen on the loopback interface, error " + std::to_string(error));
    }
    const unsigned port = ntohs(address.sin_port);
    WSAEVENT accept_event = WSACreateEvent();
    if (accept_event == WSA_INVALID_EVENT ||
        WSAEventSelect(listener, accept_event, FD_ACCEPT) != 0) {
      const int error = WSAGetLastError();
      closesocket(listener);
      if (accept_event != WSA_INVALID_EVENT) WSACloseEvent(accept_event);
      return Fail("could not watch the listening socket, error " + std::to_string(error));
    }

    ChildProcess::Environment environment = options.environment;
    environment.emplace_back(L"KESTRUN_HEADLESS_CONTROL",
                             L"127.0.0.1:" + std::to_wstring(port));
    std::string error;
    if (!process_.Start(options.program, options.arguments, options.working_directory,
                        environment, &error)) {
      closesocket(listener);
      WSACloseEvent(accept_event);
      return Fail(error);
    }

    const Clock::time_point deadline = Clock::now() + options.connect_timeout;
    SOCKET accepted = INVALID_SOCKET;
    HANDLE waits[2] = {accept_event, static_cast<HANDLE>(process_.handle())};
    bool exited = false;
    while (accepted == INVALID_SOCKET) {
      const DWORD woken = WaitForMultipleObjects(2, waits, FALSE, WaitMilliseconds(deadline));
      if (woken == WAIT_OBJECT_0) {
        WSANETWORKEVENTS events = {};
        WSAEnumNetworkEvents(listener, accept_event, &events);
        accepted = accept(listener, nullptr, nullptr);
      } else if (woken == WAIT_OBJECT_0 + 1) {
        // The program ended; it may still have connected just before.
        accepted = accept(listener, nullptr, nullptr);
        exited = accepted == INVALID_SOCKET;
        break;
      } else {
        break;
      }
    }
    closesocket(listener);
    WSACloseEvent(accept_event);
    if (accepted == INVALID_SOCKET) {
      if (exited) {
        const std::optional<uint32_t> code = process_.WaitForExit(std::chrono::milliseconds(0));
        return Fail("the program exited with code " + std::to_string(code.value_or(0)) +
                    " before the engine connected");
      }
      return Fail("the engine did not connect within " +
                  std::to_string(options.connect_timeout.count()) + " ms");
    }
    // Back to a plain socket; the connection watches it its own way.
    WSAEventSelect(accepted, nullptr, 0);
    u_long blocking = 0;
    ioctlsocket(accepted, FIONBIO, &blocking);
    connection_ = std::make_unique<LineConnection>(static_cast<uintptr_t>(accepted));
    {
      std::lock_guard<std::mutex> lock(mutex_);
      connected_ = true;
    }
    reader_ = std::thread([this] { ReadLoop(); });
    return true;
  }

  std::optional<Json> Request(Json operation, std::chrono::milliseconds timeout) {
    if (!operation.is_object() || !JsonMember(operation, "op").is_string()) {
      Fail("an operation is an object with a string \"op\"");
      return std::nullopt;
    }
    std::string key;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!connected_) {
        last_error_ = "not connected to the engine";
        return std::nullopt;
      }
      if (!operation.contains("id")) {
        Json with_id = Json::object();
        with_id["id"] = next_id_++;
        for (auto& member : operation.items()) {
          with_id[member.key()] = std::move(member.value());
        }
        operation = std::move(with_id);
      }
      key = JsonLine(operation["id"]);
      if (answers_.count(key) != 0) {
        last_error_ = "a request with id " + key + " is still waiting";
        return std::nullopt;
      }
      answers_[key] = std::nullopt;
    }
    if (!connection_->WriteLine(JsonLine(operation))) {
      std::lock_guard<std::mutex> lock(mutex_);
      answers_.erase(key);
      last_error_ = "the connection to the engine is closed";
      return std::nullopt;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    const Clock::time_point deadline = Clock::now() + timeout;
    changed_.wait_until(lock, deadline,
                        [&] { return answers_[key].has_value() || !connected_; });
    std::optional<Json> answer = std::move(answers_[key]);
    answers_.erase(key);
    if (!answer) {
      last_error_ = connected_ ? "no answer to " + TextOf(operation, "op") + " within " +
                                     std::to_string(timeout.count()) + " ms"
                               : "the connection closed before the answer to " +
                                     TextOf(operation, "op");
    }
    return answer;
  }

  std::optional<HeadlessEvent> WaitForEvent(
      const std::function<bool(const HeadlessEvent&)>& predicate,
      std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    const Clock::time_point deadline = Clock::now() + timeout;
    size_t scanned = 0;
    while (true) {
      for (; scanned < queue_.size(); ++scanned) {
        if (predicate(queue_[scanned])) {
          HeadlessEvent event = std::move(queue_[scanned]);
          queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(scanned));
          return event;
        }
      }
      if (!connected_ && reader_finished_) {
        last_error_ = "no such event came before the connection closed";
        return std::nullopt;
      }
      if (changed_.wait_until(lock, deadline) == std::cv_status::timeout) {
        // One last look at anything that came with the timeout.
        for (; scanned < queue_.size(); ++scanned) {
          if (predicate(queue_[scanned])) {
            HeadlessEvent event = std::move(queue_[scanned]);
            queue_.erase(queue_.begin() + static_cast<std::ptrdiff_t>(scanned));
            return event;
          }
        }
        last_error_ = "no such event within " + std::to_string(timeout.count()) + " ms";
        return std::nullopt;
      }
      // Events are only ever appended or taken by a waiter; rescan from the start in case
      // another waiter took one before `scanned`.
      scanned = 0;
    }
  }

  std::vector<HeadlessEvent> EventHistory() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::vector<HeadlessEvent>(history_.begin(), history_.end());
  }

  std::vector<HeadlessEvent> TakeEvents() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<HeadlessEvent> events(std::make_move_iterator(queue_.begin()),
                                      std::make_move_iterator(queue_.end()));
    queue_.clear();
    return events;
  }

  void SetEventObserver(std::function<void(const HeadlessEvent&)> observer) {
    std::lock_guard<std::mutex> lock(mutex_);
    observer_ = std::make_shared<std::function<void(const HeadlessEvent&)>>(std::move(observer));
  }

  std::string last_error() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return last_error_;
  }

  bool connected() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return connected_;
  }

  bool Fail(const std::string& reason) {
    std::lock_guard<std::mutex> lock(mutex_);
    last_error_ = reason;
    return false;
  }

  ChildProcess process_;

 private:
  void ReadLoop() {
    std::string line;
    while (connection_->ReadLine(&line)) {
      std::string error;
      std::optional<Json> json = ParseJsonLine(line, &error);
      if (!json || !json->is_object()) {
        Json invalid = Json::object();
        invalid["event"] = "invalidLine";
        invalid["line"] = line;
        invalid["error"] = json ? std::string("not an object") : error;
        AddEvent(EventFromJson(std::move(invalid)));
        continue;
      }
      if (!json->contains("event") && json->contains("id")) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto waiting = answers_.find(JsonLine((*json)["id"]));
        if (waiting != answers_.end()) {
          waiting->second = std::move(*json);
          changed_.notify_all();
        }
        continue;
      }
      AddEvent(EventFromJson(std::move(*json)));
    }
    // The engine closed its side (or the session is ending): close ours so the engine's reader
    // sees the end as well.
    connection_->Shutdown();
    HeadlessEvent event = EventFromJson(Json{{"event", "disconnected"}});
    NotifyObserver(event);
    std::lock_guard<std::mutex> lock(mutex_);
    connected_ = false;
    reader_finished_ = true;
    KeepLocked(std::move(event));
  }

  void NotifyObserver(const HeadlessEvent& event) {
    std::shared_ptr<std::function<void(const HeadlessEvent&)>> observer;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      observer = observer_;
    }
    if (observer && *observer) {
      (*observer)(event);
    }
  }

  void AddEvent(HeadlessEvent event) {
    NotifyObserver(event);
    std::lock_guard<std::mutex> lock(mutex_);
    KeepLocked(std::move(event));
  }

  // With mutex_ held.
  void KeepLocked(HeadlessEvent event) {
    history_.push_back(event);
    queue_.push_back(std::move(event));
    if (history_.size() > kMaxKeptEvents) history_.pop_front();
    if (queue_.size() > kMaxKeptEvents) queue_.pop_front();
    changed_.notify_all();
  }

  WinsockLibrary winsock_;
  std::unique_ptr<LineConnection> connection_;
  std::thread reader_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool started_ = false;
  bool connected_ = false;
  bool reader_finished_ = false;
  int64_t next_id_ = 1;
  // Answers by the text of their request's id; empty while awaited.
  std::map<std::string, std::optional<Json>> answers_;
  std::deque<HeadlessEvent> queue_;
  std::deque<HeadlessEvent> history_;
  std::shared_ptr<std::function<void(const HeadlessEvent&)>> observer_;
  std::string last_error_;
};

HeadlessSession::HeadlessSession() : impl_(std::make_unique<Impl>()) {}

HeadlessSession::~HeadlessSession() = default;

bool HeadlessSession::Start(const SessionOptions& options) { return impl_->Start(options); }

std::string HeadlessSession::last_error() const { return impl_->last_error(); }

bool HeadlessSession::connected() const { return impl_->connected(); }

uint32_t HeadlessSession::process_id() const { return impl_->process_.id(); }

Reply HeadlessSession::Invoke(const std::string& channel, const std::string& method,
                              const flutter::EncodableValue& arguments,
                              std::chrono::milliseconds timeout) {
  Json json;
  std::string error;
  if (!EncodableToJson(arguments, &json, &error)) {
    Reply reply;
    reply.failure = "arguments: " + error;
    return reply;
  }
  return InvokeJson(channel, method, json, timeout);
}

Reply HeadlessSession::InvokeJson(const std::string& channel, const std::string& method,
                                  const Json& arguments, std::chrono::milliseconds timeout) {
  Json operation = Json{{"op", "invoke"}};
  operation["channel"] = channel;
  operation["method"] = method;
  operation["args"] = arguments;
  std::optional<Json> answer = Request(std::move(operation), timeout);
  return ReplyFromAnswer(answer, impl_->last_error());
}

Reply HeadlessSession::Listen(const std::string& channel, const flutter::EncodableValue& arguments,
                              std::chrono::milliseconds timeout) {
  Json operation = Json{{"op", "listen"}};
  operation["channel"] = channel;
  operation["args"] = ToJson(arguments);
  std::optional<Json> answer = Request(std::move(operation), timeout);
  return ReplyFromAnswer(answer, impl_->last_error());
}

Reply HeadlessSession::Cancel(const std::string& channel, const flutter::EncodableValue& arguments,
                              std::chrono::milliseconds timeout) {
  Json operation = Json{{"op", "cancel"}};
  operation["channel"] = channel;
  operation["args"] = ToJson(arguments);
  std::optional<Json> answer = Request(std::move(operation), timeout);
  return ReplyFromAnswer(answer, impl_->last_error());
}

std::optional<HeadlessEvent> HeadlessSession::WaitForEvent(
    const std::function<bool(const HeadlessEvent&)>& predicate,
    std::chrono::milliseconds timeout) {
  return impl_->WaitForEvent(predicate, timeout);
}

std::optional<HeadlessEvent> HeadlessSession::WaitForMessage(const std::string& channel,
                                                             const std::string& method,
                                                             std::chrono::milliseconds timeout) {
  return WaitForEvent(
      [&](const HeadlessEvent& event) {
        return event.type == "message" && event.channel == channel && event.method == method;
      },
      timeout);
}

bool HeadlessSession::WaitForFrame(std::chrono::milliseconds timeout) {
  return WaitForEvent([](const HeadlessEvent& event) { return event.type == "frame"; }, timeout)
      .has_value();
}

std::vector<HeadlessEvent> HeadlessSession::EventHistory() const { return impl_->EventHistory(); }

std::vector<HeadlessEvent> HeadlessSession::TakeEvents() { return impl_->TakeEvents(); }

void HeadlessSession::SetEventObserver(std::function<void(const HeadlessEvent&)> observer) {
  impl_->SetEventObserver(std::move(observer));
}

namespace {

Json WindowMessageOperation(const char* op, Json message, uint64_t wparam, int64_t lparam) {
  return Json{{"op", op}, {"message", std::move(message)}, {"wparam", wparam}, {"lparam", lparam}};
}

}  // namespace

bool HeadlessSession::PostWindowMessage(const std::string& message, uint64_t wparam,
                                        int64_t lparam, std::chrono::milliseconds timeout) {
  std::optional<Json> answer =
      Request(WindowMessageOperation("post", Json(message), wparam, lparam), timeout);
  if (answer && !AnswerOk(answer)) {
    impl_->Fail(TextOf(*answer, "error"));
  }
  return AnswerOk(answer);
}

bool HeadlessSession::PostWindowMessage(uint32_t message, uint64_t wparam, int64_t lparam,
                                        std::chrono::milliseconds timeout) {
  std::optional<Json> answer = Request(
      WindowMessageOperation("post", Json(message), wparam, lparam),
      timeout);
  if (answer && !AnswerOk(answer)) {
    impl_->Fail(TextOf(*answer, "error"));
  }
  return AnswerOk(answer);
}

std::optional<int64_t> HeadlessSession::SendWindowMessage(const std::string& message,
                                                          uint64_t wparam, int64_t lparam,
                                                          std::chrono::milliseconds timeout) {
  std::optional<Json> answer =
      Request(WindowMessageOperation("send", Json(message), wparam, lparam), timeout);
  if (!AnswerOk(answer)) {
    if (answer) impl_->Fail(TextOf(*answer, "error"));
    return std::nullopt;
  }
  return JsonInteger(JsonMember(*answer, "result"));
}

std::optional<int64_t> HeadlessSession::SendWindowMessage(uint32_t message, uint64_t wparam,
                                                          int64_t lparam,
                                                          std::chrono::milliseconds timeout) {
  std::optional<Json> answer = Request(
      WindowMessageOperation("send", Json(message), wparam, lparam),
      timeout);
  if (!AnswerOk(answer)) {
    if (answer) impl_->Fail(TextOf(*answer, "error"));
    return std::nullopt;
  }
  return JsonInteger(JsonMember(*answer, "result"));
}

std::optional<MainWindowState> HeadlessSession::MainWindowInfo(std::chrono::milliseconds timeout) {
  Json operation = Json{{"op", "window"}};
  std::optional<Json> answer = Request(std::move(operation), timeout);
  if (!AnswerOk(answer)) {
    if (answer) impl_->Fail(TextOf(*answer, "error"));
    return std::nullopt;
  }
  const Json& json = *answer;
  MainWindowState state;
  state.exists = FlagOf(json, "exists");
  state.visible = FlagOf(json, "visible");
  const Json& rect = JsonMember(json, "rect");
  if (rect.is_array() && rect.size() == 4) {
    state.left = JsonInteger(rect[0]);
    state.top = JsonInteger(rect[1]);
    state.right = JsonInteger(rect[2]);
    state.bottom = JsonInteger(rect[3]);
  }
  const Json& client = JsonMember(json, "clientSize");
  if (client.is_array() && client.size() == 2) {
    state.client_width = JsonInteger(client[0]);
    state.client_height = JsonInteger(client[1]);
  }
  state.title = TextOf(json, "title");
  state.class_name = TextOf(json, "className");
  state.dpi = static_cast<unsigned>(JsonInteger(JsonMember(json, "dpi")));
  state.hwnd = static_cast<uint64_t>(JsonInteger(JsonMember(json, "hwnd")));
  state.json = json;
  return state;
}

std::optional<EngineState> HeadlessSession::EngineInfo(std::chrono::milliseconds timeout) {
  Json operation = Json{{"op", "engine"}};
  std::optional<Json> answer = Request(std::move(operation), timeout);
  if (!AnswerOk(answer)) {
    if (answer) impl_->Fail(TextOf(*answer, "error"));
    return std::nullopt;
  }
  const Json& json = *answer;
  EngineState state;
  state.assets_path = TextOf(json, "assetsPath");
  state.icu_data_path = TextOf(json, "icuDataPath");
  state.aot_library_path = TextOf(json, "aotLibraryPath");
  state.dart_entrypoint = TextOf(json, "dartEntrypoint");
  const Json& arguments = JsonMember(json, "arguments");
  if (arguments.is_array()) {
    for (const Json& argument : arguments) {
      state.arguments.push_back(argument.is_string() ? argument.get<std::string>() : std::string());
    }
  }
  state.running = FlagOf(json, "running");
  state.top_level_delegates = static_cast<int>(JsonInteger(JsonMember(json, "topLevelDelegates")));
  state.json = json;
  return state;
}

bool HeadlessSession::ReleaseFrame(std::chrono::milliseconds timeout) {
  Json operation = Json{{"op", "releaseFrame"}};
  return AnswerOk(Request(std::move(operation), timeout));
}

bool HeadlessSession::Sync(std::chrono::milliseconds timeout) {
  Json operation = Json{{"op", "sync"}};
  return AnswerOk(Request(std::move(operation), timeout));
}

std::optional<Json> HeadlessSession::Request(Json operation,
                                                  std::chrono::milliseconds timeout) {
  return impl_->Request(std::move(operation), timeout);
}

std::optional<uint32_t> HeadlessSession::WaitForExit(std::chrono::milliseconds timeout) {
  std::optional<uint32_t> code = impl_->process_.WaitForExit(timeout);
  if (!code) {
    impl_->Fail(impl_->process_.started() ? "the program still runs after " +
                                                std::to_string(timeout.count()) + " ms"
                                          : "no program was started");
  }
  return code;
}

void HeadlessSession::Kill(uint32_t exit_code) { impl_->process_.Kill(exit_code); }

}  // namespace kestrun_headless
