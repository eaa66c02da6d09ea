// The standard message codec: exact bytes of every kind, alignment, sizes, key order, and how
// malformed, truncated or hostile input is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "byte_stream_reader.h"
#include "byte_stream_writer.h"
#include "codec_test_support.h"
#include "encodable_value.h"
#include "standard_codec_serializer.h"
#include "standard_message_codec.h"

// Every allocation of this test program is counted, so that tests can bound what decoding a
// hostile message may claim. The size is kept in a header in front of the block. The functions
// stay out of line: inlined into a caller, GCC pairs the library's new with our free and warns.
#if defined(__GNUC__)
#define KESTRUN_OUT_OF_LINE __attribute__((noinline))
#else
#define KESTRUN_OUT_OF_LINE
#endif

namespace {
constexpr std::size_t kAllocationHeader = alignof(std::max_align_t);
std::atomic<std::size_t> g_live_bytes{0};
std::atomic<std::size_t> g_peak_bytes{0};
}  // namespace

KESTRUN_OUT_OF_LINE void* operator new(std::size_t size) {
  void* block = std::malloc(size + kAllocationHeader);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  *static_cast<std::size_t*>(block) = size;
  const std::size_t live = g_live_bytes.fetch_add(size) + size;
  std::size_t peak = g_peak_bytes.load();
  while (live > peak && !g_peak_bytes.compare_exchange_weak(peak, live)) {
  }
  return static_cast<char*>(block) + kAllocationHeader;
}

KESTRUN_OUT_OF_LINE void operator delete(void* pointer) noexcept {
  if (pointer == nullptr) {
    return;
  }
  void* block = static_cast<char*>(pointer) - kAllocationHeader;
  g_live_bytes.fetch_sub(*static_cast<std::size_t*>(block));
  std::free(block);
}

KESTRUN_OUT_OF_LINE void operator delete(void* pointer, std::size_t) noexcept {
  operator delete(pointer);
}

