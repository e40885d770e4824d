#pragma once

#include <velmor/databatch.h>

#include "ordered/columns.h"

#include <cstddef>

namespace velmor {

// Batch columns [from, to), from < to. Asserts that the batch has the first of them.
inline ordered::Columns Block(DataBatch& batch, int from, int to) {
  double* const first = batch.Column(static_cast<unsigned int>(from));
  return {first, batch.MaxRows(), static_cast<std::size_t>(to - from)};
}

}  // namespace velmor
