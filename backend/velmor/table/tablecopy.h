#pragma once

// Rows of a host's table into the memory of a batch.

#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace velmor {

// A batch's memory, and what the batch asks of the rows that it is given.
struct BatchRows {
  double* values = nullptr;  // of row 0 and column 0
  // Whether value (row, column) is at row * columns + column, or at column * maxRows + row.
  bool isByRow = false;
  std::size_t columns = 0;
  std::size_t maxRows = 0;
  std::size_t rows = 0;       // held so far; the next go behind them
  double* weights = nullptr;  // of row 0, like the next two; null when the batch has none
  double* regWeights = nullptr;
  unsigned int* groups = nullptr;
  std::uint64_t groupBound = 0;            // every group is below it; at most 2^32
  std::optional<double> missingCode = {};  // as AddColumns has it
};

// Copies rows [from, to) of a table, as DataBatch::AddColumns says, behind those that the batch
// holds. Returns the number of rows copied. Asserts and throws as AddColumns does; rows behind
// those that the batch holds may then have been written.
std::size_t CopyRows(const TableView& table, std::uint64_t from, std::uint64_t to,
                     const BatchRows& batch);

}  // namespace velmor
