#pragma once

#include <velmor/databatch.h>

#include <cstdint>
#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// Means and centred cross-products of all columns of its batches, every case counting in every
// statistic: the host fills its batches with complete cases.
//
// u, the combined weight of a case, is its case weight times its regression weight, the one that
// is present when only one is, and 1 when neither is. A batch or a merged accumulator whose case
// weights sum to zero contributes nothing beside others; where only the combined weights do, means
// are quotients by zero. Use by one thread at a time, emptiness and the floating-point environment
// are as for MatrixBase; unlike its heirs this class has no virtual operations and counts its rows
// in 64 bits.
class MatrixListwise {
 public:
  MatrixListwise();
  ~MatrixListwise();
  MatrixListwise(const MatrixListwise&) = delete;
  MatrixListwise& operator=(const MatrixListwise&) = delete;

  // Adds a batch; an empty one changes nothing. The batch's columns are centred in place, and its
  // case weights become the combined weights where it has both kinds. O(rows * columns^2).
  // Asserts that all batches have the same columns and agree on having regression weights.
  // Throws std::bad_alloc, leaving the accumulator as it was.
  MatrixListwise& operator+=(DataBatch& batch);

  // Merges an accumulator over other cases; it is only read. O(columns^2). Asserts that both have
  // the same columns and agree on having regression weights. Throws std::bad_alloc, leaving the
  // accumulator as it was.
  MatrixListwise& operator+=(const MatrixListwise& other);

  // 0 while nothing was accumulated.
  unsigned int NColumns() const;
  std::uint64_t NRows() const;
  // Sum of the case weights, the number of cases without case weights.
  double WeightSum() const;
  // Sum of the combined weights, WeightSum() without regression weights.
  double RegWeightSum() const;
  bool HasRegWeights() const;

  // Weighted mean of a column: sum of u * x over RegWeightSum(). Asserts col < NColumns() and
  // 0 < WeightSum().
  double Mean(unsigned int col) const;

  // Centred cross-product of two columns in either order, sum of u * (x - mean x) * (y - mean y);
  // of a column with itself, its centred sum of squares. Asserts the bounds and 0 < WeightSum().
  double CCP(unsigned int row, unsigned int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
