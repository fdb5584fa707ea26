// What the processor offers, asked once: the x86-64 vector kernels are built
// for their instruction sets whatever the build's baseline, and chosen at run
// time through these.  ORX_X86_KERNELS says whether such kernels can be built
// at all (an x86-64 target and a compiler with per-function targets).
#pragma once

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define ORX_X86_KERNELS 1
#endif

namespace orx::cpu {

#ifdef ORX_X86_KERNELS
inline bool has_avx2() {
  static const bool has = __builtin_cpu_supports("avx2");
  return has;
}

inline bool has_avx2_fma() {
  static const bool has = has_avx2() && __builtin_cpu_supports("fma");
  return has;
}

// The byte shuffles by a vector of indices (with the 512-bit base and byte
// instructions they need).
inline bool has_avx512_vbmi() {
  static const bool has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                          __builtin_cpu_supports("avx512vbmi");
  return has;
}
#endif

}  // namespace orx::cpu
