// HeadlessSession: runs a program that loads the headless engine (our flutter_windows.dll) and
// plays the Flutter interface's part from outside the process, over the engine's control
// connection (see PROTOCOL.md).
//
// The session listens on an ephemeral loopback port first, then starts the program with
// KESTRUN_HEADLESS_CONTROL=127.0.0.1:<port> added to its environment; the engine connects out to
// it when the program creates its first engine. Every call below blocks until the engine answers
// or the timeout passes; none throws. Messages and stream events the program sends to the
// interface are queued as `HeadlessEvent`s in arrival order and read with WaitForEvent.
//
//   kestrun_headless::HeadlessSession session;
//   kestrun_headless::SessionOptions options;
//   options.program = bin_dir + L"\\kestrun.exe";
//   options.environment.push_back({L"KESTRUN_HEADLESS_HOLD_FRAMES", L"1"});
//   ASSERT_TRUE(session.Start(options)) << session.last_error();
//   auto window = session.MainWindowInfo();            // hidden until the first frame
//   ASSERT_TRUE(session.ReleaseFrame());
//   ASSERT_TRUE(session.WaitForFrame());
//   auto reply = session.Invoke("kestrun/distribution", "isWindowsStore");
//   EXPECT_EQ(reply.kind, kestrun_headless::ReplyKind::kSuccess);
//   ASSERT_TRUE(session.PostWindowMessage("WM_CLOSE"));  // answered once the window handled it
//   EXPECT_TRUE(session.WaitForMessage("kestrun/native_window", "closeRequested"));
//
// Thread safety: all calls may be made from any thread; events are received by a thread of the
// session. The session kills the program on destruction if it still runs. It keeps the latest
// 100000 events (queued and in the history); older ones are dropped.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_SESSION_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_SESSION_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "encodable_value.h"
#include "encodable_json.h"

namespace kestrun_headless {

// Generous: programs start slowly under Wine.
inline constexpr std::chrono::milliseconds kDefaultTimeout{30000};

struct SessionOptions {
  // Path of the program to start (the folder of our flutter_windows.dll beside it).
  std::wstring program;
  // Arguments after the program name, quoted for the program's command line as needed; they may
  // hold any UTF-16, unpaired surrogates included.
  std::vector<std::wstring> arguments;
  // Working directory of the program; empty means the program's own folder.
  std::wstring working_directory;
  // Variables added to (or replacing those of) this process's environment for the program, for
  // instance {L"KESTRUN_HEADLESS_HOLD_FRAMES", L"1"} or {L"KESTRUN_HEADLESS_FAIL", L"engine"}.
  std::vector<std::pair<std::wstring, std::wstring>> environment;
  // How long Start waits for the engine to connect.
  std::chrono::milliseconds connect_timeout = kDefaultTimeout;
};

enum class ReplyKind {
  kSuccess,         // the handler answered with a success envelope
  kError,           // the handler answered with an error envelope
  kNotImplemented,  // empty reply, or no handler on the channel
  kFailed,          // no reply: timeout, connection closed, or a request the engine refused
};

// The reply to Invoke, Listen or Cancel.
struct Reply {
  ReplyKind kind = ReplyKind::kFailed;
  flutter::EncodableValue value;  // kSuccess: the result (null when none)
  std::string error_code;         // kError
  std::string error_message;      // kError
  flutter::EncodableValue error_details;  // kError (null when none)
  std::string failure;            // kFailed: why no reply came
  Json json;                 // the engine's answer as received (null when none came)

  bool ok() const { return kind == ReplyKind::kSuccess; }
};

// Something the program sent to the interface, or news from the engine.
struct HeadlessEvent {
  // The "event" member: "message", "stream", "streamError", "endOfStream", "frame", "shutdown",
  // "failureInjected"; "disconnected" is added by the session when the connection ends.
  std::string type;
  std::string channel;
  // "message": the method name (empty when the message was no method call; json then holds the
  // bytes as base64 in "raw").
  std::string method;
  // "message": the arguments; "stream": the event value; "streamError": the details.
  flutter::EncodableValue value;
  std::string error_code;     // "streamError"
  std::string error_message;  // "streamError"
  Json json;             // the whole event line as received
};

struct MainWindowState {
  bool exists = false;  // the view is parented into a top-level window
  bool visible = false;
  int64_t left = 0, top = 0, right = 0, bottom = 0;  // window rectangle, screen coordinates
  int64_t client_width = 0, client_height = 0;
  std::string title;
  std::string class_name;
  unsigned dpi = 0;
  uint64_t hwnd = 0;
  Json json;  // the whole answer
};

struct EngineState {
  std::string assets_path;       // as the program passed them, UTF-8
  std::string icu_data_path;
  std::string aot_library_path;
  std::string dart_entrypoint;   // empty when none was given
  std::vector<std::string> arguments;  // Dart entry-point arguments as received
  bool running = false;
  int top_level_delegates = 0;   // window-procedure delegates registered on the engine
  Json json;                // the whole answer (more fields, see PROTOCOL.md)
};

class HeadlessSession {
 public:
  HeadlessSession();
  // Kills the program if it still runs and closes the connection.
  ~HeadlessSession();

  HeadlessSession(const HeadlessSession&) = delete;
  HeadlessSession& operator=(const HeadlessSession&) = delete;

