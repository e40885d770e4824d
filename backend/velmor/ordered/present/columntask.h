#pragma once

// What is left after the patterns: the pairs of a column that has a pattern of its own with the
// columns of a set. A lane is a pair and selects its rows.

#include "ordered/present/packedbatch.h"
#include "ordered/present/results.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace velmor::ordered {

// A column's pairs with the columns of adjacent panels of a set. With kNoColumn: the variables of
// these panels, as pairs with a column that is present in every case.
class ColumnTask {
 public:
  static constexpr std::uint32_t kNoColumn = -1U;

  // `isFirst` is whether the column is its pairs' first variable. The batch has to live as long.
  ColumnTask(const PackedBatch& batch, std::uint32_t column, const ColumnSet& set,
             std::size_t firstPanel, std::size_t panels, bool isFirst)
      : _batch(&batch),
        _set(&set),
        _column(column),
        _firstPanel(static_cast<unsigned>(firstPanel)),
        _panels(static_cast<unsigned>(panels)),
        _isFirst(isFirst) {}

  // Doubles of running sums, all zero at first, which each step is given.
  std::size_t Size() const { return _panels * FieldsSize(); }
  static bool SumsPanels() { return true; }
  static std::size_t ScratchSize() { return 0; }

  // The four steps: the sums of each strip, their means, the products of each strip, the results.
  void Sum(Strip strip, double* sums, double* scratch);
  void FinishMeans(double* sums) const;
  void Multiply(Strip strip, double* sums, double* scratch) const;
  void HandOver(double* sums, Results& results) const;

 private:
  std::size_t Lanes() const { return _batch->engine.panel; }
  std::size_t FieldsSize() const { return kPairFields * Lanes(); }
  const double* Panels() const { return _batch->Panel(_set->firstPanel + _firstPanel); }
  PairVariable Variable(Strip strip, RowList& list) const;
  void HandOverVariable(const double* fields, std::uint32_t column, Results& results) const;
  void HandOverPair(const double* fields, std::uint32_t other, Results& results) const;

  const PackedBatch* _batch;
  const ColumnSet* _set;
  std::uint32_t _column;
  unsigned _firstPanel;  // counted in the set
  unsigned _panels;
  bool _isFirst;
};

// The columns with patterns of their own, and their pairs with everything else.
std::span<ColumnTask> ColumnTasks(const PackedBatch& batch, Workspace& workspace);

}  // namespace velmor::ordered
