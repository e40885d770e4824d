// databatchbygroup.cpp: the batch that is sorted by group; start at SortByGroup.
#include <velmor/databatch.h>
#include <velmor/databatchbygroup.h>

#include "ordered/fill.h"
#include "ordered/workspace.h"
#include "table/tablecopy.h"

#include <algorithm>
#include <numeric>

namespace velmor {

DataBatchByGroup::DataBatchByGroup(unsigned int nColumns, unsigned int nRows, const double* pWeight,
                                   const double* pRegWeight, const unsigned int* pGroup,
                                   unsigned int maxGroup)
    : _pWeight(pWeight),
      _pRegWeight(pRegWeight),
      _pGroup(pGroup),
      _maxRows(nRows),
      _nColumns(nColumns),
      _maxGroup(maxGroup) {
  VELMOR_ASSERT(0 < nColumns);
  VELMOR_ASSERT(0 < nRows);
  const std::size_t cells = static_cast<std::size_t>(nColumns) * nRows;
  _rows = OwnedArray<double>(cells);
  _columns = OwnedArray<double>(cells);
  if (_pWeight) {
    _weights = OwnedArray<double>(nRows);
    _tmpWeights = OwnedArray<double>(nRows);
  }
  if (_pRegWeight) {
    _regWeights = OwnedArray<double>(nRows);
  }
  if (_pGroup) {
    _groups = OwnedArray<unsigned int>(nRows);
    _groupCounts.assign(maxGroup, 0);
  }
}

DataBatchByGroup::~DataBatchByGroup() = default;

unsigned long DataBatchByGroup::RowSize(unsigned int nColumns, bool hasWeights, bool hasRegWeights,
                                        bool hasGroups) {
  return DataBatch::RowSize(nColumns, hasWeights, hasRegWeights, hasGroups);
}

double* DataBatchByGroup::NextRow() {
  VELMOR_ASSERT(_nRows < _maxRows);
  return _rows + static_cast<std::size_t>(_nColumns) * _nRows;
}

void DataBatchByGroup::AddRow() {
  VELMOR_ASSERT(_nRows < _maxRows);
  if (_pWeight) {
    _tmpWeights[_nRows] = *_pWeight;
  }
  if (_pRegWeight) {
    _regWeights[_nRows] = *_pRegWeight;
  }
  if (_pGroup) {
    const unsigned int tmpGroupVal = *_pGroup;
    VELMOR_ASSERT(tmpGroupVal<_maxGroup);
    _groups[_nRows] = tmpGroupVal;
    ++_groupCounts[tmpGroupVal];
  }
  ++_nRows;
  _isSorted = false;
}

unsigned int DataBatchByGroup::AddColumns(const TableView& table, std::uint64_t from,
                                          std::uint64_t to) {
  const auto added =
      static_cast<unsigned int>(CopyRows(table, from, to,
                                         {_rows, true, _nColumns, _maxRows, _nRows, _tmpWeights,
                                          _regWeights, _groups, _maxGroup, std::nullopt}));
  for (unsigned int i = 0; _pGroup && i < added; ++i) {
    ++_groupCounts[_groups[_nRows + i]];
  }
  _nRows += added;
  _isSorted = _isSorted && added == 0;
  return added;
}

void DataBatchByGroup::SortByGroup() {
  VELMOR_ASSERT(_pGroup!=0);  // NOLINT(modernize-use-nullptr): stable text
  if (HasWeights()) {
    VELMOR_ASSERT(_weights!=0&&_tmpWeights!=0);  // NOLINT(modernize-use-nullptr): stable text
  }
  // A counting sort, stable because cases are taken in the order added: start[g] is the sorted
  // row that the next case of group g gets. Columns are then written a block of rows at a time.
  std::vector<unsigned int> start(_maxGroup);
  ordered::Workspace workspace;
  auto* const sorted = workspace.Take<const double*>(_nRows);  // each sorted row's values
  std::exclusive_scan(_groupCounts.begin(), _groupCounts.end(), start.begin(), 0U);
  const double* source = _rows;
  for (std::size_t i = 0; i < _nRows; ++i) {
    const unsigned int sortedRow = start[_groups[i]]++;
    if (HasWeights()) {
      _weights[sortedRow] = _tmpWeights[i];
    }
    VELMOR_ASSERT(source == _rows+_nColumns*i);
    sorted[sortedRow] = source;
    source += _nColumns;
  }
  ordered::Transpose(sorted, _nRows, {_columns, _maxRows, _nColumns});
  _isSorted = true;
}

void DataBatchByGroup::Clear() {
  _nRows = 0;
  std::fill(_groupCounts.begin(), _groupCounts.end(), 0U);
  _isSorted = false;
}

}  // namespace velmor
