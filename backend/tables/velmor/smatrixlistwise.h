#pragma once

#include <velmor/matrixbase.h>

#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// Means, extremes and centred cross-products of a block of adjacent columns. Every case counts in
// every statistic: the host fills its batches with cases that are complete in the block.
//
// u is a case's combined weight (databatch.h); matrixbase.h says what weights that sum to zero do.
// Column arguments are columns of the batches, not places in the block.
class SMatrixListwise : public MatrixBase {
 public:
  // The block is all columns of the batches.
  SMatrixListwise();
  // The block is columns [col0, col2) of the batches; (0, 0) stands for all columns. The bounds are
  // asserted with the first batch.
  SMatrixListwise(int col0, int col2);
  ~SMatrixListwise() override;

  using MatrixBase::operator+=;

  // Adds a batch. Its columns in the block are centred in place. Where it has both kinds of
  // weights, its case weights become the combined weights. O(rows * columns^2). Asserts that the
  // block lies within the batch and that all batches agree on having regression weights. Throws
  // std::bad_alloc, leaving the accumulator as it was.
  SMatrixListwise& operator+=(DataBatch& data) override;

  // Merges an SMatrixListwise over other cases. O(columns^2). An empty accumulator takes over the
  // other's bounds and kinds of weights. Asserts the other's class; unless this one is empty, that
  // both have the same bounds and agree on having regression weights. Throws std::bad_alloc,
  // leaving the accumulator as it was.
  SMatrixListwise& operator+=(MatrixBase& other) override;

  // Columns of the block; 0 while nothing was accumulated.
  unsigned int NColumns() const;
  unsigned int NRows() const override;
  // Sum of the case weights, the number of cases without case weights.
  double WeightSum() const;
  bool HasRegWeights() const;
  // Sum of the combined weights, WeightSum() without regression weights.
  double RegWeightSum() const;
  // The block is columns [Col0(), Col2()); Col1() equals Col0(). Where the block is all columns,
  // Col2() is 0 until the first batch.
  int Col0() const;
  int Col1() const;
  int Col2() const;

  // Weighted mean of a column: sum of u * x over RegWeightSum(). Asserts the bounds and
  // 0 < WeightSum().
  double Mean(int c) const;
  // Smallest and largest value of a column. Both assert the bounds; Min asserts 0 < WeightSum(),
  // Max that something was accumulated.
  double Min(int c) const;
  double Max(int c) const;

  // Centred cross-product of two columns in either order: the sum of u * (x - mean x) *
  // (y - mean y). Of a column with itself: its centred sum of squares. Asserts the bounds and
  // 0 < WeightSum().
  double CCP(int row, int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
