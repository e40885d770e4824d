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
  _batch->engine.PairSums(x, _set->isComplete, Panels(), _panels, _batch->stride, sums);
}

void ColumnTask::FinishMeans(double* sums) const {
  for (unsigned panel = 0; panel < _panels; ++panel) {
    _batch->engine.PairMeans(sums + panel * FieldsSize());
  }
}

void ColumnTask::Multiply(Strip strip, double* sums, double* /*scratch*/) const {
  RowList list;
  const PairVariable x = Variable(strip, list);
  _batch->engine.PairProducts(x, _isFirst, _set->isComplete, Panels(), _panels, _batch->stride,
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

namespace {

// Places in a set, [begin, end).
struct Places {
  std::size_t begin;
  std::size_t end;
};

// The columns of a set with which a column has wanted pairs, as their first variable or second one.
Places PartnersOf(std::uint32_t column, const ColumnSet& set, bool isFirst, WantedPairs wanted) {
  const auto columns = set.columns;
  if (wanted.isRectangle) {  // a set is of one range
    const bool arePairs =
        isFirst ? wanted.IsPair(column, columns[0]) : wanted.IsPair(columns[0], column);
    return {0, arePairs ? columns.size() : 0};
  }
  const auto below = [&](std::uint32_t bound) {
    return static_cast<std::size_t>(std::lower_bound(columns.begin(), columns.end(), bound) -
                                    columns.begin());
  };
  return isFirst ? Places{0, below(column)} : Places{below(column + 1), columns.size()};
}

// What the columns of one set by the panels of the other cost: half where lanes select no rows.
std::size_t CostOf(const ColumnSet& columns, const ColumnSet& panels) {
  return columns.columns.size() * panels.panels * (panels.isComplete ? 1 : 2);
}

template <class Visit>
void ForEachColumnTask(const PackedBatch& batch, Visit visit) {
  const std::size_t lanes = batch.engine.panel;
  const auto visitPairs = [&](std::uint32_t column, const ColumnSet& set, bool isFirst) {
    const Places places = PartnersOf(column, set, isFirst, batch.wanted);
    if (places.begin < places.end) {
      const std::size_t first = places.begin / lanes;
      const std::size_t last = (places.end - 1) / lanes;
      visit(ColumnTask(batch, column, set, first, last + 1 - first, isFirst));
    }
  };
  // All pairs of two sets, or of one.
  const auto visitSets = [&](const ColumnSet& a, const ColumnSet& b) {
    const bool isByA = CostOf(b, a) < CostOf(a, b);
    for (const std::uint32_t column : (isByA ? b : a).columns) {
      visitPairs(column, isByA ? a : b, true);
      if (&a != &b) {
        visitPairs(column, isByA ? a : b, false);
      }
    }
  };
  const auto others = batch.patterns.Others();
  for (std::size_t i = 0; i < others.size(); ++i) {
    visit(ColumnTask(batch, ColumnTask::kNoColumn, others[i], 0, others[i].panels, true));
    for (const ColumnSet& set : others.subspan(i)) {
      visitSets(others[i], set);
    }
    for (const ColumnSet& set : batch.patterns.Wide()) {
      visitSets(others[i], set);
    }
  }
}

}  // namespace

std::span<ColumnTask> ColumnTasks(const PackedBatch& batch, Workspace& workspace) {
  std::size_t count = 0;
  ForEachColumnTask(batch, [&](const ColumnTask&) { ++count; });
  auto* const tasks = workspace.Take<ColumnTask>(count);
  ColumnTask* next = tasks;
  ForEachColumnTask(batch, [&](const ColumnTask& task) { *next++ = task; });
  return {tasks, count};
}

}  // namespace velmor::ordered
