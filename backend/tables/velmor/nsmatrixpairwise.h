#pragma once

#include <velmor/matrixbase.h>
#include <velmor/statistics.h>

#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// Statistics with pairwise deletion of missing values over two adjacent ranges of columns: of each
// column of either range over the cases in which it is present; of each pair of a column of the
// first range and a column of the second over the cases in which both are present. What
// SMatrixPairwise says of cases, totals, column arguments and memory holds here too.
class NSMatrixPairwise : public MatrixBase {
 public:
  // The ranges are columns [col0, col1) and [col1, col2) of the batches. One of the two may be
  // empty; then there are no pairs. The bounds are asserted with the first batch.
  NSMatrixPairwise(double missingCode, int col0, int col1, int col2);
  ~NSMatrixPairwise() override;

  using MatrixBase::operator+=;

  // Adds a batch, which is only read. O(rows * (columns + pairs)). Asserts and throws as
  // SMatrixPairwise does.
  NSMatrixPairwise& operator+=(DataBatch& data) override;

  // Merges an NSMatrixPairwise over other cases. O(columns + pairs). Asserts and throws as
  // SMatrixPairwise does.
  NSMatrixPairwise& operator+=(MatrixBase& other) override;

  unsigned int NRows() const override;
  // Columns of both ranges; 0 while nothing was accumulated.
  unsigned int NColumns() const;
  // Sum of all cases' case weights, the number of cases without case weights.
  double WeightSum() const;
  // Sum of all cases' combined weights, WeightSum() without regression weights.
  double RegWeightSum() const;
  bool HasRegWeights() const;
  double MissingCode() const;
  int Col0() const;
  int Col1() const;
  int Col2() const;

  // The block's own record of a column of either range: valid as long as the block is, and shows
  // what the block then holds. Asserts the bounds and 0 < WeightSum().
  VarStat& Var(int col) const;

  // The block's own record of a column of the first range and a column of the second, in either
  // order. Its first variable is the column of the first range. Asserts the bounds, that the
  // columns are of different ranges, and 0 < WeightSum().
  PairStat& Pair(int row, int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
