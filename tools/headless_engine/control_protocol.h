// The engine's end of the control connection (PROTOCOL.md): reads operations on a background
// thread and hands each to the platform thread through the task runner, where it runs against
// the engine and its messenger; writes answers and events back, from whichever thread has them,
// one whole line at a time.
//
// It is the messenger's outlet: replies of the host (possibly from other threads) become answers,
// the host's messages to the interface become events.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_CONTROL_PROTOCOL_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_CONTROL_PROTOCOL_H_

#include <windows.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "engine_control.h"
#include "headless_messenger.h"
#include "encodable_json.h"
#include "line_connection.h"
#include "messenger_outlet.h"
#include "platform_task_runner.h"
#include "winsock_library.h"

namespace kestrun_headless {

class ControlProtocol : public MessengerOutlet,
                        public std::enable_shared_from_this<ControlProtocol> {
 public:
  // Connects to the controller at `address` ("127.0.0.1:<port>"). Null (reason logged) when that
  // fails.
  static std::shared_ptr<ControlProtocol> Connect(const std::string& address,
                                                  std::shared_ptr<PlatformTaskRunner> runner);
  ~ControlProtocol() override;

  ControlProtocol(const ControlProtocol&) = delete;
  ControlProtocol& operator=(const ControlProtocol&) = delete;

  // Platform thread. Starts taking operations for `engine` and `messenger` (which must stay
  // alive until Stop).
  void Start(EngineControl* engine, HeadlessMessenger* messenger);
  // Platform thread, when the engine goes: sends {"event":"shutdown"}, ends the connection (the
  // controller reads everything written before) and waits a little for the controller to close
  // its side. Operations still arriving are dropped.
  void Stop();

  // Any thread.
  void SendEvent(const Json& event);

  // MessengerOutlet (any thread).
  void OnResponse(uint64_t token, const uint8_t* data, size_t size) override;
  void OnHostMessage(const std::string& channel, const uint8_t* data, size_t size,
                     bool awaits_reply) override;

 private:
  ControlProtocol(std::unique_ptr<WinsockLibrary> winsock,
                  std::unique_ptr<LineConnection> connection,
                  std::shared_ptr<PlatformTaskRunner> runner);

  // Reader thread.
  void ReadLoop();

  // Platform thread.
  void HandleOperation(const Json& operation);
  void DeliverCall(const Json& id, const Json& operation, const std::string& op);
  void DeliverRaw(const Json& id, const Json& operation);
  void HandleWindowMessage(const Json& id, const Json& operation, bool send);
  void DestroyMainWindow(const Json& id);
  Json DescribeMainWindow() const;

  void Answer(const Json& id, Json answer);
  void AnswerOk(const Json& id);
  void AnswerFailure(const Json& id, const std::string& error);

  // Declared first so that Winsock outlives the connection.
  std::unique_ptr<WinsockLibrary> winsock_;
  std::unique_ptr<LineConnection> connection_;
  std::shared_ptr<PlatformTaskRunner> runner_;
  std::thread reader_;

  // Platform thread only.
  EngineControl* engine_ = nullptr;
  HeadlessMessenger* messenger_ = nullptr;
  uint64_t next_token_ = 1;

  struct PendingCall {
    Json id;
    bool raw = false;  // answer with the reply's bytes rather than decoding them
  };
  mutable std::mutex mutex_;
  std::condition_variable reader_finished_changed_;
  bool reader_finished_ = false;
  std::map<uint64_t, PendingCall> pending_calls_;
  // Channels the controller listened to: the host's messages there are stream events.
  std::set<std::string> event_channels_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_CONTROL_PROTOCOL_H_
