// merges.cpp: forwards to the engine in use, and what is too short for a kernel.
#include "ordered/merges.h"

#include "ordered/chains.h"
#include "ordered/engine.h"

namespace velmor::ordered {

void AddCells(const double* d, std::size_t count, double* cells) {
  Active().AddCells(d, count, cells);
}

void MergeMeans(SideMeans a, SideMeans b, std::size_t count, double* merged) {
  for (std::size_t i = 0; i < count; ++i) {
    merged[i] = a.means[i] + MeanDiff(a.means[i], a.weight, b.means[i], b.weight);
  }
}

void MergeExtremes(const double* minsB, const double* maxsB, std::size_t count, double* minsA,
                   double* maxsA) {
  for (std::size_t i = 0; i < count; ++i) {
    maxsA[i] = maxsB[i] > maxsA[i] ? maxsB[i] : maxsA[i];
    minsA[i] = minsA[i] > minsB[i] ? minsB[i] : minsA[i];
  }
}

void PairMerges::Merge() {
  Active().MergePairs(_records.data(), _pairs.data(), _count);
  _count = 0;
}

void MergeRow(Shifts shifts, double factorA, double factorB, const double* cellsB,
              std::size_t count, double* cellsA) {
  Active().MergeRow(shifts.ofA, shifts.ofB, factorA, factorB, cellsB, count, cellsA);
}

}  // namespace velmor::ordered
