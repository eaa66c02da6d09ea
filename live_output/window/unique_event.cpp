#include "live_output/window/unique_event.h"

namespace native_live_window {

UniqueEvent::UniqueEvent() : handle_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

UniqueEvent::~UniqueEvent() {
  if (handle_ != nullptr) {
    CloseHandle(handle_);
  }
}

void UniqueEvent::Signal() const {
  if (handle_ != nullptr) {
    SetEvent(handle_);
  }
}

}  // namespace native_live_window
