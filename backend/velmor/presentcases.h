#pragma once

// The arithmetic of statistics over present cases, for every kind of record that keeps them: the
// public VarStatData and PairStatData, and the whole matrix's own. Records differ in the width of
// their count and in whether they keep extremes; their members have the same names.

#include <velmor/kernels.h>
#include <velmor/statistics.h>

#include "ordered/chains.h"

#include <cstddef>

namespace velmor {

// Count and weight sums of the cases kept in the work area, whose weights become the combined
// ones.
template <class Record>
void TakeTotals(Record& record, WorkArea& work, bool hasRegWeights) {
  record._nRows = static_cast<decltype(record._nRows)>(work._x0.size());
  record._weightSum = work._w.empty() ? static_cast<double>(record._nRows) : Sum(work._w);
  CombineWeights(work._w, work._rw);
  record._regWeightSum = hasRegWeights ? Sum(work._w) : record._weightSum;
}

template <class Record>
void InitVariable(Record& record, const double* x, const double* w, const double* rw,
                  WorkArea& work, std::size_t n) {
  ordered::CopyNonmissing(x, w, rw, work._missingCode, n, work._x0, work._w, work._rw);
  TakeTotals(record, work, rw != nullptr);
  record._mean = WeightedMean(work._x0, work._w, record._regWeightSum);
  if constexpr (requires { record._min; }) {
    record._min = Mins(work._x0);
    record._max = Maxs(work._x0);
  }
  CenterData(work._x0, record._mean);
  record._css = CrossProduct(work._x0, work._x0, work._w);
}

template <class Record>
void InitPair(Record& record, const double* x0, const double* x1, const double* w, const double* rw,
              WorkArea& work, std::size_t n) {
  ordered::CopyCompletePairs(x0, x1, w, rw, work._missingCode, n, work._x0, work._x1, work._w,
                             work._rw);
  TakeTotals(record, work, rw != nullptr);
  record._mean0 = WeightedMean(work._x0, work._w, record._regWeightSum);
  record._mean1 = WeightedMean(work._x1, work._w, record._regWeightSum);
  CenterData(work._x0, record._mean0);
  CenterData(work._x1, record._mean1);
  record._css0 = CrossProduct(work._x0, work._x0, work._w);
  record._css1 = CrossProduct(work._x1, work._x1, work._w);
  record._cscp = CrossProduct(work._x0, work._x1, work._w);
}

// How far the two sides' means are from the merged mean.
struct MeanShift {
  double ofA;  // as MeanDiff gave it, before it was rounded into the merged mean
  double ofB;  // b's mean - merged mean
};

// Merges a mean of weight b into one of weight a.
inline MeanShift MergeMean(double& mean, double a, double meanB, double b) {
  const double shift = ordered::MeanDiff(mean, a, meanB, b);
  mean = mean + shift;
  return {shift, meanB - mean};
}

// Merges centred sums of products of two variables over sides of weights a and b.
inline double MergedProducts(double productsA, double a, double productsB, double b,
                             MeanShift first, MeanShift second) {
  return ((productsB + (a * first.ofA) * second.ofA) + (b * first.ofB) * second.ofB) + productsA;
}

template <class Record, class OfOther>
void MergeTotals(Record& record, const OfOther& d) {
  record._weightSum = d._weightSum + record._weightSum;
  record._regWeightSum = d._regWeightSum + record._regWeightSum;
  record._nRows += static_cast<decltype(record._nRows)>(d._nRows);
}

template <class Record, class OfOther>
void UpdateVariable(Record& record, const OfOther& d) {
  if (d._nRows == 0) {
    return;
  }
  const double a = record._regWeightSum;
  const double b = d._regWeightSum;
  const MeanShift shift = MergeMean(record._mean, a, d._mean, b);
  record._css = MergedProducts(record._css, a, d._css, b, shift, shift);
  MergeTotals(record, d);
  if constexpr (requires { record._min; }) {
    // Written so that d's value is taken when either is not a number.
    record._min = d._min > record._min ? record._min : d._min;
    record._max = record._max > d._max ? record._max : d._max;
  }
}

template <class Record>
void UpdatePair(Record& record, const Record& d) {
  if (d._nRows == 0) {
    return;
  }
  const double a = record._regWeightSum;
  const double b = d._regWeightSum;
  const MeanShift shift0 = MergeMean(record._mean0, a, d._mean0, b);
  const MeanShift shift1 = MergeMean(record._mean1, a, d._mean1, b);
  record._css0 = MergedProducts(record._css0, a, d._css0, b, shift0, shift0);
  record._css1 = MergedProducts(record._css1, a, d._css1, b, shift1, shift1);
  record._cscp = MergedProducts(record._cscp, a, d._cscp, b, shift0, shift1);
  MergeTotals(record, d);
}

}  // namespace velmor
