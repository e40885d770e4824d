#pragma once

// The arithmetic of the public kernels, as plain loops: each result is one chain of rounded
// operations in ascending order. <velmor/kernels.h> gives the meanings and forwards to these.
//
// They define what the operations over batches give, to the bit. The kernels of the engine
// (kernels/contract.h) go through the same chains many at a time, and so state sums, products and
// the mean with its leading run once more, in vectors; a mean's last step is also MeanOf
// (panels.h). Likewise the merge of pairs: record/presentmerge.h has it for one pair,
// kernels/merging.h in vectors. Tests compare both.

#include <cstddef>
#include <vector>

namespace velmor::ordered {

// The extremes of no values: Maxs and Mins of an empty array.
constexpr double kNoMaximum = -1.79e+308;
constexpr double kNoMinimum = 1.79e+308;

double Sum(const double* x, std::size_t count);
double WeightedSum(const double* weights, std::size_t count);
double ProductSum(const double* a, const double* b, std::size_t count);
double ProductSum(const double* a, const double* b, const double* c, std::size_t count);
const double* CombineWeights(double* weights, const double* regWeights, std::size_t count);
double WeightedMean(const double* x, const double* weights, double weightSum, std::size_t count);
double Maxs(const double* x, std::size_t count);
double Mins(const double* x, std::size_t count);
void CenterData(double* x, double mean, std::size_t count);
double CrossProduct(const double* x, const double* y, const double* weights, std::size_t count);
void CopyNonmissing(const double* x, const double* weights, const double* regWeights,
                    double missingCode, std::size_t count, std::vector<double>& outX,
                    std::vector<double>& outWeights, std::vector<double>& outRegWeights);
void CopyCompletePairs(const double* x, const double* y, const double* weights,
                       const double* regWeights, double missingCode, std::size_t count,
                       std::vector<double>& outX, std::vector<double>& outY,
                       std::vector<double>& outWeights, std::vector<double>& outRegWeights);
void GroupWeightedSumX(const double* x, const unsigned int* groups, const double* weights,
                       double* sums, double* squareSums, std::size_t count);
void WeightByGroup(const unsigned int* groups, const double* weights,
                   std::vector<double>& groupWeights, double& total, std::size_t count);
double MeanDiff(double m1, double w1, double m2, double w2);

}  // namespace velmor::ordered
