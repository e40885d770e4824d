#pragma once

#include <velmor/databatch.h>

#include "ordered/cases.h"

#include <cstddef>
#include <cstdint>

namespace velmor {

// A bound of a block of columns, kept as its class got it. The difference of two has 64 bits, so
// that a product of differences, the number of cells of a rectangle, does not overflow.
struct Bound {
  int column;

  // NOLINTNEXTLINE(google-explicit-constructor,hicpp-explicit-conversions): it is one
  operator int() const { return column; }
  friend std::int64_t operator-(Bound a, Bound b) { return std::int64_t{a.column} - b.column; }
};

// The columns of a batch for the library itself, which keeps no address: the batch may go on
// staging rows afterwards.
class BatchReader {
 public:
  static double* Column(DataBatch& batch, unsigned int column) {
    const bool wasWatched = batch._isWatched;
    double* const first = batch.Column(column);
    batch._isWatched = wasWatched;
    return first;
  }
};

// Batch columns [from, to), from < to. Asserts that the batch has them.
inline ordered::Columns Block(DataBatch& batch, int from, int to) {
  BatchReader::Column(batch, static_cast<unsigned int>(to - 1));
  double* const first = BatchReader::Column(batch, static_cast<unsigned int>(from));
  return {first, batch.MaxRows(), static_cast<std::size_t>(to - from)};
}

}  // namespace velmor
