// limit.cpp: compiled once for each width of vectors. Includes no inline code: the linker might
// keep the AVX-512 copy of it for everyone.
#include "limit.h"

#if (VELMOR_LANES == 4 && !defined(__AVX2__)) || (VELMOR_LANES == 8 && !defined(__AVX512F__))
#error "vectors of that width are to be compiled with the options of their instruction set"
#endif

namespace bench {
namespace {

constexpr unsigned kLanes = VELMOR_LANES;
using Vector [[gnu::vector_size(kLanes * sizeof(double))]] = double;

}  // namespace

template <>
double MultiplyAdd<kLanes>(std::size_t steps) {
  Vector factor = Vector{} + .5;
  Vector sums[kChains] = {};
#pragma GCC unroll 4
  for (std::size_t step = 0; step < steps; ++step) {
    for (Vector& sum : sums) {
      asm volatile("" : "+x"(factor));  // another one for all the compiler knows: multiply again
      sum = factor * factor + sum;
    }
  }
  double total = 0.;
  for (const Vector& sum : sums) {
    for (unsigned lane = 0; lane < kLanes; ++lane) {
      total += sum[lane];
    }
  }
  return total;
}

template <>
void AddScaled<kLanes>(double* a, const double* b, double s, std::size_t count) {
  for (std::size_t i = 0; i < count; i += kLanes) {
    Vector x;
    Vector y;
    __builtin_memcpy(&x, a + i, sizeof x);
    __builtin_memcpy(&y, b + i, sizeof y);
    x = x + s * y;
    __builtin_memcpy(a + i, &x, sizeof x);
  }
}

}  // namespace bench
