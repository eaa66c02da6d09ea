// Flutter's standard message codec: how each EncodableValue kind is written as bytes.
#ifndef KESTRUN_PLATFORM_CHANNELS_STANDARD_CODEC_SERIALIZER_H_
#define KESTRUN_PLATFORM_CHANNELS_STANDARD_CODEC_SERIALIZER_H_

#include <cstddef>
#include <cstdint>

#include "byte_stream_reader.h"
#include "byte_stream_writer.h"
#include "encodable_value.h"

namespace flutter {

class StandardCodecSerializer {
 public:
  // The most lists and maps one value may hold inside one another. The reader refuses deeper
  // nests rather than risk the stack, so the writer refuses them too: what we send, we can read.
  static constexpr int kMaxNestingDepth = 256;

  static const StandardCodecSerializer& GetInstance();

  StandardCodecSerializer() = default;
  StandardCodecSerializer(const StandardCodecSerializer&) = delete;
  StandardCodecSerializer& operator=(const StandardCodecSerializer&) = delete;

  // Settles how the next `value_count` values of the message are to be read where an empty typed
  // list may or may not be followed by padding (see EmptyListPadding). Codecs call it once per
  // message, before reading its values; without it, zeros that can be padding are padding.
  void PlanReading(ByteBufferStreamReader* stream, size_t value_count) const;

  // Reads one value. On malformed or truncated input the reason is printed, the stream is left
  // failed and the answer is null; callers check `stream->failed()`.
  EncodableValue ReadValue(ByteBufferStreamReader* stream) const;

  // Appends one value. A custom value cannot be written: the reason is printed and a null is
  // written in its place so that the surrounding structure stays readable. A value nested deeper
  // than kMaxNestingDepth is not written at all: the reason is printed and the stream is failed.
  void WriteValue(const EncodableValue& value, ByteBufferStreamWriter* stream) const;

  // The codec's variable-length sizes: one byte below 254, 254 + uint16, or 255 + uint32.
  size_t ReadSize(ByteBufferStreamReader* stream) const;
  void WriteSize(size_t size, ByteBufferStreamWriter* stream) const;

 private:
  EncodableValue ReadValueAtDepth(ByteBufferStreamReader* stream, int depth) const;
  EncodableValue ReadValueOfType(uint8_t type, ByteBufferStreamReader* stream, int depth) const;
  void WriteValueAtDepth(const EncodableValue& value, ByteBufferStreamWriter* stream,
                         int depth) const;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_STANDARD_CODEC_SERIALIZER_H_
