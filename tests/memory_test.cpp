// Memory that runs out at any point of a batch or a merge: the exception arrives, nothing leaks,
// and the accumulator is as it was.
#include <velmor/velmor.h>

#include "allocations.h"
#include "support.h"

namespace velmor::test {
namespace {

using Doubles = std::vector<double>;

const Cases kCases{
    {{1., 2., 3.}, {4., -9., 5.}, {2., 8., 1.}, {7., 3., -9.}}, {1., 2., 1., 3.}, {}, {0, 1, 1, 0}};

// What shows of an accumulator.
Doubles State(const SMatrixListwise& a) {
  Doubles state{static_cast<double>(a.NRows()), a.WeightSum(), static_cast<double>(a.NColumns())};
  if (a.NRows() > 0) {
    state.insert(state.end(), {a.Mean(1), a.Min(0), a.Max(2), a.CCP(2, 1)});
  }
  return state;
}
Doubles State(const NSMatrixListwise& a) {
  Doubles state{static_cast<double>(a.NRows()), a.WeightSum(), static_cast<double>(a.NColumns())};
  if (a.NRows() > 0) {
    state.insert(state.end(), {a.Mean(1), a.Min(0), a.Max(2), a.CCP(2, 0)});
  }
  return state;
}
Doubles State(const MatrixListwise& a) {
  Doubles state{static_cast<double>(a.NRows()), a.WeightSum(), static_cast<double>(a.NColumns())};
  if (a.NRows() > 0) {
    state.insert(state.end(), {a.Mean(1), a.CCP(2, 1)});
  }
  return state;
}
template <class Pairwise>
Doubles State(const Pairwise& a) {
  Doubles state{static_cast<double>(a.NRows()), a.WeightSum(), static_cast<double>(a.NColumns())};
  if (a.NRows() > 0) {
    state.insert(state.end(), {a.Var(1).Mean(), a.Pair(2, 0).CSCP()});
  }
  return state;
}
Doubles State(const DiscriminantMatrix& a) {
  Doubles state{static_cast<double>(a.NRows()), a.WeightSum()};
  if (a.NRows() > 0) {
    state.insert(state.end(), {a.sumW(1), a.sumX1(0, 2), a.TSSP(1, 0)});
  }
  return state;
}
Doubles State(const DiscIndividualMatrix& a) {
  Doubles state{static_cast<double>(a.NRows()), a.WeightSum()};
  if (a.NRows() > 0) {
    state.insert(state.end(), {a.TSSP(4, 1), a.TSSP(9, 0)});
  }
  return state;
}

// Fails each allocation of `operation` in turn until it succeeds.
template <class Accumulator, class Operation>
void ExpectAllOrNothing(const char* what, Accumulator& a, Operation operation) {
  SCOPED_TRACE(what);
  const Doubles before = State(a);
  int failures = 0;
  for (bool hasFailed = true; hasFailed; ++failures) {
    const std::size_t alive = allocations.alive;
    allocations.failAfter = failures;
    try {
      operation();
      hasFailed = false;
    } catch (const std::bad_alloc&) {
    }
    allocations.failAfter = Allocations::kNever;
    if (hasFailed) {
      EXPECT_EQ(allocations.alive, alive) << "leaks when allocation " << failures << " fails";
      EXPECT_EQ(State(a), before);
    }
  }
  EXPECT_NE(State(a), before);
}

template <class Make, class MakeBatch>
void TryEachOperation(const char* name, Make make, MakeBatch makeBatch) {
  SCOPED_TRACE(name);
  // A batch that a failure leaves half worked on is refilled by the host.
  const auto addTo = [&](auto& a, std::size_t from, std::size_t to) {
    return [&a, &makeBatch, from, to] { a += *makeBatch(kCases.Slice(from, to)); };
  };
  auto first = make();
  ExpectAllOrNothing("first batch", *first, addTo(*first, 0, 1));
  ExpectAllOrNothing("larger batch", *first, addTo(*first, 1, 4));
  auto empty = make();
  ExpectAllOrNothing("first merge", *empty, [&] { *empty += *first; });
  ExpectAllOrNothing("later merge", *empty, [&] { *empty += *first; });
}

TEST(Memory, BatchesAndMergesAreAllOrNothing) {
  const auto plain = [](const Cases& cases) { return Batch(cases); };
  const auto grouped = [](const Cases& cases) { return GroupedBatch(cases, 3, 2); };
  TryEachOperation(
      "MatrixListwise", [] { return std::make_unique<MatrixListwise>(); }, plain);
  TryEachOperation(
      "SMatrixListwise", [] { return std::make_unique<SMatrixListwise>(); }, plain);
  TryEachOperation(
      "NSMatrixListwise", [] { return std::make_unique<NSMatrixListwise>(0, 1, 3); }, plain);
  TryEachOperation(
      "MatrixPairwise", [] { return std::make_unique<MatrixPairwise>(-9.); }, plain);
  TryEachOperation(
      "SMatrixPairwise", [] { return std::make_unique<SMatrixPairwise>(-9.); }, plain);
  TryEachOperation(
      "NSMatrixPairwise", [] { return std::make_unique<NSMatrixPairwise>(-9., 0, 1, 3); }, plain);
  TryEachOperation(
      "DiscriminantMatrix", [] { return std::make_unique<DiscriminantMatrix>(2, 3); }, plain);
  TryEachOperation(
      "DiscIndividualMatrix", [] { return std::make_unique<DiscIndividualMatrix>(2, 3); }, grouped);
}

}  // namespace
}  // namespace velmor::test
