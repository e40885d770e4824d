#pragma once

#include <velmor/databatch.h>
#include <velmor/databatchbygroup.h>

#pragma GCC visibility push(default)
namespace velmor {

// An accumulator of statistics over cases: feed it batches, merge it with another of its class,
// read the results. Merging is exact: accumulators over disjoint cases give, up to rounding, what
// one accumulator over all cases gives, in whatever order they are merged.
//
// An accumulator is empty until its first non-empty batch or merge. Nothing resets it; make a new
// one for a new pass. It is used by one thread at a time. It is not copied: merge it into an empty
// one instead. Sums are taken in the default floating-point environment (round to nearest,
// subnormal numbers kept); the calling thread's environment is restored afterwards.
//
// Counts. The heirs of this class count cases in 32 bits: at most 2^32 - 1 of them, the two
// pairwise blocks 2^31 - 1. MatrixListwise and MatrixPairwise count in 64 bits. Operator += does
// not notice more cases than that; BlockForest::Add and Merge refuse them.
//
// Weights that sum to zero. Merging an accumulator whose case weights sum to zero into one that
// holds cases changes nothing, not even the number of cases. Listwise and discriminant accumulators
// merge each batch as an accumulator of its own, so the same holds for batches. A listwise
// accumulator that holds only such cases is replaced by the first batch or accumulator of another
// weight. Means divide by the sum of the combined weights (databatch.h). Where it is zero over a
// batch, or pairwise over a batch's cases of a column or pair, means and centred sums can become
// infinite or NaN for good. So leave cases out that weigh nothing.
class MatrixBase {
 public:
  virtual ~MatrixBase();
  MatrixBase(const MatrixBase&) = delete;
  MatrixBase& operator=(const MatrixBase&) = delete;

  // Cases accumulated so far.
  virtual unsigned int NRows() const = 0;

  // Adds a batch of cases; an empty batch changes nothing. The batch may be overwritten. All
  // batches of one accumulator have the same columns and the same kinds of weights.
  // Throws std::bad_alloc.
  virtual MatrixBase& operator+=(DataBatch& data) = 0;

  // Adds a batch sorted by group. An accumulator that does not work by group ignores it.
  virtual MatrixBase& operator+=(DataBatchByGroup& data);

  // Merges an accumulator over other cases into this one; it is only read. Merging one that holds
  // no case changes nothing; merging into an empty one copies, shape included. Asserts that both
  // are of one class and otherwise of one shape. Throws std::bad_alloc.
  virtual MatrixBase& operator+=(MatrixBase& other) = 0;

 protected:
  MatrixBase() = default;
};

}  // namespace velmor
#pragma GCC visibility pop
