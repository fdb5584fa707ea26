// A libFuzzer target around one fuzz body, the library's or a plug-in's,
// named at build time by ORX_FUZZ_BODY (see fuzz/CMakeLists.txt).  A body
// that finds the library wrong returns -1; trapping makes libFuzzer keep
// the input.
#include "bodies.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (ORX_FUZZ_BODY(data, size) != 0) __builtin_trap();
  return 0;
}
