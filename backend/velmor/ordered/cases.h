#pragma once

// What the operations over a batch work on. All arrays are the caller's.

#include <cstddef>

namespace velmor::ordered {

// Adjacent columns of a batch.
struct Columns {
  double* first;       // row 0 of the first column
  std::size_t stride;  // from a column to the next
  std::size_t count;

  double* operator[](std::size_t column) const { return first + column * stride; }
};

// The cases of a batch.
struct Cases {
  std::size_t rows;
  const double* weights;  // the cases' weights, null when each is 1
};

}  // namespace velmor::ordered
