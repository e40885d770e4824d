#pragma once

// Merges of two results, over cells and over pairs. Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

template <class Set>
void AddCells(const double* d, std::size_t count, double* cells) {
  std::size_t i = 0;
  for (; i + Set::kLanes <= count; i += Set::kLanes) {
    StoreVector<Set>(LoadVector<Set>(d + i) + LoadVector<Set>(cells + i), cells + i);
  }
  for (; i < count; ++i) {
    cells[i] = d[i] + cells[i];
  }
}

template <class Set>
void MergeRow(const double* shiftsA, const double* shiftsB, double factorA, double factorB,
              const double* cellsB, std::size_t count, double* cellsA) {
  const auto merged = [=](auto shiftA, auto shiftB, auto b, auto a) {
    return ((b + factorA * shiftA) + factorB * shiftB) + a;
  };
  std::size_t j = 0;
  for (; j + Set::kLanes <= count; j += Set::kLanes) {
    StoreVector<Set>(merged(LoadVector<Set>(shiftsA + j), LoadVector<Set>(shiftsB + j),
                            LoadVector<Set>(cellsB + j), LoadVector<Set>(cellsA + j)),
                     cellsA + j);
  }
  for (; j < count; ++j) {
    cellsA[j] = merged(shiftsA[j], shiftsB[j], cellsB[j], cellsA[j]);
  }
}

// How far the two sides' means are from the merged mean.
template <class Set>
struct PairShift {
  Vector<Set> ofA;  // before it was rounded into the merged mean
  Vector<Set> ofB;
};

template <class Set>
PairShift<Set> MergePairMean(Vector<Set>& mean, Vector<Set> a, Vector<Set> meanB, Vector<Set> b) {
  const Vector<Set> weightSum = a + b;
  const Vector<Set> quotient = ((meanB - mean) * b) / weightSum;
  const Vector<Set> shift = weightSum == 0. ? Vector<Set>{} : quotient;
  mean = mean + shift;
  return {shift, meanB - mean};
}

template <class Set>
Vector<Set> MergedPairProducts(Vector<Set> productsA, Vector<Set> a, Vector<Set> productsB,
                               Vector<Set> b, PairShift<Set> first, PairShift<Set> second) {
  return ((productsB + (a * first.ofA) * second.ofA) + (b * first.ofB) * second.ofB) + productsA;
}

// The fields of as many pairs as a vector has lanes, a field in each vector.
template <class Set>
struct PairRecords {
  static constexpr unsigned kFields = 8;
  Vector<Set> field[kFields / Set::kLanes][Set::kLanes]{};

  Vector<Set>& operator[](unsigned f) { return field[f / Set::kLanes][f % Set::kLanes]; }
  void Gather(const double* const* records) {
    for (unsigned part = 0; part < kFields / Set::kLanes; ++part) {
      LoadTransposed<Set>(records, std::size_t{part} * Set::kLanes, field[part]);
    }
  }
  void Scatter(double* const* records) {
    for (unsigned part = 0; part < kFields / Set::kLanes; ++part) {
      TransposeVectors<Set>(field[part]);
#pragma GCC unroll 8
      for (unsigned i = 0; i < Set::kLanes; ++i) {
        StoreVector<Set>(field[part][i], records[i] + part * Set::kLanes);
      }
    }
  }
};

template <class Set>
void MergeSomePairs(double* const* recordsA, const double* const* recordsB) {
  enum : unsigned { kCount, kWeightSum, kWeight, kMean0, kMean1, kSquares0, kSquares1, kProducts };
  PairRecords<Set> a;
  PairRecords<Set> b;
  a.Gather(recordsA);
  b.Gather(recordsB);
  const Vector<Set> weightA = a[kWeight];
  const Vector<Set> weightB = b[kWeight];
  const PairShift<Set> shift0 = MergePairMean<Set>(a[kMean0], weightA, b[kMean0], weightB);
  const PairShift<Set> shift1 = MergePairMean<Set>(a[kMean1], weightA, b[kMean1], weightB);
  a[kSquares0] =
      MergedPairProducts<Set>(a[kSquares0], weightA, b[kSquares0], weightB, shift0, shift0);
  a[kSquares1] =
      MergedPairProducts<Set>(a[kSquares1], weightA, b[kSquares1], weightB, shift1, shift1);
  a[kProducts] =
      MergedPairProducts<Set>(a[kProducts], weightA, b[kProducts], weightB, shift0, shift1);
  a[kWeightSum] = b[kWeightSum] + a[kWeightSum];
  a[kWeight] = b[kWeight] + a[kWeight];
  a.Scatter(recordsA);
}

template <class Set>
void MergePairs(double* const* a, const double* const* b, std::size_t count) {
  std::size_t i = 0;
  for (; i + Set::kLanes <= count; i += Set::kLanes) {
    MergeSomePairs<Set>(a + i, b + i);
  }
  if (i < count) {
    // The last few, and zeros in the lanes that are left, whose results go nowhere.
    double nowhere[PairRecords<Set>::kFields] = {};
    double* someA[Set::kLanes];
    const double* someB[Set::kLanes];
    for (unsigned lane = 0; lane < Set::kLanes; ++lane) {
      someA[lane] = i + lane < count ? a[i + lane] : nowhere;
      someB[lane] = i + lane < count ? b[i + lane] : nowhere;
    }
    MergeSomePairs<Set>(someA, someB);
  }
}

}  // namespace velmor::ordered
