#include "control_protocol.h"

#include <chrono>
#include <utility>
#include <vector>

#include "base64.h"
#include "channel_json.h"
#include "display_scale.h"
#include "engine_log.h"
#include "process_stats.h"
#include "standard_method_codec.h"
#include "text_conversion.h"
#include "window_message_names.h"

namespace kestrun_headless {
namespace {

// How long the engine, when it goes, waits for the controller to close its side after reading
// the last lines; a controller that does not is cut off.
constexpr std::chrono::milliseconds kCloseGrace{2000};

Json Rect(const RECT& rect) { return Json::array({rect.left, rect.top, rect.right, rect.bottom}); }

std::string WindowText(HWND window) {
  const int length = GetWindowTextLengthW(window);
  std::wstring text(static_cast<size_t>(length) + 1, L'\0');
  const int copied = GetWindowTextW(window, text.data(), length + 1);
  text.resize(static_cast<size_t>(copied > 0 ? copied : 0));
  return WideToUtf8(text);
}

std::string ClassName(HWND window) {
  wchar_t name[257] = {};
  const int length = GetClassNameW(window, name, 257);
  return WideToUtf8(std::wstring_view(name, static_cast<size_t>(length > 0 ? length : 0)));
}

// Memory an lparam points to for the duration of a window message.
struct MessageBuffers {
  std::wstring text;
  RECT rect = {};
};

}  // namespace

ControlProtocol::ControlProtocol(std::unique_ptr<WinsockLibrary> winsock,
                                 std::unique_ptr<LineConnection> connection,
                                 std::shared_ptr<PlatformTaskRunner> runner)
    : winsock_(std::move(winsock)),
      connection_(std::move(connection)),
      runner_(std::move(runner)) {}

ControlProtocol::~ControlProtocol() {
  if (connection_) {
    connection_->Shutdown();
  }
  if (reader_.joinable()) {
    reader_.join();
  }
  connection_.reset();
}

std::shared_ptr<ControlProtocol> ControlProtocol::Connect(
    const std::string& address, std::shared_ptr<PlatformTaskRunner> runner) {
  auto winsock = std::make_unique<WinsockLibrary>();
  if (!winsock->ready()) {
    EngineLog("Winsock could not be initialised; no controller");
    return nullptr;
  }
  std::string error;
  std::unique_ptr<LineConnection> connection = LineConnection::Connect(address, &error);
  if (!connection) {
    EngineLog("cannot reach the controller: %s", error.c_str());
    return nullptr;
  }
  return std::shared_ptr<ControlProtocol>(
      new ControlProtocol(std::move(winsock), std::move(connection), std::move(runner)));
}

void ControlProtocol::Start(EngineControl* engine, HeadlessMessenger* messenger) {
  engine_ = engine;
  messenger_ = messenger;
  messenger_->AddRef();
  reader_ = std::thread([this] { ReadLoop(); });
}

void ControlProtocol::Stop() {
  engine_ = nullptr;
  if (messenger_ != nullptr) {
    messenger_->Release();
    messenger_ = nullptr;
  }
  SendEvent(Json{{"event", "shutdown"}});
  connection_->FinishSending();
  if (reader_.joinable()) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      reader_finished_changed_.wait_for(lock, kCloseGrace, [this] { return reader_finished_; });
    }
    connection_->Shutdown();
    reader_.join();
  } else {
    connection_->Shutdown();
  }
  std::lock_guard<std::mutex> lock(mutex_);
  pending_calls_.clear();
}

void ControlProtocol::SendEvent(const Json& event) {
  connection_->WriteLine(JsonLine(event));
}