namespace flutter {
namespace {

using namespace codec_test;  // NOLINT(build/namespaces)

const StandardMessageCodec& Codec() { return StandardMessageCodec::GetInstance(); }
const StandardCodecSerializer& Serializer() { return StandardCodecSerializer::GetInstance(); }

std::vector<uint8_t> Encode(const EncodableValue& value) { return *Codec().EncodeMessage(value); }

// The most bytes held at once while decoding `bytes`, which must fail as a read past the end.
std::size_t PeakOfRefusedDecode(const std::vector<uint8_t>& bytes) {
  testing::internal::CaptureStderr();
  const std::size_t base = g_live_bytes.load();
  g_peak_bytes.store(base);
  EXPECT_EQ(Codec().DecodeMessage(bytes), nullptr);
  const std::size_t peak = g_peak_bytes.load() - base;
  EXPECT_EQ(StripCarriageReturns(testing::internal::GetCapturedStderr()), kInvalidRead);
  return peak;
}

// Decodes while capturing what the codec prints.
struct Decoded {
  std::unique_ptr<EncodableValue> value;
  std::string printed;
};
Decoded DecodeCapturing(const std::vector<uint8_t>& bytes) {
  testing::internal::CaptureStderr();
  Decoded decoded;
  decoded.value = Codec().DecodeMessage(bytes.data(), bytes.size());
  decoded.printed = StripCarriageReturns(testing::internal::GetCapturedStderr());
  return decoded;
}

// The value encodes to exactly `hex`, and those bytes decode back to the same value, silently.
void ExpectWire(const EncodableValue& value, const std::string& hex) {
  EXPECT_EQ(ToHex(Encode(value)), hex);
  const Decoded decoded = DecodeCapturing(FromHex(hex));
  ASSERT_NE(decoded.value, nullptr) << decoded.printed;
  EXPECT_EQ(*decoded.value, value);
  EXPECT_EQ(decoded.printed, "");
}

// A message with every kind, nested containers, aligned payloads at odd offsets and sizes that need
// the two- and four-byte prefixes.
EncodableValue RichValue() {
  return EncodableValue(EncodableMap{
      {EncodableValue("null"), EncodableValue()},
      {EncodableValue("flags"),
       EncodableValue(EncodableList{EncodableValue(true), EncodableValue(false)})},
      {EncodableValue("int32"), EncodableValue(int32_t{-123456})},
      {EncodableValue("int64"), EncodableValue(int64_t{0x0102030405060708})},
      {EncodableValue("double"), EncodableValue(-2.75)},
      {EncodableValue(int32_t{7}), EncodableValue("Grüße, 世界")},
      {EncodableValue("bytes"), EncodableValue(std::vector<uint8_t>{0, 1, 254, 255})},
      {EncodableValue("int32s"), EncodableValue(std::vector<int32_t>{-1, 0, 1})},
      {EncodableValue("int64s"), EncodableValue(std::vector<int64_t>{-2, 2})},
      {EncodableValue("doubles"), EncodableValue(std::vector<double>{0.5, -1e300})},
      {EncodableValue("floats"), EncodableValue(std::vector<float>{1.5f, -0.25f})},
      {EncodableValue("long"), EncodableValue(std::string(300, 'x'))},
      {EncodableValue("many"), EncodableValue(std::vector<uint8_t>(70000, 0x5a))},
      {EncodableValue("nested"),
       EncodableValue(
           EncodableList{EncodableValue(1.25),
                         EncodableValue(EncodableMap{
                             {EncodableValue(2.5), EncodableValue(std::vector<int64_t>{9})},
                             {EncodableValue(), EncodableValue(EncodableList{})}}),
                         EncodableValue(EncodableMap{})})},
  });
}

// ---------------------------------------------------------------------------------------------
// EncodableValue

TEST(EncodableValueDeathTest, ReadingTheWrongKindEndsTheProcess) {
  // Nothing converts: an int is not a string, and LongValue refuses a double. The reads sit in
  // noexcept functions, as an uncaught exception would end the program anyway.
  const auto string_length = [](const EncodableValue& value) noexcept {
    return std::get<std::string>(value).size();
  };
  const auto long_value = [](const EncodableValue& value) noexcept { return value.LongValue(); };
  EXPECT_DEATH(string_length(EncodableValue(int32_t{7})), "bad_variant_access");
  EXPECT_DEATH(long_value(EncodableValue(7.0)), "bad_variant_access");
}

TEST(EncodableValueTest, KeysOrderByKindThenValue) {
  const std::vector<EncodableValue> ascending = {
      EncodableValue(),
      EncodableValue(false),
      EncodableValue(true),
      EncodableValue(int32_t{-1}),
      EncodableValue(int32_t{5}),
      EncodableValue(int64_t{-100}),  // any int64 after every int32
      EncodableValue(-1e9),
      EncodableValue(0.5),
      EncodableValue(std::nan("")),  // NaN after every number
      EncodableValue(""),
      EncodableValue("a"),
      EncodableValue("ab"),
      EncodableValue("b"),
      EncodableValue(std::vector<uint8_t>{1}),
      EncodableValue(std::vector<int32_t>{1}),
      EncodableValue(std::vector<int64_t>{1}),
      EncodableValue(std::vector<double>{1}),
      EncodableValue(EncodableList{EncodableValue(1)}),
      EncodableValue(EncodableMap{{EncodableValue(1), EncodableValue(2)}}),
      EncodableValue(std::vector<float>{1}),
  };
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(ascending[i] < ascending[j], i < j) << "items " << i << " and " << j;
    }
  }
}

TEST(EncodableValueTest, KeysHoldingNaNStillOrderStrictly) {
  // With plain `<`, NaN is "equivalent" to every number, so [NaN,1] < [0,2] < [5,0] < [NaN,1]:
  // a cycle, and a map's layout would depend on insertion order.
  const double nan = std::nan("");
  const EncodableValue a(std::vector<double>{nan, 1});
  const EncodableValue b(std::vector<double>{0, 2});
  const EncodableValue c(std::vector<double>{5, 0});
  EXPECT_FALSE(a < b && b < c && c < a);
  const EncodableValue fa(std::vector<float>{std::nanf(""), 1});
  const EncodableValue fb(std::vector<float>{0, 2});
  const EncodableValue fc(std::vector<float>{5, 0});
  EXPECT_FALSE(fa < fb && fb < fc && fc < fa);

  EncodableMap forward;
  EncodableMap backward;
  const std::vector<EncodableValue> keys = {
      a, b, c, EncodableValue(nan), EncodableValue(1.0), EncodableValue(-3.0)};
  for (std::size_t i = 0; i < keys.size(); ++i) {
    forward.emplace(keys[i], EncodableValue(static_cast<int32_t>(i)));
    backward.emplace(keys[keys.size() - 1 - i],
                     EncodableValue(static_cast<int32_t>(keys.size() - 1 - i)));
  }
  EXPECT_EQ(forward.size(), keys.size());
  EXPECT_EQ(Encode(EncodableValue(forward)), Encode(EncodableValue(backward)));
  // And the decoder, which inserts in wire order, rebuilds the same map.
  const std::vector<uint8_t> bytes = Encode(EncodableValue(forward));
  const auto decoded = Codec().DecodeMessage(bytes);
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(Encode(*decoded), bytes);
}

