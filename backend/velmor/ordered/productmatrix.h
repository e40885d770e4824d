#pragma once

// The moments of columns and the products of all pairs of them, without missing values.
//
// Each cell of a result is one chain (chains.h), and the cells are independent of each other. So
// how a block is walked changes no bit: the engine's kernels walk it in panels, strips of rows and
// tiles of cells. The thread's workspace holds panels and tiles; std::bad_alloc is thrown when it
// can't grow.

#include "ordered/cases.h"

namespace velmor::ordered {

// means[i] = WeightedMean of column i, mins[i] = Mins and maxs[i] = Maxs of it. The extremes'
// arrays may be null. At least one row and one column. Returns WeightedSum of the weights.
double Moments(Columns x, Cases cases, double* means, double* mins, double* maxs);

// Subtracts the means from the columns, in place. Then takes the CrossProducts of all pairs of
// columns, a column with itself included, as a packed lower triangle: cell (i, j), j <= i, at
// i(i+1)/2 + j, column i being the first operand. Returns the start of the last row.
double* CenteredProducts(Columns x, const double* means, Cases cases, double* triangle);

// The same triangle of the columns as they are; and sums[i] = ProductSum of column i and the
// weights, Sum of column i without weights.
double* ProductsAndSums(Columns x, Cases cases, double* triangle, double* sums);

// Centres the columns of x and y in place. Then squares[i] = CrossProduct of column i with itself,
// x's columns before y's, like their means; and the CrossProducts of each column of x with each of
// y, row by row: cell (i, j) at i * y.count + j, x's column being the first operand. Returns the
// end of the last row.
double* RectangularProducts(Columns x, Columns y, const double* means, Cases cases, double* squares,
                            double* rectangle);

}  // namespace velmor::ordered
