// pairwise.cpp: the present cases of variables and pairs; start at AccumulatePairwise.
//
// The columns of a pattern are present in the same cases, and all pairs of columns of two patterns
// have the same cases. So the columns of two patterns that are wide enough are taken together, like
// a matrix block without missing values over some of the rows. What is left are columns with
// patterns of their own: their pairs are a column by a panel in which every lane selects its rows.
//
// Either way it takes two passes over the rows: the means, then products of distances from them.
#include "ordered/present/pairwise.h"

#include "ordered/chains.h"
#include "ordered/engine.h"
#include "ordered/panels.h"
#include "ordered/present/patterns.h"
#include "ordered/workspace.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace velmor::ordered {
namespace {

// The running sums that are worked on at a time, in doubles: some megabytes, and never less than
// what one task needs.
constexpr std::size_t kSumsAtOnce = std::size_t{1} << 19;

struct Extremes {
  double min;
  double max;
};

// What all tasks read.
struct Batch {
  Batch(const Engine& engine, const PairwiseCases& cases, PairShape shape, Workspace& workspace);

  std::size_t Stride() const { return kStripRows * engine.panel; }
  bool HasBothWeights() const { return cases.weights != nullptr && cases.regWeights != nullptr; }
  // Whether the pair's first variable is the column and its second one the other.
  bool IsPair(std::size_t column, std::size_t other) const {
    return shape.isRectangle ? column < shape.firstRange && other >= shape.firstRange
                             : column > other;
  }
  void Pack(std::size_t from, std::size_t rows) const;
  // Over the cases in which the column is present, one at least.
  Extremes ExtremesOf(std::size_t column) const;

  const Engine& engine;
  const PairwiseCases& cases;
  PairShape shape;
  Patterns patterns;
  const double* weights;   // the combined ones; all 1 where there are none
  const double** columns;  // of each panel, group by group, the last one filling its last panel up
  double* panels;          // of a strip of rows
};

Batch::Batch(const Engine& e, const PairwiseCases& c, PairShape s, Workspace& workspace)
    : engine(e),
      cases(c),
      shape(s),
      patterns(e, c, s, workspace),
      weights(c.weights ? c.weights : c.regWeights),
      columns(workspace.Take<const double*>(std::size_t{patterns.Panels()} * e.panel)),
      panels(workspace.Take<double>(patterns.Panels() * Stride())) {
  for (const auto groups : {patterns.Wide(), patterns.Others()}) {
    for (const Group& group : groups) {
      for (std::size_t i = 0; i < std::size_t{group.panels} * e.panel; ++i) {
        columns[std::size_t{group.firstPanel} * e.panel + i] =
            c.columns[group.columns[std::min(i, group.columns.size() - 1)]];
      }
    }
  }
  if (weights == nullptr || HasBothWeights()) {
    auto* const combined = workspace.Take<double>(cases.rows);
    for (std::size_t i = 0; i < cases.rows; ++i) {
      combined[i] = HasBothWeights() ? cases.weights[i] * cases.regWeights[i] : 1.;
    }
    weights = combined;
  }
}

// Fills the panels of all groups from a strip of rows.
void Batch::Pack(std::size_t from, std::size_t rows) const {
  for (unsigned panel = 0; panel < patterns.Panels(); ++panel) {
    std::array<const double*, kMaxPanel> strip{};
    for (std::size_t i = 0; i < engine.panel; ++i) {
      strip[i] = columns[std::size_t{panel} * engine.panel + i] + from;
    }
    engine.Pack(strip.data(), rows, nullptr, panels + panel * Stride(), nullptr);
  }
}

Extremes Batch::ExtremesOf(std::size_t column) const {
  const double* const x = cases.columns[column];
  const double* const end = x + cases.rows;
  const double first = *std::find_if(x, end, [this](double v) { return v != cases.missingCode; });
  Extremes extremes{first, first};
  engine.PresentExtremes(x, cases.rows, cases.missingCode, &extremes.min, &extremes.max);
  return extremes;
}

// The cases that variables or pairs have, and the sums of their weights.
struct Common {
  std::size_t rows = 0;
  double weightSum = 0.;  // of the combined weights
  double caseWeightSum = 0.;