// ---------------------------------------------------------------------------------------------
// Wire format

TEST(StandardMessageCodecTest, InteropTestVectors) {
  ExpectWire(EncodableValue(), "00");
  ExpectWire(EncodableValue(true), "01");
  ExpectWire(EncodableValue(false), "02");
  ExpectWire(EncodableValue(int32_t{0x12345678}), "03 78 56 34 12");
  ExpectWire(EncodableValue(int64_t{0x1234567890abcdef}), "04 ef cd ab 90 78 56 34 12");
  ExpectWire(EncodableValue(3.14159265358979311599796346854),
             "06 00 00 00 00 00 00 00 18 2d 44 54 fb 21 09 40");
  ExpectWire(EncodableValue("hello world"), "07 0b 68 65 6c 6c 6f 20 77 6f 72 6c 64");
  ExpectWire(EncodableValue(""), "07 00");
  ExpectWire(EncodableValue(EncodableList{}), "0c 00");
  ExpectWire(EncodableValue(std::vector<int32_t>{0x12345678, -1, 0}),
             "09 03 00 00 78 56 34 12 ff ff ff ff 00 00 00 00");
  ExpectWire(EncodableValue(std::vector<float>{3.1415920257568359375f, 1000.0f}),
             "0e 02 00 00 d8 0f 49 40 00 00 7a 44");
  ExpectWire(
      EncodableValue(EncodableList{
          EncodableValue(), EncodableValue("hello"), EncodableValue(3.14), EncodableValue(47),
          EncodableValue(EncodableList{EncodableValue(42), EncodableValue("nested")})}),
      "0c 05 00 07 05 68 65 6c 6c 6f 06 00 00 00 00 00 1f 85 eb 51 b8 1e 09 40 03 2f 00 00 "
      "00 0c 02 03 2a 00 00 00 07 06 6e 65 73 74 65 64");
}

TEST(StandardMessageCodecTest, EveryKindRoundTrips) {
  ExpectWire(EncodableValue(std::numeric_limits<int32_t>::min()), "03 00 00 00 80");
  ExpectWire(EncodableValue(std::numeric_limits<int64_t>::min()), "04 00 00 00 00 00 00 00 80");
  // Width is whatever the value holds: a small int64 stays an int64.
  ExpectWire(EncodableValue(int64_t{47}), "04 2f 00 00 00 00 00 00 00");
  ExpectWire(EncodableValue(47), "03 2f 00 00 00");
  ExpectWire(EncodableValue(-0.0), "06 00 00 00 00 00 00 00 00 00 00 00 00 00 00 80");
  ExpectWire(EncodableValue(std::numeric_limits<double>::infinity()),
             "06 00 00 00 00 00 00 00 00 00 00 00 00 00 f0 7f");
  ExpectWire(EncodableValue(std::numeric_limits<double>::denorm_min()),
             "06 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00");
  // UTF-8 goes out byte for byte; the size counts bytes, not characters.
  ExpectWire(EncodableValue("Größe ✓"), "07 0b 47 72 c3 b6 c3 9f 65 20 e2 9c 93");
  ExpectWire(EncodableValue(std::vector<uint8_t>{0, 0x7f, 0xff}), "08 03 00 7f ff");
  ExpectWire(EncodableValue(std::vector<int64_t>{-2, 0x0102030405060708}),
             "0a 02 00 00 00 00 00 00 fe ff ff ff ff ff ff ff 08 07 06 05 04 03 02 01");
  ExpectWire(EncodableValue(std::vector<double>{1.0, -2.0}),
             "0b 02 00 00 00 00 00 00 00 00 00 00 00 00 f0 3f 00 00 00 00 00 00 00 c0");
  ExpectWire(EncodableValue(EncodableMap{}), "0d 00");
  ExpectWire(EncodableValue(EncodableMap{
                 {EncodableValue("k"),
                  EncodableValue(EncodableMap{
                      {EncodableValue(1), EncodableValue(EncodableList{EncodableValue(true)})}})}}),
             "0d 01 07 01 6b 0d 01 03 01 00 00 00 0c 01 01");

  // NaN does not compare equal to itself, so check its bits.
  const std::vector<uint8_t> nan_bytes = Encode(EncodableValue(std::nan("")));
  const auto nan = Codec().DecodeMessage(nan_bytes);
  ASSERT_NE(nan, nullptr);
  ASSERT_TRUE(std::holds_alternative<double>(*nan));
  EXPECT_TRUE(std::isnan(std::get<double>(*nan)));
  EXPECT_EQ(Encode(*nan), nan_bytes);

  // One message with everything in it.
  const EncodableValue rich = RichValue();
  const std::vector<uint8_t> rich_bytes = Encode(rich);
  const auto decoded = Codec().DecodeMessage(rich_bytes);
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(*decoded, rich);
}

