// Channel traffic as the control protocol writes it: replies to the interface's calls and the
// host's messages to the interface, decoded with the standard method codec.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_CHANNEL_JSON_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_CHANNEL_JSON_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "encodable_json.h"

namespace kestrun_headless {

// The members of an answer to a call: {"reply":"success","value":v} |
// {"reply":"error","code":c,"message":m,"details":d} | {"reply":"notImplemented"} (empty reply) |
// {"reply":"invalid","raw":"<base64>"} (not a reply envelope).
Json ReplyToJson(const uint8_t* data, size_t size);

// A message the host sent to the interface. On a channel the interface listens to as an event
// channel: {"event":"stream","channel":c,"value":v} | {"event":"streamError","channel":c,
// "code":..,"message":..,"details":..} | {"event":"endOfStream","channel":c}. Otherwise
// {"event":"message","channel":c,"method":m,"args":a}. Bytes that decode as neither:
// {"event":"message","channel":c,"raw":"<base64>"}.
Json HostMessageToJson(const std::string& channel, const uint8_t* data, size_t size,
                            bool event_channel);

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_CHANNEL_JSON_H_
