// patterntask.cpp: pairs that have the same cases; start at PatternTasks, then Sum.
#include "ordered/present/patterntask.h"

#include "ordered/chains.h"
#include "ordered/panels.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace velmor::ordered {

namespace {

using ColumnNumbers = std::span<const std::uint32_t>;

// Whether two sets, or parts of sets, have a pair with a column of `first` as its first variable.
bool HavePairs(WantedPairs wanted, ColumnNumbers first, ColumnNumbers second) {
  return wanted.IsPair(first.back(), second.front());
}

}  // namespace

PatternTask::PatternTask(const PackedBatch& batch, const ColumnSet& a, const ColumnSet& b,
                         bool hasVariables)
    : _batch(&batch), _a(&a), _b(&b), _hasVariables(hasVariables) {
  const bool isOne = IsOnePattern();
  const auto tiles = [&](const ColumnSet& first, const ColumnSet& second) {
    return !isOne && HavePairs(batch.wanted, first.columns, second.columns)
               ? std::size_t{first.panels} * second.panels
               : 0;
  };
  _places = (a.panels + (isOne ? 0 : b.panels)) * Lanes();
  _triangle = isOne && !batch.wanted.isRectangle ? TriangleTile(a.panels, 0) : 0;
  _aFirst = tiles(a, b);
  _bFirst = tiles(b, a);
}

PatternSums PatternTask::SumsAt(double* first) const {
  const auto cut = [&first](std::size_t size) {
    return std::span(std::exchange(first, first + size), size);
  };
  return {.moments = cut(_places * kMomentFields),
          .means = cut(_places),
          .squares = cut(_places),
          .triangle = cut(_triangle * TileSize()),
          .aFirst = cut(_aFirst * TileSize()),
          .bFirst = cut(_bFirst * TileSize())};
}

double* PatternTask::MomentsOf(const PatternSums& sums, std::size_t place) const {
  return &sums.moments[place / Lanes() * kMomentFields * Lanes() + place % Lanes()];
}

// Of a triangle they are on the diagonal.
double PatternTask::SquaresOf(const PatternSums& sums, std::size_t place) const {
  const std::size_t panel = place / Lanes();
  return HasTriangle() ? sums.triangle[TriangleTile(panel, panel) * TileSize() +
                                       place % Lanes() * (Lanes() + 1)]
                       : sums.squares[place];
}

Rows PatternTask::RowsOf(Strip strip, RowList& list) const {
  return RowsOfBoth(_batch->patterns.Bits(_a->columns[0]) + strip.from / 64,
                    _batch->patterns.Bits(_b->columns[0]) + strip.from / 64, strip.rows, list);
}

void PatternTask::Sum(Strip strip, double* first, double* /*scratch*/) {
  if (SumsPanels()) {
    SumPanels(strip, SumsAt(first));
  } else if (strip.from == 0) {
    SumColumns(SumsAt(first));
  }
}

// All rows of a complete pattern.
void PatternTask::SumColumns(const PatternSums& sums) {
  const PairwiseCases& cases = _batch->cases;
  _common.rows = cases.rows;
  _common.caseWeightSum = _batch->HasBothWeights() ? ordered::Sum(cases.weights, cases.rows) : 0.;
  _batch->engine.ColumnMoments(_batch->columns + _a->firstPanel * Lanes(), _a->panels, cases.rows,
                               _batch->weights, sums.moments.data(), &_common.weightSum);
}

void PatternTask::SumPanels(Strip strip, const PatternSums& sums) {
  RowList list;
  const Rows some = RowsOf(strip, list);
  const bool isFirst = _common.rows == 0;
  _common.rows += some.count;
  for (std::size_t i = 0; _batch->HasBothWeights() && i < some.count; ++i) {
    _common.caseWeightSum =
        _batch->cases.weights[strip.from + some.list[i]] + _common.caseWeightSum;
  }
  const auto take = [&](const ColumnSet& set, double& weightSum) {
    _batch->engine.PanelMoments(_batch->Panel(set.firstPanel), set.panels, _batch->stride, some,
                                _batch->weights + strip.from, isFirst,
                                MomentsOf(sums, PlaceOf(set, 0)), &weightSum);
  };
  double weightSum = _common.weightSum;
  take(*_a, _common.weightSum);
  if (!IsOnePattern()) {
    take(*_b, weightSum);
  }
}

