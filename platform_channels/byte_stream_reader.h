// Reads the standard codec's bytes out of a buffer it does not own.
#ifndef KESTRUN_PLATFORM_CHANNELS_BYTE_STREAM_READER_H_
#define KESTRUN_PLATFORM_CHANNELS_BYTE_STREAM_READER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace flutter {

// Alignment is counted from the start of the whole message (offset 0 of the buffer). A read past
// the end prints the codec's "Invalid read" line, yields zeros and marks the reader failed; once
// failed, every further read yields zeros without printing again.
class ByteBufferStreamReader {
 public:
  ByteBufferStreamReader(const uint8_t* bytes, size_t size) : bytes_(bytes), size_(size) {}

  ByteBufferStreamReader(const ByteBufferStreamReader&) = delete;
  ByteBufferStreamReader& operator=(const ByteBufferStreamReader&) = delete;

  uint8_t ReadByte();
  void ReadBytes(uint8_t* buffer, size_t length);
  // Skips to the next multiple of `alignment` from the start of the buffer.
  void ReadAlignment(uint8_t alignment);
  // After an empty typed list: skips to the next multiple of `alignment` when the bytes up to it
  // are there and all zero (what padding looks like) and the message's plan does not say they are
  // values; otherwise stays put. Never fails the stream.
  void SkipOptionalAlignment(uint8_t alignment);
  // The plan: positions, ascending, at which zeros after an empty typed list are values, not
  // padding (see EmptyListPadding). Without one, every such run of zeros is padding.
  void SetUnpaddedEmptyLists(std::vector<size_t> positions);

  int32_t ReadInt32();
  int64_t ReadInt64();
  double ReadDouble();

  const uint8_t* data() const { return bytes_; }
  size_t size() const { return size_; }
  size_t position() const { return location_; }
  size_t remaining() const { return size_ - location_; }
  bool failed() const { return failed_; }
  // Marks the stream unusable (used by the serializer for structural faults).
  void Fail();

 private:
  bool Take(size_t length);

  const uint8_t* bytes_;
  size_t size_;
  size_t location_ = 0;
  bool failed_ = false;
  std::vector<size_t> unpadded_;
  size_t next_unpadded_ = 0;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_BYTE_STREAM_READER_H_
