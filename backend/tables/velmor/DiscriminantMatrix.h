#pragma once

#include <velmor/matrixbase.h>

#include <memory>

#pragma GCC visibility push(default)
namespace velmor {

// The sums that discriminant analysis starts from. Of each group: its weight, and each variable's
// weighted sum and weighted sum of squares. Of each pair of variables: the weighted sum of products
// over all cases. The sums are not centred.
//
// Cases are complete and carry group numbers. The weight of a case, w, is its case weight, and 1
// without case weights; regression weights do not enter.
class DiscriminantMatrix : public MatrixBase {
 public:
  // No groups and no variables: can only be merged into, and takes over the other's groups and
  // variables.
  DiscriminantMatrix();
  // Asserts that neither number is negative.
  DiscriminantMatrix(int nGroup, int nVar);
  ~DiscriminantMatrix() override;

  using MatrixBase::operator+=;

  // Adds a batch, which is only read. O(rows * NVar()^2 + NGroup() * NVar()). Takes meanwhile as
  // much memory again as the accumulator has. Asserts that the batch has NVar() columns and group
  // numbers below NGroup(). Throws std::bad_alloc, leaving the accumulator as it was.
  DiscriminantMatrix& operator+=(DataBatch& data) override;

  // Merges a DiscriminantMatrix over other cases. O(NVar()^2 + NGroup() * NVar()). Asserts the
  // other's class; unless this one is empty, that both have the same numbers of groups and of
  // variables. Throws std::bad_alloc, leaving the accumulator as it was.
  DiscriminantMatrix& operator+=(MatrixBase& other) override;

  unsigned int NRows() const override;
  // Sum of w over all cases.
  double WeightSum() const;
  int NVar() const;
  int NGroup() const;

  // Sum of w over the cases of group c. Asserts the bound and 0 < WeightSum().
  double sumW(int c) const;
  // Over the cases of a group, sumX1 is the sum of w * x, sumX2 the sum of w * x^2. Both assert the
  // bounds and 0 < WeightSum().
  double sumX1(int group, int var) const;
  double sumX2(int group, int var) const;
  // Sum of w * x * y over all cases, for two different variables in either order. Asserts the
  // bounds, that the variables differ, and 0 < WeightSum(). The sum of w * x^2 over all cases is
  // the sum of sumX2 over the groups.
  double TSSP(int row, int col) const;

 private:
  friend struct Internals;

  struct [[gnu::visibility("hidden")]] Data;
  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
