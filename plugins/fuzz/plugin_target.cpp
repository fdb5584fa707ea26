// A libFuzzer target around one plug-in fuzz body, named at build time by
// ORX_FUZZ_BODY; the same shape as the library's own targets.
#include "plugin_bodies.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (ORX_FUZZ_BODY(data, size) != 0) __builtin_trap();
  return 0;
}
