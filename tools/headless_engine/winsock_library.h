// Keeps Winsock initialised for as long as an instance lives (WSAStartup / WSACleanup pair).
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_WINSOCK_LIBRARY_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_WINSOCK_LIBRARY_H_

namespace kestrun_headless {

class WinsockLibrary {
 public:
  WinsockLibrary();
  ~WinsockLibrary();

  WinsockLibrary(const WinsockLibrary&) = delete;
  WinsockLibrary& operator=(const WinsockLibrary&) = delete;

  // False when Winsock 2.2 could not be initialised; sockets then cannot be used.
  bool ready() const { return ready_; }

 private:
  bool ready_ = false;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_WINSOCK_LIBRARY_H_
