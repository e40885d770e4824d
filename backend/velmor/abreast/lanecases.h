#pragma once

// The cases of blocks that are taken side by side: which rows count in each lane, and what they
// weigh.

#include <velmor/tableview.h>

#include "abreast/blockreader.h"
#include "ordered/engine.h"
#include "ordered/workspace.h"

#include <cstddef>
#include <cstdint>

namespace velmor {

// Each column's means in all lanes from its moments, kAbreastFields fields.
//   weightSums  of the lanes' combined weights
void FinishMeans(const ordered::Engine& engine, const double* moments, std::size_t columns,
                 const double* weightSums, double* means);

class LaneCases {
 public:
  // Takes memory for blocks of so many rows. Throws std::bad_alloc.
  LaneCases(const ordered::Engine& engine, const TableView& table, std::size_t rows,
            ordered::Workspace& workspace);

  bool HasWeights() const { return _hasWeights || _hasRegWeights; }
  bool HasBothWeights() const { return _hasWeights && _hasRegWeights; }
  bool HasRegWeights() const { return _hasRegWeights; }

  // New blocks; then rows of them, in order, as the reader has them; then the sums are known.
  void Start();
  void Take(const BlockReader& reader, std::size_t from, std::size_t count);
  void Finish();

  // Rows that have been taken, within one piece of the reader's.
  ordered::RowsAbreast Rows(std::size_t from, std::size_t count) const;
  // Of all rows, abreast: the combined weights, and the case weights where there are both kinds;
  // else null.
  const double* Weights() const { return _weights; }
  const double* CaseWeights() const { return _caseWeights; }

  std::uint64_t Count(std::size_t lane) const { return _counts[lane]; }
  // Of the case weights, or the number of cases; and of the combined weights. One for each lane.
  double* WeightSums() const { return _weightSums; }
  double* RegWeightSums() const { return _regWeightSums; }

  // Whether lanes can be merged in twos: each has cases, and no two that meet have a weight sum of
  // 0, which accumulators merge in ways of their own.
  bool CanMerge() const;
  // Merges them into lane 0.
  void Merge();

 private:
  double* Vectors(std::size_t count, ordered::Workspace& workspace) const {
    return workspace.Take<double>(count * _engine.lanes);
  }

  const ordered::Engine& _engine;
  bool _hasWeights;
  bool _hasRegWeights;
  std::uint64_t* _counts;
  double* _weightSums;
  double* _regWeightSums;
  double* _weights;
  double* _caseWeights;
  double* _regWeights;    // of a piece
  double* _used;          // masks
  bool* _areSomeLeftOut;  // of each piece
};

}  // namespace velmor