TEST(StandardMessageCodecTest, EmptyMessageAndLegacyLargeInt) {
  // No bytes at all is how a null message arrives.
  const auto empty = Codec().DecodeMessage(nullptr, 0);
  ASSERT_NE(empty, nullptr);
  EXPECT_TRUE(empty->IsNull());

  // Type 5 (never written any more) reads like a string.
  const Decoded large_int = DecodeCapturing(FromHex("05 04 31 30 66 66"));
  ASSERT_NE(large_int.value, nullptr);
  EXPECT_EQ(*large_int.value, EncodableValue("10ff"));
  EXPECT_EQ(large_int.printed, "");

  // Bytes after the first value are not looked at.
  const Decoded trailing = DecodeCapturing(FromHex("01 ff ff"));
  ASSERT_NE(trailing.value, nullptr);
  EXPECT_EQ(*trailing.value, EncodableValue(true));
}

// For every prefix length, the payload starts on its own alignment counted from the start of the
// message: `prefix` nulls in a list, then the aligned value.
TEST(StandardMessageCodecTest, AlignedPayloadsAfterAnyPrefix) {
  const double payload = 2.5;
  for (std::size_t prefix = 0; prefix < 12; ++prefix) {
    SCOPED_TRACE("prefix of " + std::to_string(prefix) + " nulls");
    EncodableList head(prefix);
    const std::string list_head =
        Join({"0c", ToHex({static_cast<uint8_t>(prefix + 1)}), Zeros(prefix)});
    const std::size_t type_at = 2 + prefix;

    EncodableList with_double = head;
    with_double.emplace_back(payload);
    ExpectWire(EncodableValue(with_double),
               Join({list_head, "06", Zeros((8 - (type_at + 1) % 8) % 8), HexOf(payload)}));

    // Typed lists: type byte and count count toward the offset.
    EncodableList with_int64s = head;
    with_int64s.emplace_back(std::vector<int64_t>{-1});
    ExpectWire(
        EncodableValue(with_int64s),
        Join({list_head, "0a 01", Zeros((8 - (type_at + 2) % 8) % 8), "ff ff ff ff ff ff ff ff"}));
    EncodableList with_doubles = head;
    with_doubles.emplace_back(std::vector<double>{payload});
    ExpectWire(EncodableValue(with_doubles),
               Join({list_head, "0b 01", Zeros((8 - (type_at + 2) % 8) % 8), HexOf(payload)}));
    EncodableList with_int32s = head;
    with_int32s.emplace_back(std::vector<int32_t>{-2});
    ExpectWire(EncodableValue(with_int32s),
               Join({list_head, "09 01", Zeros((4 - (type_at + 2) % 4) % 4), "fe ff ff ff"}));
    EncodableList with_floats = head;
    with_floats.emplace_back(std::vector<float>{1.0f});
    ExpectWire(EncodableValue(with_floats),
               Join({list_head, "0e 01", Zeros((4 - (type_at + 2) % 4) % 4), "00 00 80 3f"}));

    // Scalar ints and byte lists are never padded.
    EncodableList with_ints = head;
    with_ints.emplace_back(int32_t{1});
    with_ints.emplace_back(int64_t{2});
    with_ints.emplace_back(std::vector<uint8_t>{3});
    ExpectWire(EncodableValue(with_ints),
               Join({"0c", ToHex({static_cast<uint8_t>(prefix + 3)}), Zeros(prefix),
                     "03 01 00 00 00 04 02 00 00 00 00 00 00 00 08 01 03"}));
  }
}

TEST(StandardMessageCodecTest, AlignmentFollowsEarlierPadding) {
  // The second double's padding depends on where the first one ended: [1.5, true, 2.5].
  ExpectWire(
      EncodableValue(EncodableList{EncodableValue(1.5), EncodableValue(true), EncodableValue(2.5)}),
      Join({"0c 03 06", Zeros(5), HexOf(1.5), "01 06", Zeros(6), HexOf(2.5)}));
  // A map value: {"v": 0.5} puts the double's type byte at offset 5.
  ExpectWire(EncodableValue(EncodableMap{{EncodableValue("v"), EncodableValue(0.5)}}),
             Join({"0d 01 07 01 76 06 00 00", HexOf(0.5)}));
}

