#pragma once

#include <cstddef>
#include <limits>

namespace velmor::test {

// What `new` has done so far in a program that is linked with allocations.cpp, and what it is to
// do. Any thread may allocate; these are for a time when no other thread does.
struct Allocations {
  static constexpr int kNever = std::numeric_limits<int>::max();

  std::size_t count = 0;    // allocations made
  std::size_t bytes = 0;    // their bytes, with the heap's own word for each
  std::size_t scratch = 0;  // allocations of aligned memory, apart: it stays with its thread
  std::size_t scratchBytes = 0;
  std::size_t alive = 0;   // allocations of both kinds that have not been deleted
  int failAfter = kNever;  // allocations to go until one throws, below 0 once it has
};
extern Allocations allocations;

}  // namespace velmor::test