  // What a record has: the sum of the case weights, without case weights the count.
  double WeightSum(const Batch& batch) const {
    return batch.cases.weights == nullptr ? static_cast<double>(rows)
           : batch.HasBothWeights()       ? caseWeightSum
                                          : weightSum;
  }
};

// The pairs of columns of two patterns, or all pairs of columns of one; and their variables, where
// they have the same cases as the pairs.
class PatternTask {
 public:
  // The groups may be the same one.
  PatternTask(const Batch& batch, const Group& a, const Group& b, bool hasVariables)
      : _batch(&batch), _a(&a), _b(&b), _hasVariables(hasVariables) {}

  // Doubles of running sums.
  std::size_t Size() const {
    return Tiles() + TileSize() * (IsOnePattern() ? TriangleTile(_a->panels, 0)
                                                  : std::size_t{2} * _a->panels * _b->panels);
  }
  // Whether sums are taken from panels, strip by strip. A complete pattern's are not.
  bool SumsPanels() const { return !(IsOnePattern() && _a->isComplete); }
  void Sum(std::size_t from, std::size_t rows, double* sums, double* scratch);
  void FinishMeans(double* sums) const;
  void Multiply(std::size_t from, std::size_t rows, double* sums, double* scratch) const;
  void Emit(const double* sums, PairwiseSink& sink) const;

 private:
  bool IsOnePattern() const { return _a == _b; }
  bool HasTriangle() const { return IsOnePattern() && !_batch->shape.isRectangle; }
  std::size_t Lanes() const { return _batch->engine.panel; }
  std::size_t Panels() const { return _a->panels + (IsOnePattern() ? 0 : _b->panels); }
  std::size_t TileSize() const { return Lanes() * Lanes(); }

  // Where the sums are: moments of a's columns and then of b's, by panels; one mean, one sum that
  // nobody asks for and one sum of squares for each of these; and tiles of products. Of one pattern
  // these are a triangle. Of two, each panel of a by each of b has a tile with a's columns as the
  // pairs' first variables and one with b's.
  std::size_t MomentsOf(const Group& group) const {
    return (&group == _a ? 0 : _a->panels) * (kMomentFields * Lanes());
  }
  std::size_t Means() const { return Panels() * kMomentFields * Lanes(); }
  std::size_t Sums() const { return Means() + Panels() * Lanes(); }
  std::size_t Squares() const { return Sums() + Panels() * Lanes(); }
  std::size_t Tiles() const { return Squares() + Panels() * Lanes(); }
  std::size_t Tile(std::size_t i, std::size_t j, bool isFirst) const {
    const std::size_t tile =
        IsOnePattern() ? TriangleTile(i, j) : ((isFirst ? 0 : _a->panels) + i) * _b->panels + j;
    return Tiles() + tile * TileSize();
  }
  // The place of a group's column among the means and squares.
  std::size_t PlaceOf(const Group& group, std::size_t column) const {
    return (&group == _a ? 0 : _a->panels * Lanes()) + column;
  }

  Rows RowsOf(std::size_t from, std::size_t rows, RowList& list) const;
  void SumColumns(double* sums);
  // A sum of squares: of a triangle it is on the diagonal.
  double SquaresAt(const double* sums, std::size_t place) const {
    const std::size_t panel = place / Lanes();
    return HasTriangle() ? sums[Tile(panel, panel, true) + place % Lanes() * (Lanes() + 1)]
                         : sums[Squares() + place];
  }
  // Whether panel i of a and j of b have a pair of which a's column, or b's, is first.
  bool HasPairs(std::size_t i, std::size_t j, bool isFirst) const;
  void MultiplyPanels(std::size_t rows, const double* values, const double* weighted,
                      double* sums) const;
  void MultiplyRow(std::size_t i, bool isFirst, std::size_t rows, const double* values,
                   const double* weighted, double* sums) const;
  void EmitVariables(const Group& group, const double* sums, PairwiseSink& sink) const;
  void EmitPair(const double* sums, std::size_t a, std::size_t b, PairwiseSink& sink) const;

