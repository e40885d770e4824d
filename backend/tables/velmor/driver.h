#pragma once

#include <cstdint>

#pragma GCC visibility push(default)
namespace velmor {

// One thread's share of a problem, implemented by the host: typically a DataBatch, an accumulator
// of its own, and a way to reach the host's data. Its three operations run on one thread: reads and
// accumulations in turn, then one merge.
class ProblemPartBase {
 public:
  virtual ~ProblemPartBase();
  ProblemPartBase(const ProblemPartBase&) = delete;
  ProblemPartBase& operator=(const ProblemPartBase&) = delete;

  // Takes the next cases from the host's data; false when none was left, and then no part reads
  // again. Never runs at the same time as another part's ReadBatch, so keep it short: only claim
  // the cases here; all else, such as parsing them and filling the batch, belongs in
  // AccumulateBatch.
  virtual bool ReadBatch() = 0;

  // Processes what the last ReadBatch took, typically `accumulator += batch`. Runs at the same
  // time as other parts' operations.
  virtual void AccumulateBatch() = 0;

  // Folds this part's result into the problem's, typically `result += accumulator`. Never runs at
  // the same time as another part's MergeResult.
  virtual void MergeResult() = 0;

 protected:
  ProblemPartBase() = default;
};

// What is to be computed, implemented by the host. The host owns it; Driver does not copy or
// delete it.
class ProblemBase {
 public:
  virtual ~ProblemBase();
  ProblemBase(const ProblemBase&) = delete;
  ProblemBase& operator=(const ProblemBase&) = delete;

  // A new part, owned by the caller. Called once per thread of a run, always on the thread that
  // called Driver, while parts made earlier may already be at work.
  virtual ProblemPartBase* CreatePart() = 0;

  // Tells the problem how many bytes of cache memory it may use.
  void SetCacheSize(unsigned long bytes);

 protected:
  ProblemBase() = default;

  std::uint64_t _cacheSize = 0;  // bytes; set by Driver before it asks for parts
};

// Runs a problem to completion: every part reads and accumulates until the data end, then merges.
//
//   threads  1: all on the calling thread, one part. More: that many threads, one part each; parts
//            merge in the order in which they finish. Less than 1: as many as the host service
//            getthreads_ says; if that is 0, nothing is read. More threads than the system can
//            start are an error, which says so (std::system_error, std::invalid_argument), before
//            any part is made.
//
// Errors. On the calling thread (the only one with threads == 1) every exception passes to the
// caller. NorvGoToCaller on a pool thread: the other parts stop at their next turn and merge, the
// part that raised it does not, and the host service atnnxt_ is called once after all have ended.
// Any other exception on a pool thread: the other parts stop at their next turn and merge, and the
// caller gets the first of these exceptions after all have ended; then atnnxt_ is not called, not
// even if there was a NorvGoToCaller as well. Parts are deleted in every case.
//
// Asserts that there is a problem and that it makes parts. Can be called from several threads at
// once and from within a part. The process may exit meanwhile, also from within a part; and it may
// fork, and the child run problems of its own.
void Driver(ProblemBase* problem, int threads);

}  // namespace velmor
#pragma GCC visibility pop
