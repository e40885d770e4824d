#pragma once

#include <cstddef>
#include <functional>

namespace velmor {

// Calls work(i) for all i below `count`, on several threads, as many as Driver makes of the number.
// Throws the first of the exceptions of `work` that was seen; other calls may then be left out.
// Throws what Driver throws, and std::runtime_error when the host's services ended the run.
void ForEach(std::size_t count, int threads, const std::function<void(std::size_t)>& work);

}  // namespace velmor
