#pragma once

#include <cstddef>
#include <limits>

namespace velmor::test {

// What `new` has done so far in a program that is linked with allocations.cpp, and what it is to
// do. Not for programs with several threads.
struct Allocations {
  static constexpr int kNever = std::numeric_limits<int>::max();

  std::size_t count = 0;    // allocations made
  std::size_t bytes = 0;    // their bytes, with the heap's own word for each
  std::size_t alive = 0;    // those that have not been deleted
  std::size_t scratch = 0;  // of aligned memory, apart: it stays with its thread
  int failAfter = kNever;   // allocations to go until one throws
};
extern Allocations allocations;

}  // namespace velmor::test
