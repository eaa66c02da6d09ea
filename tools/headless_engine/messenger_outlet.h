// Where the interface side of the headless engine's messenger leads: replies to messages the
// interface sent, and messages the host sends to the interface.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_MESSENGER_OUTLET_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_MESSENGER_OUTLET_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace kestrun_headless {

class MessengerOutlet {
 public:
  virtual ~MessengerOutlet() = default;

  // The host answered the message delivered with `token` (an empty reply: `size` 0). Any thread.
  virtual void OnResponse(uint64_t token, const uint8_t* data, size_t size) = 0;

  // The host sent a message to the interface. Any thread.
  virtual void OnHostMessage(const std::string& channel, const uint8_t* data, size_t size,
                             bool awaits_reply) = 0;
};

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_MESSENGER_OUTLET_H_
