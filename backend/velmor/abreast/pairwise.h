#pragma once

// Pairwise statistics of several blocks of a table at once: a lane is a block. Each block's bits
// are those of a batch of its rows in an empty accumulator.

#include <velmor/tableview.h>

#include "abreast/blockreader.h"
#include "abreast/lanecases.h"
#include "ordered/engine.h"
#include "ordered/workspace.h"
#include "record/pairwisetotals.h"
#include "record/shape.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace velmor {

class PairwiseBlocks {
 public:
  // For an accumulator of that shape, of a pairwise kind that a batch of the table fits. Takes all
  // memory. Throws std::bad_alloc.
  //   blockRows  rows of each block
  PairwiseBlocks(const ordered::Engine& engine, const TableView& table, const Shape& shape,
                 std::uint64_t blockRows);

  // As ListwiseBlocks has them.
  bool Accumulate(std::uint64_t firstRow, bool goesOn);
  bool Merge();
  const PairwiseTotals& Block(unsigned lane);

 private:
  // Columns that are present in the same rows of every block, in ascending order.
  using Pattern = std::span<const std::uint32_t>;

  // Which pairs are wanted: of all columns, the higher one is the first; of two ranges, one column
  // of each, that of the first range.
  bool IsPair(std::uint32_t first, std::uint32_t second) const {
    return _isRectangle ? first < _firstRange && second >= _firstRange : first > second;
  }
  std::size_t PlaceOf(std::size_t first, std::size_t second) const {
    return _isRectangle ? first * (_columns - _firstRange) + second - _firstRange
                        : first * (first - 1) / 2 + second;
  }

  bool Read();
  void Turn(std::size_t from, std::size_t count);
  void FindPatterns();
  bool HaveSameRows(std::uint32_t a, std::uint32_t b) const;
  bool IsBefore(std::uint32_t a, std::uint32_t b) const;
  static bool IsWide(Pattern pattern);

  void TakePatterns(Pattern a, Pattern b);
  bool FindRowsOf(std::uint32_t a, std::uint32_t b);
  ordered::RowsAbreast TaskRows(std::size_t from, std::size_t count, bool areSomeAbsent) const;
  void FindTaskValues(std::span<const std::uint32_t> columns, std::size_t from);
  void TakeMeansOf(std::span<const std::uint32_t> columns, bool areSomeAbsent);
  void TakeProductsOf(std::size_t columnsA, std::span<const std::uint32_t> columns, bool isTriangle,
                      bool areSomeAbsent);
  void PutVariables(Pattern columns);
  void PutPairsWithin(Pattern columns);
  void PutPairsBetween(Pattern a, Pattern b);
  void PutPair(std::uint32_t first, std::uint32_t second, std::size_t placeOfFirst,
               std::size_t placeOfSecond, const double* product);
  void PutRecord(double* record, const double* mean0, const double* mean1, const double* squares0,
                 const double* squares1, const double* products);

  void MergeExtremesOf(std::size_t column);
  bool AreTogether(std::uint32_t first, std::uint32_t second) const;
  void ListPairs();
  template <class Take>
  void ForEachListed(Take take) const;
  template <class Kernel>
  void PassOverListed(Kernel kernel) const;
  void FinishListedSums();

  // Memory for as many vectors of lanes, and the vector at a place.
  double* Vectors(std::size_t count) { return _workspace.Take<double>(count * _lanes); }
  double* VectorOf(double* abreast, std::size_t place) const { return abreast + place * _lanes; }
  double* PairAt(double* records, std::size_t place) const {
    return VectorOf(records, place * ordered::kPairFieldsAbreast);
  }
  double* ValuesOf(std::size_t column, std::size_t row = 0) const {
    return VectorOf(_values, column * _allRows + row);
  }
  std::uint64_t* WordsOf(std::size_t column) const { return _present + column * _lanes * _pieces; }

  const ordered::Engine& _engine;
  std::size_t _lanes;
  ordered::Workspace _workspace;
  BlockReader _reader;
  double _missingCode;
  std::size_t _rows;  // of a block
  std::size_t _pieces;
  std::size_t _allRows;  // whole pieces of them
  std::size_t _first;    // column of the table that is the block's first
  unsigned _columns;
  bool _isRectangle;
  unsigned _firstRange;
  std::size_t _pairs;
  LaneCases _cases;

  // Bits: a word for each piece of rows, lane by lane, column by column.
  std::uint64_t* _present = _workspace.Take<std::uint64_t>(_columns * _lanes * _pieces);
  double* _values = Vectors(_columns * _allRows);  // turned; the missing code where one is absent
  double* _variableRecords = Vectors(std::size_t{_columns} * ordered::kPairFieldsAbreast);
  double* _pairRecords = Vectors(_pairs * ordered::kPairFieldsAbreast);
  double* _mins = Vectors(_columns);
  double* _maxs = Vectors(_columns);

  // The columns pattern by pattern, and each column's pattern.
  std::uint32_t* _order = _workspace.Take<std::uint32_t>(_columns);
  std::uint32_t* _patternOf = _workspace.Take<std::uint32_t>(_columns);
  Pattern* _patterns = _workspace.Take<Pattern>(_columns);
  std::size_t _patternCount = 0;

  // Of the task at hand: its columns, the rows that they have, and their statistics over these.
  std::uint32_t* _taskColumns = _workspace.Take<std::uint32_t>(_columns);
  const double** _taskValues = _workspace.Take<const double*>(_columns);
  double* _masks = Vectors(_allRows);
  double* _totals = Vectors(3);  // number, sum of case weights, sum of combined weights
  double* _moments = Vectors(std::size_t{_columns} * ordered::kAbreastFields);
  double* _means = Vectors(_columns);
  double* _squares = Vectors(_columns);
  double* _cells = Vectors(std::size_t{_columns} * (_columns + 1) / 2);
  double* _cellsOfB = Vectors(std::size_t{_columns} * _columns / 4 + 1);  // b's columns first
  std::size_t _stride = (BlockReader::kPieceRows + 1) * _lanes;
  double* _distances = _workspace.Take<double>(_columns * _stride);
  double* _weighted =
      _cases.HasWeights() ? _workspace.Take<double>(_columns * _stride) : _distances;

  // The pairs whose columns have patterns of their own, and the end of each first column's.
  ordered::PairAbreast* _listed = _workspace.Take<ordered::PairAbreast>(_pairs);
  std::uint32_t* _listedTo = _workspace.Take<std::uint32_t>(_columns);

  // A block's numbers.
  PairwiseTotals::Record* _oneVariables = _workspace.Take<PairwiseTotals::Record>(_columns);
  PairwiseTotals::Record* _onePairs = _workspace.Take<PairwiseTotals::Record>(_pairs);
  double* _oneExtremes = _workspace.Take<double>(2 * std::size_t{_columns});
  PairwiseTotals _block;
};

}  // namespace velmor
