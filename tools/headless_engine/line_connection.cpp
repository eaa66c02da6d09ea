#include "line_connection.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <cstdlib>

namespace kestrun_headless {
namespace {

SOCKET AsSocket(uintptr_t value) { return static_cast<SOCKET>(value); }

}  // namespace

LineConnection::LineConnection(uintptr_t socket) : socket_(socket) {
  read_event_ = WSACreateEvent();
  stop_event_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  // Small request and answer lines: send them at once rather than waiting to fill a segment.
  BOOL no_delay = TRUE;
  setsockopt(AsSocket(socket_), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&no_delay),
             sizeof(no_delay));
  // Makes the socket non-blocking; the reader waits on the event (or the stop event) instead.
  if (read_event_ == WSA_INVALID_EVENT ||
      WSAEventSelect(AsSocket(socket_), static_cast<WSAEVENT>(read_event_), FD_READ | FD_CLOSE) !=
          0) {
    shut_down_ = true;
  }
}

LineConnection::~LineConnection() {
  Shutdown();
  closesocket(AsSocket(socket_));
  if (read_event_ != nullptr && read_event_ != WSA_INVALID_EVENT) {
    WSACloseEvent(static_cast<WSAEVENT>(read_event_));
  }
  if (stop_event_ != nullptr) {
    CloseHandle(static_cast<HANDLE>(stop_event_));
  }
}

std::unique_ptr<LineConnection> LineConnection::Connect(const std::string& address,
                                                        std::string* error) {
  const size_t colon = address.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 >= address.size()) {
    *error = "address \"" + address + "\" is not <IPv4 address>:<port>";
    return nullptr;
  }
  const std::string host = address.substr(0, colon);
  char* end = nullptr;
  const unsigned long port = std::strtoul(address.c_str() + colon + 1, &end, 10);
  if (*end != '\0' || port == 0 || port > 65535) {
    *error = "bad port in \"" + address + "\"";
    return nullptr;
  }
  sockaddr_in target = {};
  target.sin_family = AF_INET;
  target.sin_port = htons(static_cast<u_short>(port));
  if (inet_pton(AF_INET, host.c_str(), &target.sin_addr) != 1) {
    *error = "bad IPv4 address in \"" + address + "\"";
    return nullptr;
  }
  SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (s == INVALID_SOCKET) {
    *error = "socket failed, error " + std::to_string(WSAGetLastError());
    return nullptr;
  }
  if (connect(s, reinterpret_cast<const sockaddr*>(&target), sizeof(target)) != 0) {
    *error = "connect to " + address + " failed, error " + std::to_string(WSAGetLastError());
    closesocket(s);
    return nullptr;
  }
  auto connection = std::make_unique<LineConnection>(static_cast<uintptr_t>(s));
  if (connection->is_shut_down()) {
    *error = "could not watch the socket, error " + std::to_string(WSAGetLastError());
    return nullptr;
  }
  return connection;
}

bool LineConnection::ReadLine(std::string* line) {
  while (true) {
    const size_t end = received_.find('\n', scanned_);
    if (end != std::string::npos) {
      size_t length = end;
      if (length > 0 && received_[length - 1] == '\r') {
        --length;
      }
      line->assign(received_, 0, length);
      received_.erase(0, end + 1);
      scanned_ = 0;
      return true;
    }
    scanned_ = received_.size();
    if (received_.size() > kMaxLineLength || shut_down_.load()) {
      return false;
    }
    char buffer[16384];
    const int count = recv(AsSocket(socket_), buffer, sizeof(buffer), 0);
    if (count > 0) {
      received_.append(buffer, static_cast<size_t>(count));
      continue;
    }
    if (count == 0) {
      return false;  // the peer closed the connection
    }
    if (WSAGetLastError() != WSAEWOULDBLOCK) {
      return false;
    }
    WSAEVENT events[2] = {static_cast<WSAEVENT>(read_event_), static_cast<WSAEVENT>(stop_event_)};
    const DWORD woken = WSAWaitForMultipleEvents(2, events, FALSE, WSA_INFINITE, FALSE);
    if (woken != WSA_WAIT_EVENT_0) {
      return false;  // stopped, or the wait failed
    }
    WSANETWORKEVENTS network_events = {};
    WSAEnumNetworkEvents(AsSocket(socket_), static_cast<WSAEVENT>(read_event_), &network_events);
  }
}

bool LineConnection::WriteLine(std::string_view line) {
  std::string data;
  data.reserve(line.size() + 1);
  data.append(line);
  data.push_back('\n');
  std::lock_guard<std::mutex> lock(write_mutex_);
  size_t sent = 0;
  while (sent < data.size()) {
    if (shut_down_.load()) {
      return false;
    }
    const int chunk = static_cast<int>(std::min<size_t>(data.size() - sent, 1 << 20));
    const int count = send(AsSocket(socket_), data.data() + sent, chunk, 0);
    if (count > 0) {
      sent += static_cast<size_t>(count);
      continue;
    }
    if (count == SOCKET_ERROR && WSAGetLastError() == WSAEWOULDBLOCK) {
      // The peer is slow to read: wait until the socket takes data again (rechecking for a
      // shutdown now and then).
      fd_set writable;
      FD_ZERO(&writable);
      FD_SET(AsSocket(socket_), &writable);
      timeval wait = {0, 200000};
      select(0, nullptr, &writable, nullptr, &wait);
      continue;
    }
    return false;
  }
  return true;
}

void LineConnection::FinishSending() {
  std::lock_guard<std::mutex> lock(write_mutex_);
  shutdown(AsSocket(socket_), SD_SEND);
}

void LineConnection::Shutdown() {
  if (shut_down_.exchange(true)) {
    return;
  }
  shutdown(AsSocket(socket_), SD_BOTH);
  if (stop_event_ != nullptr) {
    SetEvent(static_cast<HANDLE>(stop_event_));
  }
}

}  // namespace kestrun_headless
