#pragma once

// What a listwise accumulator holds after one batch, or after several have been merged.

#include <cstddef>
#include <cstdint>
#include <span>

namespace velmor {

struct ListwiseTotals {
  std::uint64_t rows = 0;
  double weightSum = 0.;
  double regWeightSum = 0.;
  bool hasRegWeights = false;
  bool isWeightless = false;  // of one batch, whose cases weigh nothing
  std::span<const double> means;
  std::span<const double> mins;
  std::span<const double> maxs;
  std::span<const double> squares;  // of a rectangle's columns
  std::span<const double> cells;    // packed as the record has them
};

}  // namespace velmor
