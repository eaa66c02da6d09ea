// One TCP connection that carries text lines (one JSON object per line, UTF-8) both ways: the
// headless engine's control connection on either end.
//
// One thread reads (ReadLine); any thread may write (WriteLine, whole lines under a write lock) or
// stop the connection (Shutdown), which also wakes a reader waiting for data.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_LINE_CONNECTION_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_LINE_CONNECTION_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace kestrun_headless {

class LineConnection {
 public:
  // Takes ownership of a connected socket (a SOCKET). Winsock must stay initialised while the
  // connection lives.
  explicit LineConnection(uintptr_t socket);
  ~LineConnection();

  LineConnection(const LineConnection&) = delete;
  LineConnection& operator=(const LineConnection&) = delete;

  // Connects to "<IPv4 address>:<port>". Null, with the reason in `error`, on failure.
  static std::unique_ptr<LineConnection> Connect(const std::string& address, std::string* error);

  // Waits for the next line and answers it without its line end ("\n" or "\r\n"). False once
  // the peer closed the connection, on a network error, after Shutdown, or for a line longer
  // than kMaxLineLength. One reading thread only.
  bool ReadLine(std::string* line);

  // Writes `line` and a line end. `line` must not contain a line break. False once the
  // connection is down.
  bool WriteLine(std::string_view line);

  // Tells the peer that nothing more will be written (it reads the end of the stream once it has
  // read everything before it), while reading goes on until the peer closes its side too: the
  // graceful way to end, which loses no line in either direction.
  void FinishSending();

  // Ends the connection in both directions and wakes the reader. Any thread, any number of times.
  void Shutdown();

  bool is_shut_down() const { return shut_down_.load(); }

  static constexpr size_t kMaxLineLength = size_t{256} << 20;

 private:
  uintptr_t socket_;
  void* read_event_ = nullptr;  // WSAEVENT signalled when data or the close arrives
  void* stop_event_ = nullptr;  // manual-reset event set by Shutdown
  std::atomic<bool> shut_down_{false};
  std::mutex write_mutex_;
  // Bytes received after the last complete line (reader thread only).
  std::string received_;
  size_t scanned_ = 0;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_LINE_CONNECTION_H_
