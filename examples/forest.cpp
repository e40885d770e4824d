// A host of its own kind whose result has the same bits on any number of threads: each part
// accumulates blocks of cases, and a forest merges these in the order of their numbers.
//
// Prints
//   1 thread:  mean 0x1.17e190acb4b44p+0
//   3 threads: mean 0x1.17e190acb4b44p+0
#include <velmor/blockforest.h>
#include <velmor/driver.h>

#include <cstdio>
#include <utility>

constexpr unsigned kBlockRows = 500;
constexpr unsigned kBlocks = 301;

using Forest = velmor::BlockForest<velmor::SMatrixListwise>;

struct Problem : velmor::ProblemBase {
  velmor::ProblemPartBase* CreatePart() override;

  unsigned next = 0;  // block
  Forest forest{kBlockRows, velmor::SMatrixListwise()};
};

struct Part : velmor::ProblemPartBase {
  explicit Part(Problem& whole) : problem(whole) {}

  bool ReadBatch() override {
    block = problem.next++;
    return block < kBlocks;
  }
  void AccumulateBatch() override {
    batch.Clear();
    for (unsigned i = block * kBlockRows; i < (block + 1) * kBlockRows; ++i) {
      const double x = 1. / (1. + i % 1009) + i * 1e-5 + 1. / 3.;
      batch.AddRow(&x);
    }
    auto leaf = problem.forest.NewLeaf();
    *leaf += batch;
    problem.forest.Add(block, std::move(leaf));  // can be called by all parts at once
  }
  void MergeResult() override {}  // the forest has it all

  Problem& problem;
  unsigned block = 0;
  velmor::DataBatch batch{1, kBlockRows, nullptr, nullptr, nullptr};
};

velmor::ProblemPartBase* Problem::CreatePart() { return new Part(*this); }

double Mean(int threads) {
  Problem problem;
  velmor::Driver(&problem, threads);
  return problem.forest.Result()->Mean(0);
}

int main() {
  std::printf("1 thread:  mean %a\n", Mean(1));
  std::printf("3 threads: mean %a\n", Mean(3));
}
