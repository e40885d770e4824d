// discriminant.cpp: from sums by group to a discriminant analysis; start at Centre.
#include "discriminant.h"

#include <Eigen/SVD>
#include <algorithm>
#include <cmath>
#include <limits>

namespace discriminant {
namespace {

constexpr double kRounding = std::numeric_limits<double>::epsilon() / 2.;  // relative

// Below which reciprocal condition of R its variables count as dependent. Relative errors of R's
// cells grow by its condition, and those of sums are some 1e-16, more where centring has cancelled
// digits: 1e-10 leaves about the six that are shown. And a combination that ought to be constant
// has a square of up to the sum of the roundings, each seen in units of its variable's square in S.
double LeastCondition(const Statistics& s) {
  const Eigen::ArrayXd squares = s.within.diagonal();
  const double cancelled = (s.squaresFromOrigins.array() / squares).maxCoeff();
  return std::max(1e-10 * std::max(1., cancelled), (s.roundings.array() / squares).sum());
}

}  // namespace

Statistics Centre(const velmor::DiscriminantMatrix& raw, const MatrixXd& origins) {
  const int variables = raw.NVar();
  VectorXd weights(raw.NGroup());
  MatrixXd sums(variables, raw.NGroup());  // from the origins, like all raw ones
  MatrixXd products = MatrixXd::Zero(variables, variables);
  for (int g = 0; g < raw.NGroup(); ++g) {
    weights[g] = raw.sumW(g);
    for (int x = 0; x < variables; ++x) {
      sums(x, g) = raw.sumX1(g, x);
      products(x, x) += raw.sumX2(g, x);
    }
  }
  for (int x = 0; x < variables; ++x) {
    for (int y = 0; y < x; ++y) {
      products(x, y) = products(y, x) = raw.TSSP(x, y);
    }
  }
  const MatrixXd fromOrigins = sums * weights.cwiseInverse().asDiagonal();
  // Means, too, are seen from within the data until they are printed.
  MatrixXd means = (origins.colwise() - origins.col(0)) + fromOrigins;
  const VectorXd mean = means * weights / weights.sum();
  means.colwise() -= mean;
  Statistics s;
  s.weights = weights;
  s.centre = origins.col(0) + mean;
  s.means = means;
  s.within = products - fromOrigins * sums.transpose();
  s.between = means * weights.asDiagonal() * means.transpose();
  s.roundings = VectorXd::Zero(variables);
  s.squaresFromOrigins = products.diagonal();
  for (int g = 0; g < raw.NGroup(); ++g) {
    for (int x = 0; x < variables; ++x) {
      const bool varies = raw.sumX2(g, x) > sums(x, g) * fromOrigins(x, g);
      const double rounding = kRounding * (s.centre[x] + means(x, g));
      s.roundings[x] += varies ? weights[g] * rounding * rounding : 0.;
    }
  }
  return s;
}

Factors::Factors(const Statistics& s)
    : _scales(s.within.diagonal().cwiseSqrt().cwiseInverse()),
      _scaled(_scales.asDiagonal() * s.within * _scales.asDiagonal()),
      _factors(_scaled),
      _leastCondition(LeastCondition(s)) {}

std::optional<Index> Factors::FirstDependent() const {
  Index independent = 1;
  Index dependent = _scales.size();
  if (!IsDependent(dependent)) {
    return std::nullopt;
  }
  while (dependent - independent > 1) {
    const Index middle = independent + (dependent - independent) / 2;
    (IsDependent(middle) ? dependent : independent) = middle;
  }
  return dependent - 1;
}

// Whether one of the first variables depends on the others of them.
bool Factors::IsDependent(Index variables) const {
  if (variables == 1) {
    return false;
  }
  const Eigen::LLT<MatrixXd> factors(_scaled.topLeftCorner(variables, variables));
  return factors.info() != Eigen::Success || !(factors.rcond() >= _leastCondition);
}

MatrixXd Factors::Solve(const MatrixXd& right) const {
  return _scales.asDiagonal() * _factors.solve(_scales.asDiagonal() * right);
}

// With R = L L', it is the determinant of I + A A' inverted, where A A' is what is between the
// groups, seen by inv(L D): 1 and the squares of A's singular values are its eigenvalues. So groups
// that are far apart in one direction cost no digits in others.
double Factors::WilksLambda(const Statistics& s) const {
  const MatrixXd between =
      _factors.matrixL().solve(_scales.asDiagonal() * s.means * s.weights.cwiseSqrt().asDiagonal());
  const VectorXd values = Eigen::BDCSVD<MatrixXd>(between).singularValues();
  return std::exp(-values.array().square().log1p().sum());
}

Functions ClassificationFunctions(const Statistics& s, const Factors& within, const MatrixXd& means,
                                  const VectorXd& priors) {
  const MatrixXd coefficients = s.Freedom() * within.Solve(means);
  const VectorXd squares = means.cwiseProduct(coefficients).colwise().sum();
  return {coefficients, priors.array().log().matrix() - squares / 2.};
}

}  // namespace discriminant
