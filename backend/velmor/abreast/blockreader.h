#pragma once

// Blocks of a table's rows side by side, as the kernels abreast take them: some rows of every block
// at a time. What lies in contiguous doubles is read where it is.

#include <velmor/tableview.h>

#include "ordered/engine.h"
#include "ordered/workspace.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace velmor {

class BlockReader {
 public:
  // Rows of every block that are read at a time, at most: a word of bits.
  static constexpr std::size_t kPieceRows = 64;

  // Takes memory for what has to be converted. Throws std::bad_alloc.
  //   missingCode  that of the pairwise accumulator that the rows are for; none for an accumulator
  //                of complete cases
  BlockReader(const ordered::Engine& engine, const TableView& table, ordered::Workspace& workspace,
              std::optional<double> missingCode = std::nullopt);

  // Chooses the blocks: adjacent ones of so many rows, the first of which is the table's row
  // `firstRow`; one for each lane.
  void Choose(std::uint64_t firstRow, std::uint64_t blockRows);

  // Makes the values in rows [from, from + count) of each block readable. Where they are read, the
  // memory is asked for those that lie `ahead` rows behind them, if the table has these.
  void ReadValues(std::size_t from, std::size_t count, std::size_t ahead);
  const ordered::LyingColumn* Values() const { return _values; }

  // After ReadValues of the same rows: makes the weights readable, and finds out which rows are to
  // be left out because a weight or, without a missing code, a value is absent; with a code, which
  // values are. False when a value that is present can't be taken; which one, the way of a batch
  // says.
  bool ReadRest(std::size_t from, std::size_t count);
  const ordered::LyingColumn& Weights() const { return _weights; }
  const ordered::LyingColumn& RegWeights() const { return _regWeights; }
  // The lanes' rows that are left out: bit i for row from + i.
  std::span<const std::uint64_t> LeftOut() const { return {_leftOut, _lanes}; }
  // With a missing code: likewise the lanes' rows in which a column is absent.
  std::span<const std::uint64_t> Absent(std::size_t column) const {
    return {_absent + column * _lanes, _lanes};
  }

 private:
  std::uint64_t RowOf(unsigned lane, std::size_t row) const {
    return _firstRow + lane * _blockRows + row;
  }
  void ReadColumns(std::span<const ColumnView> columns, std::size_t from, std::size_t count,
                   ordered::LyingColumn* read, double* converted) const;
  void Examine(const ColumnView& column, bool isCoded, std::size_t from, std::size_t count,
               const ordered::LyingColumn& read, std::uint64_t* absent);

  unsigned _lanes;
  const TableView& _table;
  std::optional<double> _missingCode;
  ordered::LyingColumn* _values;
  ordered::LyingColumn _weights{};
  ordered::LyingColumn _regWeights{};
  std::uint64_t* _leftOut;
  std::uint64_t* _absent;  // of all columns of values, which may be coded
  std::uint64_t* _unfit;   // likewise, rows with a value that can't be taken
  double* _converted;      // of the columns of values that have to be
  double* _convertedWeights;
  double* _convertedRegWeights;
  std::size_t _ahead = 0;
  std::uint64_t _firstRow = 0;
  std::uint64_t _blockRows = 0;
};

}  // namespace velmor
