#include "client_script.h"

#include <charconv>
#include <sstream>
#include <utility>
#include <vector>

namespace kestrun_headless {
namespace {

// Splits off the first word; `rest` keeps the remainder without leading blanks.
std::string FirstWord(const std::string& text, std::string* rest) {
  const size_t start = text.find_first_not_of(" \t");
  if (start == std::string::npos) {
    rest->clear();
    return std::string();
  }
  const size_t end = text.find_first_of(" \t", start);
  const std::string word = text.substr(start, end == std::string::npos ? end : end - start);
  const size_t next = end == std::string::npos ? std::string::npos : text.find_first_not_of(" \t", end);
  *rest = next == std::string::npos ? std::string() : text.substr(next);
  return word;
}

std::optional<long long> Number(const std::string& text) {
  long long value = 0;
  int base = 10;
  std::string_view digits(text);
  bool negative = false;
  if (!digits.empty() && digits[0] == '-') {
    negative = true;
    digits.remove_prefix(1);
  }
  if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
    digits.remove_prefix(2);
    base = 16;
  }
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
  if (digits.empty() || result.ec != std::errc() || result.ptr != digits.data() + digits.size()) {
    return std::nullopt;
  }
  return negative ? -value : value;
}

}  // namespace

ClientScript::ClientScript(HeadlessSession* session, Output output,
                           std::chrono::milliseconds timeout)
    : session_(session), output_(std::move(output)), timeout_(timeout) {}

bool ClientScript::Problem(const std::string& text) {
  any_failed_ = true;
  output_(JsonLine(Json{{"clientError", text}}));
  return false;
}

std::chrono::milliseconds ClientScript::TimeoutArgument(const std::string& text) {
  const std::optional<long long> value = Number(text);
  return value && *value >= 0 ? std::chrono::milliseconds(*value) : timeout_;
}

bool ClientScript::RunOperation(Json operation) {
  std::optional<Json> answer = session_->Request(std::move(operation), timeout_);
  if (!answer) {
    return Problem(session_->last_error());
  }
  output_(JsonLine(*answer));
  const Json& ok = JsonMember(*answer, "ok");
  return !answer->contains("ok") || (ok.is_boolean() && ok.get<bool>());
}

bool ClientScript::RunLine(const std::string& line) {
  std::string rest;
  const std::string command = FirstWord(line, &rest);
  if (command.empty() || command[0] == '#') {
    return true;
  }
  if (command[0] == '{') {
    std::string error;
    std::optional<Json> operation = ParseJsonLine(line, &error);
    if (!operation || !operation->is_object()) {
      return Problem("not a JSON object: " + (operation ? std::string("wrong kind") : error));
    }
    return RunOperation(std::move(*operation));
  }
  if (command == "invoke" || command == "listen" || command == "cancel") {
    std::string arguments_text;
    const std::string channel = FirstWord(rest, &arguments_text);
    std::string method = command;
    if (command == "invoke") {
      std::string after_method;
      method = FirstWord(arguments_text, &after_method);
      arguments_text = after_method;
    }
    if (channel.empty() || method.empty()) {
      return Problem(command + " needs a channel" + (command == "invoke" ? " and a method" : ""));
    }
    Json arguments;
    if (!arguments_text.empty()) {
      std::string error;
      std::optional<Json> parsed = ParseJsonLine(arguments_text, &error);
      if (!parsed) {
        return Problem("arguments are not JSON: " + error);
      }
      arguments = std::move(*parsed);
    }
    Json operation = Json{{"op", command}, {"channel", channel}};
    if (command == "invoke") {
      operation["method"] = method;
    }
    operation["args"] = std::move(arguments);
    return RunOperation(std::move(operation));
  }
  if (command == "post" || command == "send") {
    std::string after;
    const std::string message = FirstWord(rest, &after);
    std::string after_wparam;
    const std::string wparam = FirstWord(after, &after_wparam);
    std::string unused;
    const std::string lparam = FirstWord(after_wparam, &unused);
    if (message.empty()) {
      return Problem(command + " needs a window message");
    }
    Json operation = Json{{"op", command}};
    const std::optional<long long> number = Number(message);
    operation["message"] = number ? Json(*number) : Json(message);
    operation["wparam"] = Number(wparam).value_or(0);
    operation["lparam"] = Number(lparam).value_or(0);
    return RunOperation(std::move(operation));
  }
  if (command == "window" || command == "engine" || command == "sync") {
    return RunOperation(Json{{"op", command}});
  }
  if (command == "release-frame") {
    return RunOperation(Json{{"op", "releaseFrame"}});
  }
  if (command == "wait-event" || command == "wait-frame") {
    std::string after;
    std::string needle = "\"event\":\"frame\"";
    std::string timeout_text;
    if (command == "wait-event") {
      needle = FirstWord(rest, &after);
      timeout_text = FirstWord(after, &rest);
      if (needle.empty()) {
        return Problem("wait-event needs a text to look for");
      }
    } else {
      timeout_text = FirstWord(rest, &after);
    }
    const std::chrono::milliseconds timeout = TimeoutArgument(timeout_text);
    std::optional<HeadlessEvent> event = session_->WaitForEvent(
        [&](const HeadlessEvent& e) { return JsonLine(e.json).find(needle) != std::string::npos; },
        timeout);
    if (!event) {
      return Problem("no event containing " + needle + ": " + session_->last_error());
    }
    output_(JsonLine(Json{{"matched", needle}}));
    return true;
  }
  if (command == "wait-exit") {
    std::string unused;
    const std::chrono::milliseconds timeout = TimeoutArgument(FirstWord(rest, &unused));
    std::optional<uint32_t> code = session_->WaitForExit(timeout);
    if (!code) {
      return Problem(session_->last_error());
    }
    exit_code_ = code;
    output_(JsonLine(Json{{"exit", static_cast<int64_t>(*code)}}));
    return true;
  }
  if (command == "echo") {
    output_(JsonLine(Json{{"echo", rest}}));
    return true;
  }
  if (command == "kill") {
    std::string unused;
    const uint32_t code = static_cast<uint32_t>(Number(FirstWord(rest, &unused)).value_or(1));
    session_->Kill(code);
    exit_code_ = session_->WaitForExit(std::chrono::milliseconds(0));
    output_(JsonLine(Json{{"killed", static_cast<int64_t>(code)}}));
    return true;
  }
  return Problem("unknown command \"" + command + "\"");
}

}  // namespace kestrun_headless
