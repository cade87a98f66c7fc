// Shared glue of the fuzz targets. Each fuzz_*.cpp defines one function
// `int run(const uint8_t*, size_t)` in its own namespace and names it with
// XMLDSIG_FUZZ_TARGET. Built by fuzz/CMakeLists.txt the macro emits libFuzzer's entry
// point; compiled into a normal test (which includes the target's .cpp) it emits
// nothing, so the same code replays the saved findings under fuzz/regressions/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#ifdef XMLDSIG_LIBFUZZER
#define XMLDSIG_FUZZ_TARGET(fn) \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return fn(data, size); }
#else
#define XMLDSIG_FUZZ_TARGET(fn)
#endif

namespace fuzzsupport {

// A broken invariant is a finding like a crash: report it and abort so that libFuzzer
// saves the input (and a replaying test dies loudly).
[[noreturn]] inline void fail(const char* target, const char* what) {
  std::fprintf(stderr, "fuzz target %s: %s\n", target, what);
  std::abort();
}
inline void check(bool ok, const char* target, const char* what) {
  if (!ok) fail(target, what);
}

// The input as text: everything up to the first NUL byte (the public text operations
// take NUL-terminated UTF-8).
inline std::string asText(const uint8_t* data, size_t size) {
  std::string s(reinterpret_cast<const char*>(data), size);
  const size_t nul = s.find('\0');
  if (nul != std::string::npos) s.resize(nul);
  return s;
}

// A small deterministic number from the input, used to choose settings so that seeds
// stay plain documents (no control prefix) while every setting still gets exercised.
inline unsigned pick(const uint8_t* data, size_t size) {
  unsigned h = static_cast<unsigned>(size);
  for (size_t i = 0; i < size && i < 64; ++i) h = h * 31u + data[size - 1 - i];
  return h;
}

}  // namespace fuzzsupport
