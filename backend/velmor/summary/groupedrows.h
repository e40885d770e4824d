#pragma once

// Rows of a table put in the order of their groups.

#include <velmor/databatchbygroup.h>
#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmor {

class GroupedRows {
 public:
  // Room for so many rows.
  GroupedRows(std::size_t columns, bool hasWeights, unsigned mostRows);

  unsigned MostRows() const { return _batch.MaxRows(); }

  // Replaces what is held by the complete rows from `from` on of a table with all marks.
  //   groups  a number for each row; Labels::kNone for those that are left out
  // Throws std::bad_alloc, and what DataBatch::AddColumns throws, where rows count from `from`.
  void Take(const TableView& table, std::uint64_t from, const std::vector<std::uint32_t>& groups);

  // The rows of one group, in their order.
  struct Run {
    std::uint32_t group;
    unsigned firstRow;  // of those taken, left out or not
    unsigned from;
    unsigned count;
  };
  // In the order of their first rows.
  const std::vector<Run>& Runs() const { return _runs; }
  // A run's rows, as they are until Take.
  TableView View(const Run& run);

 private:
  void NumberLocally(const std::vector<std::uint32_t>& groups);

  std::size_t _columns;
  std::vector<double> _rowNumbers;      // 0, 1, ..., a column like the values
  std::vector<std::uint32_t> _locals;   // groups of the rows, as the batch numbers them
  std::vector<std::uint32_t> _groups;   // of the batch's numbers
  std::vector<std::uint32_t> _localOf;  // of a group; any where it has no row here
  DataBatchByGroup _batch;
  std::vector<Run> _runs;
};

}  // namespace velmor
