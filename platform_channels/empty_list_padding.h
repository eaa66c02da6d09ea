// Settles, for one message, which empty typed lists are followed by padding.
#ifndef KESTRUN_PLATFORM_CHANNELS_EMPTY_LIST_PADDING_H_
#define KESTRUN_PLATFORM_CHANNELS_EMPTY_LIST_PADDING_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace flutter {

// Dart's writer pads an empty Int32, Int64, Float32 or Float64 list to its element size, as it
// does a full one; the engine's C++ writer does not. After such a list, zero bytes up to the
// alignment are therefore either padding or values (nulls), and only the rest of the message can
// tell: both readings arrive at the same byte, the padded one still owing as many more values as
// it skipped zeros. The padded reading is taken when it reads every value the message holds, else
// the unpadded one; a wire readable both ways is read padded (as Dart would read it). With several
// such lists the choice is made list by list in message order: each is padded whenever some
// reading of the lists after it still completes.
//
// The cost stays linear whatever the input: one pass over the message records, per ambiguous
// list, what the rest of the message still allows, so no combination of choices is ever tried.
// Reading every later list unpadded is the reading that runs out of values soonest, so it alone
// answers whether a choice can still complete. The nesting limit is applied afterwards, by the
// reader, to the reading chosen. Bytes after the last value are not looked at, as ever.
class EmptyListPadding {
 public:
  // For the `value_count` values that start at `start`: the positions just past an empty typed
  // list's count, ascending, whose zero bytes are values rather than padding. Empty when every
  // such run is padding, and when no reading completes (the reader then fails as it always has).
  static std::vector<size_t> UnpaddedPositions(const uint8_t* bytes, size_t size, size_t start,
                                               size_t value_count);
};

}  // namespace flutter

#endif  // KESTRUN_PLATFORM_CHANNELS_EMPTY_LIST_PADDING_H_
