#pragma once

#include <cstdint>

namespace velmor {

// n(n-1)/2: the pairs among n variables; the offset of row n of a strictly lower triangle, of row
// n-1 of one with its diagonal. In 64 bits, so that no number of columns is too large for it.
constexpr std::int64_t MatrixRowCount(std::int64_t n) { return (n - 1) * n / 2; }

}  // namespace velmor
