#pragma once

#include <velmor/databatch.h>

#include "ordered/cases.h"
#include "record/internals.h"

#include <cstddef>
#include <cstdint>

namespace velmor {

// A bound of a block of columns, as the accumulator's constructor got it. The difference of two
// bounds has 64 bits, so that a product of differences, the number of cells of a rectangle, does
// not overflow.
struct Bound {
  int column;

  // NOLINTNEXTLINE(google-explicit-constructor,hicpp-explicit-conversions): it is one
  operator int() const { return column; }
  friend std::int64_t operator-(Bound a, Bound b) { return std::int64_t{a.column} - b.column; }
};

// Columns [from, to) of a batch, from < to. Asserts that the batch has so many.
inline ordered::Columns BatchColumns(DataBatch& batch, int from, int to) {
  Internals::Column(batch, static_cast<unsigned int>(to - 1));
  double* const first = Internals::Column(batch, static_cast<unsigned int>(from));
  return {first, batch.MaxRows(), static_cast<std::size_t>(to - from)};
}

}  // namespace velmor
