#pragma once

// What the forest and the state need of an accumulator besides its public operations. transfer.h
// defines it for accumulators that have a record, accumulators.h for MatrixBase.

#include "record/listwisetotals.h"
#include "record/pairwisetotals.h"
#include "record/shape.h"
#include "record/statestream.h"

#include <memory>

namespace velmor {

template <class Accumulator>
struct StateOf {
  // Whether an accumulator of this class can be of the kind.
  static bool Is(Kind kind);

  static Shape GetShape(const Accumulator& accumulator);

  // An empty accumulator of that shape.
  static std::unique_ptr<Accumulator> Make(const Shape& shape);
  // One of that shape, whose bounds are known, that holds these totals. Of a kind that has such.
  static std::unique_ptr<Accumulator> Of(const Shape& shape, const ListwiseTotals& totals);
  static std::unique_ptr<Accumulator> Of(const Shape& shape, const PairwiseTotals& totals);

  // Writes what an accumulator holds, which is not empty.
  static void Write(const Accumulator& accumulator, StateWriter& state);
  // An accumulator of the shape, holding what comes next in the state. Throws StateError and
  // std::bad_alloc.
  static std::unique_ptr<Accumulator> Read(const Shape& shape, StateReader& state);
};

// What is left of the shape of an accumulator when it holds nothing.
template <class Accumulator>
Shape EmptyShapeOf(const Accumulator& accumulator) {
  using State = StateOf<Accumulator>;
  return State::GetShape(*State::Make(State::GetShape(accumulator)));
}

}  // namespace velmor
