#pragma once

#include <cstddef>
#include <new>

namespace velmor {

// A temporary array of a length fixed at construction, with inline room for N elements: an array
// of at most N elements allocates nothing. Elements are not initialised. Not copyable.
template <class T, std::size_t N>
class auto_array {
 public:
  // Throws std::bad_alloc when `length` elements can't be had.
  explicit auto_array(unsigned long length) { Init(length); }
  ~auto_array() {
    if (_begin != _buffer) {
      delete[] _begin;
    }
  }
  auto_array(const auto_array&) = delete;
  auto_array& operator=(const auto_array&) = delete;

  T* begin() noexcept { return _begin; }
  T* end() noexcept { return _end; }
  // Implicit, as an array's conversion is.
  operator T*() noexcept { return _begin; }  // NOLINT(google-explicit-constructor)

 private:
  void Init(unsigned long length) {
    _begin = length <= N ? _buffer : new T[length];
    _end = _begin + length;
  }

  T* _begin;
  T* _end;
  T _buffer[N];
};

}  // namespace velmor
