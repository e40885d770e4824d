// state.cpp: accumulators and forests as bytes; start at Head and StateFormat, the format.
#include <velmor/state.h>

#include "accumulators.h"
#include "forest.h"
#include "ordered/floatenvironment.h"
#include "record/internals.h"

#include <array>
#include <bit>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace velmor {

namespace {

enum class Content : std::uint16_t { Accumulator = 1, Forest = 2 };

// What stands before the nodes. An accumulator is saved as the only node of a forest.
struct Head {
  // The first byte is no text, and a transfer that takes the whole for text changes the last one.
  static constexpr std::array<unsigned char, 8> kMagic{0x89, 'V', 'E', 'L', 'M', 'O', 'R', '\n'};
  static constexpr std::uint32_t kVersion = 1;
  static constexpr std::size_t kSizeAt = 16;
  static constexpr std::uint32_t kHasCases = 1;
  static constexpr std::uint32_t kHasRegWeights = 2;

  Content content{};
  std::uint64_t size = 0;  // of the state, in bytes
  Shape shape;
  std::uint64_t blockRows = 0;  // of a forest
  std::uint64_t cases = 0;
  std::uint64_t nodes = 1;
};

void Write(const Head& head, StateWriter& state) {
  for (const unsigned char c : Head::kMagic) {
    state.Number(c);
  }
  const Shape& shape = head.shape;
  state.Number(Head::kVersion);
  state.Number(static_cast<std::uint16_t>(head.content));
  state.Number(static_cast<std::uint16_t>(shape.kind));
  state.Number(head.size);
  state.Number((shape.hasCases ? Head::kHasCases : 0U) |
               (shape.hasRegWeights ? Head::kHasRegWeights : 0U));
  for (const std::int32_t bound : shape.bounds) {
    state.Number(bound);
  }
  state.Number(shape.missingCode);
  state.Number(head.blockRows);
  state.Number(head.cases);
  state.Number(head.nodes);
}

template <class Enum>
void ReadEnum(StateReader& state, Enum& value) {
  std::underlying_type_t<Enum> number = 0;
  state.Number(number);
  value = static_cast<Enum>(number);
}

void ReadMagic(StateReader& state) {
  for (const unsigned char c : Head::kMagic) {
    unsigned char found = 0;
    state.Number(found);
    if (found != c) {
      throw StateError("not a state: it does not begin like one");
    }
  }
  std::uint32_t version = 0;
  state.Number(version);
  if (version != Head::kVersion) {
    throw StateError("a state of format version " + std::to_string(version) +
                     ", which this version of the library does not read");
  }
}

// Reads a head. Its values are possible ones.
//   content, isKind  what the state should be
template <class IsKind>
Head ReadHead(StateReader& state, Content content, IsKind isKind) {
  ReadMagic(state);
  Head head;
  ReadEnum(state, head.content);
  ReadEnum(state, head.shape.kind);
  state.Number(head.size);
  if (head.size != state.Size()) {
    throw StateError("the state has " + std::to_string(state.Size()) + " bytes and should have " +
                     std::to_string(head.size));
  }
  state.CheckHash();
  state.Check(head.content == content, content == Content::Forest
                                           ? "this is not the state of a forest"
                                           : "this is not the state of an accumulator");
  state.Check(isKind(head.shape.kind), "this is the state of an accumulator of another class");
  std::uint32_t flags = 0;
  state.Number(flags);
  state.Check(flags <= (Head::kHasCases | Head::kHasRegWeights) && flags != Head::kHasRegWeights,
              "unknown flags");
  head.shape.hasCases = (flags & Head::kHasCases) != 0;
  head.shape.hasRegWeights = (flags & Head::kHasRegWeights) != 0;
  state.Check(!head.shape.hasRegWeights || !head.shape.IsByGroup(), "unknown flags");
  for (std::int32_t& bound : head.shape.bounds) {
    state.Number(bound);
  }
  state.Check(head.shape.IsPossible(), "bounds that no accumulator has");
  state.Number(head.shape.missingCode);
  state.Check(head.shape.IsPairwise() || std::bit_cast<std::uint64_t>(head.shape.missingCode) == 0,
              "a missing code");
  state.Number(head.blockRows);
  state.Check((head.blockRows != 0) == (content == Content::Forest), "the rows of a block");
  state.Count(head.cases, head.shape.Facts().mostRows);
  state.Check((head.cases != 0) == head.shape.hasCases, "the number of cases");
  state.Number(head.nodes);
  return head;
}

// A node's level, whether it holds cases, and its index in the level.
void WriteNodeHead(BlockRange blocks, bool hasCases, StateWriter& state) {
  state.Number(std::uint32_t{blocks.level});
  state.Number(hasCases ? 1U : 0U);
  state.Number(blocks.first >> blocks.level);
}

BlockRange ReadNodeHead(StateReader& state, bool& hasCases) {
  std::uint32_t level = 0;
  std::uint32_t flags = 0;
  std::uint64_t index = 0;
  state.Number(level);
  state.Number(flags);
  state.Number(index);
  state.Check(level <= kMostBlocksLevel && index < kMostBlocks >> level, "an impossible node");
  state.Check(flags <= 1, "unknown flags of a node");
  hasCases = flags == 1;
  return {index << level, level};
}

template <class Accumulator>
void WriteNode(BlockRange blocks, const Accumulator& value, StateWriter& state) {
  const bool hasCases = value.NRows() != 0;
  WriteNodeHead(blocks, hasCases, state);
  if (hasCases) {
    StateOf<Accumulator>::Write(value, state);
  }
}

template <class Accumulator>
std::unique_ptr<Accumulator> ReadNode(const Shape& shape, StateReader& state, BlockRange& blocks) {
  bool hasCases = false;
  blocks = ReadNodeHead(state, hasCases);
  state.Check(shape.hasCases || !hasCases, "a node with cases where none have come");
  return hasCases ? StateOf<Accumulator>::Read(shape, state) : StateOf<Accumulator>::Make(shape);
}

template <class Accumulator>
struct StateFormat {
  static std::vector<std::byte> Save(const Accumulator& accumulator) {
    const Shape shape = StateOf<Accumulator>::GetShape(accumulator);
    VELMOR_ASSERT(shape.IsPossible());
    StateWriter state;
    Write({Content::Accumulator, 0, shape, 0, accumulator.NRows()}, state);
    WriteNode({0, 0}, accumulator, state);
    return state.Finish(Head::kSizeAt);
  }

