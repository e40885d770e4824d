#pragma once

// Which cases the columns of a batch lack, and which columns lack the same cases.

#include "ordered/engine.h"
#include "ordered/kernels/tuning.h"
#include "ordered/present/presentcases.h"
#include "ordered/workspace.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace velmor::ordered {

// Columns in ascending order, in panels of their own.
struct ColumnSet {
  std::span<const std::uint32_t> columns;
  unsigned firstPanel;
  unsigned panels;
  bool isComplete;  // whether its columns are present in all cases
};

// Rows of a strip.
using RowList = std::array<std::uint8_t, kStripRows>;

class Patterns {
 public:
  Patterns(const Engine& engine, const PairwiseCases& cases, WantedPairs wanted,
           Workspace& workspace);

  // Sets of columns that are present in the same cases, in one case at least, and large enough to
  // be taken together. In a rectangle, each set is of one range, and the sets of the first range
  // come first.
  std::span<const ColumnSet> Wide() const { return {_sets, _wideCount}; }
  // The set of the other columns that are present in some case; in a rectangle, a set of each
  // range.
  std::span<const ColumnSet> Others() const { return {_sets + _wideCount, _setCount - _wideCount}; }
  unsigned Panels() const { return _panels; }

  // Bit row % 64 of word row / 64: whether the column is present in the row.
  const std::uint64_t* Bits(std::size_t column) const { return _bits + column * _words; }
  std::size_t Words() const { return _words; }
  std::size_t Present(std::size_t column) const { return _present[column]; }
  bool HaveSameCases(std::size_t a, std::size_t b) const;

 private:
  bool AreOfOneSet(std::uint32_t a, std::uint32_t b) const {
    return (a < _wanted.firstRange) == (b < _wanted.firstRange) && HaveSameCases(a, b);
  }
  bool IsBefore(std::uint32_t a, std::uint32_t b) const;
  void AddSet(std::span<const std::uint32_t> columns);

  const Engine& _engine;
  std::size_t _rows;
  WantedPairs _wanted;
  std::size_t _words;
  std::uint64_t* _bits;
  std::size_t* _present;
  ColumnSet* _sets;
  std::size_t _wideCount = 0;
  std::size_t _setCount = 0;
  unsigned _panels = 0;
};

// The rows of a strip whose bits are set in both.
Rows RowsOfBoth(const std::uint64_t* a, const std::uint64_t* b, std::size_t rows, RowList& list);

}  // namespace velmor::ordered
