#include "winsock_library.h"

#include <winsock2.h>

namespace kestrun_headless {

WinsockLibrary::WinsockLibrary() {
  WSADATA data = {};
  ready_ = WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

WinsockLibrary::~WinsockLibrary() {
  if (ready_) {
    WSACleanup();
  }
}

}  // namespace kestrun_headless
