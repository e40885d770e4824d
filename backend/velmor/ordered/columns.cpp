// columns.cpp: blocks of columns and rows of cells, cell by cell.
#include "ordered/columns.h"

#include "ordered/chains.h"

namespace velmor::ordered {

void Means(Columns x, Cases cases, double weightSum, double* means) {
  for (std::size_t i = 0; i < x.count; ++i) {
    means[i] = WeightedMean(x[i], cases.weights, weightSum, cases.rows);
  }
}

void Extremes(Columns x, Cases cases, double* mins, double* maxs) {
  for (std::size_t i = 0; i < x.count; ++i) {
    mins[i] = Mins(x[i], cases.rows);
    maxs[i] = Maxs(x[i], cases.rows);
  }
}

void Center(Columns x, Cases cases, const double* means) {
  for (std::size_t i = 0; i < x.count; ++i) {
    CenterData(x[i], means[i], cases.rows);
  }
}

void SquareSums(Columns x, Cases cases, double* sums) {
  for (std::size_t i = 0; i < x.count; ++i) {
    sums[i] = CrossProduct(x[i], x[i], cases.weights, cases.rows);
  }
}

double* SymmetricProducts(Columns x, Cases cases, double* triangle) {
  double* row = triangle;
  for (std::size_t i = 0; i < x.count; ++i) {
    row += i;
    for (std::size_t j = 0; j <= i; ++j) {
      row[j] = CrossProduct(x[i], x[j], cases.weights, cases.rows);
    }
  }
  return row;
}

std::size_t PairProducts(Columns x, Cases cases, double* triangle) {
  std::size_t cell = 0;
  for (std::size_t i = 0; i < x.count; ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      triangle[cell++] = CrossProduct(x[i], x[j], cases.weights, cases.rows);
    }
  }
  return cell;
}

double* RectangularProducts(Columns x, Columns y, Cases cases, double* rectangle) {
  double* cell = rectangle;
  for (std::size_t i = 0; i < x.count; ++i) {
    for (std::size_t j = 0; j < y.count; ++j) {
      *cell++ = CrossProduct(x[i], y[j], cases.weights, cases.rows);
    }
  }
  return cell;
}

void WeightedSums(Columns x, Cases cases, double* sums) {
  for (std::size_t i = 0; i < x.count; ++i) {
    sums[i] = cases.weights ? ProductSum(x[i], cases.weights, cases.rows) : Sum(x[i], cases.rows);
  }
}

void GroupSums(Columns x, Cases cases, const unsigned int* groups, std::size_t nGroups,
               double* sums, double* squareSums) {
  for (std::size_t i = 0; i < x.count; ++i) {
    GroupWeightedSumX(x[i], groups, cases.weights, sums + i * nGroups, squareSums + i * nGroups,
                      cases.rows);
  }
}

void AddCells(const double* d, std::size_t count, double* cells) {
  for (std::size_t i = 0; i < count; ++i) {
    cells[i] = d[i] + cells[i];
  }
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

void MergeRow(SideMeans a, SideMeans b, const double* merged, double factorA, double factorB,
              const double* cellsB, std::size_t count, double* cellsA) {
  for (std::size_t j = 0; j < count; ++j) {
    const double shiftA = merged[j] - a.means[j];
    const double shiftB = merged[j] - b.means[j];
    cellsA[j] = ((cellsB[j] + factorA * shiftA) + factorB * shiftB) + cellsA[j];
  }
}

}  // namespace velmor::ordered
