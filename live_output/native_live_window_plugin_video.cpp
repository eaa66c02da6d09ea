// The video rows of the live output channel: "setVideoTopology" and the commands routed to the
// decoder a display shows. Arguments are read and checked here before anything changes; the
// topology itself is VideoTopology's.

#include <cstdint>
#include <utility>
#include <variant>
#include <vector>

#include "live_output/native_live_window_plugin.h"
#include "live_output/video/video_topology_description.h"

namespace native_live_window {

namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using Result = flutter::MethodResult<EncodableValue>;

const EncodableMap* AsMap(const EncodableValue* value) {
  return value != nullptr ? std::get_if<EncodableMap>(value) : nullptr;
}

// The value under `key`; null when absent or null.
const EncodableValue* Find(const EncodableMap& map, const char* key) {
  const auto it = map.find(EncodableValue(key));
  return it == map.end() || it->second.IsNull() ? nullptr : &it->second;
}

// The value under `key`, null only when the key is absent (a list sent as null is not a list).
const EncodableValue* FindPresent(const EncodableMap& map, const char* key) {
  const auto it = map.find(EncodableValue(key));
  return it == map.end() ? nullptr : &it->second;
}

// An "int" of the channel: a 32-bit or 64-bit integer. Another kind is a contract violation
// (std::get raises and the handler's noexcept boundary ends the process without a reply).
std::int64_t Integer(const EncodableValue& value) {
  if (const auto* small = std::get_if<std::int32_t>(&value)) {
    return *small;
  }
  return std::get<std::int64_t>(value);
}

// Sizes, crops and positions of a topology: integers of either width, 0 for anything else.
std::int64_t LenientInteger(const EncodableMap& map, const char* key) {
  const EncodableValue* value = Find(map, key);
  if (value == nullptr) {
    return 0;
  }
  if (const auto* small = std::get_if<std::int32_t>(value)) {
    return *small;
  }
  if (const auto* large = std::get_if<std::int64_t>(value)) {
    return *large;
  }
  return 0;
}

std::int32_t LenientInt32(const EncodableMap& map, const char* key) {
  return static_cast<std::int32_t>(LenientInteger(map, key));
}

DecoderSpec ReadDecoder(const EncodableMap& entry) {
  DecoderSpec wanted;
  wanted.key = std::get<std::string>(*Find(entry, "key"));
  wanted.path = std::get<std::string>(*Find(entry, "path"));
  if (const EncodableValue* fit = Find(entry, "fitMode")) {
    wanted.fit_mode = static_cast<FitMode>(std::get<std::int32_t>(*fit));
  }
  if (const EncodableValue* loop = Find(entry, "loop")) {
    wanted.loop = std::get<bool>(*loop);
  }
  if (const EncodableValue* priority = Find(entry, "decoderPriority")) {
    for (const EncodableValue& name : std::get<EncodableList>(*priority)) {
      if (const auto* text = std::get_if<std::string>(&name)) {
        wanted.decoder_priority.push_back(*text);
      }
    }
  }
  wanted.canvas_width = LenientInt32(entry, "canvasWidth");
  wanted.canvas_height = LenientInt32(entry, "canvasHeight");
  wanted.start_position_ms = LenientInteger(entry, "startPositionMs");
  return wanted;
}

AssignmentSpec ReadAssignment(const EncodableMap& entry) {
  AssignmentSpec wanted;
  wanted.display_id = std::get<std::string>(*Find(entry, "displayId"));
  wanted.decoder_key = std::get<std::string>(*Find(entry, "decoderKey"));
  const bool all_present = Find(entry, "cropX") != nullptr && Find(entry, "cropY") != nullptr &&
                           Find(entry, "cropWidth") != nullptr &&
                           Find(entry, "cropHeight") != nullptr;
  wanted.crop_x = LenientInt32(entry, "cropX");
  wanted.crop_y = LenientInt32(entry, "cropY");
  wanted.crop_width = LenientInt32(entry, "cropWidth");
  wanted.crop_height = LenientInt32(entry, "cropHeight");
  wanted.has_crop = all_present && wanted.crop_width > 0 && wanted.crop_height > 0;
  return wanted;
}

// Reads both lists; on a failure answers the call and gives false. Entries that are not maps are
// skipped.
bool ReadTopology(const EncodableValue* arguments, std::unique_ptr<Result>& result,
                  std::vector<DecoderSpec>* decoders, std::vector<AssignmentSpec>* assignments) {
  const EncodableMap* args = AsMap(arguments);
  if (args == nullptr) {
    result->Error("INVALID_ARGS", "Expected map argument");
    return false;
  }
  const EncodableValue* decoder_list = FindPresent(*args, "decoders");
  if (decoder_list == nullptr) {
    result->Error("INVALID_ARGS", "Missing 'decoders' argument");
    return false;
  }
  const auto* decoder_entries = std::get_if<EncodableList>(decoder_list);
  if (decoder_entries == nullptr) {
    result->Error("INVALID_ARGS", "'decoders' must be a list");
    return false;
  }
  for (const EncodableValue& value : *decoder_entries) {
    const EncodableMap* entry = AsMap(&value);
    if (entry == nullptr) {
      continue;
    }
    if (Find(*entry, "key") == nullptr || Find(*entry, "path") == nullptr ||
        Find(*entry, "canvasWidth") == nullptr || Find(*entry, "canvasHeight") == nullptr) {
      result->Error("INVALID_ARGS",
                    "Decoder entry missing required field (key/path/canvasWidth/canvasHeight)");
      return false;
    }
    decoders->push_back(ReadDecoder(*entry));
  }
  const EncodableValue* assignment_list = FindPresent(*args, "assignments");
  if (assignment_list == nullptr) {
    result->Error("INVALID_ARGS", "Missing 'assignments' argument");
    return false;
  }
  const auto* assignment_entries = std::get_if<EncodableList>(assignment_list);
  if (assignment_entries == nullptr) {
    result->Error("INVALID_ARGS", "'assignments' must be a list");
    return false;
  }
  for (const EncodableValue& value : *assignment_entries) {
    const EncodableMap* entry = AsMap(&value);
    if (entry == nullptr) {
      continue;
    }
    if (Find(*entry, "displayId") == nullptr || Find(*entry, "decoderKey") == nullptr) {
      result->Error("INVALID_ARGS",
                    "Assignment entry missing required field (displayId/decoderKey)");
      return false;
    }
    assignments->push_back(ReadAssignment(*entry));
  }
  return true;
}

// The map of a call and the value of its `key`; when either is missing, answers the call and
// gives null. With `display_id` the call is about one display and needs "displayId" first.
const EncodableValue* Argument(const EncodableValue* arguments, std::unique_ptr<Result>& result,
                               const char* key, const char* missing,
                               const std::string** display_id) {
  const EncodableMap* args = AsMap(arguments);
  if (args == nullptr) {
    result->Error("INVALID_ARGS", "Expected map argument");
    return nullptr;
  }
  if (display_id != nullptr) {
    const EncodableValue* id = Find(*args, "displayId");
    if (id == nullptr) {
      result->Error("INVALID_ARGS", "Missing 'displayId' argument");
      return nullptr;
    }
    *display_id = &std::get<std::string>(*id);
  }
  if (key == nullptr) {
    return arguments;
  }
  const EncodableValue* value = Find(*args, key);
  if (value == nullptr) {
    result->Error("INVALID_ARGS", missing);
  }
  return value;
}

void ReplyTrue(std::unique_ptr<Result> result) { result->Success(EncodableValue(true)); }

}  // namespace

