// patterntask.cpp: pairs that have the same cases; start at PatternTasks, then Sum.
#include "ordered/present/patterntask.h"

#include "ordered/chains.h"
#include "ordered/panels.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velmor::ordered {

PatternTask::PatternTask(const PackedBatch& batch, const ColumnSet& a, const ColumnSet& b,
                         bool hasVariables)
    : _batch(&batch),
      _a(&a),
      _b(&b),
      _hasVariables(hasVariables),
      _places((a.panels + (IsOnePattern() ? 0 : b.panels)) * Lanes()),
      _triangle(IsOnePattern() ? TriangleTile(a.panels, 0) : 0),
      _rectangle(IsOnePattern() ? 0 : std::size_t{a.panels} * b.panels) {}

PatternSums PatternTask::SumsAt(double* first) const {
  const auto cut = [&first](std::size_t size) {
    return std::span(std::exchange(first, first + size), size);
  };
  return {.moments = cut(_places * kMomentFields),
          .means = cut(_places),
          .squares = cut(_places),
          .triangle = cut(_triangle * TileSize()),
          .aFirst = cut(_rectangle * TileSize()),
          .bFirst = cut(_rectangle * TileSize())};
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

void PatternTask::Sum(Strip strip, double* sums, double* /*scratch*/) {
  if (SumsPanels()) {
    SumPanels(strip, SumsAt(sums));
  } else if (strip.from == 0) {
    SumColumns(SumsAt(sums));
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
    _batch->engine.PanelMoments(_batch->Panel(set.firstPanel), set.panels, _batch->Stride(), some,
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
  const std::size_t stride = _batch->Stride();
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
    AddTriangle(engine, _a->columns.size(), values, weighted, some.count, sums.triangle.data());
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
  const std::size_t stride = _batch->Stride();
  const std::size_t b = _a->panels * stride;
  for (std::size_t i = 0; i < _a->panels; ++i) {
    MultiplyRow(i, true, rows, weighted + i * stride, values + b, sums.aFirst);
    MultiplyRow(i, false, rows, values + i * stride, weighted + b, sums.bFirst);
  }
}

// Panel i of a by all of b, where these have pairs.
void PatternTask::MultiplyRow(std::size_t i, bool isAFirst, std::size_t rows, const double* aPanel,
                              const double* bPanels, std::span<double> tiles) const {
  const Engine& engine = _batch->engine;
  const std::size_t stride = _batch->Stride();
  const std::size_t end = _b->panels;
  const auto columns = static_cast<unsigned>(std::min(Lanes(), _a->columns.size() - i * Lanes()));
  for (std::size_t j = 0; j < end; j += engine.tilePanels) {
    const auto panels = static_cast<unsigned>(std::min<std::size_t>(engine.tilePanels, end - j));
    if (HasPairs(i, j, isAFirst) || HasPairs(i, j + panels - 1, isAFirst)) {
      engine.Products(aPanel, columns, bPanels + j * stride, panels, stride, rows,
                      &tiles[(i * end + j) * TileSize()]);
    }
  }
}

// Whether panel i of a and j of b have a pair of which a's column, or b's, is first.
bool PatternTask::HasPairs(std::size_t i, std::size_t j, bool isAFirst) const {
  const auto ends = [this](const ColumnSet& set, std::size_t panel) {
    const std::size_t last = std::min((panel + 1) * Lanes(), set.columns.size()) - 1;
    return std::pair(set.columns[panel * Lanes()], set.columns[last]);
  };
  const auto [lowestA, highestA] = ends(*_a, i);
  const auto [lowestB, highestB] = ends(*_b, j);
  return isAFirst ? _batch->wanted.IsPair(highestA, lowestB)
                  : _batch->wanted.IsPair(highestB, lowestA);
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
  if (!isAFirst && !_batch->wanted.IsPair(_b->columns[b], _a->columns[a])) {
    return;
  }
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
  auto* const tasks = workspace.Take<PatternTask>(wide.size() * (wide.size() + 1) / 2);
  auto* const haveVariables = workspace.Take<bool>(wide.size());
  std::fill_n(haveVariables, wide.size(), false);
  std::size_t count = 0;
  for (std::size_t b = 0; b < wide.size(); ++b) {
    for (std::size_t a = 0; a < b; ++a) {
      const std::uint32_t columnA = wide[a].columns[0];
      const std::uint32_t columnB = wide[b].columns[0];
      if (batch.wanted.IsPair(columnA, columnB) || batch.wanted.IsPair(columnB, columnA)) {
        const bool areAlike = batch.patterns.HaveSameCases(columnA, columnB);
        tasks[count++] = PatternTask(batch, wide[a], wide[b], areAlike);
        haveVariables[a] = haveVariables[a] || areAlike;
        haveVariables[b] = haveVariables[b] || areAlike;
      }
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
