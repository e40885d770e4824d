#pragma once

// Leading runs of equal values, which enter a mean last: what the kernels of means share.
//
// A run is the state of a lane. Rows in which no lane begins or leaves its run are taken as if
// there were none; what they add to the sum of a lane in its run is dropped afterwards. So a run
// may last, as in a constant column or in data that are sorted by a column, and costs little more
// than asking where it ends. Rows around an end are taken one by one.

#include "ordered/kernels/tuning.h"
#include "ordered/kernels/vectors.h"

#include <cstddef>

namespace velmor::ordered {

// A mean in a vector of lanes, while its values come in.
template <class Set>
struct RunningMean {
  Vector<Set> sum;        // of weight times value, after the run; until then, 0
  Vector<Set> runValue;   // the run's value
  Vector<Set> runWeight;  // the sum of the run's weights, once it has ended
  Mask<Set> ended;

  // A row's values where they count. The run's weight is that of all rows before.
  [[gnu::always_inline]] void Take(Mask<Set> counts, Vector<Set> values, Vector<Set> weight,
                                   Vector<Set> weightBefore) {
    const Mask<Set> leaves = counts & ~ended & ~(values == runValue);
    runWeight = leaves ? weightBefore : runWeight;
    ended = ended | leaves;
    sum = AddWhere<Set>(counts & ended, weight * values, sum);
  }
};

// The end of rows [from, end) before the first one of which `leaves` is true. Asks of some rows at
// a time and of ever more, so that short runs are left soon and long runs asked rarely.
//   leaves(first, to)  whether a lane begins or leaves its run in these rows
template <class Set, class Leaves>
[[gnu::always_inline]] inline std::size_t SteadyUntil(std::size_t from, std::size_t end,
                                                      Leaves leaves) {
  for (std::size_t length = kChangingRows; from < end; length *= 2) {
    const std::size_t to = length < end - from ? from + length : end;
    if (leaves(from, to)) {
      break;
    }
    from = to;
  }
  return from;
}

}  // namespace velmor::ordered
