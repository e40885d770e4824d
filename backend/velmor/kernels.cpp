// kernels.cpp: the public kernels, each a forward to its arithmetic in ordered/chains.cpp.
#include <velmor/kernels.h>

#include "ordered/chains.h"

#include <cstddef>

namespace velmor {

const double minvalue = ordered::kNoMaximum;
const double maxvalue = ordered::kNoMinimum;

namespace {
std::size_t Size(int count) { return static_cast<std::size_t>(count); }
// An absent weight array is an empty vector here and a null pointer there.
const double* Present(const std::vector<double>& weights) {
  return weights.empty() ? nullptr : weights.data();
}
}  // namespace

double Sum(const double* x, int count) { return ordered::Sum(x, Size(count)); }
double Sum(const std::vector<double>& x) { return ordered::Sum(x.data(), x.size()); }

double WeightedSum(const double* weights, int count) {
  return ordered::WeightedSum(weights, Size(count));
}
double WeightedSum(const std::vector<double>& a, const std::vector<double>& b) {
  return b.empty() ? Sum(a) : ProductSum(a, b);
}

double ProductSum(const double* a, const double* b, int count) {
  return ordered::ProductSum(a, b, Size(count));
}
double ProductSum(const double* a, const double* b, const double* c, int count) {
  return ordered::ProductSum(a, b, c, Size(count));
}
double ProductSum(const std::vector<double>& a, const std::vector<double>& b) {
  return ordered::ProductSum(a.data(), b.data(), a.size());
}
double ProductSum(const std::vector<double>& a, const std::vector<double>& b,
                  const std::vector<double>& c) {
  return ordered::ProductSum(a.data(), b.data(), c.data(), a.size());
}

const double* CombineWeights(double* weights, const double* regWeights, int count) {
  return ordered::CombineWeights(weights, regWeights, Size(count));
}
const double* CombineWeights(double* weights, const double* regWeights, unsigned int count) {
  return ordered::CombineWeights(weights, regWeights, count);
}
void CombineWeights(std::vector<double>& weights, std::vector<double>& regWeights) {
  if (weights.empty()) {
    weights.swap(regWeights);
  } else {
    ordered::CombineWeights(weights.data(), Present(regWeights), weights.size());
  }
}

double WeightedMean(const double* x, const double* weights, const double& weightSum, int count) {
  return ordered::WeightedMean(x, weights, weightSum, Size(count));
}
double WeightedMean(const std::vector<double>& x, const std::vector<double>& weights,
                    double weightSum) {
  return ordered::WeightedMean(x.data(), Present(weights), weightSum, x.size());
}

double Maxs(const double* x, int count) { return ordered::Maxs(x, Size(count)); }
double Maxs(std::vector<double>& x) { return ordered::Maxs(x.data(), x.size()); }
double Mins(const double* x, int count) { return ordered::Mins(x, Size(count)); }
double Mins(std::vector<double>& x) { return ordered::Mins(x.data(), x.size()); }

void CenterData(double* x, double mean, int count) { ordered::CenterData(x, mean, Size(count)); }
void CenterData(std::vector<double>& x, double mean) {
  ordered::CenterData(x.data(), mean, x.size());
}

double CrossProduct(const double* x, const double* y, const double* weights, int count) {
  return ordered::CrossProduct(x, y, weights, Size(count));
}
double CrossProduct(const std::vector<double>& x, const std::vector<double>& y,
                    const std::vector<double>& weights) {
  return ordered::CrossProduct(x.data(), y.data(), Present(weights),
                               weights.empty() ? x.size() : weights.size());
}

void CopyNonmissing(const double* x, const double* weights, const double* regWeights,
                    double missingCode, int count, std::vector<double>& outX,
                    std::vector<double>& outWeights, std::vector<double>& outRegWeights) {
  ordered::CopyNonmissing(x, weights, regWeights, missingCode, Size(count), outX, outWeights,
                          outRegWeights);
}

void CopyCompletePairs(const double* x, const double* y, const double* weights,
                       const double* regWeights, double missingCode, int count,
                       std::vector<double>& outX, std::vector<double>& outY,
                       std::vector<double>& outWeights, std::vector<double>& outRegWeights) {
  ordered::CopyCompletePairs(x, y, weights, regWeights, missingCode, Size(count), outX, outY,
                             outWeights, outRegWeights);
}

void GroupWeightedSumX(const double* x, const unsigned int* groups, const double* weights,
                       double* sums, double* squareSums, int count) {
  ordered::GroupWeightedSumX(x, groups, weights, sums, squareSums, Size(count));
}
void GroupWeightedSumX(const double* x, const unsigned int* groups, double* sums,
                       double* squareSums, int count) {
  GroupWeightedSumX(x, groups, nullptr, sums, squareSums, count);
}

void WeightByGroup(const unsigned int* groups, const double* weights,
                   std::vector<double>& groupWeights, double& total, int count) {
  ordered::WeightByGroup(groups, weights, groupWeights, total, Size(count));
}
void WeightByGroup(const unsigned int* groups, std::vector<double>& groupWeights, double& total,
                   int count) {
  WeightByGroup(groups, nullptr, groupWeights, total, count);
}

double MeanDiff(double m1, double w1, double m2, double w2) {
  return ordered::MeanDiff(m1, w1, m2, w2);
}

unsigned int MatrixRow(unsigned int i) { return ((i + 1) * i) >> 1U; }

}  // namespace velmor
