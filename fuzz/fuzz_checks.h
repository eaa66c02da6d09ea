// Helpers shared by the codec's fuzz targets.
#ifndef KESTRUN_FUZZ_FUZZ_CHECKS_H_
#define KESTRUN_FUZZ_FUZZ_CHECKS_H_

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <streambuf>

namespace kestrun_fuzz {

// Stops the run with a message that libFuzzer reports along with the input.
inline void Require(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
  }
}

// The codec prints a line for nearly every malformed input; at fuzzing rates that is most of the
// run's time. Sanitizer and libFuzzer reports do not go through std::cerr and still appear.
inline void SilenceCodecDiagnostics() {
  struct Discard : std::streambuf {
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(const char_type*, std::streamsize n) override { return n; }
  };
  static Discard discard;
  std::cerr.rdbuf(&discard);
}

}  // namespace kestrun_fuzz

#endif  // KESTRUN_FUZZ_FUZZ_CHECKS_H_
