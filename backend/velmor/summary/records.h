#pragma once

// Statistics of columns and pairs out of the accumulators of a summary, and their formulas.

#include <velmor/nsmatrixlistwise.h>
#include <velmor/nsmatrixpairwise.h>
#include <velmor/smatrixlistwise.h>
#include <velmor/smatrixpairwise.h>
#include <velmor/summary.h>

#include "summary/parts.h"

#include <cstddef>
#include <cstdint>

namespace velmor {

// The root of centred squares; NaN unless it is a positive number.
double SpreadOf(double squares);

// Of columns that have these spreads. Never outside [-1, 1]; the order of a and b changes no bit.
// The product of two spreads is a double, as the squares are.
inline double CorrelationOf(double products, double spreadA, double spreadB) {
  const double r = products / (spreadA * spreadB);
  const double least = r < -1. ? -1. : r;
  return 1. < least ? 1. : least;
}

// What squares and products are divided by; NaN unless it is positive.
double DivisorOf(double weightSum, double ddof);

// Calls visit(matrix) with the accumulator as what it is.
template <class Visit>
auto WithMatrix(const SummaryDefinition& definition, const MatrixBase& matrix, Visit visit) {
  // NOLINTBEGIN(cppcoreguidelines-pro-type-static-cast-downcast): its definition says what it is
  const bool isRectangle = definition.firstSide != 0;
  if (definition.missing == MissingRule::Pairwise) {
    return isRectangle ? visit(static_cast<const NSMatrixPairwise&>(matrix))
                       : visit(static_cast<const SMatrixPairwise&>(matrix));
  }
  return isRectangle ? visit(static_cast<const NSMatrixListwise&>(matrix))
                     : visit(static_cast<const SMatrixListwise&>(matrix));
  // NOLINTEND(cppcoreguidelines-pro-type-static-cast-downcast)
}

// What a column has in all parts, merged in their order. O(parts).
ColumnStatistics ColumnOf(const SummaryDefinition& definition, const Parts& parts,
                          std::size_t column);

// What two different columns that are paired have, as ColumnOf. Its columns' own statistics say
// which of them have no spread.
PairStatistics PairOf(const SummaryDefinition& definition, const Parts& parts, std::size_t a,
                      std::size_t b, const ColumnStatistics& columnA,
                      const ColumnStatistics& columnB);

// What all used rows weigh.
struct WeightSums {
  double weights = 0.;
  double combined = 0.;
};
WeightSums WeightSumsOf(const SummaryDefinition& definition, const Parts& parts);

}  // namespace velmor
