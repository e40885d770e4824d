#pragma once

#include <velmor/blockforest.h>
#include <velmor/stateerror.h>

#include <cstddef>
#include <memory>
#include <vector>

#pragma GCC visibility push(default)
namespace velmor {

// Accumulators and forests as bytes, to be kept in files or sent to other processes. Equal results
// have equal bytes, on every machine. docs/state-format.md describes the bytes; every later version
// of the library reads them.
//
// State is one of the eight accumulators, MatrixBase, or a BlockForest of one of these. The bytes
// of a MatrixBase are its own class's, and so are a forest's of them. Both functions leave the
// caller's floating-point environment as it is, exception flags included.

// The bytes of a state. O(number of bytes). A node takes 64 bytes for each pair, up to 56 for each
// variable that is accumulated pairwise, 8 for each other number, and 16 besides; the whole takes
// 80 more. Asserts that there are batches that fit the state's shape. Throws std::bad_alloc, and
// std::invalid_argument when a MatrixBase is of a class that is not the library's.
template <class State>
[[gnu::visibility("default")]] std::vector<std::byte> Save(const State& state);

// The state whose bytes these are, all of them. The bytes are not trusted: whatever they are, the
// memory taken is at most some twenty times their number (by empty nodes; by records twice), and a
// loaded state can be used like any other. To merge loaded accumulators that one does not trust,
// add them to a BlockForest, which checks that they can be merged and counted. Throws StateError
// when the bytes are not a state of this type, or have been changed or cut; std::bad_alloc.
template <class State>
[[gnu::visibility("default")]] std::unique_ptr<State> Load(const std::byte* bytes,
                                                           std::size_t size);

template <class State>
std::unique_ptr<State> Load(const std::vector<std::byte>& bytes) {
  return Load<State>(bytes.data(), bytes.size());
}

}  // namespace velmor
#pragma GCC visibility pop