// Both writers' forms of empty typed lists: Dart's padded one and the engine's unpadded one, where
// zeros after the list may be padding or nulls and only the rest of the message tells which. Ours
// is Dart's (the interface aligns after every typed-list count, elements or not): `ours` marks the
// wires our writer produces for the value.
TEST(StandardMessageCodecTest, EmptyTypedListsReadInBothWritersForms) {
  const EncodableValue n;
  const EncodableValue i32s(std::vector<int32_t>{});
  const EncodableValue i64s(std::vector<int64_t>{});
  const EncodableValue f32s(std::vector<float>{});
  const EncodableValue f64s(std::vector<double>{});
  const auto list = [](EncodableList items) { return EncodableValue(std::move(items)); };
  const auto map = [](EncodableValue key, EncodableValue value) {
    return EncodableValue(EncodableMap{{std::move(key), std::move(value)}});
  };
  struct Case {
    const char* hex;
    EncodableValue value;
    bool ours = false;
  };
  const Case cases[] = {
      // Followed by nulls: four zeros are four nulls (unpadded) or padding and then four nulls.
      {"0c 05 0b 00 00 00 00 00", list({f64s, n, n, n, n})},
      {"0c 05 0b 00 00 00 00 00 00 00 00 00", list({f64s, n, n, n, n}), true},
      {"0c 05 01 09 00 00 00 00", list({EncodableValue(true), i32s, n, n, n})},
      {"0c 05 01 09 00 00 00 00 00 00 00", list({EncodableValue(true), i32s, n, n, n}), true},
      // Followed by other values.
      {"0c 06 01 0e 00 00 00 00 03 2a 00 00 00", list({EncodableValue(true), f32s, n, n, n, 42})},
      {"0c 03 01 0e 00 00 00 00 03 2a 00 00 00", list({EncodableValue(true), f32s, 42}), true},
      {"0c 03 01 0e 00 07 01 78", list({EncodableValue(true), f32s, EncodableValue("x")})},
      {"0c 03 01 0a 00 00 00 00 07 01 78", list({EncodableValue(true), i64s, EncodableValue("x")}),
       true},
      // At the end of the message, alone and in a list; padded, the last value keeps its padding.
      {"0a 00", i64s},
      {"0a 00 00 00 00 00 00 00", i64s, true},
      {"0c 02 01 0a 00", list({EncodableValue(true), i64s})},
      {"0c 02 01 0a 00 00 00 00", list({EncodableValue(true), i64s}), true},
      {"0c 01 0a 00 00 00 00 00", list({i64s})},
      // Map keys and values.
      {"0c 02 0d 01 09 00 00 00", list({map(i32s, n), n})},
      {"0c 01 0d 01 09 00 00 00 00", list({map(i32s, n)}), true},
      {"0c 03 0d 01 01 0b 00 00 00", list({map(EncodableValue(true), f64s), n, n})},
      {"0c 02 0d 01 01 0b 00 00 00", list({map(EncodableValue(true), f64s), n}), true},
      // Two in a row, each settled in turn: padded where the rest can still be read, else not.
      {"0c 04 01 09 00 00 00 00 0e 00 00 00 00", list({EncodableValue(true), i32s, f32s, n}), true},
      {"0c 05 01 09 00 00 00 00 0e 00 00 00", list({EncodableValue(true), i32s, f32s, n, n})},
      {"0c 08 01 09 00 00 00 00 0e 00 00 00",
       list({EncodableValue(true), i32s, n, n, n, f32s, n, n})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.hex);
    const Decoded decoded = DecodeCapturing(FromHex(c.hex));
    ASSERT_NE(decoded.value, nullptr) << decoded.printed;
    EXPECT_EQ(*decoded.value, c.value);
    EXPECT_EQ(decoded.printed, "");
    if (c.ours) {
      EXPECT_EQ(ToHex(Encode(c.value)), c.hex);
    }
  }
}

