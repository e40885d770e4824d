// Memory that runs out at any point of an operation: the exception arrives, nothing leaks, and what
// was worked on is as it was.
#include <velmor/velmor.h>

#include "accumulators.h"
#include "allocations.h"
#include "support.h"

namespace velmor::test {
namespace {

// Fails each allocation of `operation` in turn until it succeeds.
template <class Object, class Operation>
void ExpectAllOrNothing(const char* what, Object& object, Operation operation) {
  SCOPED_TRACE(what);
  const auto before = Save(object);
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
      EXPECT_EQ(Save(object), before);
    }
  }
  EXPECT_NE(Save(object), before);
}

template <class Accumulator>
class Memory : public testing::Test {};
TYPED_TEST_SUITE(Memory, TypesOf<Accumulators>::Each);

TYPED_TEST(Memory, BatchesAndMergesAreAllOrNothing) {
  const Cases all = CasesFor<TypeParam>(MixedCases(40));
  auto first = NewAccumulator<TypeParam>();
  // A batch that a failure leaves half worked on is refilled by the host.
  const auto add = [&](std::size_t from, std::size_t to) {
    return [&all, &first, from, to] { *first += *BatchFor<TypeParam>(all.Slice(from, to)); };
  };
  ExpectAllOrNothing("first batch", *first, add(0, 1));
  ExpectAllOrNothing("larger batch", *first, add(1, all.rows.size()));
  auto empty = NewAccumulator<TypeParam>();
  ExpectAllOrNothing("first merge", *empty, [&] { *empty += *first; });
  ExpectAllOrNothing("later merge", *empty, [&] { *empty += *first; });
}

TYPED_TEST(Memory, StatesAreLoadedOrNot) {
  const auto saved = Save(*Accumulated<TypeParam>(MixedCases(9)));
  auto sum = NewAccumulator<TypeParam>();
  ExpectAllOrNothing("load", *sum, [&] { *sum += *Load<TypeParam>(saved); });
}

TYPED_TEST(Memory, ForestsPutMergesOff) {
  using Forest = BlockForest<TypeParam>;
  Forest expected(9, *NewAccumulator<TypeParam>());
  Forest forest(9, *NewAccumulator<TypeParam>());
  for (std::uint32_t block = 0; block < 8; ++block) {
    expected.Add(block, Accumulated<TypeParam>(MixedCases(9, block)));
    auto leaf = Accumulated<TypeParam>(MixedCases(9, block));
    // The first allocation makes room for the leaf, the next one is a merge's.
    allocations.failAfter = 1;
    forest.Add(block, std::move(leaf));
    allocations.failAfter = Allocations::kNever;
  }
  EXPECT_EQ(Save(forest), Save(expected));
  auto leaf = Accumulated<TypeParam>(MixedCases(9, 8));
  allocations.failAfter = 0;
  EXPECT_THROW(forest.Add(8, std::move(leaf)), std::bad_alloc);
  allocations.failAfter = Allocations::kNever;
  EXPECT_EQ(Save(forest), Save(expected));
}

}  // namespace
}  // namespace velmor::test
