// What does a second thread gain, filling its batches included?
#include "bench.h"

namespace bench {
namespace {

constexpr unsigned kColumns = 48;
constexpr unsigned kBatches = 128;

struct Problem : velmor::ProblemBase {
  explicit Problem(const std::vector<double>& rows) : cases(rows) {}
  velmor::ProblemPartBase* CreatePart() override;

  const std::vector<double>& cases;  // row after row; every batch is filled with them
  unsigned left = kBatches;          // batches that no part has claimed
  velmor::SMatrixListwise result;
};

class Part : public velmor::ProblemPartBase {
 public:
  explicit Part(Problem& problem) : _problem(problem) {}

  bool ReadBatch() override {
    const bool isClaimed = _problem.left != 0;
    _problem.left -= isClaimed ? 1 : 0;
    return isClaimed;
  }

  void AccumulateBatch() override {
    _batch.Clear();
    for (unsigned row = 0; row < kRows; ++row) {
      _weight = 1. + row % 3;
      _batch.AddRow(&_problem.cases[std::size_t{row} * kColumns]);
    }
    _mine += _batch;
  }

  void MergeResult() override { _problem.result += _mine; }

 private:
  Problem& _problem;
  double _weight = 0.;
  velmor::DataBatch _batch{kColumns, kRows, &_weight, nullptr, nullptr};
  velmor::SMatrixListwise _mine;
};

velmor::ProblemPartBase* Problem::CreatePart() { return new Part(*this); }

}  // namespace

void Register() {
  const auto rows =
      std::make_shared<const std::vector<double>>(UniformValues(std::size_t{kColumns} * kRows));
  for (const int threads : {1, 2}) {
    ForEachEngine("Driver/p:48/threads:" + std::to_string(threads),
                  [rows, threads](benchmark::State& state) {
                    const std::size_t cells = Triangle(kColumns) * kRows * kBatches;
                    Time(
                        state, static_cast<double>(cells), [] {},
                        [&] {
                          Problem problem(*rows);
                          velmor::Driver(&problem, threads);
                        });
                  });
  }
}

}  // namespace bench
