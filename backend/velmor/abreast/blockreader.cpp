// blockreader.cpp: some rows of a table's blocks; start at ReadValues.
#include "abreast/blockreader.h"

#include "ordered/fill.h"
#include "table/columnvalues.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velmor {

namespace {

// From a converted column to the next: a line more than its rows, so that columns do not share
// their sets of a first-level cache.
constexpr std::size_t kConvertedStride = BlockReader::kPieceRows + 8;

std::size_t ConvertedSize(std::size_t columns, unsigned lanes) {
  return columns * lanes * kConvertedStride;
}

}  // namespace

BlockReader::BlockReader(const ordered::Engine& engine, const TableView& table,
                         ordered::Workspace& workspace, std::optional<double> missingCode)
    : _lanes(engine.lanes),
      _table(table),
      _missingCode(missingCode),
      _values(workspace.Take<ordered::LyingColumn>(table.values.size())),
      _leftOut(workspace.Take<std::uint64_t>(_lanes)),
      _absent(workspace.Take<std::uint64_t>(missingCode ? table.values.size() * _lanes : 0)),
      _unfit(workspace.Take<std::uint64_t>(_lanes)),
      _convertedWeights(workspace.Take<double>(ConvertedSize(1, _lanes))),
      _convertedRegWeights(workspace.Take<double>(ConvertedSize(1, _lanes))) {
  const auto converted = static_cast<std::size_t>(
      std::count_if(table.values.begin(), table.values.end(),
                    [](const ColumnView& column) { return !IsContiguous(column); }));
  _converted = workspace.Take<double>(ConvertedSize(converted, _lanes));
}

void BlockReader::Choose(std::uint64_t firstRow, std::uint64_t blockRows) {
  _firstRow = firstRow;
  _blockRows = blockRows;
}

void BlockReader::ReadValues(std::size_t from, std::size_t count, std::size_t ahead) {
  _ahead = RowOf(_lanes, ahead) <= _table.rows ? ahead : 0;
  const std::span<const ColumnView> columns = _table.values;
  double* converted = _converted;
  for (std::size_t i = 0, adjacent = 0; i < columns.size(); i += adjacent) {
    adjacent = SideBySide(columns.subspan(i));
    const auto some = columns.subspan(i, adjacent);
    ReadColumns(some, from, count, _values + i, converted);
    converted += IsContiguous(columns[i]) ? 0 : ConvertedSize(adjacent, _lanes);
  }
}

// Reads columns that are side by side, or one.
void BlockReader::ReadColumns(std::span<const ColumnView> columns, std::size_t from,
                              std::size_t count, ordered::LyingColumn* read,
                              double* converted) const {
  if (IsContiguous(columns[0])) {
    *read = {ValuesOfRow(columns[0], RowOf(0, from)), static_cast<std::size_t>(_blockRows), _ahead};
    return;
  }
  const std::size_t between = columns.size() * kConvertedStride;
  for (unsigned lane = 0; lane < _lanes; ++lane) {
    velmor::ReadColumns(columns, {RowOf(lane, from), count},
                        {converted + lane * between, kConvertedStride, columns.size()});
  }
  for (std::size_t i = 0; i < columns.size(); ++i) {
    read[i] = {converted + i * kConvertedStride, between, 0};
  }
}

bool BlockReader::ReadRest(std::size_t from, std::size_t count) {
  std::fill_n(_leftOut, _lanes, std::uint64_t{0});
  std::fill_n(_unfit, _lanes, std::uint64_t{0});
  const auto readWeights = [&](const ColumnView& column, ordered::LyingColumn& read,
                               double* converted) {
    ReadColumns({&column, 1}, from, count, &read, converted);
    Examine(column, false, from, count, read, _leftOut);
  };
  if (_table.weights) {
    readWeights(*_table.weights, _weights, _convertedWeights);
  }
  if (_table.regWeights) {
    readWeights(*_table.regWeights, _regWeights, _convertedRegWeights);
  }
  for (std::size_t i = 0; i < _table.values.size(); ++i) {
    std::uint64_t* const absent = _missingCode ? _absent + i * _lanes : _leftOut;
    if (_missingCode) {
      std::fill_n(absent, _lanes, std::uint64_t{0});
    }
    Examine(_table.values[i], _missingCode.has_value(), from, count, _values[i], absent);
  }
  for (unsigned lane = 0; lane < _lanes; ++lane) {
    if ((_unfit[lane] & ~_leftOut[lane]) != 0) {
      return false;
    }
  }
  return true;
}

// Adds the rows in which a column is absent, and those in which its value can't be taken: an
// integer without a double, a value that would be mistaken for an absent one, and an absent one
// that has no code.
void BlockReader::Examine(const ColumnView& column, bool isCoded, std::size_t from,
                          std::size_t count, const ordered::LyingColumn& read,
                          std::uint64_t* absent) {
  const bool isOf64Bits = IsOf64BitIntegers(column);
  if (!isCoded && !isOf64Bits && !HasMarks(column)) {
    return;
  }
  const bool hasCode = isCoded && !std::isnan(*_missingCode);
  for (unsigned lane = 0; lane < _lanes; ++lane) {
    const double* const values = read.first + lane * read.stride;
    std::uint64_t isAbsent = 0;
    std::uint64_t isUnfit = 0;
    MarkAbsent(column, {RowOf(lane, from), count}, values, &isAbsent);
    if (isOf64Bits) {
      ordered::MarkEqual(values, count, std::numeric_limits<double>::quiet_NaN(), &isUnfit);
    }
    if (hasCode) {
      ordered::MarkEqual(values, count, *_missingCode, &isUnfit);
    }
    absent[lane] |= isAbsent;
    _unfit[lane] |= isCoded && !hasCode ? isUnfit | isAbsent : isUnfit & ~isAbsent;
  }
}

}  // namespace velmor
