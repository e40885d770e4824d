// engine.cpp: the choice of the instruction set.
#include "ordered/engine.h"

#include "ordered/kernels/sets.h"

namespace velmor::ordered {

std::vector<const Engine*> Available() {
  std::vector<const Engine*> engines{&kBaseline};
#ifdef VELMOR_HAS_X86_SETS
  // Asks the processor, and whether the operating system saves the registers.
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt")) {
    engines.push_back(&kAvx2);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl")) {
      engines.push_back(&kAvx512);
    }
  }
#endif
  return engines;
}

namespace {
const Engine* active = Available().back();
}

const Engine& Active() { return *active; }

void Use(const Engine& engine) { active = &engine; }

}  // namespace velmor::ordered
