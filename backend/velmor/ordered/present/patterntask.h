#pragma once

// Pairs of columns of two patterns, or of one. All of these pairs have the same cases. Over these
// rows the columns are a block without missing values.

#include "ordered/present/packedbatch.h"
#include "ordered/present/results.h"

#include <cstddef>
#include <span>

namespace velmor::ordered {

// Where the running sums of a task are. Its columns stand in panels, a's before b's: place i is
// lane i % panel of panel i / panel.
struct PatternSums {
  std::span<double> moments;   // kMomentFields fields of each panel
  std::span<double> means;     // of each place
  std::span<double> squares;   // likewise
  std::span<double> triangle;  // of one pattern: tiles of all pairs of panels
  // Of two patterns: the tile of panel i of a and panel j of b at i * b's panels + j. In aFirst a's
  // columns are the pairs' first variables, in bFirst b's columns are.
  std::span<double> aFirst;
  std::span<double> bFirst;
};

// The pairs, and also their variables if these have no other cases.
class PatternTask {
 public:
  // a and b may be the same set. The batch has to live as long.
  PatternTask(const PackedBatch& batch, const ColumnSet& a, const ColumnSet& b, bool hasVariables);

  // Doubles of running sums, all zero at first, which each step is given.
  std::size_t Size() const {
    return _places * (kMomentFields + 2) + (_triangle + _aFirst + _bFirst) * TileSize();
  }
  // Doubles of room for centred panels, which Multiply is given.
  std::size_t ScratchSize() const { return 2 * Panels() * _batch->stride; }
  // Whether Sum reads panels. A complete pattern's sums are taken from the columns.
  bool SumsPanels() const { return !(IsOnePattern() && _a->isComplete); }

  // The four steps: the sums of each strip, their means, the products of each strip, the results.
  //   first  of the task's doubles of running sums
  void Sum(Strip strip, double* first, double* scratch);
  void FinishMeans(double* first) const;
  void Multiply(Strip strip, double* first, double* scratch) const;
  void HandOver(double* first, Results& results) const;

 private:
  bool IsOnePattern() const { return _a == _b; }
  bool HasTriangle() const { return _triangle > 0; }
  std::size_t Lanes() const { return _batch->engine.panel; }
  std::size_t TileSize() const { return Lanes() * Lanes(); }
  std::size_t Panels() const { return _places / Lanes(); }
  const double* Panel(std::size_t panel) const {
    return _batch->Panel(panel < _a->panels ? _a->firstPanel + panel
                                            : _b->firstPanel + panel - _a->panels);
  }
  PatternSums SumsAt(double* first) const;
  // A place's first moment; the others follow a panel apart.
  double* MomentsOf(const PatternSums& sums, std::size_t place) const;
  // A set's column among the places.
  std::size_t PlaceOf(const ColumnSet& set, std::size_t column) const {
    return (&set == _a ? 0 : _a->panels * Lanes()) + column;
  }
  double SquaresOf(const PatternSums& sums, std::size_t place) const;

  Rows RowsOf(Strip strip, RowList& list) const;
  void SumColumns(const PatternSums& sums);
  void SumPanels(Strip strip, const PatternSums& sums);
  void MultiplyPatterns(std::size_t rows, const double* values, const double* weighted,
                        const PatternSums& sums) const;
  void MultiplyRow(std::size_t i, bool isAFirst, std::size_t rows, const double* aPanel,
                   const double* bPanels, std::span<double> tiles) const;
  void HandOverVariables(const ColumnSet& set, const PatternSums& sums, Results& results) const;
  void HandOverPair(std::size_t a, std::size_t b, const PatternSums& sums, Results& results) const;

  const PackedBatch* _batch;
  const ColumnSet* _a;
  const ColumnSet* _b;
  bool _hasVariables;
  std::size_t _places;
  std::size_t _triangle;  // tiles of PatternSums::triangle, none where no pair is wanted
  std::size_t _aFirst;    // likewise
  std::size_t _bFirst;
  CommonCases _common;
};

// All that is asked of two patterns, or of one.
std::span<PatternTask> PatternTasks(const PackedBatch& batch, Workspace& workspace);

}  // namespace velmor::ordered
