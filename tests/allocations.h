#pragma once

#include <cstddef>

namespace velmor::test {

// What `new` has handed out so far in a program that is linked with allocations.cpp: how often, and
// how many bytes with the heap's own word for each. Not for programs with several threads.
struct Allocations {
  std::size_t count;
  std::size_t bytes;
};
extern Allocations allocations;

}  // namespace velmor::test