void NativeLiveWindowPlugin::SetVideoTopology(const EncodableValue* arguments,
                                              std::unique_ptr<Result> result) {
  std::vector<DecoderSpec> decoders;
  std::vector<AssignmentSpec> assignments;
  if (!ReadTopology(arguments, result, &decoders, &assignments)) {
    return;
  }
  switch (video_topology_.Apply(decoders, assignments, windows_)) {
    case VideoTopology::ApplyResult::kDeviceFailed:
      result->Error("D3D11_FAILED", "Failed to create shared D3D11 device");
      return;
    case VideoTopology::ApplyResult::kCoordinatorFailed:
      result->Error("DCOMP_FAILED", "Failed to initialize DCompCoordinator");
      return;
    case VideoTopology::ApplyResult::kApplied:
      ReplyTrue(std::move(result));
      return;
  }
}

void NativeLiveWindowPlugin::SetVolumeForDisplay(const EncodableValue* arguments,
                                                 std::unique_ptr<Result> result) {
  const std::string* display_id = nullptr;
  const EncodableValue* volume =
      Argument(arguments, result, "volume", "Missing 'volume' argument", &display_id);
  if (volume == nullptr) {
    return;
  }
  const double value = std::get<double>(*volume);
  if (VideoDecoder* decoder = video_topology_.RoutedDecoder(*display_id)) {
    decoder->SetVolume(static_cast<float>(value));
  }
  ReplyTrue(std::move(result));
}

