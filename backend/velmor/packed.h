#pragma once

namespace velmor {

// n(n-1)/2: the pairs among n variables; the offset of row n of a strictly lower triangle, of row
// n-1 of one with its diagonal. n is at most 46341.
constexpr int MatrixRowCount(int n) { return (n - 1) * n / 2; }

}  // namespace velmor
