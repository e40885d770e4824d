#pragma once

// Floating-point environments that a host may have set.

#include <cfenv>
#include <cstdint>
#include <vector>

#ifdef __SSE2__
#include <xmmintrin.h>
#endif

namespace velmor::test {

struct Environment {
  const char* name;
  int rounding;           // of <cfenv>
  bool flushesSubnormal;  // results to zero and, where the processor tells them apart, operands
};

// The default one first.
inline std::vector<Environment> Environments() {
  return {
    {"the default environment", FE_TONEAREST, false}, {"rounding upward", FE_UPWARD, false},
        {"rounding downward", FE_DOWNWARD, false}, {"rounding toward zero", FE_TOWARDZERO, false},
#if defined(__SSE2__) || defined(__aarch64__)
        {"subnormal numbers flushed to zero", FE_TONEAREST, true}, {
      "rounding upward, subnormal numbers flushed to zero", FE_UPWARD, true
    }
#endif
  };
}

// The processor's mode: rounding and subnormal numbers, without exception flags.
#if defined(__SSE2__)
constexpr unsigned int kFlushBits = 0x8040;
inline std::uint64_t FloatMode() { return _mm_getcsr() & (kFlushBits | 0x6000U); }
inline void FlushSubnormal() { _mm_setcsr(_mm_getcsr() | kFlushBits); }
#elif defined(__aarch64__)
inline std::uint64_t FloatMode() {
  return __builtin_aarch64_get_fpcr() & (std::uint64_t{7} << 22U);
}
inline void FlushSubnormal() {
  __builtin_aarch64_set_fpcr(__builtin_aarch64_get_fpcr() | (1U << 24U));
}
#else
inline std::uint64_t FloatMode() { return static_cast<std::uint64_t>(std::fegetround()); }
inline void FlushSubnormal() {}
#endif

// Runs what a host in this environment would, with an exception flag raised. Afterwards the default
// environment is back. Returns whether the environment was still as it had been set.
template <class Run>
bool RunIn(const Environment& environment, Run run) {
  std::fesetround(environment.rounding);
  if (environment.flushesSubnormal) {
    FlushSubnormal();
  }
  std::feraiseexcept(FE_DIVBYZERO);
  const std::uint64_t mode = FloatMode();
  const int flags = std::fetestexcept(FE_DIVBYZERO);
  run();
  const bool isKept = FloatMode() == mode && std::fetestexcept(FE_DIVBYZERO) == flags;
  std::fesetenv(FE_DFL_ENV);
  return isKept;
}

}  // namespace velmor::test
