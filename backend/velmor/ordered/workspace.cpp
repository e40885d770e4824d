// workspace.cpp: a stack of memory chunks for each thread; start at TakeBytes.
#include "ordered/workspace.h"

#include <algorithm>
#include <new>

#ifdef VELMOR_CHECKS_SCRATCH
#include <sanitizer/asan_interface.h>

#include <cstring>
#endif

namespace velmor::ordered {

namespace {
constexpr std::size_t kAlignment = 64;  // a cache line; the widest vector
}

// The head of a chunk; what can be taken follows it.
struct alignas(kAlignment) Chunk {
  Chunk* below;
  std::size_t size;
  std::size_t used;
};

namespace {

// Builds with AddressSanitizer check what is done with scratch memory: nobody may touch what is not
// taken, such as the gap after each array, and what is taken begins as NaN.
#ifdef VELMOR_CHECKS_SCRATCH
constexpr std::size_t kGap = 2048;  // as large as all tiles that a kernel takes at once, and more
void Forbid(const void* from, std::size_t bytes) { __asan_poison_memory_region(from, bytes); }
void Permit(void* from, std::size_t bytes) {
  __asan_unpoison_memory_region(from, bytes);
  std::memset(from, 0xFF, bytes);
}
#else
constexpr std::size_t kGap = 0;
void Forbid(const void* /*from*/, std::size_t /*bytes*/) {}
void Permit(void* /*from*/, std::size_t /*bytes*/) {}
#endif

std::byte* Begin(Chunk* chunk) { return static_cast<std::byte*>(static_cast<void*>(chunk + 1)); }

// Gives back what was taken of a chunk after the first `used` bytes.
void Untake(Chunk* chunk, std::size_t used) {
  Forbid(Begin(chunk) + used, chunk->used - used);
  chunk->used = used;
}

struct Memory {
  Chunk* top = nullptr;
  int depth = 0;  // workspaces that live

  Memory() = default;
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory() { Free(); }

  std::size_t Size() const {
    std::size_t size = 0;
    for (const Chunk* chunk = top; chunk != nullptr; chunk = chunk->below) {
      size += chunk->size;
    }
    return size;
  }

  // Puts a chunk of the given memory on top, unless that is null.
  void Push(void* bytes, std::size_t size) {
    if (bytes != nullptr) {
      top = new (bytes) Chunk{top, size, 0};
      Forbid(Begin(top), size);
    }
  }

  void Free() {
    while (top != nullptr) {
      Chunk* const below = top->below;
      ::operator delete (top, std::align_val_t{kAlignment});
      top = below;
    }
  }
};

thread_local Memory memory;

}  // namespace

Workspace::Workspace() : _top(memory.top), _used(memory.top ? memory.top->used : 0) {
  ++memory.depth;
}

Workspace::~Workspace() {
  if (memory.top == _top && _top != nullptr) {
    Untake(_top, _used);
  }
  if (--memory.depth > 0 || memory.top == nullptr) {
    return;
  }
  if (memory.top->below != nullptr) {
    // One chunk as large as all of them, so that the next time it is enough.
    const std::size_t size = memory.Size();
    memory.Free();
    memory.Push(::operator new (sizeof(Chunk) + size, std::align_val_t{kAlignment}, std::nothrow),
                size);
  } else {
    Untake(memory.top, 0);
  }
}

void* Workspace::TakeBytes(std::size_t bytes) {
  const std::size_t size = (bytes + kAlignment - 1) / kAlignment * kAlignment + kGap;
  if (memory.top == nullptr || memory.top->size - memory.top->used < size) {
    const std::size_t chunkSize = std::max(size, memory.Size());  // doubles what there is
    memory.Push(::operator new (sizeof(Chunk) + chunkSize, std::align_val_t{kAlignment}),
                chunkSize);
  }
  void* const taken = Begin(memory.top) + memory.top->used;
  Permit(taken, bytes);
  memory.top->used += size;
  return taken;
}

}  // namespace velmor::ordered
