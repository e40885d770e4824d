#pragma once

// Statistics of a batch's variables over their present cases, and of its pairs of variables over
// the cases in which both are present, with the bits of VarStatData::Init and PairStatData::Init.
// The batch is only read.

#include "ordered/cases.h"

#include <cstddef>
#include <cstdint>

namespace velmor::ordered {

// What VarStatData and PairStatData hold of one batch, with their members' names.
struct PresentVariable {
  std::uint64_t _nRows;
  double _weightSum;
  double _regWeightSum;
  double _mean;
  double _css;
  double _min;
  double _max;
};

struct PresentPair {
  std::uint64_t _nRows;
  double _weightSum;
  double _regWeightSum;
  double _mean0;
  double _mean1;
  double _css0;
  double _css1;
  double _cscp;
};

struct PairwiseCases {
  Columns columns;
  std::size_t rows;
  const double* weights;     // null: each weighs 1
  const double* regWeights;  // likewise
  double missingCode;
};

// Which pairs of columns are wanted. Of all columns, the higher one is a pair's first variable. Of
// two ranges, one column of each, that of the first range is.
struct WantedPairs {
  bool isRectangle = false;
  std::size_t firstRange = 0;  // columns of the first range, of two

  static WantedPairs Triangle() { return {}; }
  static WantedPairs Rectangle(std::size_t firstRange) { return {true, firstRange}; }

  // Whether the pair's first variable is the column and its second one the other.
  bool IsPair(std::size_t column, std::size_t other) const {
    return isRectangle ? column < firstRange && other >= firstRange : column > other;
  }
};

// Takes the results, in any order. Of variables and pairs without a case there are none.
class PairwiseSink {
 public:
  virtual ~PairwiseSink() = default;
  virtual void Take(std::size_t column, const PresentVariable& variable) noexcept = 0;
  virtual void Take(std::size_t first, std::size_t second, const PresentPair& pair) noexcept = 0;
};

// Uses the thread's workspace; throws std::bad_alloc before the first result or not at all.
// O(columns^2 * rows).
void AccumulatePairwise(const PairwiseCases& cases, WantedPairs wanted, PairwiseSink& sink);

}  // namespace velmor::ordered