// Each list's choice rests on what the rest of the message allows, found in one pass: a reader
// that tried combinations would never finish this. The first of many Float32 lists (four bytes
// each at offsets 0 mod 4, so two zeros each that could be padding) must be read padded, every
// later one unpadded, for the count to come out.
TEST(StandardMessageCodecTest, ManyEmptyTypedListsAreSettledInOnePass) {
  constexpr size_t kLists = 3000;
  std::vector<uint8_t> bytes = {0x0c, 0xfe};
  const uint16_t count = 1 + 3 * (kLists - 1);
  bytes.push_back(static_cast<uint8_t>(count & 0xff));
  bytes.push_back(static_cast<uint8_t>(count >> 8));
  EncodableList expected = {EncodableValue(std::vector<float>{})};
  for (size_t i = 0; i < kLists; ++i) {
    bytes.insert(bytes.end(), {0x0e, 0x00, 0x00, 0x00});
    if (i > 0) {
      expected.insert(expected.end(),
                      {EncodableValue(std::vector<float>{}), EncodableValue(), EncodableValue()});
    }
  }
  const Decoded decoded = DecodeCapturing(bytes);
  ASSERT_NE(decoded.value, nullptr) << decoded.printed;
  EXPECT_EQ(*decoded.value, EncodableValue(expected));

  // Asking for one value more than any reading holds fails, just as quickly.
  const uint16_t too_many = 3 * kLists + 1;
  bytes[2] = static_cast<uint8_t>(too_many & 0xff);
  bytes[3] = static_cast<uint8_t>(too_many >> 8);
  const Decoded refused = DecodeCapturing(bytes);
  EXPECT_EQ(refused.value, nullptr);
  EXPECT_EQ(refused.printed, kInvalidRead);
}

TEST(StandardMessageCodecTest, SizePrefixesAtTheirBoundaries) {
  struct Case {
    std::size_t size;
    std::string prefix;
  };
  const Case cases[] = {{0, "00"},
                        {1, "01"},
                        {253, "fd"},
                        {254, "fe fe 00"},
                        {255, "fe ff 00"},
                        {65535, "fe ff ff"},
                        {65536, "ff 00 00 01 00"},
                        {70000, "ff 70 11 01 00"}};
  for (const Case& c : cases) {
    SCOPED_TRACE("size " + std::to_string(c.size));
    const std::vector<uint8_t> prefix = FromHex(c.prefix);

    // Strings count bytes; byte lists count elements (the same here).
    const std::vector<uint8_t> string_bytes = Encode(EncodableValue(std::string(c.size, 'q')));
    ASSERT_EQ(string_bytes.size(), 1 + prefix.size() + c.size);
    EXPECT_EQ(string_bytes[0], 0x07);
    EXPECT_EQ(
        std::vector<uint8_t>(string_bytes.begin() + 1, string_bytes.begin() + 1 + prefix.size()),
        prefix);
    const auto string = Codec().DecodeMessage(string_bytes);
    ASSERT_NE(string, nullptr);
    EXPECT_EQ(*string, EncodableValue(std::string(c.size, 'q')));

    // Typed lists: the prefix counts elements, and padding follows the prefix.
    const std::vector<uint8_t> int64_bytes =
        Encode(EncodableValue(std::vector<int64_t>(c.size, 3)));
    if (c.size > 0) {
      const std::size_t header = 1 + prefix.size();
      ASSERT_EQ(int64_bytes.size(), (header + 7) / 8 * 8 + 8 * c.size);
    }
    EXPECT_EQ(
        std::vector<uint8_t>(int64_bytes.begin() + 1, int64_bytes.begin() + 1 + prefix.size()),
        prefix);
    const auto int64s = Codec().DecodeMessage(int64_bytes);
    ASSERT_NE(int64s, nullptr);
    EXPECT_EQ(*int64s, EncodableValue(std::vector<int64_t>(c.size, 3)));
  }

  std::vector<uint8_t> written;
  ByteBufferStreamWriter writer(&written);
  Serializer().WriteSize(0xFFFFFFFFu, &writer);
  EXPECT_EQ(ToHex(written), "ff ff ff ff ff");
  ByteBufferStreamReader reader(written.data(), written.size());
  EXPECT_EQ(Serializer().ReadSize(&reader), 0xFFFFFFFFu);
}

