#pragma once

#include <velmor/matrixbase.h>

#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// The sums that discriminant analysis starts from: of each group its weight, and of each variable
// in it the weighted sum and sum of squares; of each pair of variables the weighted sum of
// products over all cases. None of them is centred.
//
// Cases are complete and carry group numbers. w, the weight of a case, is its case weight, 1
// without case weights; regression weights do not enter.
class DiscriminantMatrix : public MatrixBase {
 public:
  // No groups and no variables: can only be merged into, and takes over the other's.
  DiscriminantMatrix();
  // Asserts that neither is negative.
  DiscriminantMatrix(int nGroup, int nVar);
  ~DiscriminantMatrix() override;

  using MatrixBase::operator+=;

  // Adds a batch, which is only read. O(rows * NVar()^2 + NGroup() * NVar()); takes as much memory
  // again while it does. Asserts that the batch has NVar() columns and group numbers below
  // NGroup(). Throws std::bad_alloc, leaving the accumulator as it was.
  DiscriminantMatrix& operator+=(DataBatch& data) override;

  // Merges a DiscriminantMatrix over other cases. O(NVar()^2 + NGroup() * NVar()). One whose
  // weights sum to zero changes nothing. Asserts the other's class and, unless this one is empty,
  // that both have the same groups and variables. Throws std::bad_alloc, leaving the accumulator as
  // it was.
  DiscriminantMatrix& operator+=(MatrixBase& other) override;

  unsigned int NRows() const override;
  // Sum of w over all cases.
  double WeightSum() const;
  int NVar() const;
  int NGroup() const;

  // Sum of w over the cases of group c. Asserts the bound and 0 < WeightSum().
  double sumW(int c) const;
  // Sum of w * x, and of w * x^2, over the cases of a group. Assert the bounds and
  // 0 < WeightSum().
  double sumX1(int group, int var) const;
  double sumX2(int group, int var) const;
  // Sum of w * x * y over all cases, for two different variables in either order; that of a
  // variable with itself is the sum of its sumX2 over the groups. Asserts the bounds and
  // 0 < WeightSum().
  double TSSP(int row, int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
