// databatch.cpp: the batch of cases; start at AddRow.
#include <velmor/databatch.h>

#include <algorithm>

namespace velmor {

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
  double* cell = _columns + _nRows;
  for (unsigned int column = 0; column < _nColumns; ++column, cell += _maxRows) {
    *cell = values[column];
  }
  // In 64 bits: a batch of almost 2^32 cells with one column more has no 32-bit size.
  if (cell >= _columns + (std::size_t{_nColumns} + 1) * _maxRows) {
    AssertionFailed(__FILE__, __LINE__, __func__, "cell < _columns+(_nColumns+1)*_maxRows");
  }
  ++_nRows;
}

void DataBatch::Clear() {
  _nRows = 0;
  _maxGroupSeen = 0;
}

}  // namespace velmor
