#pragma once

#include <velmor/assertion.h>
#include <velmor/owned_array.h>
#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#pragma GCC visibility push(default)
namespace velmor {

// A batch for statistics by group: cases arrive in any order of groups, and SortByGroup lays them
// out so that each group is one run of rows in every column.
//
// Fill it case by case: write the values at NextRow(), then call AddRow(), which takes the weights
// and the group number from the host's addresses. Or fill it from a table, with AddColumns. Once it
// is full, sort it and hand it to an accumulator. Memory is about twice a DataBatch's: values and
// case weights are kept as they came and also sorted. It is used by one thread at a time and is not
// copied.
class DataBatchByGroup {
 public:
  // An empty batch. Arguments as for DataBatch, and
  //   maxGroup  number of groups: every group number is below it
  // Asserts 0 < nColumns and 0 < nRows. Throws std::bad_alloc.
  DataBatchByGroup(unsigned int nColumns, unsigned int nRows, const double* pWeight,
                   const double* pRegWeight, const unsigned int* pGroup, unsigned int maxGroup);
  ~DataBatchByGroup();
  DataBatchByGroup(const DataBatchByGroup&) = delete;
  DataBatchByGroup& operator=(const DataBatchByGroup&) = delete;

  // Bytes of one case by DataBatch::RowSize's rule, which counts values and case weights once.
  static unsigned long RowSize(unsigned int nColumns, bool hasWeights, bool hasRegWeights,
                               bool hasGroups);

  // Where the host writes the NColumns() values of the case that the next AddRow() counts.
  // Asserts that the batch is not full.
  double* NextRow();

  // Counts the case whose values stand at NextRow(). O(1), allocates nothing.
  // Asserts that the batch is not full and that the group number is below NGroups().
  void AddRow();

  // Appends the rows [from, to) of a table that have no absent value, weight or group, in their
  // order. Returns their number. Asserts and throws as DataBatch::AddColumns does without a missing
  // code, nGroups being NGroups(). Values that stand at NextRow() and have not been counted are
  // lost, also when this throws.
  unsigned int AddColumns(const TableView& table, std::uint64_t from, std::uint64_t to);

  // Lays the cases out by group: the cases of group 0 first, then the cases of group 1, and so on,
  // cases of one group in the order added. Reads only what was added, so it can be repeated.
  // O(NRows() * NColumns() + NGroups()); allocates NGroups() counts, and takes an address a row
  // from the thread's scratch memory. Asserts that the batch has groups. Throws std::bad_alloc.
  void SortByGroup();

  // Empties the batch for the next filling, group counts included. O(NGroups()), frees nothing.
  void Clear();

  unsigned int NRows() const { return _nRows; }
  unsigned int NColumns() const { return _nColumns; }
  // The bound on group numbers given at construction.
  unsigned int NGroups() const { return _maxGroup; }
  // Capacity in cases; also the distance in doubles from a column to the next.
  unsigned int MaxRows() const { return _maxRows; }

  // Whether cases have case weights.
  bool HasWeights() const { return _tmpWeights != nullptr; }
  // Whether SortByGroup has run since the last case was added.
  bool IsSorted() const { return _isSorted; }

  // The case weights in sorted order, valid after SortByGroup; null without case weights.
  double* Weights() { return _weights; }

  // Cases of a group added so far. Asserts the bound and that the batch has groups.
  unsigned int groupCount(unsigned int group) const {
    VELMOR_ASSERT(_pGroup != nullptr);
    VELMOR_ASSERT(group < NGroups());
    return _groupCounts[group];
  }

  // The values of column colNum in sorted order, valid after SortByGroup. Asserts the bound.
  double* Column(unsigned int colNum) {
    VELMOR_ASSERT(colNum < _nColumns);
    return _columns + static_cast<std::size_t>(colNum) * _maxRows;
  }

 private:
  OwnedArray<double> _weights;     // sorted
  OwnedArray<double> _tmpWeights;  // as added, like all below but _columns
  OwnedArray<double> _regWeights;
  OwnedArray<double> _rows;     // value j of case i at i * _nColumns + j
  OwnedArray<double> _columns;  // sorted; row r of column j at j * _maxRows + r
  const double* _pWeight;
  const double* _pRegWeight;
  const unsigned int* _pGroup;
  OwnedArray<unsigned int> _groups;
  unsigned int _maxRows;
  unsigned int _nColumns;
  unsigned int _nRows = 0;
  unsigned int _maxGroup;
  std::vector<unsigned int> _groupCounts;
  bool _isSorted = false;
};

}  // namespace velmor
#pragma GCC visibility pop
