// allocations.cpp: a counting operator new, in a file of its own so that it is never inlined.
#include "allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace velmor::test {
Allocations allocations;
}

using velmor::test::Allocations;
using velmor::test::allocations;

// NOLINTBEGIN(cppcoreguidelines-no-malloc): this is new and delete
namespace {

bool IsToFail() {
  const std::atomic_ref toGo(allocations.failAfter);
  return toGo != Allocations::kNever && toGo-- == 0;
}

// What malloc gives, unless it is this allocation's turn to fail.
template <class Malloc>
void* Allocate(Malloc malloc) {
  void* const memory = IsToFail() ? nullptr : malloc();
  if (!memory) {
    throw std::bad_alloc();
  }
  ++std::atomic_ref(allocations.alive);
  return memory;
}

void Free(void* memory) noexcept {
  if (memory) {
    --std::atomic_ref(allocations.alive);
    std::free(memory);
  }
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = Allocate([size] { return std::malloc(size); });
  ++std::atomic_ref(allocations.count);
  std::atomic_ref(allocations.bytes) += malloc_usable_size(memory) + sizeof(std::size_t);
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* memory) noexcept { Free(memory); }

// What a thread keeps for its next operation.
void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto step = static_cast<std::size_t>(alignment);
  void* const memory =
      Allocate([=] { return std::aligned_alloc(step, (size + step - 1) / step * step); });
  ++std::atomic_ref(allocations.scratch);
  std::atomic_ref(allocations.scratchBytes) += size;
  return memory;
}
void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*nothrow*/) noexcept {
  try {
    return operator new(size, alignment);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { Free(memory); }
// NOLINTEND(cppcoreguidelines-no-malloc)
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }

// A sanitizer brings its own of these, which would not be counted.
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void* memory) noexcept { operator delete(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }
