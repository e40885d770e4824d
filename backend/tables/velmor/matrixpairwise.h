#pragma once

#include <velmor/databatch.h>

#include <cstdint>
#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

struct [[gnu::visibility("hidden")]] VarStatsData;
struct [[gnu::visibility("hidden")]] PairStatsData;

// A view of a variable's statistics in a MatrixPairwise, over the cases in which the variable is
// present. Valid as long as the accumulator is, and shows what the accumulator then holds.
// statistics.h has the formulas. MatrixPairwise::Var makes views.
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
// MatrixPairwise::Pair makes views.
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

// Statistics with pairwise deletion of missing values over all columns of its batches. statistics.h
// says which values are present. The totals NRows, WeightSum and RegWeightSum count every case.
//
// What MatrixBase says of emptiness, threads, the floating-point environment and weights that sum
// to zero holds here too. Unlike SMatrixPairwise this class has no virtual operations, keeps no
// extremes and counts in 64 bits.
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

  // Merges an accumulator over other cases, which is only read. O(columns^2). An empty accumulator
  // takes over the other's columns, missing code and kinds of weights. Asserts, unless this one is
  // empty, that both have the same columns and missing code and agree on having regression weights.
  // Throws std::bad_alloc, leaving the statistics as they were.
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

  // The statistics of two different columns, in either order. The first variable is the column with
  // the higher number. Asserts the bounds, that the columns differ, and 0 < WeightSum().
  PairStats Pair(unsigned int row, unsigned int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
