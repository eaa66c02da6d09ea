// Encode and decode cost of the standard codecs for the three shapes that matter to the program:
// the video topology call (many small maps and strings), a large byte list (a frame or file sent
// over a channel), and a deep nest of lists and maps (the recursion itself).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "encodable_value.h"
#include "method_call.h"
#include "standard_message_codec.h"
#include "standard_method_codec.h"

namespace {

using flutter::EncodableList;
using flutter::EncodableMap;
using flutter::EncodableValue;
using flutter::MethodCall;
using flutter::StandardMessageCodec;
using flutter::StandardMethodCodec;

// The arguments of "setVideoTopology": two decoders and four display assignments, each assignment
// naming its display by a device interface path and cropping a rectangle out of its decoder.
EncodableValue VideoTopology() {
  const auto decoder = [](const std::string& key, const std::string& path, bool loop) {
    return EncodableValue(EncodableMap{
        {EncodableValue("key"), EncodableValue(key)},
        {EncodableValue("path"), EncodableValue(path)},
        {EncodableValue("loop"), EncodableValue(loop)},
        {EncodableValue("volume"), EncodableValue(0.85)},
        {EncodableValue("fitMode"), EncodableValue("cover")},
    });
  };
  const auto assignment = [](int index, const std::string& decoder_key, double left, double top) {
    return EncodableValue(EncodableMap{
        {EncodableValue("displayId"),
         EncodableValue("\\\\?\\DISPLAY#DELA1B" + std::to_string(index) + "#5&2f1c9e3a&0&UID4353" +
                        std::to_string(index) + "#{e6f07b5f-ee97-4a90-b076-33f57bf4eaa7}")},
        {EncodableValue("decoderKey"), EncodableValue(decoder_key)},
        {EncodableValue("cropLeft"), EncodableValue(left)},
        {EncodableValue("cropTop"), EncodableValue(top)},
        {EncodableValue("cropRight"), EncodableValue(left + 0.5)},
        {EncodableValue("cropBottom"), EncodableValue(top + 0.5)},
    });
  };
  return EncodableValue(EncodableMap{
      {EncodableValue("decoders"),
       EncodableValue(EncodableList{
           decoder("wall", "C:\\ProgramData\\Kestrun\\media\\wall-loop-3840x2160.mp4", true),
           decoder("lobby", "C:\\ProgramData\\Kestrun\\media\\lobby-announcements.mp4", false)})},
      {EncodableValue("assignments"),
       EncodableValue(
           EncodableList{assignment(1, "wall", 0.0, 0.0), assignment(2, "wall", 0.5, 0.0),
                         assignment(3, "wall", 0.0, 0.5), assignment(4, "lobby", 0.0, 0.0)})},
  });
}

// Ten levels, alternating list and map, with a few scalars beside the next level down.
EncodableValue DeepNest() {
  EncodableValue value("bottom");
  for (int level = 0; level < 10; ++level) {
    if (level % 2 == 0) {
      value = EncodableValue(EncodableList{EncodableValue(level), EncodableValue(level * 0.5),
                                           EncodableValue("item"), EncodableValue(true),
                                           std::move(value)});
    } else {
      value =
          EncodableValue(EncodableMap{{EncodableValue("level"), EncodableValue(level)},
                                      {EncodableValue("scale"), EncodableValue(level * 1.5)},
                                      {EncodableValue("id"), EncodableValue(int64_t{level} << 33)},
                                      {EncodableValue("next"), std::move(value)}});
    }
  }
  return value;
}

// Bytes/s is over the encoded size; items/s counts whole messages.
void Account(benchmark::State& state, size_t encoded_size) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * encoded_size));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
  state.counters["message_bytes"] = static_cast<double>(encoded_size);
}

void BM_EncodeTopologyCall(benchmark::State& state) {
  const MethodCall<> call("setVideoTopology", std::make_unique<EncodableValue>(VideoTopology()));
  size_t size = 0;
  for (auto _ : state) {
    auto bytes = StandardMethodCodec::GetInstance().EncodeMethodCall(call);
    size = bytes->size();
    benchmark::DoNotOptimize(bytes->data());
  }
  Account(state, size);
}
BENCHMARK(BM_EncodeTopologyCall);

void BM_DecodeTopologyCall(benchmark::State& state) {
  const auto bytes = StandardMethodCodec::GetInstance().EncodeMethodCall(
      MethodCall<>("setVideoTopology", std::make_unique<EncodableValue>(VideoTopology())));
  for (auto _ : state) {
    auto call = StandardMethodCodec::GetInstance().DecodeMethodCall(*bytes);
    if (call == nullptr) {
      state.SkipWithError("the topology call did not decode");
      break;
    }
    benchmark::DoNotOptimize(call->arguments());
  }
  Account(state, bytes->size());
}
BENCHMARK(BM_DecodeTopologyCall);

constexpr size_t kByteListSize = 4 * 1024 * 1024;

void BM_EncodeByteList4MB(benchmark::State& state) {
  const EncodableValue value(std::vector<uint8_t>(kByteListSize, 0xa5));
  size_t size = 0;
  for (auto _ : state) {
    auto bytes = StandardMessageCodec::GetInstance().EncodeMessage(value);
    size = bytes->size();
    benchmark::DoNotOptimize(bytes->data());
  }
  Account(state, size);
}
BENCHMARK(BM_EncodeByteList4MB)->Unit(benchmark::kMicrosecond);

void BM_DecodeByteList4MB(benchmark::State& state) {
  const auto bytes = StandardMessageCodec::GetInstance().EncodeMessage(
      EncodableValue(std::vector<uint8_t>(kByteListSize, 0xa5)));
  for (auto _ : state) {
    auto value = StandardMessageCodec::GetInstance().DecodeMessage(*bytes);
    if (value == nullptr) {
      state.SkipWithError("the byte list did not decode");
      break;
    }
    benchmark::DoNotOptimize(value.get());
  }
  Account(state, bytes->size());
}
BENCHMARK(BM_DecodeByteList4MB)->Unit(benchmark::kMicrosecond);

void BM_EncodeDeepNest(benchmark::State& state) {
  const EncodableValue value = DeepNest();
  size_t size = 0;
  for (auto _ : state) {
    auto bytes = StandardMessageCodec::GetInstance().EncodeMessage(value);
    size = bytes->size();
    benchmark::DoNotOptimize(bytes->data());
  }
  Account(state, size);
}
BENCHMARK(BM_EncodeDeepNest);

void BM_DecodeDeepNest(benchmark::State& state) {
  const auto bytes = StandardMessageCodec::GetInstance().EncodeMessage(DeepNest());
  for (auto _ : state) {
    auto value = StandardMessageCodec::GetInstance().DecodeMessage(*bytes);
    if (value == nullptr) {
      state.SkipWithError("the nest did not decode");
      break;
    }
    benchmark::DoNotOptimize(value.get());
  }
  Account(state, bytes->size());
}
BENCHMARK(BM_DecodeDeepNest);

}  // namespace

BENCHMARK_MAIN();
