// Type bytes of Flutter's standard message codec, shared by the serializer and the reading planner.
#ifndef KESTRUN_PLATFORM_CHANNELS_STANDARD_CODEC_TYPE_H_
#define KESTRUN_PLATFORM_CHANNELS_STANDARD_CODEC_TYPE_H_

#include <cstdint>

namespace flutter {

enum class StandardCodecType : uint8_t {
  kNull = 0,
  kTrue = 1,
  kFalse = 2,
  kInt32 = 3,
  kInt64 = 4,
  kLargeInt = 5,  // legacy; read like a string, never written
  kFloat64 = 6,
  kString = 7,
  kUInt8List = 8,
  kInt32List = 9,
  kInt64List = 10,
  kFloat64List = 11,
  kList = 12,
  kMap = 13,
  kFloat32List = 14,
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_STANDARD_CODEC_TYPE_H_
