// workspace.cpp: a stack of memory chunks for each thread; start at TakeBytes.
#include "ordered/workspace.h"

#include <algorithm>
#include <new>

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
    _top->used = _used;
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
    memory.top->used = 0;
  }
}

void* Workspace::TakeBytes(std::size_t bytes) {
  const std::size_t size = (bytes + kAlignment - 1) / kAlignment * kAlignment;
  if (memory.top == nullptr || memory.top->size - memory.top->used < size) {
    const std::size_t chunkSize = std::max(size, memory.Size());  // doubles what there is
    memory.Push(::operator new (sizeof(Chunk) + chunkSize, std::align_val_t{kAlignment}),
                chunkSize);
  }
  auto* const begin = static_cast<std::byte*>(static_cast<void*>(memory.top + 1));
  void* const taken = begin + memory.top->used;
  memory.top->used += size;
  return taken;
}

}  // namespace velmor::ordered
