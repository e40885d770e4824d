#pragma once

#include <velmor/matrixbase.h>

#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// Means, extremes and centred sums of squares of two adjacent ranges of columns, and the centred
// cross-products of each column of the first range with each of the second. What SMatrixListwise
// says of cases, weights and column arguments holds here too.
class NSMatrixListwise : public MatrixBase {
 public:
  // The ranges are columns [col0, col1) and [col1, col2) of the batches. Neither is empty. The
  // bounds are asserted with the first batch.
  NSMatrixListwise(int col0, int col1, int col2);
  ~NSMatrixListwise() override;

  using MatrixBase::operator+=;

  // Adds a batch, changing it as SMatrixListwise does. O(rows * cells). Asserts that both ranges
  // lie within the batch and that all batches agree on having regression weights. Throws
  // std::bad_alloc, leaving the accumulator as it was.
  NSMatrixListwise& operator+=(DataBatch& data) override;

  // Merges an NSMatrixListwise over other cases. O(cells). Asserts and throws as SMatrixListwise
  // does.
  NSMatrixListwise& operator+=(MatrixBase& other) override;

  // Columns of both ranges; 0 while nothing was accumulated.
  unsigned int NColumns() const;
  unsigned int NRows() const override;
  // Sum of the case weights, the number of cases without case weights.
  double WeightSum() const;
  bool HasRegWeights() const;
  // Sum of the combined weights, WeightSum() without regression weights.
  double RegWeightSum() const;
  int Col0() const;
  int Col1() const;
  int Col2() const;

  // Weighted mean of a column of either range. Asserts the bounds and 0 < WeightSum().
  double Mean(int c) const;
  // Smallest and largest value of a column of either range. Both assert the bounds; Min asserts
  // 0 < WeightSum(), Max that something was accumulated.
  double Min(int c) const;
  double Max(int c) const;

  // Centred cross-product of a column of the first range with a column of the second, in either
  // order. Of a column of either range with itself: its centred sum of squares. Asserts the bounds,
  // 0 < WeightSum(), and that two different columns are of different ranges.
  double CCP(int row, int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
