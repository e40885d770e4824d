#pragma once

// A thread's scratch memory: panels, running sums and the like, of one operation at a time. It
// grows to what the thread's operations need, is then allocated no more, and goes with the thread.

#include <cstddef>
#include <type_traits>

namespace velmor::ordered {

// What is taken while this lives is given back when it ends. Workspaces of a thread nest.
class Workspace {
 public:
  Workspace();
  ~Workspace();
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  // An array aligned to 64 bytes, not initialised; full of NaN, and with a gap after it that nobody
  // may touch, in builds with AddressSanitizer. Throws std::bad_alloc.
  template <class T>
  T* Take(std::size_t count) {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
    return static_cast<T*>(TakeBytes(count * sizeof(T)));
  }

 private:
  static void* TakeBytes(std::size_t bytes);

  struct Chunk* _top;  // where the thread's memory stood before
  std::size_t _used;
};

}  // namespace velmor::ordered
