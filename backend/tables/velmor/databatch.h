#pragma once

#include <velmor/assertion.h>
#include <velmor/owned_array.h>
#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#pragma GCC visibility push(default)
namespace velmor {

// A batch of cases: up to a fixed number of rows of doubles, stored column by column. A case has a
// case weight, a regression weight and a group number where the host asks for them.
//
// Its combined weight, u in the accumulators' formulas, is the case weight times the regression
// weight. With one of the two it is that one, without weights it is 1.
//
// The batch copies a case's values and keeps no reference to them. At construction it is given the
// addresses at which the host keeps the weights and the group of its current case; AddRow reads
// them there. Accumulating a batch may overwrite its columns and case weights, so clear and refill
// it before it is used again. It is used by one thread at a time and is not copied.
class DataBatch {
 public:
  // An empty batch. Memory: RowSize(...) * nRows bytes and eight rows of values, not cleared.
  //   nColumns  values per case
  //   nRows     capacity in cases
  //   pWeight, pRegWeight, pGroup  where the host keeps the current case's case weight, regression
  //             weight and group number; null when cases have none. The addresses must stay valid
  //             for as long as rows are added.
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

  // Appends the host's current case: its NColumns() values, in column order and unchanged, and the
  // weights and group now found at the host's addresses. O(NColumns()), allocates nothing. Until
  // the host has asked for a column, rows go into the columns eight at a time, several times faster
  // than value by value. Asserts that the batch is not full.
  void AddRow(const double* values);

  // Appends rows [from, to) of a table, in their order, as far as they can be used. Weights and
  // groups come from the table too, not from the host's addresses. A row is left out when its case
  // weight, regression weight or group is absent. Without a missing code a row with any absent
  // value is left out, too. With a missing code an absent value is written as the code. All other
  // values become the doubles that are equal to them.
  //   missingCode  the pairwise accumulator's for which the batch is; none for an accumulator of
  //                complete cases
  //   nGroups      every group is below it
  // Returns the number of rows appended; the others were left out. O(rows * columns). Contiguous
  // columns are copied at the speed of memory; doubles side by side in each row, as in a table that
  // is stored row by row, are turned square by square. Allocates only scratch memory, which the
  // thread keeps.
  // Asserts that the table has as many columns as the batch, and weights and groups where the batch
  // has them and only there; that it has the rows; that each column has an address and at most
  // ColumnView::kMostAbsentCodes codes; and that the batch has room for all of the rows.
  // Throws std::bad_alloc, and std::invalid_argument when a value can't be taken:
  //   a present value that equals the missing code;
  //   an absent value where the missing code is NaN, which marks nothing;
  //   a 64-bit integer to which no double is equal;
  //   a group that is no whole number below nGroups.
  // The message names the first row with such a value, and the column. A row that is left out is
  // never refused. The batch is as it was when this throws.
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

  // One entry for each case, in the order added; NRows() entries are defined. Null when cases have
  // none.
  double* Weights() { return _weights; }
  double* RegWeights() const { return _regWeights; }
  unsigned int* Groups() const { return _groups; }

  // The number of groups that can be told apart: group numbers have 32 bits.
  static constexpr std::uint64_t kMostGroups = std::uint64_t{1} << 32U;

  // The values of column colNum, one for each case; NRows() entries are defined. Cases that are
  // added later show there, too, as they are added. Asserts the bound.
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
