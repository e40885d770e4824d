#pragma once

#include <cfenv>

namespace velmor {

// While it lives, the thread computes in the default floating-point environment: round to nearest,
// subnormal numbers kept. Then the environment that it found is back, exception flags included. A
// host may have set another mode, and results must not depend on it.
class DefaultFloatEnvironment {
 public:
  DefaultFloatEnvironment() noexcept {
    std::fegetenv(&_found);
    std::fesetenv(FE_DFL_ENV);
  }
  ~DefaultFloatEnvironment() { std::fesetenv(&_found); }
  DefaultFloatEnvironment(const DefaultFloatEnvironment&) = delete;
  DefaultFloatEnvironment& operator=(const DefaultFloatEnvironment&) = delete;

 private:
  std::fenv_t _found{};
};

}  // namespace velmor