  static std::unique_ptr<Accumulator> Load(StateReader& state) {
    const Head head = ReadHead(state, Content::Accumulator, StateOf<Accumulator>::Is);
    BlockRange blocks{};
    auto accumulator = ReadNode<Accumulator>(head.shape, state, blocks);
    state.Check(head.nodes == 1 && blocks.first == 0 && blocks.level == 0, "more than one node");
    state.Check(accumulator->NRows() == head.cases, "cases that are not there");
    return accumulator;
  }
};

template <class Accumulator>
struct StateFormat<BlockForest<Accumulator>> {
  using Forest = BlockForest<Accumulator>;

  static std::vector<std::byte> Save(const Forest& forest) {
    auto& my = Internals::DataOf(forest);
    my.GrowAll();
    StateWriter state;
    Write({Content::Forest, 0, my.shape, my.blockRows, my.nRows, my.nodes.size()}, state);
    for (const auto& [first, node] : my.nodes) {
      WriteNode({first, node.level}, *node.value, state);
    }
    return state.Finish(Head::kSizeAt);
  }

  static std::unique_ptr<Forest> Load(StateReader& state) {
    const Head head = ReadHead(state, Content::Forest, StateOf<Accumulator>::Is);
    auto forest = std::make_unique<Forest>(head.blockRows, *StateOf<Accumulator>::Make(head.shape));
    auto& my = Internals::DataOf(*forest);
    std::uint64_t firstPossible = 0;
    for (std::uint64_t i = 0; i < head.nodes; ++i) {
      BlockRange blocks{};
      auto value = ReadNode<Accumulator>(head.shape, state, blocks);
      state.Check(blocks.first >= firstPossible, "nodes that are not in ascending order");
      firstPossible = blocks.Last() + 1;
      try {
        my.Insert(blocks, std::move(value));
      } catch (const std::logic_error& error) {
        state.Fail(error.what());
      }
      state.Check(my.nodes.size() == i + 1, "two nodes that should have been merged");
    }
    // Nodes hold fewer cases than have come where some weigh nothing.
    state.Check(my.shape.hasCases == head.shape.hasCases && my.nRows <= head.cases &&
                    (head.cases == 0 || (head.cases - 1) / head.blockRows < my.nBlocks),
                "a number of cases that the blocks can't have");
    my.nRows = head.cases;
    return forest;
  }
};

}  // namespace

template <class State>
std::vector<std::byte> Save(const State& state) {
  // Asking whether a number is NaN raises a flag when it is a signalling NaN.
  const DefaultFloatEnvironment environment;
  return StateFormat<State>::Save(state);
}

template <class State>
std::unique_ptr<State> Load(const std::byte* bytes, std::size_t size) {
  const DefaultFloatEnvironment environment;  // as in Save
  StateReader reader({bytes, size});
  std::unique_ptr<State> state = StateFormat<State>::Load(reader);
  reader.Check(reader.IsAtEnd(), "there are bytes too many");
  return state;
}

namespace {

template <class State>
using Saves = std::vector<std::byte> (*)(const State&);
template <class State>
using Loads = std::unique_ptr<State> (*)(const std::byte*, std::size_t);

template <class... Accumulators>
constexpr auto StateFunctions(ClassList<Accumulators...> /*all*/) {
  return std::tuple(Saves<Accumulators>(Save)..., Saves<BlockForest<Accumulators>>(Save)...,
                    Loads<Accumulators>(Load)..., Loads<BlockForest<Accumulators>>(Load)...);
}

[[gnu::used]] constexpr auto kStateFunctions = StateFunctions(AllAccumulators());

}  // namespace

}  // namespace velmor
