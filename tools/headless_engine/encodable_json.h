// The control protocol's JSON (nlohmann::ordered_json, members in the order written) and the exact
// mapping between it and the channel value flutter::EncodableValue.
//
// JSON to EncodableValue:
//   null, true/false, strings and arrays map to their obvious counterparts;
//   a plain integer becomes int32 when it fits, else int64;
//   a number with a fraction or an exponent becomes double;
//   an object becomes a map with string keys, except the typed forms, which are objects with
//   exactly one member named
//     "int32": n | "int64": n | "double": x (or "NaN", "Infinity", "-Infinity")
//     "bytes": "<base64>" or [0..255, ...]
//     "int32List": [...] | "int64List": [...] | "float32List": [...] | "float64List": [...]
//       (list elements of the float lists may also be "NaN", "Infinity", "-Infinity")
//     "map": [[key, value], ...]   (a map with keys of any kind, in the order given)
//   A typed form with a value of the wrong shape is an error, never a map.
// EncodableValue to JSON writes the same forms, choosing the plain form whenever reading it back
// gives the same kind, so that a round trip in either direction is exact.
#ifndef KESTRUN_TOOLS_HEADLESS_ENGINE_ENCODABLE_JSON_H_
#define KESTRUN_TOOLS_HEADLESS_ENGINE_ENCODABLE_JSON_H_

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "encodable_value.h"

namespace kestrun_headless {

using Json = nlohmann::ordered_json;

// Parses one line of the protocol: one JSON text, surrounding white space allowed, nothing else
// after it. The last of repeated member names wins; integers beyond the 64-bit signed range read
// as doubles; nests deeper than the mapping below follows are refused. On failure answers nothing
// and, when `error` is given, the reason with its byte offset.
std::optional<Json> ParseJsonLine(std::string_view text, std::string* error = nullptr);

// Compact JSON text on one line, UTF-8 as it is and invalid UTF-8 written as U+FFFD. Doubles carry
// a fraction or an exponent so that they read back as doubles; non-finite ones are written as null.
std::string JsonLine(const Json& value);

// The member `key` of an object; null when there is none or `object` is no object.
const Json& JsonMember(const Json& object, const std::string& key);

// An integer, or a double with an integral value within the 64-bit range; 0 for anything else.
int64_t JsonInteger(const Json& value);

// JSON to channel value (see the top of this file). False, with the reason in `error` when given,
// for a typed form of the wrong shape.
bool JsonToEncodable(const Json& json, flutter::EncodableValue* out, std::string* error = nullptr);

// Channel value to JSON (see the top of this file). False only for a custom value, which has no
// JSON form.
bool EncodableToJson(const flutter::EncodableValue& value, Json* out, std::string* error = nullptr);

// Conveniences that answer a null value (JSON or channel) on failure.
Json ToJson(const flutter::EncodableValue& value);
flutter::EncodableValue ToEncodable(const Json& json);

}  // namespace kestrun_headless

#endif  // KESTRUN_TOOLS_HEADLESS_ENGINE_ENCODABLE_JSON_H_