  const Batch* _batch;
  const Group* _a;
  const Group* _b;
  bool _hasVariables;
  Common _common;
};

Rows PatternTask::RowsOf(std::size_t from, std::size_t rows, RowList& list) const {
  return RowsOfBoth(_batch->patterns.Bits(_a->columns[0]) + from / 64,
                    _batch->patterns.Bits(_b->columns[0]) + from / 64, rows, list);
}

void PatternTask::Sum(std::size_t from, std::size_t rows, double* sums, double* /*scratch*/) {
  if (!SumsPanels()) {
    if (from == 0) {
      SumColumns(sums);
    }
    return;
  }
  RowList list;
  const Rows some = RowsOf(from, rows, list);
  const bool isFirst = _common.rows == 0;
  _common.rows += some.count;
  for (std::size_t i = 0; _batch->HasBothWeights() && i < some.count; ++i) {
    _common.caseWeightSum = _batch->cases.weights[from + some.list[i]] + _common.caseWeightSum;
  }
  const auto take = [&](const Group& group, double* weightSum) {
    _batch->engine.PanelMoments(_batch->panels + group.firstPanel * _batch->Stride(), group.panels,
                                _batch->Stride(), some, _batch->weights + from, isFirst,
                                sums + MomentsOf(group), weightSum);
  };
  take(*_a, &_common.weightSum);
  if (!IsOnePattern()) {
    take(*_b, nullptr);
  }
}

// All rows of a complete pattern.
void PatternTask::SumColumns(double* sums) {
  const PairwiseCases& cases = _batch->cases;
  _common.rows = cases.rows;
  _common.caseWeightSum = _batch->HasBothWeights() ? ordered::Sum(cases.weights, cases.rows) : 0.;
  _batch->engine.ColumnMoments(_batch->columns + _a->firstPanel * Lanes(), _a->panels, cases.rows,
                               _batch->weights, sums + MomentsOf(*_a), &_common.weightSum);
}

void PatternTask::FinishMeans(double* sums) const {
  for (std::size_t place = 0; place < Panels() * Lanes(); ++place) {
    const double* const moments =
        sums + place / Lanes() * kMomentFields * Lanes() + place % Lanes();
    sums[Means() + place] = _common.rows == 0 ? 0. : MeanOf(moments, Lanes(), _common.weightSum);
  }
}

void PatternTask::Multiply(std::size_t from, std::size_t rows, double* sums,
                           double* scratch) const {
  const Engine& engine = _batch->engine;
  const std::size_t stride = _batch->Stride();
  RowList list;
  const Rows some = RowsOf(from, rows, list);
  std::array<double, kStripRows> weights;  // NOLINT(*-member-init): the next lines do
  for (std::size_t i = 0; i < some.count; ++i) {
    weights[i] = _batch->weights[from + some.list[i]];
  }
  double* const values = scratch;
  double* const weighted = scratch + Panels() * stride;
  for (std::size_t panel = 0; panel < Panels(); ++panel) {
    const std::size_t source =
        panel < _a->panels ? _a->firstPanel + panel : _b->firstPanel + panel - _a->panels;
    engine.Center(_batch->panels + source * stride, some, sums + Means() + panel * Lanes(),
                  weights.data(), values + panel * stride, weighted + panel * stride);
  }
  if (!HasTriangle()) {
    engine.PanelSums(values, static_cast<unsigned>(Panels()), stride, {some.count, nullptr},
                     weights.data(), Lanes(), sums + Sums(), sums + Squares());
  }
  MultiplyPanels(some.count, values, weighted, sums);
}

bool PatternTask::HasPairs(std::size_t i, std::size_t j, bool isFirst) const {
  const auto ends = [this](const Group& group, std::size_t panel) {
    const std::size_t last = std::min((panel + 1) * Lanes(), group.columns.size()) - 1;
    return std::pair(group.columns[panel * Lanes()], group.columns[last]);
  };
  const auto [lowestA, highestA] = ends(*_a, i);
  const auto [lowestB, highestB] = ends(*_b, j);
  return isFirst ? _batch->IsPair(highestA, lowestB) : _batch->IsPair(highestB, lowestA);
}

void PatternTask::MultiplyPanels(std::size_t rows, const double* values, const double* weighted,
                                 double* sums) const {
  if (!IsOnePattern()) {
    for (std::size_t i = 0; i < _a->panels; ++i) {
      MultiplyRow(i, true, rows, values, weighted, sums);
      MultiplyRow(i, false, rows, values, weighted, sums);
    }
  } else if (HasTriangle()) {
    AddTriangle(_batch->engine, _a->columns.size(), values, weighted, rows, sums + Tiles());
  }
}

// Panel i of a by those of b, where a's columns, or b's, are the pairs' first variables.
void PatternTask::MultiplyRow(std::size_t i, bool isFirst, std::size_t rows, const double* values,
                              const double* weighted, double* sums) const {
  const Engine& engine = _batch->engine;
  const std::size_t stride = _batch->Stride();
  const std::size_t end = _b->panels;
  const auto columns = static_cast<unsigned>(std::min(Lanes(), _a->columns.size() - i * Lanes()));
  for (std::size_t j = 0; j < end; j += engine.tilePanels) {
    const auto panels = static_cast<unsigned>(std::min<std::size_t>(engine.tilePanels, end - j));
    if (HasPairs(i, j, isFirst) || HasPairs(i, j + panels - 1, isFirst)) {
      engine.Products((isFirst ? weighted : values) + i * stride, columns,
                      (isFirst ? values : weighted) + (_a->panels + j) * stride, panels, stride,
                      rows, sums + Tile(i, j, isFirst));
    }
  }
}

void PatternTask::Emit(const double* sums, PairwiseSink& sink) const {
  if (_common.rows == 0) {
    return;
  }
  if (_hasVariables) {
    EmitVariables(*_a, sums, sink);
    if (!IsOnePattern()) {
      EmitVariables(*_b, sums, sink);
    }
  }
  for (std::size_t a = 0; a < _a->columns.size(); ++a) {
    for (std::size_t b = 0; b < (IsOnePattern() ? a : _b->columns.size()); ++b) {
      EmitPair(sums, a, b, sink);
    }
  }
}

void PatternTask::EmitVariables(const Group& group, const double* sums, PairwiseSink& sink) const {
  for (std::size_t i = 0; i < group.columns.size(); ++i) {
    const std::size_t place = PlaceOf(group, i);
    const double* const moments =
        sums + place / Lanes() * kMomentFields * Lanes() + place % Lanes();
    sink.Take(group.columns[i],
              {_common.rows, _common.WeightSum(*_batch), _common.weightSum, sums[Means() + place],
               SquaresAt(sums, place), moments[kMin * Lanes()], moments[kMax * Lanes()]});
  }
}

void PatternTask::EmitPair(const double* sums, std::size_t a, std::size_t b,
                           PairwiseSink& sink) const {
  const bool isFirst = _batch->IsPair(_a->columns[a], _b->columns[b]);
  if (!isFirst && !_batch->IsPair(_b->columns[b], _a->columns[a])) {
    return;
  }
  const std::size_t tile = Tile(a / Lanes(), b / Lanes(), isFirst);
  const double product = sums[tile + a % Lanes() * Lanes() + b % Lanes()];
  std::uint32_t first = _a->columns[a];
  std::uint32_t second = _b->columns[b];
  std::size_t place0 = PlaceOf(*_a, a);
  std::size_t place1 = PlaceOf(*_b, b);
  if (!isFirst) {
    std::swap(first, second);
    std::swap(place0, place1);
  }
  sink.Take(first, second,
            {_common.rows, _common.WeightSum(*_batch), _common.weightSum, sums[Means() + place0],
             sums[Means() + place1], SquaresAt(sums, place0), SquaresAt(sums, place1), product});
}

// A column's pairs with those of adjacent panels of a group. Of no column: the variables of these
// panels, as pairs with one that is present in every case.
class ColumnTask {
 public:
  static constexpr std::uint32_t kNoColumn = -1U;

