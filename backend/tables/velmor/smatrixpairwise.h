#pragma once

#include <velmor/matrixbase.h>
#include <velmor/statistics.h>

#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// Statistics with pairwise deletion of missing values over a block of adjacent columns: of each
// column over the cases in which it is present, of each pair of columns over the cases in which
// both are present. statistics.h says which values are present.
//
// The block's own totals (NRows, WeightSum, RegWeightSum) count every case, whatever it lacks.
// Column arguments are columns of the batches, not places in the block.
//
// Memory: at most 128 bytes a pair and a column. Adding a batch takes scratch memory besides, which
// the thread keeps for its later batches, into whatever accumulator: at most 16 MB, 32 bytes a
// pair, 32 kB a column, and for each row of the batch 16 bytes and a quarter of a byte a column.
// Once the largest batch has been seen, batches allocate nothing.
class SMatrixPairwise : public MatrixBase {
 public:
  // The block is all columns of the batches.
  explicit SMatrixPairwise(double missingCode);
  // The block is columns [col0, col2) of the batches. col2 == 0 stands for the number of columns of
  // the first batch. The bounds are asserted with the first batch.
  SMatrixPairwise(double missingCode, int col0, int col2);
  ~SMatrixPairwise() override;

  using MatrixBase::operator+=;

  // Adds a batch, which is only read. O(rows * columns^2). Asserts that the block lies within the
  // batch and that all batches agree on having regression weights. Throws std::bad_alloc, leaving
  // the statistics as they were.
  SMatrixPairwise& operator+=(DataBatch& data) override;

  // Merges an SMatrixPairwise over other cases. O(columns^2). An empty block takes over the other's
  // bounds, missing code and kinds of weights. Asserts the other's class; unless this one is empty,
  // that both have the same bounds and missing code and agree on having regression weights. Throws
  // std::bad_alloc, leaving the statistics as they were.
  SMatrixPairwise& operator+=(MatrixBase& other) override;

  unsigned int NRows() const override;
  // Columns of the block; 0 while nothing was accumulated.
  unsigned int NColumns() const;
  // Sum of all cases' case weights, the number of cases without case weights.
  double WeightSum() const;
  // Sum of all cases' combined weights, WeightSum() without regression weights.
  double RegWeightSum() const;
  bool HasRegWeights() const;
  double MissingCode() const;
  // The block is columns [Col0(), Col2()); Col1() equals Col0(). Where the block is all columns,
  // Col2() is 0 until the first batch.
  int Col0() const;
  int Col1() const;
  int Col2() const;

  // The block's own record of a column: valid as long as the block is, and shows what the block
  // then holds. Asserts the bounds and 0 < WeightSum().
  VarStat& Var(int col) const;

  // The block's own record of two different columns, in either order. Its first variable is the
  // column with the higher number. Asserts the bounds, that the columns differ, and
  // 0 < WeightSum().
  PairStat& Pair(int row, int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