  // Listens, starts the program and waits for the engine to connect. False (reason in
  // last_error()) when the program cannot be started, exits before connecting, or does not
  // connect in time; a program that was started and exited can still be asked WaitForExit.
  // One session runs one program once.
  bool Start(const SessionOptions& options);

  // Why the last failing call failed.
  std::string last_error() const;
  // Whether the engine's connection is open.
  bool connected() const;
  uint32_t process_id() const;

  // Calls `method` on `channel` as the interface would; answers the handler's reply.
  Reply Invoke(const std::string& channel, const std::string& method,
               const flutter::EncodableValue& arguments = flutter::EncodableValue(),
               std::chrono::milliseconds timeout = kDefaultTimeout);
  // Same with the arguments in the JSON form (typed forms as in encodable_json.h).
  Reply InvokeJson(const std::string& channel, const std::string& method,
                   const Json& arguments,
                   std::chrono::milliseconds timeout = kDefaultTimeout);

  // Starts / stops listening to an event channel; answers the stream handler's reply. While
  // listening, the channel's events arrive as "stream", "streamError" and "endOfStream" events.
  Reply Listen(const std::string& channel,
               const flutter::EncodableValue& arguments = flutter::EncodableValue(),
               std::chrono::milliseconds timeout = kDefaultTimeout);
  Reply Cancel(const std::string& channel,
               const flutter::EncodableValue& arguments = flutter::EncodableValue(),
               std::chrono::milliseconds timeout = kDefaultTimeout);

  // Takes the first queued event (oldest first) that `predicate` accepts, waiting for one up to
  // `timeout`; the others stay queued. Nothing when none came in time.
  std::optional<HeadlessEvent> WaitForEvent(
      const std::function<bool(const HeadlessEvent&)>& predicate,
      std::chrono::milliseconds timeout = kDefaultTimeout);
  // A "message" event with this channel and method.
  std::optional<HeadlessEvent> WaitForMessage(const std::string& channel,
                                              const std::string& method,
                                              std::chrono::milliseconds timeout = kDefaultTimeout);
  // The next "frame" event (the engine fired a next-frame callback).
  bool WaitForFrame(std::chrono::milliseconds timeout = kDefaultTimeout);
  // Every event received so far, taken or not, in arrival order.
  std::vector<HeadlessEvent> EventHistory() const;
  // Removes and answers the queued events.
  std::vector<HeadlessEvent> TakeEvents();
  // Called on the session's receiving thread for each event as it arrives (before it is queued).
  // Keep it short; set it before Start.
  void SetEventObserver(std::function<void(const HeadlessEvent&)> observer);

  // Posts a window message to the main window (the top-level window that contains the view).
  // `message` is a name ("WM_CLOSE", "WM_QUERYENDSESSION", "WM_ENDSESSION",
  // "WM_WTSSESSION_CHANGE", "WM_DISPLAYCHANGE", "WM_SETTINGCHANGE", ... see PROTOCOL.md) or a
  // number in decimal or 0x hex. Answers true once the program's message loop has dispatched it
  // (so whatever the window sent while handling it has already been received); false when there
  // is no main window or the engine did not answer.
  bool PostWindowMessage(const std::string& message, uint64_t wparam = 0, int64_t lparam = 0,
                         std::chrono::milliseconds timeout = kDefaultTimeout);
  bool PostWindowMessage(uint32_t message, uint64_t wparam = 0, int64_t lparam = 0,
                         std::chrono::milliseconds timeout = kDefaultTimeout);
  // Sends it (SendMessageW on the program's main thread); answers the window's result.
  std::optional<int64_t> SendWindowMessage(const std::string& message, uint64_t wparam = 0,
                                           int64_t lparam = 0,
                                           std::chrono::milliseconds timeout = kDefaultTimeout);
  std::optional<int64_t> SendWindowMessage(uint32_t message, uint64_t wparam = 0,
                                           int64_t lparam = 0,
                                           std::chrono::milliseconds timeout = kDefaultTimeout);

  std::optional<MainWindowState> MainWindowInfo(
      std::chrono::milliseconds timeout = kDefaultTimeout);
  std::optional<EngineState> EngineInfo(std::chrono::milliseconds timeout = kDefaultTimeout);

  // With KESTRUN_HEADLESS_HOLD_FRAMES=1 the engine renders no frame until this is called.
  bool ReleaseFrame(std::chrono::milliseconds timeout = kDefaultTimeout);
  // Answers once everything already queued on the program's main thread has been handled.
  bool Sync(std::chrono::milliseconds timeout = kDefaultTimeout);

  // Sends one operation of the protocol (an object with "op"; an "id" is added when missing) and
  // answers the engine's answer line. For tools such as headless_client.
  std::optional<Json> Request(Json operation,
                                   std::chrono::milliseconds timeout = kDefaultTimeout);

  // The program's exit code once it has exited; nothing if it still runs after `timeout` or was
  // never started.
  std::optional<uint32_t> WaitForExit(std::chrono::milliseconds timeout = kDefaultTimeout);
  // Ends the program at once (if it runs) with `exit_code`.
  void Kill(uint32_t exit_code = 1);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_HEADLESS_SESSION_H_
