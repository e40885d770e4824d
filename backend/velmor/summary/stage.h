#pragma once

// Rows that a summary has been given and that are not accumulated yet.

#include <velmor/summary.h>
#include <velmor/tableview.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace velmor {

// Room for some blocks of rows, in columns of doubles. Accumulate can take several blocks side by
// side, faster than one after the other, so as many are kept as it takes at a time, unless they
// are large. A block's used rows stand at its beginning; the place of each row that is left out is
// at its end, so that the blocks are those of the rows as they came.
class Stage {
 public:
  explicit Stage(const SummaryDefinition& definition);

  // Rows that there is room for: a power of 2 of blocks.
  std::uint64_t MostRows() const { return _blocks * _blockRows; }
  // Rows of the whole, left out or not.
  std::uint64_t NRows() const { return _rows; }
  std::uint64_t NUsed() const;
  std::uint64_t NBlocks() const { return _blocks; }

  // Where the rows end, to go back to.
  struct End {
    std::uint64_t rows = 0;
    std::array<std::uint64_t, 8> used{};  // rows of each block
  };
  End GetEnd() const { return {_rows, _used}; }
  // Drops what has been appended since.
  void GoBackTo(const End& end);
  void Clear() { GoBackTo({}); }

  // Appends rows [from, to) of a table with all marks, for which there is room. Throws what
  // DataBatch::AddColumns throws; nothing is then appended.
  void Append(const TableView& table, std::uint64_t from, std::uint64_t to);

  // The rows as a table; it shows what the stage holds now. `isUsed` is memory of the table's.
  TableView View(std::vector<std::uint8_t>& isUsed) const;

 private:
  void Reserve(std::uint64_t rows);
  void AppendToBlock(const TableView& table, std::uint64_t from, std::uint64_t to);
  double* Column(std::size_t column) const { return _numbers.get() + column * _stride; }
  std::size_t NAllColumns() const {
    return _columns + (_hasWeights ? 1U : 0U) + (_hasRegWeights ? 1U : 0U);
  }

  std::size_t _columns;
  bool _hasWeights;
  bool _hasRegWeights;
  bool _isPairwise;
  std::uint64_t _blockRows;
  std::uint64_t _blocks;
  std::uint64_t _rows = 0;
  std::array<std::uint64_t, 8> _used{};  // rows of each block
  std::size_t _stride = 0;               // from a column to the next; at least the rows
  std::vector<bool> _canBeMissing;       // of each column: a value has had a mark
  std::unique_ptr<double[]> _numbers;    // the values, the case weights, the regression weights
};

// Throws what is said of the first of rows [from, to) that can't be appended, by its number in the
// table, if there is one.
void ThrowRefusal(const SummaryDefinition& definition, const TableView& table, std::uint64_t from,
                  std::uint64_t to);

}  // namespace velmor
