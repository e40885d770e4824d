#pragma once

// Operations over whole blocks of columns, and over whole rows of cells when two results are
// merged. The cells of a block are independent of each other and each is one chain (chains.h), so
// how a block is walked changes no bit: the engine's kernels walk it in panels, blocks of rows and
// tiles of cells. All arrays are the caller's. What takes a batch uses the thread's workspace and
// throws std::bad_alloc when there is none; merges allocate nothing.

#include <cstddef>
#include <cstdint>

namespace velmor::ordered {

// Adjacent columns of a batch.
struct Columns {
  double* first;       // row 0 of the first column
  std::size_t stride;  // from a column to the next
  std::size_t count;

  double* operator[](std::size_t column) const { return first + column * stride; }
};

// The cases of a batch.
struct Cases {
  std::size_t rows;
  const double* weights;  // the cases' weights, null when each is 1
};

// means[i] = WeightedMean of column i, mins[i] = Mins and maxs[i] = Maxs of it. The extremes'
// arrays may be null. At least one row and one column. Returns WeightedSum of the weights.
double Moments(Columns x, Cases cases, double* means, double* mins, double* maxs);

// Subtracts the means from the columns, in place; then the CrossProducts of all pairs of columns,
// each with itself included, as a packed lower triangle: cell (i, j), j <= i, at i(i+1)/2 + j,
// column i being the first operand. Returns the start of the last row.
double* CenteredProducts(Columns x, const double* means, Cases cases, double* triangle);

// The same triangle of the columns as they are; and sums[i] = ProductSum of column i and the
// weights, Sum of column i without weights.
double* ProductsAndSums(Columns x, Cases cases, double* triangle, double* sums);

// GroupWeightedSumX of every column: that of column i and group g is at i * count + g.
struct GroupSums {
  const unsigned int* ofCases;  // each case's group
  std::size_t count;            // of groups
  double* sums;
  double* squareSums;
};

// The group sums; and the CrossProducts of all pairs of different columns as a packed strictly
// lower triangle: cell (i, j), j < i, at i(i-1)/2 + j, column i being the first operand. Returns
// the number of cells.
std::size_t ProductsAndGroupSums(Columns x, Cases cases, const GroupSums& groups, double* triangle);

// Centres the columns of x and y in place. Then squares[i] = CrossProduct of column i with itself,
// x's columns before y's, like their means; and the CrossProducts of each column of x with each of
// y, row by row: cell (i, j) at i * y.count + j, x's column being the first operand. Returns the
// end of the last row.
double* RectangularProducts(Columns x, Columns y, const double* means, Cases cases, double* squares,
                            double* rectangle);

// to[i] = the i-th double from any address on, i < count.
void Copy(const void* from, std::size_t count, double* to);

// Row r of the columns gets the values at rows[r], one for each column.
void Transpose(const double* const* rows, std::size_t count, Columns columns);

// Sets the bit of each row (bit row % 64 of word row / 64) in which x is equal to the value, or is
// any NaN if the value is one; leaves the others.
void MarkEqual(const double* x, std::size_t rows, double value, std::uint64_t* bits);

// cells[i] = d[i] + cells[i], i < count.
void AddCells(const double* d, std::size_t count, double* cells);

// The means of one side of a merge, with the sum of the weights that they stand for.
struct SideMeans {
  const double* means;
  double weight;
};

// merged[i] = a.means[i] + MeanDiff(a.means[i], a.weight, b.means[i], b.weight), i < count.
void MergeMeans(SideMeans a, SideMeans b, std::size_t count, double* merged);

// Merges b's extremes into a's: b's replaces a's where it is strictly further out.
void MergeExtremes(const double* minsB, const double* maxsB, std::size_t count, double* minsA,
                   double* maxsA);

// PairStatData::Update of each pair a[i] by b[i], but for the counts. A pair is eight doubles'
// room: a count, then the fields of PairStatData.
void MergePairs(double* const* a, const double* const* b, std::size_t count);

// How far the merged means are from those of each side.
struct Shifts {
  const double* ofA;  // merged mean - a's mean
  const double* ofB;
};

// Merges one row of centred cross-products:
//   cellsA[j] = ((cellsB[j] + factorA * ofA[j]) + factorB * ofB[j]) + cellsA[j],  j < count.
// factorA, factorB  each side's weight times the shift of its mean in the row's column
void MergeRow(Shifts shifts, double factorA, double factorB, const double* cellsB,
              std::size_t count, double* cellsA);

}  // namespace velmor::ordered
