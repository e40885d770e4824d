// stage.cpp: rows that wait for their block to be full; start at Stage::Append.
#include "summary/stage.h"

#include "summary/definition.h"
#include "table/columnvalues.h"
#include "table/tablecopy.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace velmor {
namespace {

// A stage has at most 2 MiB of values, unless a block has more: room for eight blocks of up to 64
// columns, as many as are taken side by side.
constexpr std::uint64_t kStageValues = std::uint64_t{1} << 18U;

std::uint64_t StageBlocks(std::size_t columns, std::uint64_t blockRows) {
  constexpr std::uint64_t kMostBlocksOfStage = std::tuple_size_v<decltype(Stage::End::used)>;
  return std::bit_floor(
      std::clamp<std::uint64_t>(kStageValues / columns / blockRows, 1, kMostBlocksOfStage));
}

}  // namespace

Stage::Stage(const SummaryDefinition& definition)
    : _columns(definition.columns.size()),
      _hasWeights(definition.hasWeights),
      _hasRegWeights(definition.hasRegWeights),
      _isPairwise(definition.missing == MissingRule::Pairwise),
      _blockRows(definition.blockRows),
      _blocks(StageBlocks(_columns, _blockRows)),
      _canBeMissing(_columns) {}

std::uint64_t Stage::NUsed() const {
  return std::accumulate(_used.begin(), _used.end(), std::uint64_t{0});
}

void Stage::GoBackTo(const End& end) {
  _rows = end.rows;
  _used = end.used;
}

void Stage::Append(const TableView& table, std::uint64_t from, std::uint64_t to) {
  Reserve(_rows + (to - from));
  for (std::size_t i = 0; i < _columns; ++i) {
    _canBeMissing[i] = _canBeMissing[i] || HasMarks(table.values[i]);
  }
  const End before = GetEnd();
  try {
    while (from < to) {
      const std::uint64_t end = std::min(to, from + _blockRows - _rows % _blockRows);
      AppendToBlock(table, from, end);
      from = end;
    }
  } catch (...) {
    GoBackTo(before);
    throw;
  }
}

void Stage::AppendToBlock(const TableView& table, std::uint64_t from, std::uint64_t to) {
  const std::uint64_t block = _rows / _blockRows;
  const std::uint64_t first = block * _blockRows;
  std::uint64_t& used = _used[block];
  BatchRows rows;
  rows.values = Column(0) + first;
  rows.columns = _columns;
  rows.maxRows = _stride;
  rows.rows = used;
  rows.weights = _hasWeights ? Column(_columns) + first : nullptr;
  rows.regWeights = _hasRegWeights ? Column(NAllColumns() - 1) + first : nullptr;
  if (_isPairwise) {
    rows.missingCode = kMissingCode;
  }
  const std::uint64_t end = used + CopyRows(table, from, to, rows);
  // Places of rows that are left out are read, too.
  const std::uint64_t hole = std::max(end, _rows - first);
  const std::uint64_t holes = _rows - first + (to - from) - hole;
  for (std::size_t i = 0; holes != 0 && i < NAllColumns(); ++i) {
    std::fill_n(Column(i) + first + hole, holes, 0.);
  }
  used = end;
  _rows += to - from;
}

void Stage::Reserve(std::uint64_t rows) {
  if (rows <= _stride) {
    return;
  }
  // Some rows more than a power of 2, as columns whose distance is one share their sets of a cache.
  const std::size_t stride = std::min(std::bit_ceil(rows), MostRows()) + 8;
  std::unique_ptr<double[]> numbers(new double[stride * NAllColumns()]);
  for (std::size_t i = 0; i < NAllColumns(); ++i) {
    std::copy_n(Column(i), _rows, numbers.get() + i * stride);
  }
  _numbers = std::move(numbers);
  _stride = stride;
}

TableView Stage::View(std::vector<std::uint8_t>& isUsed) const {
  TableView table;
  table.rows = _rows;
  for (std::size_t i = 0; i < _columns; ++i) {
    table.values.emplace_back(Column(i));
    if (_isPairwise && _canBeMissing[i]) {
      table.values.back().absentCodes = {kMissingCode};
    }
  }
  std::size_t next = _columns;
  for (const auto& [view, isThere] :
       {std::pair(&table.weights, _hasWeights), std::pair(&table.regWeights, _hasRegWeights)}) {
    if (isThere) {
      view->emplace(Column(next++));
    }
  }
  if (NUsed() == _rows) {
    return table;
  }
  isUsed.assign(_rows / 8 + 1, 0);
  for (std::uint64_t row = 0; row < _rows; ++row) {
    const bool isRowUsed = row % _blockRows < _used[row / _blockRows];
    isUsed[row / 8] |= static_cast<std::uint8_t>((isRowUsed ? 1U : 0U) << row % 8);
  }
  // Pairwise, only weights leave a row out.
  ColumnView& mark = table.weights      ? *table.weights
                     : table.regWeights ? *table.regWeights
                                        : table.values[0];
  mark.validity = isUsed.data();
  return table;
}

void ThrowRefusal(const SummaryDefinition& definition, const TableView& table, std::uint64_t from,
                  std::uint64_t to) {
  Stage stage(definition);
  for (; from < to; from += stage.MostRows()) {
    stage.Clear();
    stage.Append(table, from, std::min(to, from + stage.MostRows()));
  }
}

}  // namespace velmor
