#pragma once

// What the pairwise accumulators share: the totals, which count a case whatever it lacks, and the
// passes over a batch's columns and pairs and over two accumulators' records. Data stands for an
// accumulator's record, whose members have the same names in all three accumulators.

#include <velmor/databatch.h>
#include <velmor/kernels.h>
#include <velmor/statistics.h>

#include "ordered/chains.h"
#include "ordered/merges.h"
#include "ordered/present/presentcases.h"
#include "record/batchcolumns.h"
#include "record/pairwisetotals.h"
#include "record/presentmerge.h"
#include "record/transfer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <tuple>
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

// What marks missing values, under the names that stand in assertions.
struct MissingValues {
  double _missingCode;
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

// Adds cases to the count of a pair's record. Returns the record as its merge wants it.
template <class Record>
double* CountPair(Record& record, std::uint64_t rows) {
  record._nRows += static_cast<decltype(record._nRows)>(rows);
  return ordered::RoomOf(record);
}

// Accumulates the columns [from, to) of a batch: the present cases of each column and of each
// wanted pair, whose record is entry WantedPairs::PlaceOf of my._xp. When memory runs out, nothing
// is accumulated.
template <class Data>
void AddRecords(Data& my, DataBatch& batch, int from, int to, ordered::WantedPairs wanted) {
  ordered::AccumulatePairwise({BatchColumns(batch, from, to), batch.NRows(), batch.Weights(),
                               batch.RegWeights(), my._work._missingCode},
                              wanted,
                              {[&my](std::size_t column, const ordered::PresentVariable& variable) {
                                 UpdateVariable(RecordOf(my._varStats[column]), variable);
                               },
                               [&my](std::size_t place, std::uint64_t rows) {
                                 return CountPair(RecordOf(my._xp[place]), rows);
                               }});
  AddTotals(my, batch);
}

// Merges d's records into my own. Returns the number of pairs.
template <class Data>
std::size_t MergeRecords(Data& my, const Data& d) {
  for (std::size_t i = 0; i < my._varStats.size(); ++i) {
    UpdateVariable(RecordOf(my._varStats[i]), RecordOf(d._varStats[i]));
  }
  ordered::PairMerges merges;
  for (std::size_t i = 0; i < my._xp.size(); ++i) {
    const auto& pair = RecordOf(d._xp[i]);
    if (pair._nRows != 0) {
      merges.Add(CountPair(RecordOf(my._xp[i]), static_cast<std::uint64_t>(pair._nRows)),
                 ordered::RoomOf(pair));
    }
  }
  return my._xp.size();
}

// Fills an empty record of a pairwise kind.
template <class Data>
requires requires(Data my) { my._varStats; }
void TakeTotals(Data& my, const PairwiseTotals& totals) {
  my._nRows = static_cast<decltype(my._nRows)>(totals.rows);
  my._weightSum = totals.weightSum;
  my._regWeightSum = totals.regWeightSum;
  my._hasRegWeights = totals.hasRegWeights;
  my.MakeRecords(static_cast<std::int64_t>(totals.variables.size()),
                 static_cast<std::int64_t>(totals.pairs.size()));
  for (std::size_t i = 0; i < totals.variables.size(); ++i) {
    auto& variable = RecordOf(my._varStats[i]);
    double rows = 0.;
    std::tie(rows, variable._weightSum, variable._regWeightSum, variable._mean, std::ignore,
             variable._css, std::ignore, std::ignore) = std::tuple_cat(totals.variables[i]);
    variable._nRows = static_cast<decltype(variable._nRows)>(rows);
    if constexpr (requires { variable._min; }) {
      variable._min = totals.mins[i];
      variable._max = totals.maxs[i];
    }
  }
  for (std::size_t i = 0; i < totals.pairs.size(); ++i) {
    auto& pair = RecordOf(my._xp[i]);
    double rows = 0.;
    std::tie(rows, pair._weightSum, pair._regWeightSum, pair._mean0, pair._mean1, pair._css0,
             pair._css1, pair._cscp) = std::tuple_cat(totals.pairs[i]);
    pair._nRows = static_cast<decltype(pair._nRows)>(rows);
  }
}

// Writes or reads a record of a variable or a pair: its count, then its other numbers in the order
// of the public records.
//   most  the count is not larger
template <class Record, class State>
void TransferRecord(Record& record, std::uint64_t most, State& state) {
  const auto transferAll = [&state](auto&... numbers) {
    (state.Number(numbers), ...);
    return ((numbers == 0.) && ...);
  };
  state.Count(record._nRows, most);
  bool isZero = transferAll(record._weightSum, record._regWeightSum);
  if constexpr (requires { record._cscp; }) {
    isZero = transferAll(record._mean0, record._mean1, record._css0, record._css1, record._cscp) &&
             isZero;
  } else {
    isZero = transferAll(record._mean, record._css) && isZero;
  }
  if constexpr (requires { record._min; }) {
    transferAll(record._min, record._max);
    isZero = isZero && record._min == maxvalue && record._max == minvalue;
  }
  state.Check(record._nRows != 0 || isZero, "a record of no cases that is not empty");
}

// Asks, before memory is taken for them, whether a state goes on with so many records: at least 40
// and 64 bytes each.
template <class State>
void ExpectRecords(State& state, std::int64_t columns, std::int64_t pairs) {
  state.Expect(static_cast<std::uint64_t>(columns), 40);
  state.Expect(static_cast<std::uint64_t>(pairs), 64);
}

// Writes or reads all that a pairwise accumulator holds. Its records have been made.
template <class Data, class State>
void TransferRecords(Data& my, const Shape& shape, State& state) {
  TransferTotals(my, shape, state);
  for (auto& variable : my._varStats) {
    TransferRecord(RecordOf(variable), my._nRows, state);
  }
  for (auto& pair : my._xp) {
    TransferRecord(RecordOf(pair), my._nRows, state);
  }
}

// What the records of the pairwise blocks have in common.
struct PairwiseBlock {
  PairwiseBlock(double missingCode, int col0, int col1, int col2)
      : _work{missingCode}, _col0{col0}, _col1{col1}, _col2{col2} {}
  // Deep copies.
  PairwiseBlock(const PairwiseBlock& d);
  PairwiseBlock& operator=(const PairwiseBlock&) = delete;  // a copy is built aside and moved in
  PairwiseBlock(PairwiseBlock&&) noexcept = default;
  PairwiseBlock& operator=(PairwiseBlock&&) noexcept = default;
  ~PairwiseBlock() = default;

  // Makes the block's records, all of them fresh.
  void MakeRecords(std::int64_t columns, std::int64_t pairs);

  bool IsEmpty() const { return _varStats.empty(); }
  Shape GetShape(Kind kind) const {
    return {kind, {_col0, _col1, _col2}, _work._missingCode, !IsEmpty(), _hasRegWeights};
  }

  double _weightSum = 0.;
  double _regWeightSum = 0.;
  unsigned int _nRows = 0;
  std::vector<std::unique_ptr<VarStat>> _varStats;  // entry k belongs to column _col0 + k
  std::vector<std::unique_ptr<PairStat>> _xp;
  MissingValues _work;
  bool _hasRegWeights = false;
  Bound _col0;
  Bound _col1;
  Bound _col2;
};

}  // namespace velmor