  // `isFirst` is whether the column is its pairs' first variable.
  ColumnTask(const Batch& batch, std::uint32_t column, const Group& group, std::size_t firstPanel,
             std::size_t panels, bool isFirst)
      : _batch(&batch),
        _group(&group),
        _column(column),
        _firstPanel(static_cast<unsigned>(firstPanel)),
        _panels(static_cast<unsigned>(panels)),
        _isFirst(isFirst) {}

  std::size_t Size() const { return _panels * FieldsSize(); }
  static bool SumsPanels() { return true; }
  void Sum(std::size_t from, std::size_t rows, double* sums, double* scratch);
  void FinishMeans(double* sums) const;
  void Multiply(std::size_t from, std::size_t rows, double* sums, double* scratch) const;
  void Emit(const double* sums, PairwiseSink& sink) const;

 private:
  std::size_t Lanes() const { return _batch->engine.panel; }
  std::size_t FieldsSize() const { return kPairFields * Lanes(); }
  const double* Panel() const {
    return _batch->panels + (_group->firstPanel + _firstPanel) * _batch->Stride();
  }
  // Whether all columns of the group are present in all cases.
  bool IsComplete() const { return _group->isComplete; }
  PairVariable Variable(std::size_t from, std::size_t rows, RowList& list) const;
  void EmitVariable(const double* fields, std::uint32_t column, PairwiseSink& sink) const;
  void EmitPair(const double* fields, std::uint32_t other, PairwiseSink& sink) const;

