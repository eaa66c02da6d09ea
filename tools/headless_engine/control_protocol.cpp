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

JsonValue Rect(const RECT& rect) {
  return JsonValue(JsonValue::Array{JsonValue(rect.left), JsonValue(rect.top),
                                    JsonValue(rect.right), JsonValue(rect.bottom)});
}

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
  JsonValue shutdown = JsonValue::MakeObject();
  shutdown.Set("event", "shutdown");
  SendEvent(shutdown);
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

void ControlProtocol::SendEvent(const JsonValue& event) {
  connection_->WriteLine(event.Serialize());
}

void ControlProtocol::ReadLoop() {
  std::string line;
  while (connection_->ReadLine(&line)) {
    if (line.empty()) {
      continue;
    }
    std::string error;
    std::optional<JsonValue> operation = JsonValue::Parse(line, &error);
    if (!operation || !operation->IsObject()) {
      JsonValue problem = JsonValue::MakeObject();
      problem.Set("event", "protocolError");
      problem.Set("error", operation ? std::string("an operation must be a JSON object")
                                     : "invalid JSON: " + error);
      problem.Set("line", line);
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

void ControlProtocol::HandleOperation(const JsonValue& operation) {
  const JsonValue& id = operation["id"];
  if (engine_ == nullptr) {
    return;  // stopped
  }
  const JsonValue& op_value = operation["op"];
  if (!op_value.IsString()) {
    AnswerFailure(id, "an operation needs a string \"op\"");
    return;
  }
  const std::string& op = op_value.AsString();
  if (op == "invoke" || op == "listen" || op == "cancel") {
    DeliverCall(id, operation, op);
  } else if (op == "sendRaw") {
    DeliverRaw(id, operation);
  } else if (op == "post" || op == "send") {
    HandleWindowMessage(id, operation, op == "send");
  } else if (op == "window") {
    Answer(id, DescribeMainWindow());
  } else if (op == "engine") {
    JsonValue answer = engine_->DescribeEngine();
    JsonValue::Array channels;
    for (const std::string& channel : messenger_->ChannelsWithHandlers()) {
      channels.emplace_back(channel);
    }
    answer.Set("channelsWithHandlers", JsonValue(std::move(channels)));
    Answer(id, std::move(answer));
  } else if (op == "processStats") {
    const ProcessStats stats = ReadProcessStats();
    JsonValue answer = JsonValue::MakeObject();
    answer.Set("ok", true);
    answer.Set("privateBytes", JsonValue(static_cast<long long>(stats.private_bytes)));
    answer.Set("privateBytesSource", JsonValue(std::string(stats.private_bytes_source)));
    answer.Set("handles", JsonValue(static_cast<long long>(stats.handles)));
    answer.Set("gdiObjects", JsonValue(static_cast<long long>(stats.gdi_objects)));
    answer.Set("userObjects", JsonValue(static_cast<long long>(stats.user_objects)));
    answer.Set("threads", JsonValue(static_cast<long long>(stats.threads)));
    answer.Set("windows", JsonValue(static_cast<long long>(stats.windows)));
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

void ControlProtocol::DeliverCall(const JsonValue& id, const JsonValue& operation,
                                  const std::string& op) {
  const JsonValue& channel = operation["channel"];
  if (!channel.IsString() || channel.AsString().empty()) {
    AnswerFailure(id, op + " needs a \"channel\"");
    return;
  }
  std::string method = op;
  if (op == "invoke") {
    if (!operation["method"].IsString()) {
      AnswerFailure(id, "invoke needs a string \"method\"");
      return;
    }
    method = operation["method"].AsString();
  }
  auto arguments = std::make_unique<flutter::EncodableValue>();
  std::string error;
  if (!JsonToEncodable(operation["args"], arguments.get(), &error)) {
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
      event_channels_.insert(channel.AsString());
    }
  }
  // Hold the messenger: the handler may destroy the engine.
  HeadlessMessenger* messenger = messenger_;
  messenger->AddRef();
  messenger->Deliver(channel.AsString(), *message, token);
  messenger->Release();
}

void ControlProtocol::DeliverRaw(const JsonValue& id, const JsonValue& operation) {
  const JsonValue& channel = operation["channel"];
  std::vector<uint8_t> message;
  if (!channel.IsString() || channel.AsString().empty() ||
      !Base64Decode(operation["raw"].AsString(), &message)) {
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
  messenger->Deliver(channel.AsString(), message, token);
  messenger->Release();
}

void ControlProtocol::HandleWindowMessage(const JsonValue& id, const JsonValue& operation,
                                          bool send) {
  HWND main_window = engine_->MainWindow();
  if (main_window == nullptr) {
    AnswerFailure(id, "there is no main window (the view is not in a top-level window)");
    return;
  }
  const JsonValue& message_value = operation["message"];
  std::optional<uint32_t> message;
  if (message_value.IsString()) {
    message = WindowMessageFromText(message_value.AsString());
  } else if (message_value.IsInteger() && message_value.AsInteger() >= 0 &&
             message_value.AsInteger() < 0x10000) {
    message = static_cast<uint32_t>(message_value.AsInteger());
  }
  if (!message) {
    AnswerFailure(id, "\"message\" must be a window message name or number, not " +
                          message_value.Serialize());
    return;
  }
  const WPARAM wparam = static_cast<WPARAM>(operation["wparam"].AsInteger(0));
  LPARAM lparam = static_cast<LPARAM>(operation["lparam"].AsInteger(0));
  // Pointer arguments live until the message has been handled (a posted one: until the answer).
  auto buffers = std::make_shared<MessageBuffers>();
  if (operation["lparamString"].IsString()) {
    buffers->text = Utf8ToWide(operation["lparamString"].AsString());
    lparam = reinterpret_cast<LPARAM>(buffers->text.c_str());
  } else if (operation["lparamRect"].size() == 4) {
    const JsonValue::Array& rect = operation["lparamRect"].AsArray();
    buffers->rect = RECT{static_cast<LONG>(rect[0].AsInteger()), static_cast<LONG>(rect[1].AsInteger()),
                         static_cast<LONG>(rect[2].AsInteger()), static_cast<LONG>(rect[3].AsInteger())};
    lparam = reinterpret_cast<LPARAM>(&buffers->rect);
  }
  if (send) {
    std::shared_ptr<ControlProtocol> self = shared_from_this();
    // The window may destroy the engine meanwhile; nothing of it is touched afterwards.
    const LRESULT result = SendMessageW(main_window, *message, wparam, lparam);
    JsonValue answer = JsonValue::MakeObject();
    answer.Set("ok", true);
    answer.Set("result", JsonValue(static_cast<long long>(result)));
    self->Answer(id, std::move(answer));
    return;
  }
  if (!PostMessageW(main_window, *message, wparam, lparam)) {
    AnswerFailure(id, "PostMessageW failed, error " + std::to_string(GetLastError()));
    return;
  }
  // Posted messages of a thread are taken in order: this runs once the window has had it.
  runner_->Post([self = shared_from_this(), id, buffers] { self->AnswerOk(id); });
}

void ControlProtocol::DestroyMainWindow(const JsonValue& id) {
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

JsonValue ControlProtocol::DescribeMainWindow() const {
  JsonValue answer = JsonValue::MakeObject();
  answer.Set("ok", true);
  HWND main_window = engine_->MainWindow();
  answer.Set("exists", main_window != nullptr);
  if (main_window != nullptr) {
    RECT window_rect = {};
    GetWindowRect(main_window, &window_rect);
    RECT client = {};
    GetClientRect(main_window, &client);
    answer.Set("visible", IsWindowVisible(main_window) != FALSE);
    answer.Set("rect", Rect(window_rect));
    answer.Set("clientSize", JsonValue(JsonValue::Array{JsonValue(client.right - client.left),
                                                        JsonValue(client.bottom - client.top)}));
    answer.Set("title", WindowText(main_window));
    answer.Set("className", ClassName(main_window));
    answer.Set("dpi", JsonValue(DpiForWindow(main_window)));
    answer.Set("hwnd", JsonValue(static_cast<unsigned long long>(
                           reinterpret_cast<uintptr_t>(main_window))));
    answer.Set("minimized", IsIconic(main_window) != FALSE);
    answer.Set("maximized", IsZoomed(main_window) != FALSE);
    answer.Set("foreground", GetForegroundWindow() == main_window);
  }
  HWND view = engine_->ViewWindow();
  if (view != nullptr) {
    RECT view_rect = {};
    GetWindowRect(view, &view_rect);
    if (main_window != nullptr) {
      MapWindowPoints(HWND_DESKTOP, main_window, reinterpret_cast<POINT*>(&view_rect), 2);
    }
    JsonValue view_info = JsonValue::MakeObject();
    view_info.Set("visible", IsWindowVisible(view) != FALSE);
    view_info.Set("rect", Rect(view_rect));
    view_info.Set("className", ClassName(view));
    answer.Set("view", std::move(view_info));
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
  JsonValue answer;
  if (call.raw) {
    answer = JsonValue::MakeObject();
    answer.Set("reply", "raw");
    answer.Set("raw", size == 0 ? std::string() : Base64Encode(data, size));
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
  JsonValue event = HostMessageToJson(channel, data, size, event_channel);
  if (awaits_reply) {
    event.Set("awaitsReply", true);
  }
  SendEvent(event);
}

void ControlProtocol::Answer(const JsonValue& id, JsonValue answer) {
  JsonValue line = JsonValue::MakeObject();
  line.Set("id", id);
  for (const JsonValue::Member& member : answer.AsObject()) {
    line.Set(member.first, member.second);
  }
  connection_->WriteLine(line.Serialize());
}

void ControlProtocol::AnswerOk(const JsonValue& id) {
  JsonValue answer = JsonValue::MakeObject();
  answer.Set("ok", true);
  Answer(id, std::move(answer));
}

void ControlProtocol::AnswerFailure(const JsonValue& id, const std::string& error) {
  JsonValue answer = JsonValue::MakeObject();
  answer.Set("ok", false);
  answer.Set("error", error);
  Answer(id, std::move(answer));
}

}  // namespace kestrun_headless
