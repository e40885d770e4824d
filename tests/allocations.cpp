// allocations.cpp: a counting operator new, in a file of its own so that it is never inlined.
#include "allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace velmor::test {
Allocations allocations{0, 0};
}

void* operator new(std::size_t size) {
  if (void* const memory = std::malloc(size)) {
    ++velmor::test::allocations.count;
    velmor::test::allocations.bytes += malloc_usable_size(memory) + sizeof(std::size_t);
    return memory;
  }
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
