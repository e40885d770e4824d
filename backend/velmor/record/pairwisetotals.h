#pragma once

// What a pairwise accumulator holds after one batch, or after several have been merged.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace velmor {

struct PairwiseTotals {
  // A count and the other numbers of PairStatData, in their order. Of a variable both means are its
  // mean, and all sums of products its sum of squares.
  using Record = std::array<double, 8>;

  std::uint64_t rows = 0;
  double weightSum = 0.;
  double regWeightSum = 0.;
  bool hasRegWeights = false;
  std::span<const Record> variables;
  std::span<const double> mins;  // one a variable
  std::span<const double> maxs;
  std::span<const Record> pairs;  // in the accumulator's order
};

}  // namespace velmor
