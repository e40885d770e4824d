// listwise.cpp: two passes over the rows of all blocks; start at ListwiseBlocks::Accumulate.
#include "abreast/listwise.h"

#include "ordered/floatenvironment.h"

#include <algorithm>

namespace velmor {

namespace {

std::size_t CellsOf(const Shape& shape, std::size_t columns) {
  const auto rows = static_cast<std::size_t>(shape.bounds[1] - shape.bounds[0]);
  return shape.Facts().ranges == Ranges::Two ? rows * (columns - rows)
                                             : columns * (columns + 1) / 2;
}

}  // namespace

ListwiseBlocks::ListwiseBlocks(const ordered::Engine& engine, const TableView& table,
                               const Shape& shape, std::uint64_t blockRows)
    : _engine(engine),
      _lanes(engine.lanes),
      _reader(engine, table, _workspace),
      _rows(blockRows),
      _first(static_cast<std::size_t>(shape.bounds[0])),
      _columns(static_cast<unsigned>(shape.Columns())),
      _isRectangle(shape.Facts().ranges == Ranges::Two),
      _cases(engine, table, _rows, _workspace),
      _cells(CellsOf(shape, _columns)),
      _record(MakeRecord(shape)) {}

ordered::ListwiseAbreast ListwiseBlocks::MakeRecord(const Shape& shape) {
  const bool hasExtremes = shape.kind != Kind::MatrixListwise;
  ordered::ListwiseAbreast record{};
  record.columns = _columns;
  record.firstRange =
      _isRectangle ? static_cast<unsigned>(shape.bounds[1] - shape.bounds[0]) : _columns;
  record.means = Vectors(_columns);
  record.mins = hasExtremes ? Vectors(_columns) : nullptr;
  record.maxs = hasExtremes ? Vectors(_columns) : nullptr;
  record.squares = _isRectangle ? Vectors(_columns) : nullptr;
  record.cells = Vectors(_cells);
  record.shifts = Vectors(_columns);
  record.shiftsA = Vectors(_columns);
  record.shiftsB = Vectors(_columns);
  return record;
}

bool ListwiseBlocks::Accumulate(std::uint64_t firstRow, bool goesOn) {
  const DefaultFloatEnvironment environment;
  _isMerged = false;
  _reader.Choose(firstRow, _rows);
  const bool canTake = TakeMoments();
  if (canTake) {
    TakeProducts(goesOn ? _lanes * _rows : 0);
  }
  return canTake;
}

// The lanes' cases, with their means and extremes.
bool ListwiseBlocks::TakeMoments() {
  std::fill_n(_moments, std::size_t{_columns} * ordered::kAbreastFields * _lanes, 0.);
  _cases.Start();
  for (std::size_t from = 0; from < _rows; from += BlockReader::kPieceRows) {
    const std::size_t count = std::min(BlockReader::kPieceRows, _rows - from);
    _reader.ReadValues(from, count, BlockReader::kPieceRows);
    if (!_reader.ReadRest(from, count)) {
      return false;
    }
    _cases.Take(_reader, from, count);
    _engine.MomentsAbreast(_reader.Values() + _first, _columns, _cases.Rows(from, count), _moments);
  }
  _cases.Finish();
  FinishMeans(_engine, _moments, _columns, _cases.RegWeightSums(), _record.means);
  for (std::size_t i = 0; _record.mins != nullptr && i < _columns; ++i) {
    const double* const fields = VectorOf(_moments, i * ordered::kAbreastFields);
    std::copy_n(fields + ordered::kAbreastMin * _lanes, _lanes, VectorOf(_record.mins, i));
    std::copy_n(fields + ordered::kAbreastMax * _lanes, _lanes, VectorOf(_record.maxs, i));
  }
  return true;
}

// The products of distances from the means. Asks the memory for what is `ahead`.
void ListwiseBlocks::TakeProducts(std::size_t ahead) {
  std::fill_n(_record.cells, _cells * _lanes, 0.);
  if (_isRectangle) {
    std::fill_n(_record.squares, std::size_t{_columns} * _lanes, 0.);
  }
  for (std::size_t from = 0; from < _rows; from += BlockReader::kPieceRows) {
    const std::size_t count = std::min(BlockReader::kPieceRows, _rows - from);
    _reader.ReadValues(from, count, ahead);
    _engine.DistancesAbreast(_reader.Values() + _first, _columns, _cases.Rows(from, count),
                             _record.means, _stride, _distances, _weighted);
    const unsigned firstRange = _record.firstRange;
    _engine.ProductsAbreast(_weighted, firstRange,
                            _isRectangle ? _distances + firstRange * _stride : _distances,
                            _isRectangle ? _columns - firstRange : _columns, !_isRectangle, _stride,
                            count, _record.cells);
    if (_isRectangle) {
      _engine.SquaresAbreast(_weighted, _distances, _columns, _stride, count, _record.squares);
    }
  }
}

bool ListwiseBlocks::Merge() {
  if (!_cases.CanMerge()) {
    return false;
  }
  const DefaultFloatEnvironment environment;
  _engine.MergeAbreast(_record, _cases.RegWeightSums());
  _cases.Merge();
  _isMerged = true;
  return true;
}

const ListwiseTotals& ListwiseBlocks::Block(unsigned lane) {
  double* next = _one;
  const auto take = [&](const double* abreast, std::size_t count) -> std::span<const double> {
    if (abreast == nullptr) {
      return {};
    }
    double* const first = next;
    for (std::size_t i = 0; i < count; ++i) {
      *next++ = abreast[i * _lanes + lane];
    }
    return {first, count};
  };
  const double weightSum = _cases.WeightSums()[lane];
  _totals = {_cases.Count(lane),
             weightSum,
             _cases.RegWeightSums()[lane],
             _cases.HasRegWeights(),
             !_isMerged && weightSum == 0.,
             take(_record.means, _columns),
             take(_record.mins, _columns),
             take(_record.maxs, _columns),
             take(_record.squares, _columns),
             take(_record.cells, _cells)};
  return _totals;
}

}  // namespace velmor
