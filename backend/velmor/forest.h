#pragma once

// What a BlockForest keeps.

#include <velmor/blockforest.h>

#include "record/shape.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

namespace velmor {

// The blocks of a node: 2^level of them, the first being a multiple of 2^level.
struct BlockRange {
  std::uint64_t first;
  unsigned int level;

  std::uint64_t Count() const { return std::uint64_t{1} << level; }
  std::uint64_t Last() const { return first + (Count() - 1); }
  // The other child of the node's parent.
  BlockRange Sibling() const { return {first ^ Count(), level}; }
};

// Blocks are numbered below this, so that no node has a level above kMostBlocksLevel.
constexpr unsigned int kMostBlocksLevel = 63;
constexpr std::uint64_t kMostBlocks = std::uint64_t{1} << kMostBlocksLevel;

template <class Accumulator>
struct BlockForest<Accumulator>::Data {
  struct Node {
    unsigned int level;
    std::unique_ptr<Accumulator> value;  // null while it is being merged
  };
  // The nodes by their first blocks. They cover different blocks.
  using Nodes = std::map<std::uint64_t, Node>;

  Data(std::uint64_t rowsOfBlock, const Shape& shapeOfAll)
      : blockRows(rowsOfBlock), ownShape(shapeOfAll), shape(shapeOfAll) {}

  // Throws std::invalid_argument when one of these blocks is there.
  void CheckFree(BlockRange blocks) const;
  // Throws std::length_error when so many cases more could not be counted.
  void CheckCount(std::uint64_t rows) const;
  // Takes the accumulator of these blocks, or throws what Add throws.
  void Insert(BlockRange blocks, std::unique_ptr<Accumulator> value);
  // Merges a node with its sibling, the result with its own and so on, as long as there are any.
  // Returns the node that it became. The lock is held, but for the merges.
  typename Nodes::iterator Grow(typename Nodes::iterator node, std::unique_lock<std::mutex>& lock);
  // Makes up for merges that were put off, so that no two siblings remain.
  void GrowAll();
  // All nodes merged with what is behind them: from the last node to the first, each takes up what
  // is behind it. That is what became of them if the blocks behind were added. The nodes stay as
  // they are.
  std::unique_ptr<Accumulator> Fold(std::unique_ptr<Accumulator> behind);

  mutable std::mutex mutex;  // around all below
  std::uint64_t blockRows;
  Shape ownShape;  // as it was given
  Shape shape;     // as far as it is known
  std::uint64_t nBlocks = 0;
  std::uint64_t nRows = 0;  // of the blocks when they came: nodes drop cases that weigh nothing
  Nodes nodes;
};

}  // namespace velmor
