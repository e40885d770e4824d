// blockforest.cpp: merging in an order that depends on the blocks alone; start at Data::Grow.
#include <velmor/blockforest.h>

#include "accumulators.h"
#include "forest.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace velmor {

template <class Accumulator>
void BlockForest<Accumulator>::Data::CheckFree(BlockRange blocks) const {
  const auto next = nodes.upper_bound(blocks.Last());
  if (next == nodes.begin()) {
    return;
  }
  const auto& [first, node] = *std::prev(next);
  if (BlockRange{first, node.level}.Last() >= blocks.first) {
    throw std::invalid_argument("block " + std::to_string(std::max(first, blocks.first)) +
                                " is there already; each block is added once");
  }
}

template <class Accumulator>
void BlockForest<Accumulator>::Data::CheckCount(std::uint64_t rows) const {
  if (rows > shape.Facts().mostRows - nRows) {
    throw std::length_error("more cases than this accumulator can count, " +
                            std::to_string(shape.Facts().mostRows));
  }
}

template <class Accumulator>
void BlockForest<Accumulator>::Data::Insert(BlockRange blocks, std::unique_ptr<Accumulator> value) {
  const Shape shapeOfValue = StateOf<Accumulator>::GetShape(*value);
  const std::uint64_t rows = value->NRows();
  std::unique_lock lock(mutex);
  CheckFree(blocks);
  const std::string difference = Difference(shapeOfValue, shape);
  if (!difference.empty()) {
    throw std::invalid_argument("block " + std::to_string(blocks.first) +
                                " does not belong to the others: it has " + difference);
  }
  if (rows != 0 && (rows - 1) / blocks.Count() >= blockRows) {
    throw std::invalid_argument("block " + std::to_string(blocks.first) +
                                " has too many cases: " + std::to_string(rows) +
                                ", where a block has " + std::to_string(blockRows) + " rows");
  }
  if (!shapeOfValue.IsPossible()) {
    throw std::invalid_argument("block " + std::to_string(blocks.first) +
                                " does not belong to the others: no batch fits its bounds");
  }
  CheckCount(rows);
  const auto node = nodes.emplace(blocks.first, Node{blocks.level, std::move(value)}).first;
  shape = Joined(shape, shapeOfValue);
  nBlocks += blocks.Count();
  nRows += rows;
  try {
    Grow(node, lock);
  } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch)
    // The node is there and nothing is lost: GrowAll makes up for it, before any result.
  }
}

template <class Accumulator>
auto BlockForest<Accumulator>::Data::Grow(typename Nodes::iterator node,
                                          std::unique_lock<std::mutex>& lock) ->
    typename Nodes::iterator {
  for (;;) {
    auto sibling = nodes.find(BlockRange{node->first, node->second.level}.Sibling().first);
    if (sibling == nodes.end() || sibling->second.level != node->second.level ||
        !sibling->second.value) {
      return node;  // a sibling that is being merged itself will look for this one
    }
    const bool isLeft = node->first < sibling->first;
    const auto left = isLeft ? node : sibling;
    const auto right = isLeft ? sibling : node;
    // Both stay in their places without their values, so that no other thread takes them.
    std::unique_ptr<Accumulator> whole = std::move(left->second.value);
    std::unique_ptr<Accumulator> half = std::move(right->second.value);
    lock.unlock();
    try {
      *whole += *half;
    } catch (...) {
      lock.lock();
      left->second.value = std::move(whole);
      right->second.value = std::move(half);
      throw;
    }
    half.reset();
    lock.lock();
    left->second = {left->second.level + 1, std::move(whole)};
    node = left;
    nodes.erase(right);
  }
}

template <class Accumulator>
void BlockForest<Accumulator>::Data::GrowAll() {
  std::unique_lock lock(mutex);
  for (auto node = nodes.begin(); node != nodes.end(); ++node) {
    node = Grow(node, lock);
  }
}

