#pragma once

// Sums by group, and the products of all pairs of columns beside them: productmatrix.h says how.

#include "ordered/cases.h"

#include <cstddef>

namespace velmor::ordered {

// GroupWeightedSumX of every column: the sums of column i and group g are at i * count + g.
struct GroupSums {
  const unsigned int* ofCases;  // each case's group
  std::size_t count;            // of groups
  double* sums;
  double* squareSums;
};

// Takes the group sums, and the CrossProducts of all pairs of different columns as a packed
// strictly lower triangle: cell (i, j), j < i, at i(i-1)/2 + j, column i being the first operand.
// Returns the number of cells.
std::size_t ProductsAndGroupSums(Columns x, Cases cases, const GroupSums& groups, double* triangle);

}  // namespace velmor::ordered
