#pragma once

// Listwise statistics of several blocks of a table at once: a lane is a block. Each block's bits
// are those of a batch of its rows.

#include <velmor/tableview.h>

#include "abreast/blockreader.h"
#include "abreast/lanecases.h"
#include "ordered/engine.h"
#include "ordered/workspace.h"
#include "record/listwisetotals.h"
#include "record/shape.h"

#include <cstddef>
#include <cstdint>

namespace velmor {

class ListwiseBlocks {
 public:
  // For an accumulator of that shape, of a listwise kind that a batch of the table fits. Takes all
  // memory. Throws std::bad_alloc.
  //   blockRows  rows of each block
  ListwiseBlocks(const ordered::Engine& engine, const TableView& table, const Shape& shape,
                 std::uint64_t blockRows);

  // Accumulates the blocks that begin at the table's row `firstRow`, one for each lane. False when
  // a value can't be taken. O(rows * columns^2).
  //   goesOn  whether the blocks behind them will be next: the memory is then asked for their
  //           values while products are taken, which leave it idle
  bool Accumulate(std::uint64_t firstRow, bool goesOn);

  // Merges all blocks into that of lane 0, in twos, and these in twos again. False when a block has
  // no cases or a weight sum that is 0, which a merge treats in a way of its own; nothing has
  // changed then.
  bool Merge();

  // What is known of a block. Valid until the next one is asked for.
  const ListwiseTotals& Block(unsigned lane);

 private:
  bool TakeMoments();
  void TakeProducts(std::size_t ahead);

  // Memory for as many vectors of lanes, and the vector at a place.
  double* Vectors(std::size_t count) { return _workspace.Take<double>(count * _lanes); }
  double* VectorOf(double* abreast, std::size_t place) const { return abreast + place * _lanes; }
  ordered::ListwiseAbreast MakeRecord(const Shape& shape);

  const ordered::Engine& _engine;
  std::size_t _lanes;
  ordered::Workspace _workspace;
  BlockReader _reader;
  std::size_t _rows;   // of a block
  std::size_t _first;  // column of the table that is the block's first
  unsigned _columns;
  bool _isRectangle;
  LaneCases _cases;
  std::size_t _cells;
  ordered::ListwiseAbreast _record;
  bool _isMerged = false;

  double* _moments = Vectors(std::size_t{_columns} * ordered::kAbreastFields);

  // The distances of some rows, and these times the weights. A line lies between columns, so that
  // they do not share their sets of a cache.
  std::size_t _stride = (BlockReader::kPieceRows + 1) * _lanes;
  double* _distances = _workspace.Take<double>(_columns * _stride);
  double* _weighted =
      _cases.HasWeights() ? _workspace.Take<double>(_columns * _stride) : _distances;

  double* _one = _workspace.Take<double>(4 * std::size_t{_columns} + _cells);  // a block's numbers
  ListwiseTotals _totals;
};

}  // namespace velmor
