#pragma once

// Statistics of a batch's variables over their present cases, and of its pairs of variables over
// the cases in which both are present, with the bits of VarStatData::Init and PairStatData::Init.
// The batch is only read.

#include "ordered/cases.h"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace velmor::ordered {

// What VarStatData holds of one batch, with its members' names.
struct PresentVariable {
  std::uint64_t _nRows;
  double _weightSum;
  double _regWeightSum;
  double _mean;
  double _css;
  double _min;
  double _max;
};

struct PairwiseCases {
  Columns columns;
  std::size_t rows;
  const double* weights;     // null: each weighs 1
  const double* regWeights;  // likewise
  double missingCode;
};

// Which pairs of columns are wanted: all pairs, of which the column with the higher number is the
// first variable; or each column of a first range with each of a second, of which the first range's
// column is.
struct WantedPairs {
  bool isRectangle = false;
  std::size_t firstRange = 0;   // columns of the first range, of two
  std::size_t secondRange = 0;  // of the second

  static WantedPairs Triangle() { return {}; }
  static WantedPairs Rectangle(std::size_t firstRange, std::size_t secondRange) {
    return {true, firstRange, secondRange};
  }

  // Whether the pair's first variable is the column and its second one the other.
  bool IsPair(std::size_t column, std::size_t other) const {
    return isRectangle ? column < firstRange && other >= firstRange : column > other;
  }
  // The place of a pair among all, row by row: a row has the pairs of one first variable, in the
  // order of their second variables.
  std::size_t PlaceOf(std::size_t first, std::size_t second) const {
    return isRectangle ? first * secondRange + second - firstRange
                       : first * (first - 1) / 2 + second;
  }
};

// The caller's records, into which the results are merged. Neither function throws.
struct PairwiseRecords {
  // Merges a variable into the record of its column.
  std::function<void(std::size_t column, const PresentVariable& variable)> mergeVariable;
  // Adds cases to the count of the pair in a place, and returns its record for PairMerges.
  std::function<double*(std::size_t place, std::uint64_t rows)> countPair;
};

// Merges the cases into the records of all variables and wanted pairs that have some. Uses the
// thread's workspace; throws std::bad_alloc before the first merge or not at all.
// O(rows * (columns + pairs)).
void AccumulatePairwise(const PairwiseCases& cases, WantedPairs wanted,
                        const PairwiseRecords& records);

}  // namespace velmor::ordered
