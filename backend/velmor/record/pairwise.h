#pragma once

// What the pairwise accumulators share: the totals, which count a case whatever it lacks, and the
// passes over a batch's columns and pairs and over two accumulators' records. Data
// stands for an accumulator's record; its members have the same names in all of them.

#include <velmor/databatch.h>
#include <velmor/kernels.h>
#include <velmor/statistics.h>

#include "ordered/chains.h"
#include "ordered/merges.h"
#include "ordered/present/presentcases.h"
#include "record/batchcolumns.h"
#include "record/presentmerge.h"
#include "record/transfer.h"

#include <array>
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

// An accumulator's work area: its missing code. What the vectors hold means nothing to a copy.
struct Scratch : WorkArea {
  explicit Scratch(double missingCode) { _missingCode = missingCode; }
  Scratch(const Scratch& other) : Scratch(other._missingCode) {}
  Scratch& operator=(const Scratch&) = delete;
  Scratch(Scratch&&) noexcept = default;
  Scratch& operator=(Scratch&&) noexcept = default;
  ~Scratch() = default;
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

// Whether a record is a count and the seven doubles of PairStatData, each in its place.
template <class Record>
constexpr bool IsPairRecord() {
  constexpr std::size_t kSize = sizeof(double);
  return sizeof(Record) == 8 * kSize && offsetof(Record, _nRows) == 0 &&
         offsetof(Record, _weightSum) == kSize && offsetof(Record, _regWeightSum) == 2 * kSize &&
         offsetof(Record, _mean0) == 3 * kSize && offsetof(Record, _mean1) == 4 * kSize &&
         offsetof(Record, _css0) == 5 * kSize && offsetof(Record, _css1) == 6 * kSize &&
         offsetof(Record, _cscp) == 7 * kSize;
}

// Merges pairs into the records of an accumulator, some at a time. What has been added is merged
// when this ends, at the latest.
class PairMerges {
 public:
  PairMerges() = default;
  PairMerges(const PairMerges&) = delete;
  PairMerges& operator=(const PairMerges&) = delete;
  ~PairMerges() { Merge(); }

  // Merges d into the record; nothing if it has no case. d stays where it is until it is merged.
  template <class Record, class OfOther>
  void Add(Record& record, const OfOther& d) {
    static_assert(IsPairRecord<Record>() && IsPairRecord<OfOther>());
    if (d._nRows == 0) {
      return;
    }
    record._nRows += static_cast<decltype(record._nRows)>(d._nRows);
    _records[_count] = static_cast<double*>(static_cast<void*>(&record));
    _others[_count++] = static_cast<const double*>(static_cast<const void*>(&d));
    if (_count == kAtOnce) {
      Merge();
    }
  }
  // The same for a pair that the caller does not keep.
  template <class Record>
  void AddCopy(Record& record, const ordered::PresentPair& d) {
    _copies[_count] = d;
    Add(record, _copies[_count]);
  }

 private:
  static constexpr std::size_t kAtOnce = 64;

  void Merge() {
    ordered::MergePairs(_records.data(), _others.data(), _count);
    _count = 0;
  }

  std::size_t _count = 0;
  std::array<double*, kAtOnce> _records{};
  std::array<const double*, kAtOnce> _others{};
  std::array<ordered::PresentPair, kAtOnce> _copies{};
};

// Merges a batch's variables and pairs into an accumulator's records. PlaceOf says where a pair's
// record is.
template <class Data, class PlaceOf>
class RecordSink final : public ordered::PairwiseSink {
 public:
  RecordSink(Data& my, PlaceOf placeOf) : _my(my), _placeOf(placeOf) {}
  void Take(std::size_t column, const ordered::PresentVariable& variable) noexcept override {
    UpdateVariable(RecordOf(_my._varStats[column]), variable);
  }
  void Take(std::size_t first, std::size_t second,
            const ordered::PresentPair& pair) noexcept override {
    _merges.AddCopy(RecordOf(_my._xp[_placeOf(first, second)]), pair);
  }

 private:
  Data& _my;
  PlaceOf _placeOf;
  PairMerges _merges;
};

// Accumulates the columns [from, to) of a batch: each one's present cases, and those of the pairs
// that are wanted. When memory runs out, nothing is accumulated.
template <class Data, class PlaceOf>
void AddRecords(Data& my, DataBatch& batch, int from, int to, ordered::WantedPairs wanted,
                PlaceOf placeOf) {
  RecordSink<Data, PlaceOf> sink(my, placeOf);
  ordered::AccumulatePairwise({BatchColumns(batch, from, to), batch.NRows(), batch.Weights(),
                               batch.RegWeights(), my._work._missingCode},
                              wanted, sink);
  AddTotals(my, batch);
}

// The same for all pairs of different columns, as a strictly lower triangle row by row.
template <class Data>
void AddTriangleOfRecords(Data& my, DataBatch& batch, int from, int to) {
  AddRecords(
      my, batch, from, to, ordered::WantedPairs::Triangle(),
      [](std::size_t first, std::size_t second) { return first * (first - 1) / 2 + second; });
}

// Merges d's records into my own. Returns the number of pairs.
template <class Data>
std::size_t MergeRecords(Data& my, const Data& d) {
  for (std::size_t i = 0; i < my._varStats.size(); ++i) {
    UpdateVariable(RecordOf(my._varStats[i]), RecordOf(d._varStats[i]));
  }
  PairMerges merges;
  for (std::size_t i = 0; i < my._xp.size(); ++i) {
    merges.Add(RecordOf(my._xp[i]), RecordOf(d._xp[i]));
  }
  return my._xp.size();
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

// What a block keeps. The blocks' records add the walk over their pairs.
struct PairwiseBlock {
  PairwiseBlock(double missingCode, int col0, int col1, int col2)
      : _work(missingCode), _col0{col0}, _col1{col1}, _col2{col2} {}
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
  Scratch _work;
  bool _hasRegWeights = false;
  Bound _col0;
  Bound _col1;
  Bound _col2;
};

}  // namespace velmor