void ControlProtocol::ReadLoop() {
  std::string line;
  while (connection_->ReadLine(&line)) {
    if (line.empty()) {
      continue;
    }
    std::string error;
    std::optional<Json> operation = ParseJsonLine(line, &error);
    if (!operation || !operation->is_object()) {
      Json problem = Json::object();
      problem["event"] = "protocolError";
      problem["error"] = operation ? std::string("an operation must be a JSON object")
                                   : "invalid JSON: " + error;
      problem["line"] = line;
      SendEvent(problem);
      continue;
    }
    // Dropped once the engine is gone.
    runner_->Post([self = shared_from_this(), operation = std::move(*operation)] {
      self->HandleOperation(operation);
    });
  }
  std::lock_guard<std::mutex> lock(mutex_);
  reader_finished_ = true;
  reader_finished_changed_.notify_all();
}

void ControlProtocol::HandleOperation(const Json& operation) {
  const Json& id = JsonMember(operation, "id");
  if (engine_ == nullptr) {
    return;  // stopped
  }
  const Json& op_value = JsonMember(operation, "op");
  if (!op_value.is_string()) {
    AnswerFailure(id, "an operation needs a string \"op\"");
    return;
  }
  const std::string& op = op_value.get_ref<const std::string&>();
  if (op == "invoke" || op == "listen" || op == "cancel") {
    DeliverCall(id, operation, op);
  } else if (op == "sendRaw") {
    DeliverRaw(id, operation);
  } else if (op == "post" || op == "send") {
    HandleWindowMessage(id, operation, op == "send");
  } else if (op == "window") {
    Answer(id, DescribeMainWindow());
  } else if (op == "engine") {
    Json answer = engine_->DescribeEngine();
    Json channels = Json::array();
    for (const std::string& channel : messenger_->ChannelsWithHandlers()) {
      channels.push_back(channel);
    }
    answer["channelsWithHandlers"] = std::move(channels);
    Answer(id, std::move(answer));
  } else if (op == "processStats") {
    const ProcessStats stats = ReadProcessStats();
    Json answer = Json::object();
    answer["ok"] = true;
    answer["privateBytes"] = static_cast<long long>(stats.private_bytes);
    answer["privateBytesSource"] = std::string(stats.private_bytes_source);
    answer["handles"] = static_cast<long long>(stats.handles);
    answer["gdiObjects"] = static_cast<long long>(stats.gdi_objects);
    answer["userObjects"] = static_cast<long long>(stats.user_objects);
    answer["threads"] = static_cast<long long>(stats.threads);
    answer["windows"] = static_cast<long long>(stats.windows);
    Answer(id, std::move(answer));
  } else if (op == "releaseFrame") {
    engine_->ReleaseFrame();
    AnswerOk(id);
  } else if (op == "sync") {
    // Answered once everything queued on the platform thread before it has run.
    runner_->Post([self = shared_from_this(), id] { self->AnswerOk(id); });
  } else if (op == "destroyWindow") {
    DestroyMainWindow(id);
  } else {
    AnswerFailure(id, "unknown op \"" + op + "\"");
  }
}

void ControlProtocol::DeliverCall(const Json& id, const Json& operation, const std::string& op) {
  const Json& channel_value = JsonMember(operation, "channel");
  if (!channel_value.is_string() || channel_value.get_ref<const std::string&>().empty()) {
    AnswerFailure(id, op + " needs a \"channel\"");
    return;
  }
  const std::string& channel = channel_value.get_ref<const std::string&>();
  std::string method = op;
  if (op == "invoke") {
    const Json& method_value = JsonMember(operation, "method");
    if (!method_value.is_string()) {
      AnswerFailure(id, "invoke needs a string \"method\"");
      return;
    }
    method = method_value.get<std::string>();
  }
  auto arguments = std::make_unique<flutter::EncodableValue>();
  std::string error;
  if (!JsonToEncodable(JsonMember(operation, "args"), arguments.get(), &error)) {
    AnswerFailure(id, "args: " + error);
    return;
  }
  flutter::MethodCall<flutter::EncodableValue> call(method, std::move(arguments));
  std::unique_ptr<std::vector<uint8_t>> message =
      flutter::StandardMethodCodec::GetInstance().EncodeMethodCall(call);
  if (!message) {
    AnswerFailure(id, "args: nested deeper than the codec writes");
    return;
  }
  const uint64_t token = next_token_++;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    pending_calls_[token] = PendingCall{id, false};
    if (op == "listen") {
      event_channels_.insert(channel);
    }
  }
  // Hold the messenger: the handler may destroy the engine.
  HeadlessMessenger* messenger = messenger_;
  messenger->AddRef();
  messenger->Deliver(channel, *message, token);
  messenger->Release();
}

