// records.cpp: statistics of columns and pairs; start at ColumnOf and PairOf.
#include "summary/records.h"

#include "ordered/floatenvironment.h"
#include "record/presentmerge.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velmor {
namespace {

constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

template <class Matrix>
ColumnStatistics ColumnIn(const Matrix& matrix, int column) {
  if constexpr (requires { matrix.Var(column); }) {
    const VarStat& own = matrix.Var(column);
    return {static_cast<std::uint64_t>(own.NRows()),
            own.WeightSum(),
            own.RegWeightSum(),
            own.Mean(),
            own.CSS(),
            own.Min(),
            own.Max()};
  } else {
    return {matrix.NRows(),      matrix.WeightSum(),         matrix.RegWeightSum(),
            matrix.Mean(column), matrix.CCP(column, column), matrix.Min(column),
            matrix.Max(column)};
  }
}

PairStatistics Turned(const PairStatistics& pair) {
  PairStatistics turned = pair;
  std::swap(turned.meanA, turned.meanB);
  std::swap(turned.squaresA, turned.squaresB);
  return turned;
}

template <class Matrix>
PairStatistics PairIn(const Matrix& matrix, int a, int b) {
  if constexpr (requires { matrix.Pair(a, b); }) {
    const PairStat& own = matrix.Pair(a, b);
    const PairStatistics pair{static_cast<std::uint64_t>(own.NRows()),
                              own.WeightSum(),
                              own.RegWeightSum(),
                              own.Mean0(),
                              own.Mean1(),
                              own.CSS0(),
                              own.CSS1(),
                              own.CSCP()};
    constexpr bool kLowerIsFirst = std::is_same_v<Matrix, NSMatrixPairwise>;
    return (a < b) == kLowerIsFirst ? pair : Turned(pair);
  } else {
    return {matrix.NRows(), matrix.WeightSum(), matrix.RegWeightSum(), matrix.Mean(a),
            matrix.Mean(b), matrix.CCP(a, a),   matrix.CCP(b, b),      matrix.CCP(a, b)};
  }
}

// Adds the rows behind.
template <class Statistics>
void AddTotals(Statistics& all, const Statistics& next) {
  all.rows += next.rows;
  all.weightSum += next.weightSum;
  all.regWeightSum += next.regWeightSum;
}

void MergeInto(ColumnStatistics& all, const ColumnStatistics& next) {
  const double w = all.regWeightSum;
  const double v = next.regWeightSum;
  const MeanShift shift = MergeMean(all.mean, w, next.mean, v);
  all.squares = MergedProducts(all.squares, w, next.squares, v, shift, shift);
  all.min = std::min(all.min, next.min);
  all.max = std::max(all.max, next.max);
  AddTotals(all, next);
}

void MergeInto(PairStatistics& all, const PairStatistics& next) {
  const double w = all.regWeightSum;
  const double v = next.regWeightSum;
  const MeanShift a = MergeMean(all.meanA, w, next.meanA, v);
  const MeanShift b = MergeMean(all.meanB, w, next.meanB, v);
  all.squaresA = MergedProducts(all.squaresA, w, next.squaresA, v, a, a);
  all.squaresB = MergedProducts(all.squaresB, w, next.squaresB, v, b, b);
  all.products = MergedProducts(all.products, w, next.products, v, a, b);
  AddTotals(all, next);
}

// The parts' statistics merged in their order; those over no rows change nothing.
template <class Statistics, class InPart>
Statistics Merged(const Parts& parts, const InPart& inPart) {
  Statistics all;
  for (const std::unique_ptr<MatrixBase>& part : parts.All()) {
    const Statistics next = inPart(*part);
    if (all.rows == 0) {
      all = next;
    } else if (next.rows != 0) {
      MergeInto(all, next);
    }
  }
  return all;
}

bool IsConstant(const ColumnStatistics& column) { return column.min == column.max; }

// Whether a column has no spread over a pair's rows, which are some or all of its own.
bool IsConstant(const ColumnStatistics& column, const PairStatistics& pair, double squares,
                double mean) {
  return IsConstant(column) ||
         (pair.rows != column.rows && !Varies(squares, mean, pair.regWeightSum));
}

// Sets what merges have left of products of equal values to 0. NaN is left alone, as a NaN value
// says nothing of extremes.
void Clear(double& products) {
  if (!std::isnan(products)) {
    products = 0.;
  }
}

}  // namespace

double SpreadOf(double squares) {
  return 0. < squares && squares <= std::numeric_limits<double>::max() ? std::sqrt(squares)
                                                                       : kUndefined;
}

double DivisorOf(double weightSum, double ddof) {
  const double divisor = weightSum - ddof;
  return divisor > 0. ? divisor : kUndefined;
}

double ColumnStatistics::Variance(double ddof) const {
  const DefaultFloatEnvironment environment;
  return rows == 0 ? kUndefined : squares / DivisorOf(weightSum, ddof);
}

double PairStatistics::Covariance(double ddof) const {
  const DefaultFloatEnvironment environment;
  return rows == 0 ? kUndefined : products / DivisorOf(weightSum, ddof);
}

double PairStatistics::Correlation() const {
  const DefaultFloatEnvironment environment;
  return CorrelationOf(products, SpreadOf(squaresA), SpreadOf(squaresB));
}

ColumnStatistics ColumnOf(const SummaryDefinition& definition, const Parts& parts,
                          std::size_t column) {
  auto all = Merged<ColumnStatistics>(parts, [&](const MatrixBase& part) {
    return WithMatrix(definition, part, [column](const auto& matrix) {
      return ColumnIn(matrix, static_cast<int>(column));
    });
  });
  if (all.rows == 0) {
    all.mean = all.min = all.max = kUndefined;
  } else if (IsConstant(all)) {
    Clear(all.squares);
  }
  return all;
}

PairStatistics PairOf(const SummaryDefinition& definition, const Parts& parts, std::size_t a,
                      std::size_t b, const ColumnStatistics& columnA,
                      const ColumnStatistics& columnB) {
  auto all = Merged<PairStatistics>(parts, [&](const MatrixBase& part) {
    return WithMatrix(definition, part, [a, b](const auto& matrix) {
      return PairIn(matrix, static_cast<int>(a), static_cast<int>(b));
    });
  });
  if (all.rows == 0) {
    all.meanA = all.meanB = kUndefined;
    return all;
  }
  const bool isConstantA = IsConstant(columnA, all, all.squaresA, all.meanA);
  const bool isConstantB = IsConstant(columnB, all, all.squaresB, all.meanB);
  if (isConstantA) {
    Clear(all.squaresA);
  }
  if (isConstantB) {
    Clear(all.squaresB);
  }
  if (isConstantA || isConstantB) {
    Clear(all.products);
  }
  return all;
}

WeightSums WeightSumsOf(const SummaryDefinition& definition, const Parts& parts) {
  WeightSums sums;
  for (const std::unique_ptr<MatrixBase>& part : parts.All()) {
    WithMatrix(definition, *part, [&sums](const auto& matrix) {
      sums.weights += matrix.WeightSum();
      sums.combined += matrix.RegWeightSum();
    });
  }
  return sums;
}

}  // namespace velmor
