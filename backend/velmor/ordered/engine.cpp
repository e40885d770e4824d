// engine.cpp: the choice of the instruction set.
#include "ordered/engine.h"

#include "ordered/kernels/sets.h"

#include <array>
#include <cstddef>

namespace velmor::ordered {

namespace {

// A processor that can run one can run those before it.
constexpr std::array kEngines{
    &kBaseline,
#ifdef VELMOR_HAS_X86_SETS
    &kAvx2,
    &kAvx512,
#endif
};

// How many of them can run: asks the processor, and whether the operating system saves the
// registers.
std::size_t AvailableEngines() {
  std::size_t available = 1;
#ifdef VELMOR_HAS_X86_SETS
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt")) {
    ++available;
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl")) {
      ++available;
    }
  }
#endif
  return available;
}

// Set at the first call: a host that is linked with the static library may accumulate before the
// library's own objects would be initialised.
const Engine*& EngineInUse() {
  static const Engine* engine = kEngines[AvailableEngines() - 1];
  return engine;
}

}  // namespace

std::vector<const Engine*> Available() {
  return {kEngines.begin(), kEngines.begin() + AvailableEngines()};
}

const Engine& Active() { return *EngineInUse(); }

void Use(const Engine& engine) { EngineInUse() = &engine; }

}  // namespace velmor::ordered
