#include "empty_list_padding.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "standard_codec_type.h"

namespace flutter {

namespace {

using Type = StandardCodecType;

constexpr int64_t kNoStep = std::numeric_limits<int64_t>::max();

// Walks the message token by token, the way the serializer reads it, without printing anything.
// A token is a value's own bytes (a container's type and count, not its elements); its `delta` is
// how it changes the number of values still owed: -1 for anything without elements, count - 1 for
// a list and 2 * count - 1 for a map. The token boundaries do not depend on how padding is read,
// since alignment counts from the start of the message and both readings of a run of zeros end
// at the same byte.
class TokenScanner {
 public:
  TokenScanner(const uint8_t* bytes, size_t size, size_t start)
      : bytes_(bytes), size_(size), position_(start) {}

  size_t position() const { return position_; }
  bool at_end() const { return position_ >= size_; }
  void Advance(size_t length) { position_ += length; }

  // Reads the token at the current position. `padding` is set to the length of a run of zeros that
  // may be padding of an empty typed list (left unread), else 0. False when the token is malformed
  // or cut short: the serializer would fail there.
  bool Next(int64_t* delta, uint8_t* padding) {
    *delta = -1;
    *padding = 0;
    if (!Skip(1)) {
      return false;
    }
    size_t count = 0;
    switch (static_cast<Type>(bytes_[position_ - 1])) {
      case Type::kNull:
      case Type::kTrue:
      case Type::kFalse:
        return true;
      case Type::kInt32:
        return Skip(4);
      case Type::kInt64:
        return Skip(8);
      case Type::kFloat64:
        return Align(8) && Skip(8);
      case Type::kLargeInt:
      case Type::kString:
      case Type::kUInt8List:
        return ReadSize(&count) && Skip(count);
      case Type::kInt32List:
      case Type::kFloat32List:
        return TypedList(4, padding);
      case Type::kInt64List:
      case Type::kFloat64List:
        return TypedList(8, padding);
      case Type::kList:
        if (!ReadSize(&count) || count > remaining()) {
          return false;
        }
        *delta = static_cast<int64_t>(count) - 1;
        return true;
      case Type::kMap:
        if (!ReadSize(&count) || count > remaining() / 2) {
          return false;
        }
        *delta = 2 * static_cast<int64_t>(count) - 1;
        return true;
    }
    return false;
  }

 private:
  size_t remaining() const { return size_ - position_; }

  bool Skip(size_t length) {
    if (length > remaining()) {
      return false;
    }
    position_ += length;
    return true;
  }

  bool Align(size_t alignment) {
    const size_t mod = position_ % alignment;
    return mod == 0 || Skip(alignment - mod);
  }

  bool ReadSize(size_t* size) {
    if (!Skip(1)) {
      return false;
    }
    const uint8_t first = bytes_[position_ - 1];
    if (first < 254) {
      *size = first;
      return true;
    }
    if (first == 254) {
      uint16_t value = 0;
      if (!Skip(sizeof(value))) {
        return false;
      }
      std::memcpy(&value, bytes_ + position_ - sizeof(value), sizeof(value));
      *size = value;
      return true;
    }
    uint32_t value = 0;
    if (!Skip(sizeof(value))) {
      return false;
    }
    std::memcpy(&value, bytes_ + position_ - sizeof(value), sizeof(value));
    *size = value;
    return true;
  }

  bool TypedList(size_t element_size, uint8_t* padding) {
    size_t count = 0;
    if (!ReadSize(&count)) {
      return false;
    }
    if (count == 0) {
      const size_t mod = position_ % element_size;
      const size_t length = mod == 0 ? 0 : element_size - mod;
      if (length == 0 || length > remaining()) {
        return true;
      }
      for (size_t i = 0; i < length; ++i) {
        if (bytes_[position_ + i] != 0) {
          return true;
        }
      }
      *padding = static_cast<uint8_t>(length);
      return true;
    }
    return Align(element_size) && count <= remaining() / element_size &&
           Skip(count * element_size);
  }

  const uint8_t* bytes_;
  size_t size_;
  size_t position_;
};

// An empty typed list followed by zeros that may be its padding. Owed counts are kept relative to
// the start, as if every such run read as nulls so far ("all unpadded").
struct AmbiguousList {
  size_t padding_at;  // the first zero
  int64_t padding;    // how many zeros
  int64_t before;     // owed change just before the list
  // Lowest owed change at any token boundary after the zeros and before the next ambiguous list,
  // and (after the backward pass) at any boundary after the zeros, later runs read as nulls.
  int64_t segment_low = kNoStep;
  int64_t rest_low = kNoStep;
  // The owed change after the list and its zeros read as nulls.
  int64_t after_as_nulls() const { return before - 1 - padding; }
};

}  // namespace

std::vector<size_t> EmptyListPadding::UnpaddedPositions(const uint8_t* bytes, size_t size,
                                                        size_t start, size_t value_count) {
  // One pass over every token the message holds (a reading ends where the owed count first reaches
  // zero, but which reading that is is not known yet). The scan stops at the first malformed token:
  // a reading that still owes values there fails.
  std::vector<AmbiguousList> lists;
  int64_t first_segment_low = kNoStep;
  int64_t change = 0;
  TokenScanner scanner(bytes, size, start);
  while (!scanner.at_end()) {
    int64_t delta = 0;
    uint8_t padding = 0;
    if (!scanner.Next(&delta, &padding)) {
      break;
    }
    if (padding == 0) {
      change += delta;
      int64_t& low = lists.empty() ? first_segment_low : lists.back().segment_low;
      low = std::min(low, change);
      continue;
    }
    lists.push_back({scanner.position(), padding, change});
    change += delta - padding;
    scanner.Advance(padding);
  }
  for (size_t i = lists.size(); i-- > 0;) {
    AmbiguousList& list = lists[i];
    list.rest_low = list.segment_low;
    if (i + 1 < lists.size()) {
      const AmbiguousList& next = lists[i + 1];
      list.rest_low = std::min({list.rest_low, next.after_as_nulls(), next.rest_low});
    }
  }

  // A reading ends when owed + change reaches zero; steps never fall by more than one, so reaching
  // zero or below anywhere means it ends there. All unpadded completes if any reading does.
  const int64_t owed = static_cast<int64_t>(value_count);
  int64_t lowest = first_segment_low;
  if (!lists.empty()) {
    lowest = std::min({lowest, lists.front().after_as_nulls(), lists.front().rest_low});
  }
  if (lowest > -owed || first_segment_low <= -owed) {
    return {};  // no reading completes, or one ends before the first ambiguous list
  }

  std::vector<size_t> unpadded;
  int64_t skipped = 0;  // zeros read as padding so far: each leaves one more value owed
  for (const AmbiguousList& list : lists) {
    const int64_t owed_at_list = owed + skipped + list.before;
    if (owed_at_list == 1) {
      break;  // the list is the last value: its padding goes with it
    }
    if (list.rest_low <= -(owed + skipped + list.padding)) {
      skipped += list.padding;
    } else {
      unpadded.push_back(list.padding_at);
      if (owed_at_list - 1 - list.padding <= 0) {
        break;  // ends among the zeros
      }
    }
    if (list.segment_low <= -(owed + skipped)) {
      break;  // ends before the next ambiguous list
    }
  }
  return unpadded;
}

}  // namespace flutter
