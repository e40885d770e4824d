#pragma once

// The merge of statistics over present cases: of a variable, for every kind of record that keeps
// one, and what PairStatData::Update needs for a pair. Records differ in the width of their count
// and in whether they keep extremes; their members have the same names.
//
// Accumulators merge their pairs many at a time, by the same operations in vectors
// (ordered::PairMerges).

#include "ordered/chains.h"

namespace velmor {

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

}  // namespace velmor
