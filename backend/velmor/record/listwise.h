#pragma once

// What the listwise accumulators share: how a batch's weights become totals, and the merge of the
// totals and of a triangle. Record stands for an accumulator's Data, whose members have the same
// names in all three accumulators.

#include <velmor/auto_array.h>
#include <velmor/databatch.h>

#include "ordered/chains.h"
#include "ordered/merges.h"
#include "ordered/productmatrix.h"
#include "ordered/workspace.h"
#include "record/batchcolumns.h"
#include "record/listwisetotals.h"
#include "record/transfer.h"

#include <algorithm>
#include <cstddef>

namespace velmor {

// Sets a record's number of cases, weight sums, means and extremes from a batch's columns. Returns
// the batch's cases with their combined weights. Where the batch has both kinds of weights, the
// combined weights overwrite its case weights, so the sum of the case weights is taken first.
//   mins, maxs  one a column; null when not wanted
template <class Record>
ordered::Cases TakeMoments(Record& record, DataBatch& batch, ordered::Columns columns, double* mins,
                           double* maxs) {
  const std::size_t rows = batch.NRows();
  const bool hasBoth = batch.HasWeights() && batch.HasRegWeights();
  const double caseWeightSum = hasBoth ? ordered::Sum(batch.Weights(), rows) : 0.;
  const ordered::Cases cases{rows,
                             ordered::CombineWeights(batch.Weights(), batch.RegWeights(), rows)};
  record._nRows = batch.NRows();
  record._hasRegWeights = batch.HasRegWeights();
  record._regWeightSum = ordered::Moments(columns, cases, record._means.data(), mins, maxs);
  record._weightSum = hasBoth                 ? caseWeightSum
                      : batch.HasRegWeights() ? static_cast<double>(rows)
                                              : record._regWeightSum;
  record._isWeightless = record._weightSum == 0.;
  return cases;
}

// The merge of two records' means. Constructed before a record is changed, because it takes memory.
class MeanMerge {
 public:
  template <class Record>
  MeanMerge(const Record& a, const Record& b)
      : _means(a._means.size()),
        _shiftsA(_workspace.Take<double>(a._means.size())),
        _shiftsB(_workspace.Take<double>(a._means.size())) {
    ordered::MergeMeans({a._means.data(), a._regWeightSum}, {b._means.data(), b._regWeightSum},
                        a._means.size(), _means);
    for (std::size_t i = 0; i < a._means.size(); ++i) {
      _shiftsA[i] = _means[i] - a._means[i];
      _shiftsB[i] = _means[i] - b._means[i];
    }
  }

  // The merged means less each record's own, from column i on.
  ordered::Shifts Shifts(std::size_t i) const { return {_shiftsA + i, _shiftsB + i}; }

  // The last step of a merge: the merged means replace the record's, and d's totals are added.
  template <class Record>
  void Finish(Record& record, const Record& d) {
    record._means.assign(_means.begin(), _means.begin() + record._means.size());
    record._weightSum = d._weightSum + record._weightSum;
    record._regWeightSum = record._regWeightSum + d._regWeightSum;
    record._nRows += d._nRows;
  }

 private:
  auto_array<double, 1> _means;
  ordered::Workspace _workspace;
  double* _shiftsA;
  double* _shiftsB;
};

// Merges d's triangle of centred cross-products into the record's. Returns the number of cells.
template <class Record>
std::size_t MergeTriangle(Record& record, const Record& d, const MeanMerge& means) {
  const ordered::Shifts shifts = means.Shifts(0);
  std::size_t cell = 0;
  for (std::size_t i = 0; i < record._means.size(); ++i) {
    // The shift of the record's mean as it was computed, before it was rounded into the merged
    // mean.
    const double shift =
        ordered::MeanDiff(record._means[i], record._regWeightSum, d._means[i], d._regWeightSum);
    ordered::MergeRow(shifts, record._regWeightSum * shift, d._regWeightSum * shifts.ofB[i],
                      d._xp + cell, i + 1, record._xp + cell);
    cell += i + 1;
  }
  return cell;
}

// Fills an empty record of a listwise kind.
template <class Record>
requires requires(Record record) { record._isWeightless; }
void TakeTotals(Record& record, const ListwiseTotals& totals) {
  record._nRows = static_cast<decltype(record._nRows)>(totals.rows);
  record._weightSum = totals.weightSum;
  record._regWeightSum = totals.regWeightSum;
  record._hasRegWeights = totals.hasRegWeights;
  record._isWeightless = totals.isWeightless;
  record._means.assign(totals.means.begin(), totals.means.end());
  if constexpr (requires { record._mins; }) {
    record._mins.assign(totals.mins.begin(), totals.mins.end());
    record._maxs.assign(totals.maxs.begin(), totals.maxs.end());
  }
  if constexpr (requires { record._css; }) {
    record._css.assign(totals.squares.begin(), totals.squares.end());
  }
  record._xp = OwnedArray<double>(totals.cells.size());
  std::copy(totals.cells.begin(), totals.cells.end(), static_cast<double*>(record._xp));
}

// The totals of a record, and whether its cases weigh anything.
template <class Record, class State>
void TransferListwiseTotals(Record& my, const Shape& shape, State& state) {
  TransferTotals(my, shape, state);
  state.Flag(my._isWeightless);
  state.Check(!my._isWeightless || my._weightSum == 0., "a weight of cases that weigh nothing");
}

}  // namespace velmor
