#pragma once

#include <velmor/assertion.h>
#include <velmor/owned_array.h>
#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#pragma GCC visibility push(default)
namespace velmor {

// A batch of cases: up to a fixed number of rows of doubles, stored column by column, each with
// the case weight, regression weight and group number that the host asked for.
//
// The batch copies; it keeps no reference to a case's values. At construction it is given the
// addresses at which the host keeps the weights and the group of its current case, and AddRow
// reads them there. Accumulating a batch may overwrite its columns and case weights, so clear and
// refill it before it is used again. Used by one thread at a time; not copied.
class DataBatch {
 public:
  // An empty batch. Memory: RowSize(...) * nRows bytes and eight rows of values, not cleared.
  //   nColumns  values per case
  //   nRows     capacity in cases
  //   pWeight, pRegWeight, pGroup  where the host keeps the current case's case weight,
  //             regression weight and group number; null when cases have none. They must stay
  //             valid for as long as rows are added.
  // Asserts 0 < nColumns and 0 < nRows. Throws std::bad_alloc.
  DataBatch(unsigned int nColumns, unsigned int nRows, const double* pWeight,
            const double* pRegWeight, const unsigned int* pGroup);
  ~DataBatch();
  DataBatch(const DataBatch&) = delete;
  DataBatch& operator=(const DataBatch&) = delete;

  // Bytes that one case takes in a batch, for choosing a capacity within a memory budget such as
  // ProblemBase's cache size.
  static unsigned long RowSize(unsigned int nColumns, bool hasWeights, bool hasRegWeights,
                               bool hasGroups);

  // Appends the host's current case: its NColumns() values, in column order and unchanged, and
  // the weights and group now found at the host's addresses. O(NColumns()), allocates nothing.
  // Until the host has asked for a column, rows are put into the columns eight at a time, which is
  // several times faster than value by value. Asserts that the batch is not full.
  void AddRow(const double* values);

  // Appends rows [from, to) of a table, in their order, as far as they can be used. Weights and
  // groups come from the table too, not from the host's addresses. A row is left out when it has an
  // absent weight, regression weight or group, or, without a missing code, any absent value. With a
  // missing code absent values are written as that code; then, to be told from these, no present
  // value may be equal to it. All other values become the doubles that are equal to them.
  //   missingCode  that of the pairwise accumulator that the batch is for; none for an accumulator
  //                of complete cases
  //   nGroups      every group is below it
  // Returns the number of rows appended; the others were left out. O(rows * columns), at the speed
  // of memory for contiguous columns; doubles side by side in each row, as a table stored row by
  // row has them, are turned in blocks. Allocates only scratch memory, which the thread keeps.
  // Asserts that the table has as many columns as the batch, and weights and groups where the batch
  // has them; that it has those rows, and each column an address and at most so many codes; and
  // that there is room for all of these rows.
  // Throws std::invalid_argument, which names the first such row and in it a column, when a present
  // value equals the missing code, when a value is absent and the missing code is NaN, which marks
  // nothing, when no double is equal to a 64-bit integer, and when a group is no whole number below
  // nGroups; std::bad_alloc. The batch is as it was then. A row that is left out is never
  // refused.
  unsigned int AddColumns(const TableView& table, std::uint64_t from, std::uint64_t to,
                          std::optional<double> missingCode = std::nullopt,
                          std::uint64_t nGroups = kMostGroups);

  // Empties the batch for the next filling: no rows, no group seen. O(1), frees nothing.
  void Clear();

  unsigned int NRows() const { return _nRows; }
  unsigned int NColumns() const { return _nColumns; }
  // Capacity in cases; also the distance in doubles from a column to the next.
  unsigned int MaxRows() const { return _maxRows; }
  // Largest group number added since construction or Clear; 0 without groups.
  unsigned int MaxGroupSeen() const { return _maxGroupSeen; }

  bool HasWeights() const { return _weights != nullptr; }
  bool HasRegWeights() const { return _regWeights != nullptr; }

  // Per case, in the order added; NRows() entries are defined. Null when cases have none.
  double* Weights() { return _weights; }
  double* RegWeights() const { return _regWeights; }
  unsigned int* Groups() const { return _groups; }

  // As many groups as can be told apart.
  static constexpr std::uint64_t kMostGroups = std::uint64_t{1} << 32U;

  // The values of column colNum, one per case; NRows() entries are defined, and those of cases
  // added later show there as they are added. Asserts the bound.
  double* Column(unsigned int colNum) {
    VELMOR_ASSERT(colNum < _nColumns);
    _isWatched = true;
    Settle();
    return _columns + static_cast<std::size_t>(colNum) * _maxRows;
  }

 private:
  friend struct Internals;

  // Puts the staged rows into the columns.
  void Settle() {
    if (_nStaged != 0) {
      SettleStaged();
    }
  }
  void SettleStaged();

  OwnedArray<double> _weights;
  OwnedArray<double> _regWeights;
  OwnedArray<double> _columns;  // row r of column j at j * _maxRows + r
  const double* _pWeight;
  const double* _pRegWeight;
  const unsigned int* _pGroup;
  OwnedArray<unsigned int> _groups;
  unsigned int _maxRows;
  unsigned int _nColumns;
  unsigned int _nRows = 0;
  unsigned int _maxGroupSeen = 0;
  OwnedArray<double> _staged;  // the last _nStaged rows, row by row, not yet in the columns
  unsigned int _nStaged = 0;
  bool _isWatched = false;  // a column's address has been handed out: nothing is staged any more
};

}  // namespace velmor
#pragma GCC visibility pop
