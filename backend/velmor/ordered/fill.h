#pragma once

// Values into the columns of a batch. Allocates nothing.

#include "ordered/cases.h"

#include <cstddef>
#include <cstdint>

namespace velmor::ordered {

// to[i] = the i-th double from any address on, i < count.
void Copy(const void* from, std::size_t count, double* to);

// Row r of the columns gets the values at rows[r], one for each column.
void Transpose(const double* const* rows, std::size_t count, Columns columns);

// Sets the bit of each row (bit row % 64 of word row / 64) in which x is equal to the value, or is
// any NaN if the value is one; leaves the others.
void MarkEqual(const double* x, std::size_t rows, double value, std::uint64_t* bits);

}  // namespace velmor::ordered
