#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

namespace velmor {

// A heap array of a length fixed at construction, or no array at all. Used as a pointer to its
// first element. An absent array is a null pointer; an array of length 0 is not null. Copying
// copies the elements. Elements of a new array are not initialised.
template <class T>
class OwnedArray {
 public:
  OwnedArray() noexcept = default;
  explicit OwnedArray(std::size_t size) : _begin(new T[size]), _size(size) {}
  OwnedArray(const OwnedArray& other) {
    if (other) {
      *this = OwnedArray(other._size);
      std::copy_n(other._begin.get(), _size, _begin.get());
    }
  }
  OwnedArray(OwnedArray&&) noexcept = default;
  OwnedArray& operator=(const OwnedArray& other) {
    if (this != &other) {
      *this = OwnedArray(other);
    }
    return *this;
  }
  OwnedArray& operator=(OwnedArray&&) noexcept = default;
  ~OwnedArray() = default;

  // The first element, null when absent. Implicit, as an array's conversion is.
  operator T*() const noexcept { return _begin.get(); }  // NOLINT(google-explicit-constructor)

 private:
  std::unique_ptr<T[]> _begin;
  std::size_t _size = 0;
};

}  // namespace velmor
