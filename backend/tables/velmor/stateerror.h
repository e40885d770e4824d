#pragma once

#include <stdexcept>

#pragma GCC visibility push(default)
namespace velmor {

// What is wrong with bytes that should be a state, and at which of them.
class StateError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace velmor
#pragma GCC visibility pop
