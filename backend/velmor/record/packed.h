#pragma once

#include <cstdint>

namespace velmor {

// n(n-1)/2: the number of pairs among n variables; the offset of row n of a strictly lower
// triangle, and of row n-1 of a lower triangle with its diagonal. In 64 bits, which no number of
// columns is too large for.
constexpr std::int64_t MatrixRowCount(std::int64_t n) { return (n - 1) * n / 2; }

}  // namespace velmor