void ControlProtocol::DeliverRaw(const Json& id, const Json& operation) {
  const Json& channel = JsonMember(operation, "channel");
  const Json& raw = JsonMember(operation, "raw");
  std::vector<uint8_t> message;
  if (!channel.is_string() || channel.get_ref<const std::string&>().empty() ||
      !Base64Decode(raw.is_string() ? raw.get<std::string>() : std::string(), &message)) {
    AnswerFailure(id, "sendRaw needs a \"channel\" and base64 \"raw\" bytes");
    return;
  }
  const uint64_t token = next_token_++;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    pending_calls_[token] = PendingCall{id, true};
  }
  HeadlessMessenger* messenger = messenger_;
  messenger->AddRef();
  messenger->Deliver(channel.get<std::string>(), message, token);
  messenger->Release();
}

void ControlProtocol::HandleWindowMessage(const Json& id, const Json& operation, bool send) {
  HWND main_window = engine_->MainWindow();
  if (main_window == nullptr) {
    AnswerFailure(id, "there is no main window (the view is not in a top-level window)");
    return;
  }
  const Json& message_value = JsonMember(operation, "message");
  std::optional<uint32_t> message;
  if (message_value.is_string()) {
    message = WindowMessageFromText(message_value.get<std::string>());
  } else if (message_value.is_number_integer() && JsonInteger(message_value) >= 0 &&
             JsonInteger(message_value) < 0x10000) {
    message = static_cast<uint32_t>(JsonInteger(message_value));
  }
  if (!message) {
    AnswerFailure(id, "\"message\" must be a window message name or number, not " +
                          JsonLine(message_value));
    return;
  }
  const WPARAM wparam = static_cast<WPARAM>(JsonInteger(JsonMember(operation, "wparam")));
  LPARAM lparam = static_cast<LPARAM>(JsonInteger(JsonMember(operation, "lparam")));
  // Pointer arguments live until the message has been handled (a posted one: until the answer).
  auto buffers = std::make_shared<MessageBuffers>();
  const Json& lparam_string = JsonMember(operation, "lparamString");
  const Json& lparam_rect = JsonMember(operation, "lparamRect");
  if (lparam_string.is_string()) {
    buffers->text = Utf8ToWide(lparam_string.get<std::string>());
    lparam = reinterpret_cast<LPARAM>(buffers->text.c_str());
  } else if (lparam_rect.is_array() && lparam_rect.size() == 4) {
    buffers->rect = RECT{static_cast<LONG>(JsonInteger(lparam_rect[0])),
                         static_cast<LONG>(JsonInteger(lparam_rect[1])),
                         static_cast<LONG>(JsonInteger(lparam_rect[2])),
                         static_cast<LONG>(JsonInteger(lparam_rect[3]))};
    lparam = reinterpret_cast<LPARAM>(&buffers->rect);
  }
  if (send) {
    std::shared_ptr<ControlProtocol> self = shared_from_this();
    // The window may destroy the engine meanwhile; nothing of it is touched afterwards.
    const LRESULT result = SendMessageW(main_window, *message, wparam, lparam);
    self->Answer(id, Json{{"ok", true}, {"result", static_cast<int64_t>(result)}});
    return;
  }
  if (!PostMessageW(main_window, *message, wparam, lparam)) {
    AnswerFailure(id, "PostMessageW failed, error " + std::to_string(GetLastError()));
    return;
  }
  // Posted messages of a thread are taken in order: this runs once the window has had it.
  runner_->Post([self = shared_from_this(), id, buffers] { self->AnswerOk(id); });
}

