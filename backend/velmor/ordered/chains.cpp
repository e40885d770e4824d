// chains.cpp: the plain loops. They define what every result is, to the last bit.
#include "ordered/chains.h"

#include <cfloat>
#include <limits>

namespace velmor::ordered {

// A chain has the same bits everywhere if each operation is rounded to a double of IEEE 754.
static_assert(std::numeric_limits<double>::is_iec559 && FLT_EVAL_METHOD == 0);

double Sum(const double* x, std::size_t count) {
  double sum = 0.;
  for (std::size_t i = 0; i < count; ++i) {
    sum = x[i] + sum;
  }
  return sum;
}

double WeightedSum(const double* weights, std::size_t count) {
  return weights ? Sum(weights, count) : static_cast<double>(count);
}

double ProductSum(const double* a, const double* b, std::size_t count) {
  double sum = 0.;
  for (std::size_t i = 0; i < count; ++i) {
    sum = a[i] * b[i] + sum;
  }
  return sum;
}

double ProductSum(const double* a, const double* b, const double* c, std::size_t count) {
  double sum = 0.;
  for (std::size_t i = 0; i < count; ++i) {
    sum = (a[i] * b[i]) * c[i] + sum;
  }
  return sum;
}

const double* CombineWeights(double* weights, const double* regWeights, std::size_t count) {
  if (!weights) {
    return regWeights;
  }
  if (regWeights) {
    for (std::size_t i = 0; i < count; ++i) {
      weights[i] = regWeights[i] * weights[i];
    }
  }
  return weights;
}

double WeightedMean(const double* x, const double* weights, double weightSum, std::size_t count) {
  if (count == 0) {
    return 0.;
  }
  std::size_t run = 0;
  double runWeight = 0.;
  for (; run < count && x[run] == x[0]; ++run) {
    runWeight = (weights ? weights[run] : 1.) + runWeight;
  }
  if (run == count) {
    return x[0];
  }
  const double runSum = runWeight * x[0];
  const double rest =
      weights ? ProductSum(weights + run, x + run, count - run) : Sum(x + run, count - run);
  return (rest + runSum) / weightSum;
}

double Maxs(const double* x, std::size_t count) {
  if (count == 0) {
    return kNoMaximum;
  }
  double best = x[0];
  for (std::size_t i = 1; i < count; ++i) {
    best = x[i] > best ? x[i] : best;
  }
  return best;
}

double Mins(const double* x, std::size_t count) {
  if (count == 0) {
    return kNoMinimum;
  }
  double best = x[0];
  for (std::size_t i = 1; i < count; ++i) {
    best = x[i] < best ? x[i] : best;
  }
  return best;
}

void CenterData(double* x, double mean, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    x[i] = x[i] - mean;
  }
}

double CrossProduct(const double* x, const double* y, const double* weights, std::size_t count) {
  return weights ? ProductSum(weights, x, y, count) : ProductSum(x, y, count);
}

namespace {

// An array of the kept cases' values. It exists where its input does, is as long as the input
// while cases are copied, and is then cut to what was kept.
class Kept {
 public:
  Kept(const double* in, std::vector<double>& out, std::size_t count) : _in(in), _out(out) {
    _out.resize(_in ? count : 0);
  }
  void Take(std::size_t from, std::size_t to) {
    if (_in) {
      _out[to] = _in[from];
    }
  }
  void Cut(std::size_t kept) { _out.resize(_in ? kept : 0); }

 private:
  const double* _in;
  std::vector<double>& _out;
};

template <class IsPresent, class... Arrays>
void CopyPresent(std::size_t count, IsPresent isPresent, Arrays... arrays) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (isPresent(i)) {
      (arrays.Take(i, kept), ...);
      ++kept;
    }
  }
  (arrays.Cut(kept), ...);
}

}  // namespace

void CopyNonmissing(const double* x, const double* weights, const double* regWeights,
                    double missingCode, std::size_t count, std::vector<double>& outX,
                    std::vector<double>& outWeights, std::vector<double>& outRegWeights) {
  CopyPresent(
      count, [=](std::size_t i) { return x[i] != missingCode; }, Kept(x, outX, count),
      Kept(weights, outWeights, count), Kept(regWeights, outRegWeights, count));
}

void CopyCompletePairs(const double* x, const double* y, const double* weights,
                       const double* regWeights, double missingCode, std::size_t count,
                       std::vector<double>& outX, std::vector<double>& outY,
                       std::vector<double>& outWeights, std::vector<double>& outRegWeights) {
  CopyPresent(
      count, [=](std::size_t i) { return x[i] != missingCode && y[i] != missingCode; },
      Kept(x, outX, count), Kept(y, outY, count), Kept(weights, outWeights, count),
      Kept(regWeights, outRegWeights, count));
}

void GroupWeightedSumX(const double* x, const unsigned int* groups, const double* weights,
                       double* sums, double* squareSums, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const double weighted = weights ? x[i] * weights[i] : x[i];
    double& sum = sums[groups[i]];
    double& squareSum = squareSums[groups[i]];
    sum = weighted + sum;
    squareSum = weighted * x[i] + squareSum;
  }
}

void WeightByGroup(const unsigned int* groups, const double* weights,
                   std::vector<double>& groupWeights, double& total, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const double weight = weights ? weights[i] : 1.;
    double& groupWeight = groupWeights[groups[i]];
    groupWeight = weight + groupWeight;
    total = weight + total;
  }
}

double MeanDiff(double m1, double w1, double m2, double w2) {
  const double weightSum = w1 + w2;
  return weightSum == 0. ? 0. : ((m2 - m1) * w2) / weightSum;
}

}  // namespace velmor::ordered
