// Fuzzes Load of every class and forest: bytes are refused with a StateError, or make a state that
// has just these bytes and can be used like any other. They are tried as they are and with a length
// and a hash that fit, as nearly all would be refused for these.
#include <velmor/velmor.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "../accumulators.h"
#include "../allocations.h"
#include "input.h"

#include <cstring>
#include <stdexcept>

namespace velmor::test {
namespace {

using Bytes = std::vector<std::byte>;

// Places of the header's fields (docs/state-format.md).
constexpr std::size_t kKindAt = 12;
constexpr std::size_t kClassAt = 14;
constexpr std::size_t kSizeAt = 16;
constexpr std::size_t kFlagsAt = 24;
constexpr std::size_t kBoundsAt = 28;
constexpr std::size_t kHeaderSize = 72;

template <class Number>
Number NumberAt(const Bytes& bytes, std::size_t at) {
  Number number = 0;
  std::memcpy(&number, &bytes[at], sizeof(number));
  return number;
}

void Repair(Bytes& bytes) {
  const std::uint64_t size = bytes.size();
  std::memcpy(&bytes[kSizeAt], &size, sizeof(size));
  const std::uint64_t hash = XXH64(bytes.data(), size - sizeof(hash), 0);
  std::memcpy(&bytes[size - sizeof(hash)], &hash, sizeof(hash));
}

// The state that these bytes are, null if they are none.
template <class State>
std::unique_ptr<State> LoadIfAny(const Bytes& bytes) {
  std::unique_ptr<State> state;
  const std::size_t before = allocations.bytes;
  try {
    state = Load<State>(bytes);
  } catch (const StateError&) {  // NOLINT(bugprone-empty-catch): they are none
  }
  // An accumulator, an error's message and the like are not counted by the state's bytes.
  Require(allocations.bytes - before <= 20 * bytes.size() + 2000,
          "too much memory for a state of this size");
  if (!state) {
    return nullptr;
  }
  Require(Save(*state) == bytes, "a state has other bytes than it was loaded from");
  return state;
}

template <class State>
void RequireLoadable(const State& state) {
  const Bytes bytes = Save(state);
  Require(Save(*Load<State>(bytes)) == bytes, "what became of a state is not loaded");
}

// Adds to a forest, or does not because it has too many cases or that block already.
template <class Accumulator>
void Add(BlockForest<Accumulator>& forest, std::uint64_t block, std::unique_ptr<Accumulator> leaf) {
  try {
    forest.Add(block, std::move(leaf));
  } catch (const std::length_error&) {      // NOLINT(bugprone-empty-catch)
  } catch (const std::invalid_argument&) {  // NOLINT(bugprone-empty-catch)
  }
  RequireLoadable(forest);
}

constexpr int kMostColumns = 40;

// The columns and groups that batches for a state have to have, by the state's bounds.
struct BatchShape {
  explicit BatchShape(const Bytes& state)
      : isByGroup(NumberAt<std::uint16_t>(state, kClassAt) > 6),
        hasRegWeights(NumberAt<std::uint32_t>(state, kFlagsAt) == 3) {
    const auto bound = [&](std::size_t i) {
      return std::int64_t{NumberAt<std::int32_t>(state, kBoundsAt + sizeof(std::int32_t) * i)};
    };
    groups = isByGroup ? bound(0) : 1;
    columns = isByGroup ? bound(1) : std::max(bound(2), bound(0) + 1);
  }
  // An accumulator of no groups and no variables takes no batch.
  bool IsSmall() const {
    return 0 < columns && columns <= kMostColumns && 0 < groups && groups <= kMostColumns;
  }

