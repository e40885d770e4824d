#pragma once

// The library's own access to what its public classes hold: the one friend that they declare.

#include <velmor/databatch.h>

#include <type_traits>
#include <utility>

namespace velmor {

struct Internals {
  // What an accumulator or a forest keeps: its record.
  template <class Owner>
  static auto& DataOf(const Owner& owner) {
    return *owner._my;
  }

  // A batch's column for the length of an operation. Nobody keeps the address, so the batch may go
  // on staging rows afterwards.
  static double* Column(DataBatch& batch, unsigned int column) {
    const bool wasWatched = batch._isWatched;
    double* const first = batch.Column(column);
    batch._isWatched = wasWatched;
    return first;
  }
};

template <class Owner>
using DataOf = std::remove_reference_t<decltype(Internals::DataOf(std::declval<const Owner&>()))>;

}  // namespace velmor
