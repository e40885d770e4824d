#pragma once

// What the core can do with vectors of kLanes doubles, to hold the engines' rates against. There
// are copies for 2, 4 and 8 lanes, each compiled for the instruction set that has such vectors.

#include <cstddef>

namespace bench {

// Sums that are under way at once: as many as 16 registers hold beside a factor and a product, and
// more than two adders of four cycles have in flight.
constexpr unsigned kChains = 13;

// Multiplies and adds, rounded apart, kLanes * kChains times a step. Returns what depends on it.
template <unsigned kLanes>
double MultiplyAdd(std::size_t steps);

// a[i] = a[i] + s * b[i], i < count, a multiple of kLanes: reads two arrays and writes one, as a
// merge does.
template <unsigned kLanes>
void AddScaled(double* a, const double* b, double s, std::size_t count);

}  // namespace bench
