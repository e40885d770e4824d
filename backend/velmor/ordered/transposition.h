#pragma once

// Rows of values into columns, square by square. Contract: kernels.h.

#include "ordered/kernels.h"
#include "ordered/vectors.h"

namespace velmor::ordered {

template <class Set>
void Transpose(const double* const* from, std::size_t rows, std::size_t columns, std::size_t stride,
               double* to) {
  constexpr unsigned kLanes = Set::kLanes;
  const std::size_t wholeRows = rows - rows % kLanes;
  const std::size_t wholeColumns = columns - columns % kLanes;
  for (std::size_t row = 0; row < wholeRows; row += kLanes) {
    for (std::size_t column = 0; column < wholeColumns; column += kLanes) {
      Vector<Set> v[kLanes];
      LoadTransposed<Set>(from + row, column, v);
#pragma GCC unroll 8
      for (unsigned i = 0; i < kLanes; ++i) {
        Store<Set>(v[i], to + (column + i) * stride + row);
      }
    }
  }
  for (std::size_t row = 0; row < rows; ++row) {
    for (std::size_t column = row < wholeRows ? wholeColumns : 0; column < columns; ++column) {
      to[column * stride + row] = from[row][column];
    }
  }
}

}  // namespace velmor::ordered
