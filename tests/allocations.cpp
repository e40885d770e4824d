// allocations.cpp: a counting operator new, in a file of its own so that it is never inlined.
#include "allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace velmor::test {
Allocations allocations;
}

using velmor::test::Allocations;
using velmor::test::allocations;

void* operator new(std::size_t size) {
  if (allocations.failAfter != Allocations::kNever && allocations.failAfter-- == 0) {
    throw std::bad_alloc();
  }
  void* const memory = std::malloc(size);  // NOLINT(cppcoreguidelines-no-malloc): is new
  if (!memory) {
    throw std::bad_alloc();
  }
  ++allocations.count;
  ++allocations.alive;
  allocations.bytes += malloc_usable_size(memory) + sizeof(std::size_t);
  return memory;
}
void operator delete(void* memory) noexcept {
  if (memory) {
    --allocations.alive;
    std::free(memory);  // NOLINT(cppcoreguidelines-no-malloc): is delete
  }
}
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }

// A sanitizer brings its own of these, which would not be counted.
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void* memory) noexcept { operator delete(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
