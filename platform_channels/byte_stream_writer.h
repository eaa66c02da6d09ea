// Appends the standard codec's bytes to a vector owned by the caller.
#ifndef KESTRUN_PLATFORM_CHANNELS_BYTE_STREAM_WRITER_H_
#define KESTRUN_PLATFORM_CHANNELS_BYTE_STREAM_WRITER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace flutter {

// Alignment is counted from the start of the whole message (offset 0 of the vector).
class ByteBufferStreamWriter {
 public:
  explicit ByteBufferStreamWriter(std::vector<uint8_t>* buffer) : bytes_(buffer) {}

  ByteBufferStreamWriter(const ByteBufferStreamWriter&) = delete;
  ByteBufferStreamWriter& operator=(const ByteBufferStreamWriter&) = delete;

  void WriteByte(uint8_t byte) { bytes_->push_back(byte); }
  void WriteBytes(const uint8_t* bytes, size_t length) {
    if (length > 0) {
      bytes_->insert(bytes_->end(), bytes, bytes + length);
    }
  }
  // Pads with zero bytes to the next multiple of `alignment` from the start of the buffer.
  void WriteAlignment(uint8_t alignment) {
    const size_t mod = bytes_->size() % alignment;
    if (mod != 0) {
      bytes_->insert(bytes_->end(), alignment - mod, 0);
    }
  }

  void WriteInt32(int32_t value) { WriteBytes(reinterpret_cast<const uint8_t*>(&value), 4); }
  void WriteInt64(int64_t value) { WriteBytes(reinterpret_cast<const uint8_t*>(&value), 8); }
  void WriteDouble(double value) { WriteBytes(reinterpret_cast<const uint8_t*>(&value), 8); }

  size_t size() const { return bytes_->size(); }
  // Marks what was written as unusable: the serializer met a value it must not write. The codec
  // then sends nothing rather than a message cut short.
  void Fail() { failed_ = true; }
  bool failed() const { return failed_; }

 private:
  std::vector<uint8_t>* bytes_;
  bool failed_ = false;
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_BYTE_STREAM_WRITER_H_