void ControlProtocol::DestroyMainWindow(const Json& id) {
  HWND main_window = engine_->MainWindow();
  if (main_window == nullptr) {
    AnswerFailure(id, "there is no main window");
    return;
  }
  if (GetWindowThreadProcessId(main_window, nullptr) != GetCurrentThreadId()) {
    AnswerFailure(id, "the main window belongs to another thread");
    return;
  }
  // Answered first: destroying the window usually destroys the engine and the connection.
  AnswerOk(id);
  runner_->Post([main_window] {
    if (IsWindow(main_window)) {
      DestroyWindow(main_window);
    }
  });
}

Json ControlProtocol::DescribeMainWindow() const {
  Json answer = Json::object();
  answer["ok"] = true;
  HWND main_window = engine_->MainWindow();
  answer["exists"] = main_window != nullptr;
  if (main_window != nullptr) {
    RECT window_rect = {};
    GetWindowRect(main_window, &window_rect);
    RECT client = {};
    GetClientRect(main_window, &client);
    answer["visible"] = IsWindowVisible(main_window) != FALSE;
    answer["rect"] = Rect(window_rect);
    answer["clientSize"] = Json::array({client.right - client.left, client.bottom - client.top});
    answer["title"] = WindowText(main_window);
    answer["className"] = ClassName(main_window);
    answer["dpi"] = DpiForWindow(main_window);
    answer["hwnd"] = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(main_window));
    answer["minimized"] = IsIconic(main_window) != FALSE;
    answer["maximized"] = IsZoomed(main_window) != FALSE;
    answer["foreground"] = GetForegroundWindow() == main_window;
  }
  HWND view = engine_->ViewWindow();
  if (view != nullptr) {
    RECT view_rect = {};
    GetWindowRect(view, &view_rect);
    if (main_window != nullptr) {
      MapWindowPoints(HWND_DESKTOP, main_window, reinterpret_cast<POINT*>(&view_rect), 2);
    }
    Json view_info = Json::object();
    view_info["visible"] = IsWindowVisible(view) != FALSE;
    view_info["rect"] = Rect(view_rect);
    view_info["className"] = ClassName(view);
    answer["view"] = std::move(view_info);
  }
  return answer;
}

void ControlProtocol::OnResponse(uint64_t token, const uint8_t* data, size_t size) {
  PendingCall call;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto pending = pending_calls_.find(token);
    if (pending == pending_calls_.end()) {
      return;
    }
    call = std::move(pending->second);
    pending_calls_.erase(pending);
  }
  Json answer;
  if (call.raw) {
    answer = Json::object();
    answer["reply"] = "raw";
    answer["raw"] = size == 0 ? std::string() : Base64Encode(data, size);
  } else {
    answer = ReplyToJson(data, size);
  }
  Answer(call.id, std::move(answer));
}

void ControlProtocol::OnHostMessage(const std::string& channel, const uint8_t* data, size_t size,
                                    bool awaits_reply) {
  bool event_channel = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    event_channel = event_channels_.count(channel) != 0;
  }
  Json event = HostMessageToJson(channel, data, size, event_channel);
  if (awaits_reply) {
    event["awaitsReply"] = true;
  }
  SendEvent(event);
}

void ControlProtocol::Answer(const Json& id, Json answer) {
  Json line = Json::object();
  line["id"] = id;
  for (auto& member : answer.items()) {
    line[member.key()] = std::move(member.value());
  }
  connection_->WriteLine(JsonLine(line));
}

void ControlProtocol::AnswerOk(const Json& id) { Answer(id, Json{{"ok", true}}); }

void ControlProtocol::AnswerFailure(const Json& id, const std::string& error) {
  Answer(id, Json{{"ok", false}, {"error", error}});
}

}  // namespace kestrun_headless