void NativeLiveWindowPlugin::GetPositionForDisplay(const EncodableValue* arguments,
                                                   std::unique_ptr<Result> result) {
  const std::string* display_id = nullptr;
  if (Argument(arguments, result, nullptr, nullptr, &display_id) == nullptr) {
    return;
  }
  VideoDecoder* decoder = video_topology_.RoutedDecoder(*display_id);
  const std::int64_t position = decoder != nullptr ? decoder->GetPosition() : 0;
  result->Success(EncodableValue(position));
}

void NativeLiveWindowPlugin::SeekToForDisplay(const EncodableValue* arguments,
                                              std::unique_ptr<Result> result) {
  const std::string* display_id = nullptr;
  const EncodableValue* position =
      Argument(arguments, result, "positionMs", "Missing 'positionMs' argument", &display_id);
  if (position == nullptr) {
    return;
  }
  const std::int64_t position_ms = Integer(*position);
  if (VideoDecoder* decoder = video_topology_.RoutedDecoder(*display_id)) {
    decoder->SeekTo(position_ms);
  }
  ReplyTrue(std::move(result));
}

void NativeLiveWindowPlugin::SeekToAll(const EncodableValue* arguments,
                                       std::unique_ptr<Result> result) {
  const EncodableValue* position =
      Argument(arguments, result, "positionMs", "Missing 'positionMs' argument", nullptr);
  if (position == nullptr) {
    return;
  }
  const std::int64_t position_ms = Integer(*position);
  video_topology_.ForEachDecoder(
      [position_ms](VideoDecoder& decoder) { decoder.SeekTo(position_ms); });
  ReplyTrue(std::move(result));
}

void NativeLiveWindowPlugin::SetVideoPausedForDisplay(const EncodableValue* arguments,
                                                      std::unique_ptr<Result> result) {
  const std::string* display_id = nullptr;
  const EncodableValue* paused =
      Argument(arguments, result, "paused", "Missing 'paused' argument", &display_id);
  if (paused == nullptr) {
    return;
  }
  const bool value = std::get<bool>(*paused);
  if (VideoDecoder* decoder = video_topology_.RoutedDecoder(*display_id)) {
    decoder->SetPaused(value);
  }
  ReplyTrue(std::move(result));
}

void NativeLiveWindowPlugin::SetVideoPausedAll(const EncodableValue* arguments,
                                               std::unique_ptr<Result> result) {
  const EncodableValue* paused =
      Argument(arguments, result, "paused", "Missing 'paused' argument", nullptr);
  if (paused == nullptr) {
    return;
  }
  const bool value = std::get<bool>(*paused);
  video_topology_.ForEachDecoder([value](VideoDecoder& decoder) { decoder.SetPaused(value); });
  ReplyTrue(std::move(result));
}

void NativeLiveWindowPlugin::SetVideoOpacity(const EncodableValue* arguments,
                                             std::unique_ptr<Result> result) {
  const EncodableValue* opacity_value =
      Argument(arguments, result, "opacity", "Missing 'opacity' argument", nullptr);
  if (opacity_value == nullptr) {
    return;
  }
  const double opacity = std::get<double>(*opacity_value);
  const EncodableValue* duration_value = Find(*AsMap(arguments), "duration");
  const std::int64_t duration_ms = duration_value != nullptr ? Integer(*duration_value) : 0;
  DCompCoordinator* coordinator = video_topology_.coordinator();
  if (!video_topology_.active() || coordinator == nullptr) {
    ReplyTrue(std::move(result));
    return;
  }
  if (duration_ms < 1) {
    coordinator->SetOpacity(static_cast<float>(opacity));
    ReplyTrue(std::move(result));
    return;
  }
  // With a duration only the direction counts: any positive opacity fades fully in.
  const int duration = static_cast<int>(duration_ms > INT32_MAX ? INT32_MAX : duration_ms);
  const std::int32_t request_id = deferred_replies_.Park(std::move(result));
  const std::function<void()> completion = deferred_replies_.CompletionAfter(request_id);
  if (opacity > 0.0) {
    coordinator->FadeIn(duration, completion);
  } else {
    coordinator->FadeOut(duration, completion);
  }
}

}  // namespace native_live_window
