#pragma once

// Values into columns: as they are, or rows of them, square by square. Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

// Four vectors are read before any is written. A read that follows a write waits for it where their
// addresses are alike but for the page, as they can be all along; memcpy then takes twice the time.
template <class Set>
void Copy(const void* from, std::size_t count, double* to) {
  constexpr std::size_t kStep = std::size_t{4} * Set::kLanes;
  const auto* bytes = static_cast<const unsigned char*>(from);
  for (; count >= kStep; count -= kStep, bytes += kStep * sizeof(double), to += kStep) {
    Vector<Set> v[4];
#pragma GCC unroll 4
    for (unsigned i = 0; i < 4; ++i) {
      __builtin_memcpy(&v[i], bytes + i * sizeof(v[i]), sizeof(v[i]));
    }
#pragma GCC unroll 4
    for (unsigned i = 0; i < 4; ++i) {
      StoreVector<Set>(v[i], to + std::size_t{i} * Set::kLanes);
    }
  }
  __builtin_memcpy(to, bytes, count * sizeof(double));
}

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
        StoreVector<Set>(v[i], to + (column + i) * stride + row);
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
