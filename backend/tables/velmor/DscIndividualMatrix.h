#pragma once

#include <velmor/matrixbase.h>

#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// For each group by itself, the sums from which its matrix of squares and products is made: the
// group's weight, each variable's weighted sum, and the weighted sum of products of each pair of
// variables, a variable with itself included. The sums are not centred.
//
// Batches are sorted by group. Cases are complete. The weight of a case, w, is its case weight, and
// 1 without case weights; regression weights do not enter.
class DiscIndividualMatrix : public MatrixBase {
 public:
  // No groups and no variables: can only be merged into, and takes over the other's groups and
  // variables.
  DiscIndividualMatrix();
  // Asserts that neither number is negative.
  DiscIndividualMatrix(int nGroup, int nVar);
  ~DiscIndividualMatrix() override;

  // Not for this accumulator: always fails its assertion.
  DiscIndividualMatrix& operator+=(DataBatch& /*data*/) override {
    VELMOR_ASSERT(false);
    return *this;
  }

  // Adds a batch, which is only read. O((rows + NGroup()) * NVar()^2). Takes meanwhile as much
  // memory again as the accumulator has. Asserts that the batch is sorted, has NVar() columns and
  // not more than NGroup() groups. Throws std::bad_alloc, leaving the accumulator as it was.
  DiscIndividualMatrix& operator+=(DataBatchByGroup& data) override;

  // Merges a DiscIndividualMatrix over other cases. O(NGroup() * NVar()^2). Asserts the other's
  // class; unless this one is empty, that both have the same numbers of groups and of variables.
  // Throws std::bad_alloc, leaving the accumulator as it was.
  DiscIndividualMatrix& operator+=(MatrixBase& other) override;

  unsigned int NRows() const override;
  // Sum of w over all cases.
  double WeightSum() const;
  int NVar() const;
  int NGroup() const;

  // A group's item by number. With p = NVar() and T = p(p+1)/2:
  //   i(i+1)/2 + j, j <= i < p   sum of w * x_i * x_j
  //   T + i, i < p               sum of w * x_i
  //   T + p                      sum of w
  // Asserts the bounds and 0 < WeightSum().
  double TSSP(int tsspIndex, int groupVal) const;

  // A group's sum of products by its variables, the first counted from 1 and the second from 0:
  // TSSP(i + 1, j, g), j <= i, is the sum of w * x_i * x_j. The greater index is taken as the
  // first. Asserts 0 <= row, col <= NVar(), row != col, the group's bound and 0 < WeightSum().
  double TSSP(int row, int col, int groupVal) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
