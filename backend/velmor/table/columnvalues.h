#pragma once

// One column of a host's table: its values as doubles, and which of them are absent.

#include <velmor/tableview.h>

#include "ordered/cases.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace velmor {

// Rows [first, first + count) of a table.
struct RowRange {
  std::uint64_t first;
  std::size_t count;
};

// How many of the columns, counted from the first, are aligned doubles side by side in each row, as
// in a table that is stored row by row. At least 1; a single column can be of any type.
std::size_t SideBySide(std::span<const ColumnView> columns);

// Whether a column's values are aligned doubles one after the other.
bool IsContiguous(const ColumnView& column);

// The values of row `row` of columns that are side by side, or of a contiguous one.
const double* ValuesOfRow(const ColumnView& first, std::uint64_t row);

// Reads a column, or several columns that are side by side. An integer to which no double is equal
// becomes NaN.
void ReadColumns(std::span<const ColumnView> columns, RowRange rows, ordered::Columns to);

// Whether a column has any mark of absent values.
bool HasMarks(const ColumnView& column);

// Sets the bit of each row whose value is absent: bit i % 64 of word i / 64 for the i-th row.
//   values  of the rows, as ReadColumns gives them
void MarkAbsent(const ColumnView& column, RowRange rows, const double* values, std::uint64_t* bits);

// Whether a column is of integers to some of which no double is equal.
bool IsOf64BitIntegers(const ColumnView& column);

// The exact value of a column of integers or bools; nothing if it has more than 63 bits, or if the
// column is of floating-point numbers.
std::optional<std::int64_t> IntegerAt(const ColumnView& column, std::uint64_t row);

// A value for a message, in as many digits as tell it from others.
std::string Text(double value);
std::string Text(const ColumnView& column, std::uint64_t row);

}  // namespace velmor
