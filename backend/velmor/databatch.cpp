// databatch.cpp: the batch of cases; start at AddRow.
#include <velmor/databatch.h>

#include "ordered/fill.h"
#include "table/tablecopy.h"

#include <algorithm>
#include <array>

namespace velmor {

namespace {
// As many as make a cache line of each column.
constexpr unsigned int kStagedRows = 8;
}  // namespace

DataBatch::DataBatch(unsigned int nColumns, unsigned int nRows, const double* pWeight,
                     const double* pRegWeight, const unsigned int* pGroup)
    : _pWeight(pWeight),
      _pRegWeight(pRegWeight),
      _pGroup(pGroup),
      _maxRows(nRows),
      _nColumns(nColumns) {
  VELMOR_ASSERT(0 < nColumns);
  VELMOR_ASSERT(0 < nRows);
  _columns = OwnedArray<double>(static_cast<std::size_t>(nColumns) * nRows);
  if (_pWeight) {
    _weights = OwnedArray<double>(nRows);
  }
  if (_pRegWeight) {
    _regWeights = OwnedArray<double>(nRows);
  }
  if (_pGroup) {
    _groups = OwnedArray<unsigned int>(nRows);
  }
  _staged = OwnedArray<double>(std::size_t{kStagedRows} * nColumns);
}

DataBatch::~DataBatch() = default;

unsigned long DataBatch::RowSize(unsigned int nColumns, bool hasWeights, bool hasRegWeights,
                                 bool hasGroups) {
  const unsigned int doubles = nColumns + (hasWeights ? 1 : 0) + (hasRegWeights ? 1 : 0);
  return doubles * sizeof(double) + (hasGroups ? sizeof(unsigned int) : 0);
}

void DataBatch::AddRow(const double* values) {
  VELMOR_ASSERT(_nRows < _maxRows);
  if (_pWeight) {
    _weights[_nRows] = *_pWeight;
  }
  if (_pRegWeight) {
    _regWeights[_nRows] = *_pRegWeight;
  }
  if (_pGroup) {
    _groups[_nRows] = *_pGroup;
    _maxGroupSeen = std::max(_maxGroupSeen, *_pGroup);
  }
  const double* const cell = _columns + (_nRows + std::size_t{_nColumns} * _maxRows);
  std::copy_n(values, _nColumns, _staged + std::size_t{_nStaged} * _nColumns);
  ++_nStaged;
  // In 64 bits: a batch of almost 2^32 cells with one column more has no 32-bit size.
  if (cell >= _columns + (std::size_t{_nColumns} + 1) * _maxRows) {
    AssertionFailed(__FILE__, __LINE__, __func__, "cell < _columns+(_nColumns+1)*_maxRows");
  }
  ++_nRows;
  if (_isWatched || _nStaged == kStagedRows) {
    SettleStaged();
  }
}

unsigned int DataBatch::AddColumns(const TableView& table, std::uint64_t from, std::uint64_t to,
                                   std::optional<double> missingCode, std::uint64_t nGroups) {
  VELMOR_ASSERT(nGroups <= kMostGroups);
  Settle();
  const auto added =
      static_cast<unsigned int>(CopyRows(table, from, to,
                                         {_columns, false, _nColumns, _maxRows, _nRows, _weights,
                                          _regWeights, _groups, nGroups, missingCode}));
  for (unsigned int i = 0; _pGroup && i < added; ++i) {
    _maxGroupSeen = std::max(_maxGroupSeen, _groups[_nRows + i]);
  }
  _nRows += added;
  return added;
}

void DataBatch::SettleStaged() {
  std::array<const double*, kStagedRows> rows{};
  for (unsigned int i = 0; i < _nStaged; ++i) {
    rows[i] = _staged + std::size_t{i} * _nColumns;
  }
  ordered::Transpose(rows.data(), _nStaged, {_columns + (_nRows - _nStaged), _maxRows, _nColumns});
  _nStaged = 0;
}

void DataBatch::Clear() {
  _nRows = 0;
  _nStaged = 0;
  _maxGroupSeen = 0;
}

}  // namespace velmor
