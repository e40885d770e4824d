// matrixbase.cpp: what an accumulator does unless its class says otherwise.
#include <velmor/matrixbase.h>

namespace velmor {

MatrixBase::~MatrixBase() = default;

MatrixBase& MatrixBase::operator+=(DataBatchByGroup& /*data*/) { return *this; }

}  // namespace velmor
