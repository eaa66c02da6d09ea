// Writes the seed corpora of the codec's fuzz targets: a few small, well-formed messages of the
// shapes the program really exchanges, so that fuzzing starts from deep inside the format.
//   fuzz_seed_corpus <corpus folder>   (writes <folder>/<target>/<name>.bin)
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
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

bool Write(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    return false;
  }
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && ok;
}

EncodableValue Topology() {
  const auto decoder = [](const char* key, const char* path, bool loop) {
    return EncodableValue(EncodableMap{
        {EncodableValue("key"), EncodableValue(key)},
        {EncodableValue("path"), EncodableValue(path)},
        {EncodableValue("loop"), EncodableValue(loop)},
        {EncodableValue("volume"), EncodableValue(0.8)},
        {EncodableValue("fitMode"), EncodableValue("cover")},
    });
  };
  const auto assignment = [](const char* display, const char* decoder, double x) {
    return EncodableValue(EncodableMap{
        {EncodableValue("displayId"), EncodableValue(display)},
        {EncodableValue("decoderKey"), EncodableValue(decoder)},
        {EncodableValue("cropLeft"), EncodableValue(x)},
        {EncodableValue("cropTop"), EncodableValue(0.0)},
        {EncodableValue("cropRight"), EncodableValue(x + 0.5)},
        {EncodableValue("cropBottom"), EncodableValue(1.0)},
    });
  };
  return EncodableValue(EncodableMap{
      {EncodableValue("decoders"),
       EncodableValue(EncodableList{decoder("a", "C:\\media\\a.mp4", true),
                                    decoder("b", "C:\\media\\b.mp4", false)})},
      {EncodableValue("assignments"),
       EncodableValue(EncodableList{assignment("\\\\?\\DISPLAY#ABC1234#5&1", "a", 0.0),
                                    assignment("\\\\?\\DISPLAY#ABC1234#5&2", "a", 0.5),
                                    assignment("\\\\?\\DISPLAY#DEF5678#5&3", "b", 0.0)})},
      {EncodableValue("epoch"), EncodableValue(int64_t{1700000000123})},
  });
}

// One of every kind, with aligned payloads at odd offsets.
EncodableValue EveryKind() {
  return EncodableValue(EncodableList{
      EncodableValue(),
      EncodableValue(true),
      EncodableValue(false),
      EncodableValue(int32_t{-7}),
      EncodableValue(int64_t{1} << 40),
      EncodableValue(3.5),
      EncodableValue("Grüße"),
      EncodableValue(std::vector<uint8_t>{1, 2, 3}),
      EncodableValue(std::vector<int32_t>{-1, 2}),
      EncodableValue(std::vector<int64_t>{3}),
      EncodableValue(std::vector<double>{0.25, std::nan("")}),
      EncodableValue(std::vector<float>{1.5f}),
      EncodableValue(std::vector<int32_t>{}),
      EncodableValue(EncodableMap{{EncodableValue(1), EncodableValue(2.0)},
                                  {EncodableValue("k"), EncodableValue(EncodableList{})}}),
  });
}

EncodableValue Nested(int depth) {
  EncodableValue value("leaf");
  for (int i = 0; i < depth; ++i) {
    if (i % 2 == 0) {
      value = EncodableValue(EncodableList{EncodableValue(i), std::move(value)});
    } else {
      value = EncodableValue(EncodableMap{{EncodableValue(i), std::move(value)}});
    }
  }
  return value;
}

std::vector<uint8_t> Call(const std::string& name, EncodableValue arguments) {
  return *flutter::StandardMethodCodec::GetInstance().EncodeMethodCall(
      flutter::MethodCall<>(name, std::make_unique<EncodableValue>(std::move(arguments))));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <corpus folder>\n", argv[0]);
    return 2;
  }
  const std::string root = argv[1];
  const auto& messages = flutter::StandardMessageCodec::GetInstance();
  const auto& methods = flutter::StandardMethodCodec::GetInstance();
  bool ok = true;

  const std::string message_dir = root + "/message_decode_fuzzer/";
  const struct {
    const char* name;
    EncodableValue value;
  } message_seeds[] = {
      {"null", EncodableValue()},
      {"int64", EncodableValue(int64_t{0x1234567890abcdef})},
      {"double", EncodableValue(3.14159)},
      {"string_254", EncodableValue(std::string(254, 's'))},
      {"every_kind", EveryKind()},
      {"topology", Topology()},
      {"nested", Nested(12)},
  };
  for (const auto& seed : message_seeds) {
    ok = Write(message_dir + seed.name + ".bin", *messages.EncodeMessage(seed.value)) && ok;
  }

  const std::string method_dir = root + "/method_call_decode_fuzzer/";
  const EncodableValue details(EncodableMap{{EncodableValue("displayId"), EncodableValue("x")},
                                            {EncodableValue("ratio"), EncodableValue(0.5)}});
  const EncodableValue result_value = EveryKind();
  ok = Write(method_dir + "call_topology.bin", Call("setVideoTopology", Topology())) && ok;
  ok = Write(method_dir + "call_listen.bin", Call("listen", EncodableValue())) && ok;
  ok = Write(method_dir + "call_every_kind.bin", Call("update", EveryKind())) && ok;
  ok = Write(method_dir + "success_null.bin", *methods.EncodeSuccessEnvelope()) && ok;
  ok =
      Write(method_dir + "success_every_kind.bin", *methods.EncodeSuccessEnvelope(&result_value)) &&
      ok;
  ok = Write(method_dir + "error_bare.bin", *methods.EncodeErrorEnvelope("error")) && ok;
  ok = Write(method_dir + "error_details.bin",
             *methods.EncodeErrorEnvelope("bad_display", "No such display", &details)) &&
       ok;
  return ok ? 0 : 1;
}