  std::int64_t columns = 0;
  std::int64_t groups = 0;
  bool isByGroup;
  bool hasRegWeights;
};

template <class Accumulator>
void AddBatch(Accumulator& accumulator, const BatchShape& shape) {
  Cases cases;
  for (unsigned int row = 0; row < 3; ++row) {
    cases.rows.emplace_back(static_cast<std::size_t>(shape.columns), 0.1 + row);
    cases.weights.push_back(1. + row);
    cases.groups.push_back(0);
  }
  const auto columns = static_cast<unsigned int>(shape.columns);
  if constexpr (std::is_same_v<Accumulator, DiscIndividualMatrix>) {
    accumulator += *GroupedBatch(cases, columns, static_cast<unsigned int>(shape.groups));
  } else {
    if (shape.hasRegWeights) {
      cases.regWeights = cases.weights;
    }
    accumulator += *Batch(cases, columns);
  }
}

// Merges an accumulator in a forest, which counts the cases first, and adds some if it can surely
// count these.
template <class Accumulator>
void UseAccumulator(const Bytes& bytes) {
  const std::unique_ptr<Accumulator> accumulator = LoadIfAny<Accumulator>(bytes);
  if (!accumulator) {
    return;
  }
  BlockForest<Accumulator> forest(std::uint64_t{1} << 62U, *accumulator);
  Add(forest, 2, Load<Accumulator>(bytes));
  Add(forest, 0, Load<Accumulator>(bytes));
  const BatchShape shape(bytes);
  if (shape.IsSmall() && accumulator->NRows() < (1U << 30U)) {
    AddBatch(*accumulator, shape);
    RequireLoadable(*accumulator);
    auto leaf = forest.NewLeaf();
    AddBatch(*leaf, shape);
    Add(forest, 1, std::move(leaf));
    try {
      RequireLoadable(*forest.Result());
    } catch (const std::invalid_argument&) {  // NOLINT(bugprone-empty-catch): a block was refused
    }
  }
}

template <class Accumulator>
void UseForest(const Bytes& bytes) {
  using Forest = BlockForest<Accumulator>;
  const std::unique_ptr<Forest> forest = LoadIfAny<Forest>(bytes);
  if (!forest) {
    return;
  }
  try {
    forest->Merge(std::move(*Load<Forest>(bytes)));
    Require(forest->NBlocks() == 0, "a block was added twice");
  } catch (const std::invalid_argument&) {  // NOLINT(bugprone-empty-catch): blocks are there
  } catch (const std::length_error&) {      // NOLINT(bugprone-empty-catch)
  }
  Require(Save(*forest) == bytes, "a refused forest left something");
  const BatchShape shape(bytes);
  if (shape.IsSmall()) {
    for (const std::uint64_t block : {0U, 1U, 7U}) {
      auto leaf = forest->NewLeaf();
      AddBatch(*leaf, shape);
      Add(*forest, block, std::move(leaf));
    }
  }
  try {
    RequireLoadable(*forest->Result());
  } catch (const std::invalid_argument&) {  // NOLINT(bugprone-empty-catch): a block is missing
  }
}

template <class Accumulator>
void Use(const Bytes& bytes) {
  if (NumberAt<std::uint16_t>(bytes, kKindAt) == 2) {
    UseForest<Accumulator>(bytes);
    LoadIfAny<Accumulator>(bytes);
  } else {
    UseAccumulator<Accumulator>(bytes);
    LoadIfAny<BlockForest<Accumulator>>(bytes);
  }
}

void UseAny(const Bytes& bytes) {
  const auto number = NumberAt<std::uint16_t>(bytes, kClassAt);
  [&]<std::size_t... kPlace>(std::index_sequence<kPlace...>) {
    ((kPlace == (number - 1U) % sizeof...(kPlace)
          ? Use<std::tuple_element_t<kPlace, Classes>>(bytes)
          : void()),
     ...);
  }
  (std::make_index_sequence<std::tuple_size_v<Classes>>());
  if (number != 8) {  // which takes other batches
    Use<MatrixBase>(bytes);
  }
}

}  // namespace
}  // namespace velmor::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size) {
  using namespace velmor::test;  // NOLINT(google-build-using-namespace)
  Bytes bytes(size);
  std::transform(input, input + size, bytes.begin(), [](auto byte) { return std::byte{byte}; });
  if (size < kHeaderSize) {
    LoadIfAny<velmor::MatrixBase>(bytes);
    return 0;
  }
  UseAny(bytes);
  Repair(bytes);
  UseAny(bytes);
  return 0;
}
