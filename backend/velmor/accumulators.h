#pragma once

// All classes of accumulators, listed here and, for the forests that hosts link, once more at the
// end of blockforest.cpp; and an accumulator that is known only as a MatrixBase.

#include <velmor/DiscriminantMatrix.h>
#include <velmor/DscIndividualMatrix.h>
#include <velmor/matrixbase.h>
#include <velmor/matrixlistwise.h>
#include <velmor/matrixpairwise.h>
#include <velmor/nsmatrixlistwise.h>
#include <velmor/nsmatrixpairwise.h>
#include <velmor/smatrixlistwise.h>
#include <velmor/smatrixpairwise.h>

#include "record/stateof.h"

#include <memory>

namespace velmor {

template <class... Classes>
struct ClassList {};

// What templates over accumulators are compiled for. A source takes the addresses of its functions
// for all of them, as an explicit instantiation of each would be this list once more.
using AllAccumulators =
    ClassList<MatrixBase, MatrixListwise, MatrixPairwise, SMatrixListwise, NSMatrixListwise,
              SMatrixPairwise, NSMatrixPairwise, DiscriminantMatrix, DiscIndividualMatrix>;

// Each call goes to the accumulator's own class. GetShape and Write throw std::invalid_argument
// when it is not a class of the library's.
template <>
struct StateOf<MatrixBase> {
  static bool Is(Kind kind);
  static Shape GetShape(const MatrixBase& accumulator);
  static std::unique_ptr<MatrixBase> Make(const Shape& shape);
  static std::unique_ptr<MatrixBase> Of(const Shape& shape, const ListwiseTotals& totals);
  static std::unique_ptr<MatrixBase> Of(const Shape& shape, const PairwiseTotals& totals);
  static void Write(const MatrixBase& accumulator, StateWriter& state);
  static std::unique_ptr<MatrixBase> Read(const Shape& shape, StateReader& state);
};

}  // namespace velmor
