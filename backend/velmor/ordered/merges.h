#pragma once

// Merges of two results, over rows of cells, means, extremes and pairs. Allocates nothing.

#include <cstddef>

namespace velmor::ordered {

// cells[i] = d[i] + cells[i], i < count.
void AddCells(const double* d, std::size_t count, double* cells);

// The means of one side of a merge, with the sum of the weights that they stand for.
struct SideMeans {
  const double* means;
  double weight;
};

// merged[i] = a.means[i] + MeanDiff(a.means[i], a.weight, b.means[i], b.weight), i < count.
void MergeMeans(SideMeans a, SideMeans b, std::size_t count, double* merged);

// Merges b's extremes into a's: an extreme of b's replaces a's where it is strictly further out.
void MergeExtremes(const double* minsB, const double* maxsB, std::size_t count, double* minsA,
                   double* maxsA);

// PairStatData::Update of each pair a[i] by b[i], but for the counts. A pair is eight doubles'
// room: a count, then the fields of PairStatData.
void MergePairs(double* const* a, const double* const* b, std::size_t count);

// How far the merged means are from each side's means.
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
