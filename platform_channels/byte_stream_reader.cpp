#include "byte_stream_reader.h"

#include <cstring>
#include <iostream>
#include <utility>

namespace flutter {

bool ByteBufferStreamReader::Take(size_t length) {
  if (failed_) {
    return false;
  }
  if (length > size_ - location_) {
    std::cerr << "Invalid read in StandardCodecByteStreamReader" << std::endl;
    Fail();
    return false;
  }
  return true;
}

void ByteBufferStreamReader::Fail() {
  failed_ = true;
  location_ = size_;
}

uint8_t ByteBufferStreamReader::ReadByte() {
  if (!Take(1)) {
    return 0;
  }
  return bytes_[location_++];
}

void ByteBufferStreamReader::ReadBytes(uint8_t* buffer, size_t length) {
  if (length == 0) {
    return;
  }
  if (!Take(length)) {
    std::memset(buffer, 0, length);
    return;
  }
  std::memcpy(buffer, bytes_ + location_, length);
  location_ += length;
}

void ByteBufferStreamReader::ReadAlignment(uint8_t alignment) {
  const size_t mod = location_ % alignment;
  if (mod != 0) {
    // Padding past the end is as much a truncation as any other missing byte.
    if (Take(alignment - mod)) {
      location_ += alignment - mod;
    }
  }
}

void ByteBufferStreamReader::SkipOptionalAlignment(uint8_t alignment) {
  const size_t mod = location_ % alignment;
  if (failed_ || mod == 0) {
    return;
  }
  while (next_unpadded_ < unpadded_.size() && unpadded_[next_unpadded_] < location_) {
    ++next_unpadded_;
  }
  if (next_unpadded_ < unpadded_.size() && unpadded_[next_unpadded_] == location_) {
    ++next_unpadded_;
    return;
  }
  const size_t padding = alignment - mod;
  if (padding > size_ - location_) {
    return;
  }
  for (size_t i = 0; i < padding; ++i) {
    if (bytes_[location_ + i] != 0) {
      return;
    }
  }
  location_ += padding;
}

void ByteBufferStreamReader::SetUnpaddedEmptyLists(std::vector<size_t> positions) {
  unpadded_ = std::move(positions);
  next_unpadded_ = 0;
}

int32_t ByteBufferStreamReader::ReadInt32() {
  int32_t value = 0;
  ReadBytes(reinterpret_cast<uint8_t*>(&value), sizeof(value));
  return value;
}

int64_t ByteBufferStreamReader::ReadInt64() {
  int64_t value = 0;
  ReadBytes(reinterpret_cast<uint8_t*>(&value), sizeof(value));
  return value;
}

double ByteBufferStreamReader::ReadDouble() {
  double value = 0;
  ReadBytes(reinterpret_cast<uint8_t*>(&value), sizeof(value));
  return value;
}

}  // namespace flutter
