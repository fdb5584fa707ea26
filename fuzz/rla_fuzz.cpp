// libFuzzer target: arbitrary bytes as an RLA file.
#include "bodies.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  return orx::fuzz::rla_read(data, size);
}
