#pragma once

#include <velmor/DiscriminantMatrix.h>
#include <velmor/DscIndividualMatrix.h>
#include <velmor/matrixlistwise.h>
#include <velmor/matrixpairwise.h>
#include <velmor/nsmatrixlistwise.h>
#include <velmor/nsmatrixpairwise.h>
#include <velmor/smatrixlistwise.h>
#include <velmor/smatrixpairwise.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// Merges the accumulators of a run's blocks in an order that depends on the blocks' numbers alone.
// So the result has the same bits on any number of threads and machines, in whatever order the
// blocks were done.
//
// The cases of a run are numbered in reading order and cut into blocks of a fixed number of rows,
// numbered from 0. A host accumulates each block into an accumulator of its own (NewLeaf) and adds
// it to the forest. Blocks pair up in a binary tree: node i of level l covers the blocks from
// i * 2^l up to (i + 1) * 2^l, and is its left half merged with its right half, `left += right`.
// Only nodes that can't be merged yet are kept: where blocks come about in order, about
// log2(blocks) nodes and one for each thread.
//
// Accumulator is one of the eight accumulators, or MatrixBase for the six that derive from it. Add
// and NewLeaf can be called by several threads at once, and merges run side by side; everything
// else is for one thread at a time. A forest that was moved from can only be destroyed or assigned
// to.
template <class Accumulator>
class BlockForest {
 public:
  // An empty forest.
  //   blockRows  rows of a block. A leaf can hold fewer cases: some were left out, or it is the
  //              run's last block
  //   shape      an accumulator of the class, bounds, groups and missing code that all leaves have;
  //              what it holds is not used. The first leaf settles bounds that the shape leaves
  //              open, such as the columns of SMatrixListwise()
  // Asserts 0 < blockRows and that there are batches that fit the shape. Throws std::bad_alloc, and
  // std::invalid_argument when a MatrixBase is of a class that is not the library's.
  BlockForest(std::uint64_t blockRows, const Accumulator& shape);
  ~BlockForest();
  BlockForest(BlockForest&& other) noexcept;
  BlockForest& operator=(BlockForest&& other) noexcept;

  // An empty accumulator of the forest's shape. Throws std::bad_alloc.
  std::unique_ptr<Accumulator> NewLeaf() const;

  // Takes the accumulator of a block, and merges what can be merged with it, on this thread.
  //   block  its number, below 2^63
  // Throws std::invalid_argument, which names the block and the difference, when the block is there
  // already, when the leaf's shape is not the forest's, or when the leaf holds more cases than a
  // block has rows; std::length_error when the accumulator could not count all cases;
  // std::bad_alloc. The forest is then as it was. A merge that runs out of memory is put off.
  // Asserts that there is a leaf and that the block's number is below 2^63.
  void Add(std::uint64_t block, std::unique_ptr<Accumulator> leaf);

  // Takes all nodes of a forest over other blocks and leaves it empty. Throws as Add does, and
  // std::invalid_argument when the two have blocks of different size; both are then as they were.
  // Asserts that the two are different forests.
  void Merge(BlockForest&& other);

  // All blocks merged: the nodes that remain, from the last to the first, each taking up what is
  // behind it. An empty forest has an empty result. The forest stays as it is, so blocks can be
  // added afterwards. Throws std::bad_alloc, and std::invalid_argument unless the blocks are 0, 1,
  // 2, ... without a gap; it names the first block that is missing.
  std::unique_ptr<Accumulator> Result() const;

  std::uint64_t BlockRows() const;
  std::uint64_t NBlocks() const;  // blocks added
  std::uint64_t NRows() const;    // cases in the blocks when they were added
  std::size_t NNodes() const;     // nodes that are kept

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
