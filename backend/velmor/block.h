#pragma once

#include <velmor/databatch.h>

#include "ordered/columns.h"

#include <cstddef>

namespace velmor {

// Batch columns [from, to).
inline ordered::Columns Block(DataBatch& batch, int from, int to) {
  return {batch.Column(static_cast<unsigned int>(from)), batch.MaxRows(),
          static_cast<std::size_t>(to - from)};
}

}  // namespace velmor