TEST(StandardMessageCodecTest, MapsAreWrittenInKeyOrder) {
  // Inserted out of order, with keys of mixed kinds: kind decides first (an int64 1 follows an
  // int32 5), then value.
  EncodableMap map;
  map.emplace(EncodableValue("b"), EncodableValue(1));
  map.emplace(EncodableValue(int64_t{1}), EncodableValue(2));
  map.emplace(EncodableValue(int32_t{5}), EncodableValue(3));
  map.emplace(EncodableValue(true), EncodableValue(4));
  map.emplace(EncodableValue("a"), EncodableValue(5));
  map.emplace(EncodableValue(int32_t{-1}), EncodableValue(6));
  map.emplace(EncodableValue(), EncodableValue(7));
  ExpectWire(EncodableValue(map),
             "0d 07 "
             "00 03 07 00 00 00 "                          // null
             "01 03 04 00 00 00 "                          // true
             "03 ff ff ff ff 03 06 00 00 00 "              // int32 -1
             "03 05 00 00 00 03 03 00 00 00 "              // int32 5
             "04 01 00 00 00 00 00 00 00 03 02 00 00 00 "  // int64 1
             "07 01 61 03 05 00 00 00 "                    // "a"
             "07 01 62 03 01 00 00 00");                   // "b"

  // Pairs arriving out of order come back in order when written again.
  const auto decoded = Codec().DecodeMessage(FromHex("0d 02 07 01 7a 00 07 01 61 01"));
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(ToHex(Encode(*decoded)), "0d 02 07 01 61 01 07 01 7a 00");
}

TEST(StandardMessageCodecTest, CustomValuesAreWrittenAsNull) {
  const EncodableValue custom(CustomEncodableValue(std::string("opaque")));
  testing::internal::CaptureStderr();
  const std::vector<uint8_t> alone = Encode(custom);
  const std::vector<uint8_t> inside =
      Encode(EncodableValue(EncodableList{EncodableValue(1), custom, EncodableValue(2)}));
  const std::string printed = StripCarriageReturns(testing::internal::GetCapturedStderr());

  const std::string line =
      "Unhandled custom type in StandardCodecSerializer::WriteValue. Custom types require codec "
      "extensions.\n";
  EXPECT_EQ(printed, line + line);
  EXPECT_EQ(ToHex(alone), "00");
  // The surrounding list stays readable, with a null in the custom value's place.
  EXPECT_EQ(ToHex(inside), "0c 03 03 01 00 00 00 00 03 02 00 00 00");
  const auto decoded = Codec().DecodeMessage(inside);
  ASSERT_NE(decoded, nullptr);
  EXPECT_EQ(*decoded,
            EncodableValue(EncodableList{EncodableValue(1), EncodableValue(), EncodableValue(2)}));
}

// ---------------------------------------------------------------------------------------------
// Malformed input

TEST(StandardCodecFaultTest, EveryTruncationFailsWithOneLine) {
  const std::vector<uint8_t> whole = Encode(RichValue());
  ASSERT_GT(whole.size(), 70000u);
  // Every cut through the small part of the message (headers, padding, scalars, prefixes), and a
  // sample of cuts through the long byte list.
  std::vector<std::size_t> cuts;
  for (std::size_t cut = 1; cut < whole.size();
       cut += (cut < 1024 || whole.size() - cut < 1024) ? 1 : 997) {
    cuts.push_back(cut);
  }
  for (std::size_t cut : cuts) {
    const std::vector<uint8_t> part(whole.begin(), whole.begin() + cut);
    const Decoded decoded = DecodeCapturing(part);
    EXPECT_EQ(decoded.value, nullptr) << "cut at " << cut;
    EXPECT_EQ(decoded.printed, kInvalidRead) << "cut at " << cut;
  }
}

