#pragma once

// Accumulators beside their definitions: the same batches and merges, in any sequence, have to give
// the same results to the bit. Start at Exercise, at the end.

#include "../results.h"
#include "anyengine.h"

#include <numeric>

namespace velmor::test {

template <class State>
void RequireKept(const State& state) {
  const auto bytes = Save(state);
  Require(Save(*Load<State>(bytes)) == bytes, "a state is not loaded as it was saved");
}

// Adds batches to some accumulators and merges these, comparing after each step.
//   make       makes an empty accumulator
//   makeBatch  makes a batch of the cases
template <class Make, class MakeBatch>
void CompareWithDefinition(Input& input, const CaseShape& shape, Make make, MakeBatch makeBatch) {
  constexpr unsigned int kParts = 3;
  constexpr unsigned int kMostSteps = 5;
  std::vector<Defined<typename decltype(make())::element_type>> parts;
  for (unsigned int i = 0; i < kParts; ++i) {
    parts.emplace_back(make(), shape.columns);
  }
  const auto run = [&](const auto& operation) { InSomeRounding(input, operation); };
  for (unsigned int step = 0; step < kMostSteps && !input.IsUsedUp(); ++step) {
    const unsigned int to = input.Below(kParts);
    std::string difference;
    if (input.Below(3) == 2) {
      difference = parts[to].Merge(parts[(to + 1 + input.Below(kParts - 1)) % kParts], run);
    } else {
      const Cases cases = DrawCases(input, shape);
      difference = parts[to].Add(*makeBatch(cases), *makeBatch(cases), run);
    }
    Require(difference.empty(), difference);
  }
  RequireKept(parts[0].Get());
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the parts own their accumulators

// Adds blocks to forests in order and in any order: the forests and their results have the same
// bytes.
template <class Make, class MakeBatch>
void CompareForests(Input& input, const CaseShape& shape, Make make, MakeBatch makeBatch) {
  constexpr std::uint64_t kBlockRows = 300;
  using Forest = BlockForest<typename decltype(make())::element_type>;
  const auto empty = make();
  Forest inOrder(kBlockRows, *empty);
  std::array forests{Forest(kBlockRows, *empty), Forest(kBlockRows, *empty)};
  std::vector<std::uint64_t> order(1 + input.Below(9));
  std::iota(order.begin(), order.end(), std::uint64_t{0});
  std::vector<Cases> blocks;
  const auto add = [&](std::uint64_t block, Forest& forest) {
    auto leaf = forest.NewLeaf();
    *leaf += *makeBatch(blocks[block]);
    forest.Add(block, std::move(leaf));
  };
  for (const std::uint64_t block : order) {
    blocks.push_back(DrawCases(input, shape));
    add(block, inOrder);
  }
  Random random = input.Seed();
  std::shuffle(order.begin(), order.end(), random);
  for (const std::uint64_t block : order) {
    add(block, forests[random() / 8 % 2]);
  }
  forests[0].Merge(std::move(forests[1]));
  Require(Save(forests[0]) == Save(inOrder), "a forest depends on the order of its blocks");
  Require(Save(*forests[0].Result()) == Save(*inOrder.Result()), "another result");
  RequireKept(inOrder);
}

// Either of the two.
template <class Make, class MakeBatch>
void Exercise(Input& input, const CaseShape& shape, Make make, MakeBatch makeBatch) {
  if (input.Below(4) == 3) {
    CompareForests(input, shape, make, makeBatch);
  } else {
    CompareWithDefinition(input, shape, make, makeBatch);
  }
}

}  // namespace velmor::test
