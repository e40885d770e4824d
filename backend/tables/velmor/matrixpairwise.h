#pragma once

#include <velmor/databatch.h>

#include <cstdint>
#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

struct [[gnu::visibility("hidden")]] VarStatsData;
struct [[gnu::visibility("hidden")]] PairStatsData;

// A view of a variable's statistics in a MatrixPairwise, over the cases in which it is present.
// Valid as long as the accumulator, and shows what it then holds. statistics.h has the formulas.
// MatrixPairwise::Var makes it.
class VarStats {
 public:
  explicit VarStats(const VarStatsData* data) : _data(data) {}
  std::uint64_t NRows() const;
  double WeightSum() const;
  double RegWeightSum() const;
  double Mean() const;
  double CSS() const;

 private:
  const VarStatsData* _data;
};

// A view of a pair's statistics, over the cases in which both variables are present.
// MatrixPairwise::Pair makes it.
class PairStats {
 public:
  explicit PairStats(const PairStatsData* data) : _data(data) {}
  std::uint64_t NRows() const;
  double WeightSum() const;
  double RegWeightSum() const;
  double Mean0() const;
  double Mean1() const;
  double CSS0() const;
  double CSS1() const;
  double CSCP() const;

 private:
  const PairStatsData* _data;
};

// Statistics with pairwise deletion of missing values over all columns of its batches. Which
// values are present and what the weights do is as statistics.h says; the totals NRows, WeightSum
// and RegWeightSum count every case. Unlike SMatrixPairwise it has no virtual operations, keeps no
// extremes and counts in 64 bits. Use by one thread at a time, emptiness and the floating-point
// environment are as for MatrixBase.
class MatrixPairwise {
 public:
  explicit MatrixPairwise(const double& missingCode);
  ~MatrixPairwise();
  MatrixPairwise(const MatrixPairwise&) = delete;
  MatrixPairwise& operator=(const MatrixPairwise&) = delete;

  // Adds a batch, which is only read; an empty one changes nothing. O(rows * columns^2). Asserts
  // that all batches have the same columns and agree on having regression weights. Throws
  // std::bad_alloc, leaving the statistics as they were.
  MatrixPairwise& operator+=(DataBatch& batch);

  // Merges an accumulator over other cases; it is only read. O(columns^2). One whose weights sum
  // to zero changes nothing. Asserts, unless this one is empty and takes them over, that both have
  // the same columns and missing code and agree on having regression weights. Throws
  // std::bad_alloc, leaving the statistics as they were.
  MatrixPairwise& operator+=(const MatrixPairwise& other);

  // 0 while nothing was accumulated.
  unsigned int NColumns() const;
  std::uint64_t NRows() const;
  double WeightSum() const;
  double RegWeightSum() const;
  bool HasRegWeights() const;
  double MissingCode() const;

  // The statistics of a column. Asserts the bound and 0 < WeightSum().
  VarStats Var(unsigned int col) const;

  // The statistics of two different columns, in either order: the first variable is the column
  // with the higher number. Asserts the bounds and 0 < WeightSum().
  PairStats Pair(unsigned int row, unsigned int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