TEST(StandardCodecFaultTest, ScalarCutShortReadsAsNullAndLeavesTheStreamFailed) {
  for (const char* hex : {"03 01 02", "04 01 02 03 04 05 06 07", "06 00 00 00 00 00 00 00 01",
                          "06 00 00", "07 fe 01", "0c 02 01", "0d 01 00"}) {
    SCOPED_TRACE(hex);
    const std::vector<uint8_t> bytes = FromHex(hex);
    ByteBufferStreamReader reader(bytes.data(), bytes.size());
    testing::internal::CaptureStderr();
    const EncodableValue value = Serializer().ReadValue(&reader);
    EXPECT_EQ(StripCarriageReturns(testing::internal::GetCapturedStderr()), kInvalidRead);
    EXPECT_TRUE(value.IsNull());
    EXPECT_TRUE(reader.failed());
    EXPECT_EQ(reader.remaining(), 0u);

    // A failed stream stays failed and quiet.
    testing::internal::CaptureStderr();
    EXPECT_TRUE(Serializer().ReadValue(&reader).IsNull());
    EXPECT_EQ(reader.ReadByte(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  }
}

TEST(StandardCodecFaultTest, UnknownTypeBytes) {
  for (int type : {15, 16, 127, 128, 200, 255}) {
    SCOPED_TRACE(type);
    const std::string expected =
        "Unknown type in StandardCodecSerializer::ReadValueOfType: " + std::to_string(type) + "\n";
    const Decoded alone = DecodeCapturing({static_cast<uint8_t>(type), 0, 0, 0});
    EXPECT_EQ(alone.value, nullptr);
    EXPECT_EQ(alone.printed, expected);
    // Deep inside a structure the whole message fails, with the same single line.
    const Decoded nested = DecodeCapturing(
        {0x0d, 0x01, 0x07, 0x01, 0x6b, 0x0c, 0x02, 0x01, static_cast<uint8_t>(type), 0x00});
    EXPECT_EQ(nested.value, nullptr);
    EXPECT_EQ(nested.printed, expected);
  }
}

TEST(StandardCodecFaultTest, HugeCountsFailWithoutAllocating) {
  // Each claims far more elements than the message holds; none may be taken at its word.
  for (const char* header : {"0c", "0d", "07", "05", "08", "09", "0a", "0b", "0e"}) {
    for (const char* size : {"ff ff ff ff ff", "ff 00 00 00 80", "fe ff ff"}) {
      const std::string hex = Join({header, size, "01 01 01 01 01 01 01 01"});
      SCOPED_TRACE(hex);
      const std::vector<uint8_t> bytes = FromHex(hex);
      EXPECT_LT(PeakOfRefusedDecode(bytes), 1024u);
    }
  }
}

TEST(StandardCodecFaultTest, NestedCountsCannotMultiplyMemory) {
  // 200 nested lists, each claiming 10000 elements, which the bytes left could just about back,
  // followed by 10000 nulls. The message is about 11 KB; what decoding it holds at once must stay
  // in proportion to what it actually contains, not to 200 x 10000 claimed elements.
  std::vector<uint8_t> bytes;
  for (int level = 0; level < 200; ++level) {
    bytes.insert(bytes.end(), {0x0c, 0xfe, 0x10, 0x27});  // 0x2710 = 10000
  }
  bytes.insert(bytes.end(), 10000, 0x00);
  EXPECT_LT(PeakOfRefusedDecode(bytes), 4 * sizeof(EncodableValue) * bytes.size());
}

TEST(StandardCodecFaultTest, NestingLimitHoldsForReadingAndWriting) {
  const auto nest = [](int depth, uint8_t container) {
    EncodableValue value(int32_t{1});
    for (int i = 0; i < depth; ++i) {
      if (container == 0x0c) {
        value = EncodableValue(EncodableList{std::move(value)});
      } else {
        value = EncodableValue(EncodableMap{{EncodableValue(i), std::move(value)}});
      }
    }
    return value;
  };
  const int limit = StandardCodecSerializer::kMaxNestingDepth;
  for (uint8_t container : {uint8_t{0x0c}, uint8_t{0x0d}}) {
    SCOPED_TRACE(static_cast<int>(container));
    const EncodableValue at_limit = nest(limit, container);
    const Decoded accepted = DecodeCapturing(Encode(at_limit));
    ASSERT_NE(accepted.value, nullptr);
    EXPECT_EQ(*accepted.value, at_limit);
    EXPECT_EQ(accepted.printed, "");

    // One deeper is neither written (no message at all, not a cut-short one) nor read.
    const EncodableValue too_deep = nest(limit + 1, container);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Codec().EncodeMessage(too_deep), nullptr);
    EXPECT_EQ(StripCarriageReturns(testing::internal::GetCapturedStderr()),
              "Nesting deeper than 256 in StandardCodecSerializer::WriteValue\n");
    std::vector<uint8_t> bytes = Encode(at_limit);
    bytes.insert(bytes.begin(), {container, 0x01});
    if (container == 0x0d) {
      bytes.insert(bytes.begin() + 2, 0x00);  // a null key
    }
    const Decoded refused = DecodeCapturing(bytes);
    EXPECT_EQ(refused.value, nullptr);
    EXPECT_EQ(refused.printed, "Nesting deeper than 256 in StandardCodecSerializer::ReadValue\n");
  }

  // A hostile nest far deeper than any stack could follow fails just as cleanly.
  std::vector<uint8_t> bottomless;
  for (int i = 0; i < 200000; ++i) {
    bottomless.insert(bottomless.end(), {0x0c, 0x01});
  }
  const Decoded hostile = DecodeCapturing(bottomless);
  EXPECT_EQ(hostile.value, nullptr);
  EXPECT_EQ(hostile.printed, "Nesting deeper than 256 in StandardCodecSerializer::ReadValue\n");
}

}  // namespace
}  // namespace flutter
