// The commands of headless_client, one per line:
//   {"op": ...}                         a protocol operation (an "id" is added when missing);
//                                       prints the engine's answer
//   invoke <channel> <method> [<json>]  shortcut for {"op":"invoke",...}
//   listen <channel> [<json>] | cancel <channel> [<json>]
//   post <message> [<wparam> [<lparam>]] | send <message> [<wparam> [<lparam>]]
//   window | engine | sync | release-frame
//   wait-event <substring> [<timeout-ms>]   waits for an event whose JSON text contains it
//   wait-frame [<timeout-ms>]               waits for the next {"event":"frame"}
//   wait-exit [<timeout-ms>]                waits for the program to exit; prints {"exit":code}
//   echo <text>                             prints {"echo":text}
//   kill [<exit code>]                      ends the program
//   # comment, or an empty line             ignored
// Problems are printed as {"clientError":text} and remembered; the script goes on.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_CLIENT_SCRIPT_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_CLIENT_SCRIPT_H_

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "headless_session.h"

namespace kestrun_headless {

class ClientScript {
 public:
  using Output = std::function<void(const std::string& line)>;

  // `output` receives every line to print. The session must outlive the script.
  ClientScript(HeadlessSession* session, Output output, std::chrono::milliseconds timeout);

  // Runs one command. False (after printing why) when it failed.
  bool RunLine(const std::string& line);

  bool any_failed() const { return any_failed_; }
  // The program's exit code once a command saw it exit.
  std::optional<uint32_t> exit_code() const { return exit_code_; }

 private:
  bool RunOperation(Json operation);
  bool Problem(const std::string& text);
  std::chrono::milliseconds TimeoutArgument(const std::string& text);

  HeadlessSession* session_;
  Output output_;
  std::chrono::milliseconds timeout_;
  bool any_failed_ = false;
  std::optional<uint32_t> exit_code_;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_CLIENT_SCRIPT_H_
