#pragma once

// The centred cross-products of the listwise blocks as they lie in memory, for who reads many. The
// classes' sources define these. The cells stay where they are until the accumulator changes.

namespace velmor {

class NSMatrixListwise;
class SMatrixListwise;

// The cell of columns r and c of the block, c <= r, is at r(r+1)/2 + c.
const double* CellsOf(const SMatrixListwise& matrix);

// The cell of columns i of the first range and j of the second is at i * (columns of the second) +
// j.
const double* CellsOf(const NSMatrixListwise& matrix);

}  // namespace velmor
