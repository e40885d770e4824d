#pragma once

// What the listwise accumulators share: how a batch's weights become totals, and the merge of the
// totals and of a triangle. Record stands for an accumulator's Data; its members have the same
// names in all of them.

#include <velmor/auto_array.h>
#include <velmor/databatch.h>

#include "block.h"
#include "ordered/chains.h"
#include "ordered/columns.h"

#include <cstddef>

namespace velmor {

// Sets a record's number of cases, weight sums, means and extremes from a batch's columns, and
// returns the batch's cases under their combined weights. Where the batch has both kinds of weights
// its case weights are overwritten with the combined ones, so their own sum is taken first.
//   mins, maxs  one a column; null when not wanted
template <class Record>
ordered::Cases TakeMoments(Record& record, DataBatch& batch, ordered::Columns columns, double* mins,
                           double* maxs) {
  const std::size_t rows = batch.NRows();
  const bool hasBoth = batch.HasWeights() && batch.HasRegWeights();
  const double caseWeightSum = hasBoth ? ordered::Sum(batch.Weights(), rows) : 0.;
  const ordered::Cases cases{
      rows, ordered::CombineWeights(batch.Weights(), batch.RegWeights(), rows)};
  record._nRows = batch.NRows();
  record._hasRegWeights = batch.HasRegWeights();
  record._regWeightSum = ordered::Moments(columns, cases, record._means.data(), mins, maxs);
  record._weightSum = hasBoth                  ? caseWeightSum
                      : batch.HasRegWeights() ? static_cast<double>(rows)
                                              : record._regWeightSum;
  record._isWeightless = record._weightSum == 0.;
  return cases;
}

template <class Record>
ordered::SideMeans Side(const Record& record) {
  return {record._means.data(), record._regWeightSum};
}

// The last step of a merge: the merged means replace the record's, and d's totals are added.
template <class Record>
void MergeTotals(Record& record, const Record& d, auto_array<double, 1>& mergedMeans) {
  record._means.assign(mergedMeans.begin(), mergedMeans.end());
  record._weightSum = d._weightSum + record._weightSum;
  record._regWeightSum = record._regWeightSum + d._regWeightSum;
  record._nRows += d._nRows;
}

// Merges d's triangle of centred cross-products into the record's. Returns the number of cells.
template <class Record>
std::size_t MergeTriangle(Record& record, const Record& d, const double* mergedMeans) {
  const ordered::SideMeans a = Side(record);
  const ordered::SideMeans b = Side(d);
  std::size_t cell = 0;
  for (std::size_t i = 0; i < record._means.size(); ++i) {
    // The shift of a's mean as it was computed, before it was rounded into the merged mean.
    const double shift = ordered::MeanDiff(a.means[i], a.weight, b.means[i], b.weight);
    ordered::MergeRow(a, b, mergedMeans, a.weight * shift, b.weight * (mergedMeans[i] - b.means[i]),
                      d._xp + cell, i + 1, record._xp + cell);
    cell += i + 1;
  }
  return cell;
}

}  // namespace velmor
