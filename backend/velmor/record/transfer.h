#pragma once

// StateOf for an accumulator whose record is known. A record has
//   kKind                             the class, and
//   GetShape()                        its shape
//   Make(shape)                       static: an empty accumulator of that shape
//   Transfer(my, shape, state)        static: writes or reads all that such a record holds, the
//                                     state being a StateWriter or a StateReader
// The accumulator's source instantiates StateOf for its class.

#include "record/internals.h"
#include "record/stateof.h"

#include <bit>
#include <cstdint>
#include <memory>

namespace velmor {

template <class Accumulator>
bool StateOf<Accumulator>::Is(Kind kind) {
  return kind == DataOf<Accumulator>::kKind;
}

template <class Accumulator>
Shape StateOf<Accumulator>::GetShape(const Accumulator& accumulator) {
  return Internals::DataOf(accumulator).GetShape();
}

// Fills an empty accumulator, if it has such totals.
template <class Accumulator, class Totals>
std::unique_ptr<Accumulator> Filled(std::unique_ptr<Accumulator> accumulator,
                                    const Totals& totals) {
  auto& record = Internals::DataOf(*accumulator);
  if constexpr (requires { TakeTotals(record, totals); }) {
    TakeTotals(record, totals);
  }
  return accumulator;
}

template <class Accumulator>
std::unique_ptr<Accumulator> StateOf<Accumulator>::Of(const Shape& shape,
                                                      const ListwiseTotals& totals) {
  return Filled(Make(shape), totals);
}

template <class Accumulator>
std::unique_ptr<Accumulator> StateOf<Accumulator>::Of(const Shape& shape,
                                                      const PairwiseTotals& totals) {
  return Filled(Make(shape), totals);
}

template <class Accumulator>
std::unique_ptr<Accumulator> StateOf<Accumulator>::Make(const Shape& shape) {
  return DataOf<Accumulator>::Make(shape);
}

template <class Accumulator>
void StateOf<Accumulator>::Write(const Accumulator& accumulator, StateWriter& state) {
  const DataOf<Accumulator>& record = Internals::DataOf(accumulator);
  DataOf<Accumulator>::Transfer(record, record.GetShape(), state);
}

template <class Accumulator>
std::unique_ptr<Accumulator> StateOf<Accumulator>::Read(const Shape& shape, StateReader& state) {
  std::unique_ptr<Accumulator> accumulator = Make(shape);
  DataOf<Accumulator>& record = Internals::DataOf(*accumulator);
  DataOf<Accumulator>::Transfer(record, shape, state);
  if constexpr (requires { record._hasRegWeights; }) {
    record._hasRegWeights = shape.hasRegWeights;
  }
  return accumulator;
}

// The number of cases, at least one, and the sums of their weights.
template <class Record, class State>
void TransferTotals(Record& my, const Shape& shape, State& state) {
  state.Count(my._nRows, shape.Facts().mostRows);
  state.Check(my._nRows != 0, "a record of no cases");
  state.Number(my._weightSum);
  if constexpr (requires { my._regWeightSum; }) {
    state.Number(my._regWeightSum);
    state.Check(shape.hasRegWeights || std::bit_cast<std::uint64_t>(my._regWeightSum) ==
                                           std::bit_cast<std::uint64_t>(my._weightSum),
                "two weight sums that differ without regression weights");
  }
}

}  // namespace velmor