  const Batch* _batch;
  const Group* _group;
  std::uint32_t _column;
  unsigned _firstPanel;  // counted in the group
  unsigned _panels;
  bool _isFirst;
};

PairVariable ColumnTask::Variable(std::size_t from, std::size_t rows, RowList& list) const {
  // Values that differ, so that no lane stays in a leading run.
  static constexpr std::array<double, kStripRows> kValues = [] {
    std::array<double, kStripRows> values{};
    for (std::size_t i = 0; i < kStripRows; ++i) {
      values[i] = static_cast<double>(i);
    }
    return values;
  }();
  const double* const weights = _batch->weights + from;
  const double* const caseWeights =
      _batch->HasBothWeights() ? _batch->cases.weights + from : nullptr;
  const double missingCode = _batch->cases.missingCode;
  if (_column == kNoColumn) {
    return {kValues.data(), {rows, nullptr}, weights, caseWeights, missingCode};
  }
  const std::uint64_t* const bits = _batch->patterns.Bits(_column) + from / 64;
  return {_batch->cases.columns[_column] + from, RowsOfBoth(bits, bits, rows, list), weights,
          caseWeights, missingCode};
}

void ColumnTask::Sum(std::size_t from, std::size_t rows, double* sums, double* /*scratch*/) {
  RowList list;
  const PairVariable x = Variable(from, rows, list);
  _batch->engine.PairSums(x, IsComplete(), Panel(), _panels, _batch->Stride(), sums);
}

void ColumnTask::FinishMeans(double* sums) const {
  for (unsigned panel = 0; panel < _panels; ++panel) {
    _batch->engine.PairMeans(sums + panel * FieldsSize());
  }
}

void ColumnTask::Multiply(std::size_t from, std::size_t rows, double* sums,
                          double* /*scratch*/) const {
  RowList list;
  const PairVariable x = Variable(from, rows, list);
  _batch->engine.PairProducts(x, _isFirst, IsComplete(), Panel(), _panels, _batch->Stride(), sums);
}

void ColumnTask::Emit(const double* sums, PairwiseSink& sink) const {
  const std::size_t from = _firstPanel * Lanes();
  const std::size_t to = std::min(from + _panels * Lanes(), _group->columns.size());
  for (std::size_t place = from; place < to; ++place) {
    const double* const fields =
        sums + (place - from) / Lanes() * FieldsSize() + (place - from) % Lanes();
    if (_column == kNoColumn) {
      EmitVariable(fields, _group->columns[place], sink);
    } else {
      EmitPair(fields, _group->columns[place], sink);
    }
  }
}

void ColumnTask::EmitVariable(const double* fields, std::uint32_t column,
                              PairwiseSink& sink) const {
  const Common common{_batch->patterns.Present(column), fields[kPairWeightSum * Lanes()],
                      fields[kPairCaseWeightSum * Lanes()]};
  const Extremes extremes = _batch->ExtremesOf(column);
  sink.Take(column,
            {common.rows, common.WeightSum(*_batch), common.weightSum, fields[kPairMean1 * Lanes()],
             fields[kPairSquares1 * Lanes()], extremes.min, extremes.max});
}

void ColumnTask::EmitPair(const double* fields, std::uint32_t other, PairwiseSink& sink) const {
  if (!(_isFirst ? _batch->IsPair(_column, other) : _batch->IsPair(other, _column))) {
    return;
  }
  const Patterns& patterns = _batch->patterns;
  const Common common{
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
  const double weightSum = common.WeightSum(*_batch);
  if (_isFirst) {
    sink.Take(
        _column, other,
        {common.rows, weightSum, common.weightSum, mean0, mean1, squares0, squares1, products});
  } else {
    sink.Take(
        other, _column,
        {common.rows, weightSum, common.weightSum, mean1, mean0, squares1, squares0, products});
  }
}

// All that is asked of two patterns, or of one. Two columns of one pattern may be of two ranges:
// then they are of two groups, whose pairs have the same cases as their variables.
std::span<PatternTask> PatternTasks(const Batch& batch, Workspace& workspace) {
  const auto wide = batch.patterns.Wide();
  auto* const tasks = workspace.Take<PatternTask>(wide.size() * (wide.size() + 1) / 2);
  auto* const haveVariables = workspace.Take<bool>(wide.size());
  std::fill_n(haveVariables, wide.size(), false);
  std::size_t count = 0;
  for (std::size_t b = 0; b < wide.size(); ++b) {
    for (std::size_t a = 0; a < b; ++a) {
      const std::uint32_t columnA = wide[a].columns[0];
      const std::uint32_t columnB = wide[b].columns[0];
      if (batch.IsPair(columnA, columnB) || batch.IsPair(columnB, columnA)) {
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

// What is left: the columns with patterns of their own by everything else.
std::span<ColumnTask> ColumnTasks(const Batch& batch, Workspace& workspace) {
  const auto wide = batch.patterns.Wide();
  const auto others = batch.patterns.Others();
  const std::size_t lanes = batch.engine.panel;
  std::size_t columns = 0;
  for (const Group& group : others) {
    columns += group.columns.size();
  }
  auto* const tasks =
      workspace.Take<ColumnTask>(others.size() + 2 * columns * (wide.size() + others.size()));
  std::size_t count = 0;
  // The columns of a group that are wanted follow each other there.
  const auto add = [&](std::uint32_t column, const Group& group, bool isFirst) {
    const auto isWanted = [&](std::uint32_t other) {
      return isFirst ? batch.IsPair(column, other) : batch.IsPair(other, column);
    };
    const auto begin = std::find_if(group.columns.begin(), group.columns.end(), isWanted);
    const auto end = std::find_if_not(begin, group.columns.end(), isWanted);
    if (begin != end) {
      const auto from = static_cast<std::size_t>(begin - group.columns.begin()) / lanes;
      const auto last = static_cast<std::size_t>(end - group.columns.begin() - 1) / lanes;
      tasks[count++] = ColumnTask(batch, column, group, from, last + 1 - from, isFirst);
    }
  };
  for (const Group& group : others) {
    tasks[count++] = ColumnTask(batch, ColumnTask::kNoColumn, group, 0, group.panels, true);
    for (const std::uint32_t column : group.columns) {
      for (const Group& other : others) {
        add(column, other, true);
      }
      for (const Group& other : wide) {
        add(column, other, true);
        add(column, other, false);
      }
    }
  }
  return {tasks, count};
}

// Works tasks off, as many at a time as the memory for running sums allows.
class Runner {
 public:
  Runner(const Batch& batch, std::span<PatternTask> patternTasks, std::span<ColumnTask> columnTasks,
         Workspace& workspace)
      : _batch(batch),
        _sums(workspace.Take<double>(std::max(SumsSize(patternTasks), SumsSize(columnTasks)))),
        _scratch(
            workspace.Take<double>(2 * std::size_t{batch.patterns.Panels()} * batch.Stride())) {}

  template <class Task>
  void Run(std::span<Task> tasks, PairwiseSink& sink) {
    while (!tasks.empty()) {
      const std::size_t count = CountAtOnce(tasks);
      RunAtOnce(tasks.first(count), sink);
      tasks = tasks.subspan(count);
    }
  }

 private:
  template <class Task>
  static std::size_t CountAtOnce(std::span<Task> tasks) {
    std::size_t count = 0;
    for (std::size_t size = 0; count < tasks.size(); ++count) {
      size += tasks[count].Size();
      if (size > kSumsAtOnce && count > 0) {
        break;
      }
    }
    return count;
  }

  template <class Task>
  static std::size_t SumsSize(std::span<Task> tasks) {
    std::size_t all = 0;
    std::size_t largest = 0;
    for (const Task& task : tasks) {
      all += task.Size();
      largest = std::max(largest, task.Size());
    }
    return std::min(all, std::max(kSumsAtOnce, largest));
  }

  template <class Task>
  void RunAtOnce(std::span<Task> tasks, PairwiseSink& sink) {
    const auto forEach = [&](auto visit) {
      double* sums = _sums;
      for (Task& task : tasks) {
        visit(task, sums);
        sums += task.Size();
      }
    };
    const auto pass = [&](auto step, bool needsPanels) {
      for (std::size_t from = 0; from < _batch.cases.rows; from += kStripRows) {
        const std::size_t rows = std::min(kStripRows, _batch.cases.rows - from);
        if (needsPanels) {
          _batch.Pack(from, rows);
        }
        forEach([&](Task& task, double* sums) { (task.*step)(from, rows, sums, _scratch); });
      }
    };
    forEach([](Task& task, double* sums) { std::fill_n(sums, task.Size(), 0.); });
    pass(&Task::Sum, std::any_of(tasks.begin(), tasks.end(),
                                 [](const Task& task) { return task.SumsPanels(); }));
    forEach([](Task& task, double* sums) { task.FinishMeans(sums); });
    pass(&Task::Multiply, true);
    forEach([&](Task& task, double* sums) { task.Emit(sums, sink); });
  }

  const Batch& _batch;
  double* _sums;
  double* _scratch;  // the centred panels of a task's strip of rows
};

}  // namespace

void AccumulatePairwise(const PairwiseCases& cases, PairShape shape, PairwiseSink& sink) {
  Workspace workspace;
  const Batch batch(EngineFor(cases.columns.count), cases, shape, workspace);
  const std::span<PatternTask> patternTasks = PatternTasks(batch, workspace);
  const std::span<ColumnTask> columnTasks = ColumnTasks(batch, workspace);
  Runner runner(batch, patternTasks, columnTasks, workspace);
  runner.Run(patternTasks, sink);
  runner.Run(columnTasks, sink);
}

}  // namespace velmor::ordered