void PatternTask::FinishMeans(double* first) const {
  const PatternSums sums = SumsAt(first);
  for (std::size_t place = 0; place < _places; ++place) {
    sums.means[place] =
        _common.rows == 0 ? 0. : MeanOf(MomentsOf(sums, place), Lanes(), _common.weightSum);
  }
}

void PatternTask::Multiply(Strip strip, double* first, double* scratch) const {
  const PatternSums sums = SumsAt(first);
  const Engine& engine = _batch->engine;
  const std::size_t stride = _batch->stride;
  RowList list;
  const Rows some = RowsOf(strip, list);
  std::array<double, kStripRows> weights;  // NOLINT(*-member-init): the next lines do
  for (std::size_t i = 0; i < some.count; ++i) {
    weights[i] = _batch->weights[strip.from + some.list[i]];
  }
  double* const values = scratch;
  double* const weighted = scratch + Panels() * stride;
  for (std::size_t panel = 0; panel < Panels(); ++panel) {
    engine.Center(Panel(panel), some, &sums.means[panel * Lanes()], weights.data(),
                  values + panel * stride, weighted + panel * stride);
  }
  if (HasTriangle()) {
    AddTriangle(engine, _a->columns.size(), values, weighted, stride, some.count,
                sums.triangle.data());
    return;
  }
  engine.PanelSums(values, static_cast<unsigned>(Panels()), stride, {some.count, nullptr},
                   weights.data(), Lanes(), nullptr, sums.squares.data());
  if (!IsOnePattern()) {
    MultiplyPatterns(some.count, values, weighted, sums);
  }
}

void PatternTask::MultiplyPatterns(std::size_t rows, const double* values, const double* weighted,
                                   const PatternSums& sums) const {
  const std::size_t stride = _batch->stride;
  const std::size_t b = _a->panels * stride;
  for (std::size_t i = 0; i < _a->panels; ++i) {
    if (_aFirst > 0) {
      MultiplyRow(i, true, rows, weighted + i * stride, values + b, sums.aFirst);
    }
    if (_bFirst > 0) {
      MultiplyRow(i, false, rows, values + i * stride, weighted + b, sums.bFirst);
    }
  }
}

// Panel i of a by all of b, where these have pairs.
void PatternTask::MultiplyRow(std::size_t i, bool isAFirst, std::size_t rows, const double* aPanel,
                              const double* bPanels, std::span<double> tiles) const {
  const Engine& engine = _batch->engine;
  const std::size_t stride = _batch->stride;
  const std::size_t end = _b->panels;
  const auto columnsFrom = [this](const ColumnSet& set, std::size_t panel, std::size_t panels) {
    const std::size_t from = panel * Lanes();
    return set.columns.subspan(from, std::min(panels * Lanes(), set.columns.size() - from));
  };
  const ColumnNumbers a = columnsFrom(*_a, i, 1);
  for (std::size_t j = 0; j < end; j += engine.tilePanels) {
    const std::size_t panels = std::min<std::size_t>(engine.tilePanels, end - j);
    const ColumnNumbers b = columnsFrom(*_b, j, panels);
    if (isAFirst ? HavePairs(_batch->wanted, a, b) : HavePairs(_batch->wanted, b, a)) {
      engine.Products(aPanel, static_cast<unsigned>(a.size()), bPanels + j * stride,
                      static_cast<unsigned>(panels), stride, rows,
                      &tiles[(i * end + j) * TileSize()]);
    }
  }
}

void PatternTask::HandOver(double* first, Results& results) const {
  if (_common.rows == 0) {
    return;
  }
  const PatternSums sums = SumsAt(first);
  if (_hasVariables) {
    HandOverVariables(*_a, sums, results);
    if (!IsOnePattern()) {
      HandOverVariables(*_b, sums, results);
    }
  }
  if (IsOnePattern() && !HasTriangle()) {
    return;
  }
  for (std::size_t a = 0; a < _a->columns.size(); ++a) {
    for (std::size_t b = 0; b < (IsOnePattern() ? a : _b->columns.size()); ++b) {
      HandOverPair(a, b, sums, results);
    }
  }
}