template <class Accumulator>
std::unique_ptr<Accumulator> BlockForest<Accumulator>::Data::Fold(
    std::unique_ptr<Accumulator> behind) {
  GrowAll();
  // Copies are merged: the nodes stay, for blocks to come.
  for (auto node = nodes.rbegin(); node != nodes.rend(); ++node) {
    std::unique_ptr<Accumulator> whole = StateOf<Accumulator>::Make(shape);
    *whole += *node->second.value;
    *whole += *behind;
    behind = std::move(whole);
  }
  return behind;
}

template <class Accumulator>
BlockForest<Accumulator>::BlockForest(std::uint64_t blockRows, const Accumulator& shape) {
  VELMOR_ASSERT(0 < blockRows);
  const Shape empty = EmptyShapeOf(shape);
  VELMOR_ASSERT(empty.IsPossible());
  _my = std::make_unique<Data>(blockRows, empty);
}

template <class Accumulator>
BlockForest<Accumulator>::~BlockForest() = default;
template <class Accumulator>
BlockForest<Accumulator>::BlockForest(BlockForest&& other) noexcept = default;
template <class Accumulator>
BlockForest<Accumulator>& BlockForest<Accumulator>::operator=(BlockForest&& other) noexcept =
    default;

template <class Accumulator>
std::unique_ptr<Accumulator> BlockForest<Accumulator>::NewLeaf() const {
  const std::lock_guard lock(_my->mutex);
  return StateOf<Accumulator>::Make(_my->shape);
}

template <class Accumulator>
void BlockForest<Accumulator>::Add(std::uint64_t block, std::unique_ptr<Accumulator> leaf) {
  VELMOR_ASSERT(block < kMostBlocks);
  VELMOR_ASSERT(leaf != nullptr);
  _my->Insert({block, 0}, std::move(leaf));
}

template <class Accumulator>
void BlockForest<Accumulator>::Merge(BlockForest&& other) {
  VELMOR_ASSERT(_my != other._my);
  Data& from = *other._my;
  if (_my->blockRows != from.blockRows) {
    throw std::invalid_argument("the forest does not belong to this one: it has blocks of " +
                                std::to_string(from.blockRows) + " rows, not of " +
                                std::to_string(_my->blockRows));
  }
  const std::string difference = Difference(from.shape, _my->shape);
  if (!difference.empty()) {
    throw std::invalid_argument("the forest does not belong to this one: it has " + difference);
  }
  // Their cases are no more than their blocks have rows, as both have blocks of one size.
  for (const auto& [first, node] : from.nodes) {
    _my->CheckFree({first, node.level});
  }
  _my->CheckCount(from.nRows);
  _my->nodes.merge(from.nodes);
  _my->shape = Joined(_my->shape, std::exchange(from.shape, from.ownShape));
  _my->nBlocks += std::exchange(from.nBlocks, 0);
  _my->nRows += std::exchange(from.nRows, 0);
  try {
    _my->GrowAll();
  } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch)
    // As in Insert.
  }
}

template <class Accumulator>
std::unique_ptr<Accumulator> BlockForest<Accumulator>::Result() const {
  _my->GrowAll();
  std::uint64_t expected = 0;
  for (const auto& [first, node] : _my->nodes) {
    if (first != expected) {
      throw std::invalid_argument("block " + std::to_string(expected) + " is missing");
    }
    expected += BlockRange{first, node.level}.Count();
  }
  return _my->Fold(NewLeaf());
}

template <class Accumulator>
std::uint64_t BlockForest<Accumulator>::BlockRows() const {
  return _my->blockRows;
}
template <class Accumulator>
std::uint64_t BlockForest<Accumulator>::NBlocks() const {
  return _my->nBlocks;
}
template <class Accumulator>
std::uint64_t BlockForest<Accumulator>::NRows() const {
  return _my->nRows;
}
template <class Accumulator>
std::size_t BlockForest<Accumulator>::NNodes() const {
  return _my->nodes.size();
}

template class BlockForest<MatrixBase>;
template class BlockForest<MatrixListwise>;
template class BlockForest<MatrixPairwise>;
template class BlockForest<SMatrixListwise>;
template class BlockForest<NSMatrixListwise>;
template class BlockForest<SMatrixPairwise>;
template class BlockForest<NSMatrixPairwise>;
template class BlockForest<DiscriminantMatrix>;
template class BlockForest<DiscIndividualMatrix>;

}  // namespace velmor
