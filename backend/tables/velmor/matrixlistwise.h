#pragma once

#include <velmor/databatch.h>

#include <cstdint>
#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// Means and centred cross-products of all columns of its batches. Every case counts in every
// statistic: the host fills its batches with complete cases. u is a case's combined weight
// (databatch.h).
//
// What MatrixBase says of emptiness, threads, the floating-point environment and weights that sum
// to zero holds here too. Unlike its heirs this class has no virtual operations, and it counts
// cases in 64 bits.
class MatrixListwise {
 public:
  MatrixListwise();
  ~MatrixListwise();
  MatrixListwise(const MatrixListwise&) = delete;
  MatrixListwise& operator=(const MatrixListwise&) = delete;

  // Adds a batch; an empty one changes nothing. The batch's columns are centred in place. Where it
  // has both kinds of weights, its case weights become the combined weights. O(rows * columns^2).
  // Asserts that all batches have the same columns and agree on having regression weights. Throws
  // std::bad_alloc, leaving the accumulator as it was.
  MatrixListwise& operator+=(DataBatch& batch);

  // Merges an accumulator over other cases, which is only read. O(columns^2). Asserts that both
  // have the same columns and agree on having regression weights, unless one of them is empty.
  // Throws std::bad_alloc, leaving the accumulator as it was.
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

  // Centred cross-product of two columns in either order: the sum of u * (x - mean x) *
  // (y - mean y). Of a column with itself: its centred sum of squares. Asserts the bounds and
  // 0 < WeightSum().
  double CCP(unsigned int row, unsigned int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
