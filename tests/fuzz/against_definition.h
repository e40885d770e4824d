#pragma once

// Accumulators beside their definitions: the same batches and merges, in any sequence, have to give
// the same results to the bit.

#include "../results.h"
#include "input.h"

#include <numeric>

namespace velmor::test {

inline void RequireSame(const Results& results, const Doubles& expected, bool isPositive) {
  Require(results.size() == expected.size() || !isPositive, "another number of results");
  for (std::size_t k = 0; k < results.size(); ++k) {
    const Result& r = results[k];
    if (Bits(r.value) != Bits(expected[k])) {
      std::array<char, 200> text{};
      std::snprintf(text.data(), text.size(), "%s %d, %d (result %zu) is %a, not %a", r.what, r.i,
                    r.j, k, r.value, expected[k]);
      Fail(text.data());
    }
  }
}

// What an accumulator leaves in its batch is what the definition leaves, too.
template <class Batch>
void RequireSameCases(Batch& batch, Batch& expected) {
  const auto isSame = [&batch](const double* x, const double* y) {
    for (unsigned int row = 0; x && row < batch.NRows(); ++row) {
      if (Bits(x[row]) != Bits(y[row])) {
        return false;
      }
    }
    return true;
  };
  for (unsigned int c = 0; c < batch.NColumns(); ++c) {
    Require(isSame(batch.Column(c), expected.Column(c)), "another column is left in the batch");
  }
  Require(isSame(batch.Weights(), expected.Weights()), "other weights are left in the batch");
}

template <class Accumulator>
void RequireKept(const Accumulator& accumulator) {
  const auto state = Save(accumulator);
  Require(Save(*Load<Accumulator>(state)) == state, "a state is not loaded as it was saved");
}

// An accumulator and what it should be.
template <class Accumulator, class Definition>
struct Defined {
  std::unique_ptr<Accumulator> accumulator;
  Definition definition;

  template <class MakeBatch>
  void Add(Input& input, const Cases& cases, MakeBatch makeBatch) {
    const auto batch = makeBatch(cases);
    const auto plain = makeBatch(cases);
    if (!cases.rows.empty()) {
      definition.Add(*plain);
    }
    {
      const HostsRounding rounding(input);
      *accumulator += *batch;
    }
    RequireSameCases(*batch, *plain);
  }

  void Merge(Input& input, const Defined& other) {
    definition.Merge(other.definition);
    const HostsRounding rounding(input);
    *accumulator += *other.accumulator;
  }
};

// Adds batches to some accumulators and merges these, comparing after each step.
//   empty      the definition, of no cases
//   make       makes an empty accumulator
//   makeBatch  makes a batch of the cases
//   read       reads the accumulator's results
template <class Definition, class Make, class MakeBatch, class Read>
void CompareWithDefinition(Input& input, const CaseShape& shape, const Definition& empty, Make make,
                           MakeBatch makeBatch, Read read) {
  constexpr unsigned int kParts = 3;
  constexpr unsigned int kMostSteps = 5;
  std::vector<Defined<typename decltype(make())::element_type, Definition>> parts;
  for (unsigned int i = 0; i < kParts; ++i) {
    parts.push_back({make(), empty});
  }
  for (unsigned int step = 0; step < kMostSteps && !input.IsUsedUp(); ++step) {
    const unsigned int to = input.Below(kParts);
    auto& part = parts[to];
    if (input.Below(3) == 2) {
      part.Merge(input, parts[(to + 1 + input.Below(kParts - 1)) % kParts]);
    } else {
      part.Add(input, DrawCases(input, shape), makeBatch);
    }
    RequireSame(read(*part.accumulator), part.definition.Results(),
                0. < part.accumulator->WeightSum());
  }
  RequireKept(*parts[0].accumulator);
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): the parts own their accumulators

// Adds blocks to forests in order and in any order: the forests and their results have the same
// bytes.
template <class Make, class MakeBatch>
void CompareForests(Input& input, const CaseShape& shape, Make make, MakeBatch makeBatch) {
  constexpr std::uint64_t kBlockRows = 300;
  using Accumulator = typename decltype(make())::element_type;
  const auto empty = make();
  BlockForest<Accumulator> inOrder(kBlockRows, *empty);
  std::array forests{BlockForest<Accumulator>(kBlockRows, *empty),
                     BlockForest<Accumulator>(kBlockRows, *empty)};
  std::vector<std::uint64_t> order(1 + input.Below(9));
  std::iota(order.begin(), order.end(), std::uint64_t{0});
  std::vector<Cases> blocks;
  const auto add = [&](std::uint64_t block, auto& forest) {
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
template <class Definition, class Make, class MakeBatch, class Read>
void Exercise(Input& input, const CaseShape& shape, const Definition& empty, Make make,
              MakeBatch makeBatch, Read read) {
  if (input.Below(4) == 3) {
    CompareForests(input, shape, make, makeBatch);
  } else {
    CompareWithDefinition(input, shape, empty, make, makeBatch, read);
  }
}

}  // namespace velmor::test
