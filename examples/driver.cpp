// A host of its own kind: parts that claim cases, fill batches and merge, run on all processors.
// Which thread takes which cases is left open, and so are the last bits; forest.cpp settles them.
//
// Prints
//   1000000 cases, mean of x 499.5, correlation of x and x^2 0.9682
#include <velmor/driver.h>
#include <velmor/smatrixlistwise.h>

#include <cmath>
#include <cstdio>

struct Problem : velmor::ProblemBase {
  velmor::ProblemPartBase* CreatePart() override;

  unsigned next = 0;               // the first case that no part has claimed
  velmor::SMatrixListwise result;  // of all cases, in the end
};

// One thread's share.
struct Part : velmor::ProblemPartBase {
  explicit Part(Problem& whole) : problem(whole) {}

  // One part at a time: only claims the next cases.
  bool ReadBatch() override {
    first = problem.next;
    problem.next += kCases;
    return first < 1'000'000;
  }
  // All parts at once: makes the cases, and accumulates them.
  void AccumulateBatch() override {
    batch.Clear();
    for (unsigned i = first; i < first + kCases; ++i) {
      const double x = i % 1000;
      const double values[] = {x, x * x};
      batch.AddRow(values);
    }
    mine += batch;
  }
  // One part at a time, once for each.
  void MergeResult() override { problem.result += mine; }

  static constexpr unsigned kCases = 1000;
  Problem& problem;
  unsigned first = 0;
  velmor::DataBatch batch{2, kCases, nullptr, nullptr, nullptr};  // no weights, no groups
  velmor::SMatrixListwise mine;
};

velmor::ProblemPartBase* Problem::CreatePart() { return new Part(*this); }

int main() {
  Problem problem;
  velmor::Driver(&problem, 0);  // 0: as many threads as there are processors
  const velmor::SMatrixListwise& r = problem.result;
  std::printf("%u cases, mean of x %g, correlation of x and x^2 %.4f\n", r.NRows(), r.Mean(0),
              r.CCP(0, 1) / std::sqrt(r.CCP(0, 0) * r.CCP(1, 1)));
}
