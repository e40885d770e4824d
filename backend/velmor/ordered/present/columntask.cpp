// columntask.cpp: pairs of columns that each lack other cases; start at ColumnTasks, then Sum.
#include "ordered/present/columntask.h"

#include <algorithm>
#include <array>

namespace velmor::ordered {

PairVariable ColumnTask::Variable(Strip strip, RowList& list) const {
  // Values that differ, so that no lane stays in a leading run.
  static constexpr std::array<double, kStripRows> kValues = [] {
    std::array<double, kStripRows> values{};
    for (std::size_t i = 0; i < kStripRows; ++i) {
      values[i] = static_cast<double>(i);
    }
    return values;
  }();
  const double* const weights = _batch->weights + strip.from;
  const double* const caseWeights =
      _batch->HasBothWeights() ? _batch->cases.weights + strip.from : nullptr;
  const double missingCode = _batch->cases.missingCode;
  if (_column == kNoColumn) {
    return {kValues.data(), {strip.rows, nullptr}, weights, caseWeights, missingCode};
  }
  const std::uint64_t* const bits = _batch->patterns.Bits(_column) + strip.from / 64;
  return {_batch->cases.columns[_column] + strip.from, RowsOfBoth(bits, bits, strip.rows, list),
          weights, caseWeights, missingCode};
}

void ColumnTask::Sum(Strip strip, double* sums, double* /*scratch*/) {
  RowList list;
  const PairVariable x = Variable(strip, list);
  _batch->engine.PairSums(x, _set->isComplete, Panels(), _panels, _batch->Stride(), sums);
}

void ColumnTask::FinishMeans(double* sums) const {
  for (unsigned panel = 0; panel < _panels; ++panel) {
    _batch->engine.PairMeans(sums + panel * FieldsSize());
  }
}

void ColumnTask::Multiply(Strip strip, double* sums, double* /*scratch*/) const {
  RowList list;
  const PairVariable x = Variable(strip, list);
  _batch->engine.PairProducts(x, _isFirst, _set->isComplete, Panels(), _panels, _batch->Stride(),
                              sums);
}

void ColumnTask::HandOver(double* sums, Results& results) const {
  const std::size_t from = _firstPanel * Lanes();
  const std::size_t to = std::min(from + _panels * Lanes(), _set->columns.size());
  for (std::size_t place = from; place < to; ++place) {
    const double* const fields =
        sums + (place - from) / Lanes() * FieldsSize() + (place - from) % Lanes();
    if (_column == kNoColumn) {
      HandOverVariable(fields, _set->columns[place], results);
    } else {
      HandOverPair(fields, _set->columns[place], results);
    }
  }
}

void ColumnTask::HandOverVariable(const double* fields, std::uint32_t column,
                                  Results& results) const {
  const CommonCases common{_batch->patterns.Present(column), fields[kPairWeightSum * Lanes()],
                           fields[kPairCaseWeightSum * Lanes()]};
  const Extremes extremes = _batch->ExtremesOf(column);
  results.Merge(column, {common.rows, _batch->WeightSum(common), common.weightSum,
                         fields[kPairMean1 * Lanes()], fields[kPairSquares1 * Lanes()],
                         extremes.min, extremes.max});
}

void ColumnTask::HandOverPair(const double* fields, std::uint32_t other, Results& results) const {
  if (!(_isFirst ? _batch->wanted.IsPair(_column, other) : _batch->wanted.IsPair(other, _column))) {
    return;
  }
  const Patterns& patterns = _batch->patterns;
  const CommonCases common{
      _batch->engine.CountBoth(patterns.Bits(_column), patterns.Bits(other), patterns.Words()),
      fields[kPairWeightSum * Lanes()], fields[kPairCaseWeightSum * Lanes()]};
  if (common.rows == 0) {
    return;
  }
  // Of the column and of the other.
  const double mean0 = fields[kPairMean0 * Lanes()];
  const double mean1 = fields[kPairMean1 * Lanes()];
  const double squares0 = fields[kPairSquares0 * Lanes()];
  const double squares1 = fields[kPairSquares1 * Lanes()];
  const double products = fields[kPairProducts * Lanes()];
  const double weightSum = _batch->WeightSum(common);
  if (_isFirst) {
    results.Merge(
        _column, other,
        {common.rows, weightSum, common.weightSum, mean0, mean1, squares0, squares1, products});
  } else {
    results.Merge(
        other, _column,
        {common.rows, weightSum, common.weightSum, mean1, mean0, squares1, squares0, products});
  }
}

std::span<ColumnTask> ColumnTasks(const PackedBatch& batch, Workspace& workspace) {
  const auto wide = batch.patterns.Wide();
  const auto others = batch.patterns.Others();
  const std::size_t lanes = batch.engine.panel;
  std::size_t columns = 0;
  for (const ColumnSet& set : others) {
    columns += set.columns.size();
  }
  auto* const tasks =
      workspace.Take<ColumnTask>(others.size() + 2 * columns * (wide.size() + others.size()));
  std::size_t count = 0;
  // The columns of a set that are wanted follow each other there.
  const auto add = [&](std::uint32_t column, const ColumnSet& set, bool isFirst) {
    const auto isWanted = [&](std::uint32_t other) {
      return isFirst ? batch.wanted.IsPair(column, other) : batch.wanted.IsPair(other, column);
    };
    const auto begin = std::find_if(set.columns.begin(), set.columns.end(), isWanted);
    const auto end = std::find_if_not(begin, set.columns.end(), isWanted);
    if (begin != end) {
      const auto from = static_cast<std::size_t>(begin - set.columns.begin()) / lanes;
      const auto last = static_cast<std::size_t>(end - set.columns.begin() - 1) / lanes;
      tasks[count++] = ColumnTask(batch, column, set, from, last + 1 - from, isFirst);
    }
  };
  for (const ColumnSet& set : others) {
    tasks[count++] = ColumnTask(batch, ColumnTask::kNoColumn, set, 0, set.panels, true);
    for (const std::uint32_t column : set.columns) {
      for (const ColumnSet& other : others) {
        add(column, other, true);
      }
      for (const ColumnSet& other : wide) {
        add(column, other, true);
        add(column, other, false);
      }
    }
  }
  return {tasks, count};
}

}  // namespace velmor::ordered
