#pragma once

#include <velmor/databatch.h>

#include "ordered/columns.h"

#include <cstddef>

namespace velmor {

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
