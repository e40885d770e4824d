#pragma once

// Discriminant analysis from sums by group: the mathematics of discriminate. Its help has the
// formulas; S and T are the squares and products within the groups and in all.

#include <velmor/DiscriminantMatrix.h>

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <optional>

namespace discriminant {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

// What the sums come to. Rows are variables, columns variables or groups.
struct Statistics {
  VectorXd weights;             // of the groups
  VectorXd centre;              // means in all
  MatrixXd means;               // in the groups, less those in all
  MatrixXd within;              // squares and products S
  MatrixXd between;             // squares and products T - S
  VectorXd roundings;           // what rounding the values to doubles can leave of S's diagonal
  VectorXd squaresFromOrigins;  // S's diagonal before it was centred

  double Freedom() const { return weights.sum() - static_cast<double>(weights.size()); }
};

// Centres sums. Values were summed less an origin of their group, columns of `origins`: a sum of
// squares that is centred only afterwards loses the digits in which it agrees with what is
// subtracted.
Statistics Centre(const velmor::DiscriminantMatrix& raw, const MatrixXd& origins);

// S, factored when its variables have been brought to one scale, so that no column's unit matters:
// S = D R D with D diagonal and ones in R's diagonal.
class Factors {
 public:
  // Every variable varies within the groups.
  explicit Factors(const Statistics& s);

  // The first variable that is a combination of those before it, or too close to one for the
  // digits that are shown; nothing when there is none. With one, the rest means nothing.
  std::optional<Index> FirstDependent() const;

  // inv(S) * right
  MatrixXd Solve(const MatrixXd& right) const;

  // Wilks' lambda of all variables together.
  double WilksLambda(const Statistics& s) const;

 private:
  bool IsDependent(Index variables) const;

  VectorXd _scales;               // D's diagonal, inverted
  MatrixXd _scaled;               // R
  Eigen::LLT<MatrixXd> _factors;  // of R
  double _leastCondition;         // below this reciprocal condition variables are dependent
};

// Linear functions of a case's values, one for each group. Rows are variables, columns groups.
struct Functions {
  MatrixXd coefficients;
  VectorXd constants;
};

// The classification functions of values whose means in the groups are these. May have numbers that
// are not finite.
Functions ClassificationFunctions(const Statistics& s, const Factors& within, const MatrixXd& means,
                                  const VectorXd& priors);

}  // namespace discriminant
