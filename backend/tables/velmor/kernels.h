#pragma once

// The arithmetic of the accumulators as free functions over arrays of doubles.
//
// Every sum starts at 0.0 and adds its terms in ascending index order, one rounded operation after
// another: no reassociation, no fused multiply-add, no partial sums. So results have the same bits
// from every compiler and on every machine, given the same floating-point environment. Kernels
// compute in the caller's environment.
//
// In the pointer forms `count` is the number of elements, not negative, and a null weight array
// means that every case has weight 1. In the vector forms an empty weight vector means the same,
// and the count is the size of the first vector. All kernels are single passes, O(count). They
// allocate nothing and throw nothing unless said otherwise.

#include <vector>

#pragma GCC visibility push(default)
namespace velmor {

// Starting values of a running maximum and a running minimum: -1.79e+308 and 1.79e+308, not the
// outermost finite doubles.
extern const double minvalue;
extern const double maxvalue;

// Sum of x[i].
double Sum(const double* x, int count);
double Sum(const std::vector<double>& x);

// Sum of the weights; `count` itself when there are none.
double WeightedSum(const double* weights, int count);
// Sum of a[i] * b[i], or of a[i] when b is empty. With regression weights a and case weights b it
// is the sum of the combined weights.
double WeightedSum(const std::vector<double>& a, const std::vector<double>& b);

// Sum of a[i] * b[i], and of (a[i] * b[i]) * c[i].
double ProductSum(const double* a, const double* b, int count);
double ProductSum(const double* a, const double* b, const double* c, int count);
double ProductSum(const std::vector<double>& a, const std::vector<double>& b);
double ProductSum(const std::vector<double>& a, const std::vector<double>& b,
                  const std::vector<double>& c);

// Combines case weights and regression weights: where both are present, weights[i] becomes
// regWeights[i] * weights[i]. Returns the array that then holds the combined weights: `weights`,
// `regWeights` where there are no case weights, null where there are none of either kind.
const double* CombineWeights(double* weights, const double* regWeights, int count);
const double* CombineWeights(double* weights, const double* regWeights, unsigned int count);
// The same on vectors. Afterwards `weights` holds the combined weights. Where there were only
// regression weights, the two vectors have been swapped. If neither is empty, both are of one
// length.
void CombineWeights(std::vector<double>& weights, std::vector<double>& regWeights);

// Weighted mean of x, weightSum being the sum of its weights; 0.0 without elements. The elements at
// the start that equal x[0] are not added up one by one: their number, or the sum of their weights,
// is multiplied by x[0]. Where all elements are equal, the mean is x[0] itself, whatever the
// weights, and takes no division. Otherwise a zero weightSum gives an infinity or NaN.
double WeightedMean(const double* x, const double* weights, const double& weightSum, int count);
double WeightedMean(const std::vector<double>& x, const std::vector<double>& weights,
                    double weightSum);

// Maxs: the largest element, `minvalue` without elements. Mins: the smallest element, `maxvalue`
// without elements. NaNs after the first element are passed over; a first element that is NaN is
// the result.
double Maxs(const double* x, int count);
double Maxs(std::vector<double>& x);
double Mins(const double* x, int count);
double Mins(std::vector<double>& x);

// Subtracts `mean` from every element.
void CenterData(double* x, double mean, int count);
void CenterData(std::vector<double>& x, double mean);

// Sum of (weights[i] * x[i]) * y[i], without weights of x[i] * y[i]. With centred columns it is a
// centred cross-product, with y = x a centred sum of squares. The vector form takes its count from
// the weights where there are any.
double CrossProduct(const double* x, const double* y, const double* weights, int count);
double CrossProduct(const std::vector<double>& x, const std::vector<double>& y,
                    const std::vector<double>& weights);

// Copies the cases in which x is present, in their order, with their weights. A value is absent
// when it equals missingCode: a NaN value is present, and a NaN code marks nothing. The outputs are
// sized here; the output of an absent array is empty. Throws std::bad_alloc.
void CopyNonmissing(const double* x, const double* weights, const double* regWeights,
                    double missingCode, int count, std::vector<double>& outX,
                    std::vector<double>& outWeights, std::vector<double>& outRegWeights);

// The same for the cases in which both x and y are present.
void CopyCompletePairs(const double* x, const double* y, const double* weights,
                       const double* regWeights, double missingCode, int count,
                       std::vector<double>& outX, std::vector<double>& outY,
                       std::vector<double>& outWeights, std::vector<double>& outRegWeights);

// Adds each case to its group g = groups[i]: t = x[i] * weights[i] to sums[g], and t * x[i] to
// squareSums[g]. Both arrays have an entry for every group number and are added to, not cleared.
void GroupWeightedSumX(const double* x, const unsigned int* groups, const double* weights,
                       double* sums, double* squareSums, int count);
void GroupWeightedSumX(const double* x, const unsigned int* groups, double* sums,
                       double* squareSums, int count);

// Adds each case's weight, 1.0 without weights, to groupWeights[groups[i]] and to `total`.
void WeightByGroup(const unsigned int* groups, const double* weights,
                   std::vector<double>& groupWeights, double& total, int count);
void WeightByGroup(const unsigned int* groups, std::vector<double>& groupWeights, double& total,
                   int count);

// How far the mean m1 of weight w1 moves when a mean m2 of weight w2 is merged into it:
// ((m2 - m1) * w2) / (w1 + w2), 0.0 when the weights add up to 0.
double MeanDiff(double m1, double w1, double m2, double w2);

// Offset of row i of a packed lower triangle with its diagonal, i(i+1)/2 in unsigned 32-bit
// arithmetic: cell (i, j), j <= i, is at MatrixRow(i) + j. i is at most 65535.
unsigned int MatrixRow(unsigned int i);

}  // namespace velmor
#pragma GCC visibility pop
