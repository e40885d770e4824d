#pragma once

// What the pairwise accumulators share: the totals, which count a case whatever it lacks, and the
// passes over a batch's columns and pairs and over two accumulators' records. Data
// stands for an accumulator's record; its members have the same names in all of them.

#include <velmor/databatch.h>
#include <velmor/statistics.h>

#include "ordered/chains.h"
#include "presentcases.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

namespace velmor {

// The blocks keep their records behind handles, the whole matrix keeps them in place.
template <class Stored>
auto& RecordOf(Stored& stored) {
  if constexpr (requires { stored->Data(); }) {
    return *stored->Data();
  } else {
    return stored;
  }
}

// Whether two codes mark the same values.
inline bool IsSameCode(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// An accumulator's work area. Copying takes over the missing code; what the vectors hold means
// nothing to the copy.
struct Scratch : WorkArea {
  explicit Scratch(double missingCode) { _missingCode = missingCode; }
  Scratch(const Scratch& other) : Scratch(other._missingCode) {}
  Scratch& operator=(const Scratch&) = delete;
  Scratch(Scratch&&) noexcept = default;
  Scratch& operator=(Scratch&&) noexcept = default;
  ~Scratch() = default;

  // Makes room for a batch. Nothing else in accumulating it allocates, so done first it lets a
  // batch be accumulated as a whole or, when memory has run out, not at all.
  void Reserve(std::size_t rows) {
    for (std::vector<double>* scratch : {&_x0, &_x1, &_w, &_rw}) {
      scratch->reserve(rows);
    }
  }
};

// Adds a batch's cases to the totals.
template <class Data>
void AddTotals(Data& my, DataBatch& batch) {
  const std::size_t n = batch.NRows();
  my._nRows += batch.NRows();
  my._weightSum = ordered::WeightedSum(batch.Weights(), n) + my._weightSum;
  if (!batch.HasRegWeights()) {
    my._regWeightSum = my._weightSum;
  } else if (batch.HasWeights()) {
    my._regWeightSum =
        ordered::ProductSum(batch.Weights(), batch.RegWeights(), n) + my._regWeightSum;
  } else {
    my._regWeightSum = ordered::Sum(batch.RegWeights(), n) + my._regWeightSum;
  }
}

// Accumulates each column's present cases. The first record belongs to batch column `first`.
template <class Data>
void AddVariables(Data& my, DataBatch& batch, int first) {
  auto column = static_cast<unsigned int>(first);
  for (auto& stored : my._varStats) {
    auto& record = RecordOf(stored);
    std::decay_t<decltype(record)> ofBatch;
    InitVariable(ofBatch, batch.Column(column++), batch.Weights(), batch.RegWeights(), my._work,
                 batch.NRows());
    UpdateVariable(record, ofBatch);
  }
}

// Accumulates the cases in which both columns are present into the pair record at `index`.
template <class Data>
void AddPair(Data& my, DataBatch& batch, int column0, int column1, std::int64_t index) {
  auto& record = RecordOf(my._xp[static_cast<std::size_t>(index)]);
  std::decay_t<decltype(record)> ofBatch;
  InitPair(ofBatch, batch.Column(static_cast<unsigned int>(column0)),
           batch.Column(static_cast<unsigned int>(column1)), batch.Weights(), batch.RegWeights(),
           my._work, batch.NRows());
  UpdatePair(record, ofBatch);
}

// Accumulates every pair of columns in [from, to), in the order of a strictly lower triangle; the
// higher column is a pair's first variable.
template <class Data>
void AddTriangleOfPairs(Data& my, DataBatch& batch, int from, int to) {
  std::int64_t index = 0;
  for (int i = from; i < to; ++i) {
    for (int j = from; j < i; ++j) {
      AddPair(my, batch, i, j, index++);
    }
  }
}

// Merges d's records into my own. Returns the number of pairs.
template <class Data>
std::size_t MergeRecords(Data& my, const Data& d) {
  for (std::size_t i = 0; i < my._varStats.size(); ++i) {
    UpdateVariable(RecordOf(my._varStats[i]), RecordOf(d._varStats[i]));
  }
  for (std::size_t i = 0; i < my._xp.size(); ++i) {
    UpdatePair(RecordOf(my._xp[i]), RecordOf(d._xp[i]));
  }
  return my._xp.size();
}

// What a block keeps. The blocks' records add the walk over their pairs.
struct PairwiseBlock {
  PairwiseBlock(double missingCode, int col0, int col1, int col2)
      : _work(missingCode), _col0(col0), _col1(col1), _col2(col2) {}
  // Deep copies.
  PairwiseBlock(const PairwiseBlock& d);
  PairwiseBlock& operator=(const PairwiseBlock&) = delete;  // a copy is built aside and moved in
  PairwiseBlock(PairwiseBlock&&) noexcept = default;
  PairwiseBlock& operator=(PairwiseBlock&&) noexcept = default;
  ~PairwiseBlock() = default;

  // Makes the block's records, all of them fresh.
  void MakeRecords(int columns, std::int64_t pairs);

  bool IsEmpty() const { return _varStats.empty(); }

  double _weightSum = 0.;
  double _regWeightSum = 0.;
  unsigned int _nRows = 0;
  std::vector<std::unique_ptr<VarStat>> _varStats;  // entry k belongs to column _col0 + k
  std::vector<std::unique_ptr<PairStat>> _xp;
  Scratch _work;
  bool _hasRegWeights = false;
  int _col0;
  int _col1;
  int _col2;
};

}  // namespace velmor