void PatternTask::HandOverVariables(const ColumnSet& set, const PatternSums& sums,
                                    Results& results) const {
  for (std::size_t i = 0; i < set.columns.size(); ++i) {
    const std::size_t place = PlaceOf(set, i);
    const double* const moments = MomentsOf(sums, place);
    results.Merge(set.columns[i],
                  {_common.rows, _batch->WeightSum(_common), _common.weightSum, sums.means[place],
                   SquaresOf(sums, place), moments[kMin * Lanes()], moments[kMax * Lanes()]});
  }
}

void PatternTask::HandOverPair(std::size_t a, std::size_t b, const PatternSums& sums,
                               Results& results) const {
  const bool isAFirst = _batch->wanted.IsPair(_a->columns[a], _b->columns[b]);
  const std::size_t i = a / Lanes();
  const std::size_t j = b / Lanes();
  const double* const tile =
      IsOnePattern() ? &sums.triangle[TriangleTile(i, j) * TileSize()]
                     : &(isAFirst ? sums.aFirst : sums.bFirst)[(i * _b->panels + j) * TileSize()];
  std::uint32_t first = _a->columns[a];
  std::uint32_t second = _b->columns[b];
  std::size_t place0 = PlaceOf(*_a, a);
  std::size_t place1 = PlaceOf(*_b, b);
  if (!isAFirst) {
    std::swap(first, second);
    std::swap(place0, place1);
  }
  results.Merge(first, second,
                {_common.rows, _batch->WeightSum(_common), _common.weightSum, sums.means[place0],
                 sums.means[place1], SquaresOf(sums, place0), SquaresOf(sums, place1),
                 tile[a % Lanes() * Lanes() + b % Lanes()]});
}

// Two columns of one pattern may be of two ranges: then they are of two sets, whose pairs have the
// same cases as their variables.
std::span<PatternTask> PatternTasks(const PackedBatch& batch, Workspace& workspace) {
  const auto wide = batch.patterns.Wide();
  // All pairs of sets or, in a rectangle, each of the first range with each of the second.
  const bool isRectangle = batch.wanted.isRectangle;
  const auto ofFirstRange = static_cast<std::size_t>(
      std::partition_point(
          wide.begin(), wide.end(),
          [&](const ColumnSet& set) { return set.columns[0] < batch.wanted.firstRange; }) -
      wide.begin());
  const std::size_t pairs = isRectangle ? ofFirstRange * (wide.size() - ofFirstRange)
                                        : wide.size() * (wide.size() - 1) / 2;
  auto* const tasks = workspace.Take<PatternTask>(pairs + wide.size());
  auto* const haveVariables = workspace.Take<bool>(wide.size());
  std::fill_n(haveVariables, wide.size(), false);
  std::size_t count = 0;
  for (std::size_t b = ofFirstRange; b < wide.size(); ++b) {
    for (std::size_t a = 0; a < (isRectangle ? ofFirstRange : b); ++a) {
      const bool areAlike = batch.patterns.HaveSameCases(wide[a].columns[0], wide[b].columns[0]);
      // The rows of a tile need not be full, as its lanes are: they are for the smaller set.
      const bool isASmaller = wide[a].columns.size() <= wide[b].columns.size();
      tasks[count++] = isASmaller ? PatternTask(batch, wide[a], wide[b], areAlike)
                                  : PatternTask(batch, wide[b], wide[a], areAlike);
      haveVariables[a] = haveVariables[a] || areAlike;
      haveVariables[b] = haveVariables[b] || areAlike;
    }
  }
  for (std::size_t a = 0; a < wide.size(); ++a) {
    if (!haveVariables[a]) {
      tasks[count++] = PatternTask(batch, wide[a], wide[a], true);
    }
  }
  return {tasks, count};
}

}  // namespace velmor::ordered
