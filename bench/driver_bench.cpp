// What does a second thread gain, filling its batches included, and what does it cost that the
// result has the same bits on any number of threads?
#include "bench.h"

#include <algorithm>

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

// A million weighted cases in columns.
struct Table {
  static constexpr std::size_t kCases = 1'000'000;
  Table() : values(UniformValues((kColumns + 1) * kCases)) {
    view.rows = kCases;
    for (unsigned column = 0; column < kColumns; ++column) {
      view.values.emplace_back(&values[column * kCases]);
    }
    view.weights.emplace(&values[kColumns * kCases]);
  }
  std::vector<double> values;
  velmor::TableView view;
};

// The table in blocks of the same size as Accumulate's, but each thread adds up its own.
struct TableProblem : velmor::ProblemBase {
  explicit TableProblem(const velmor::TableView& view) : table(view) {}
  velmor::ProblemPartBase* CreatePart() override;

  const velmor::TableView& table;
  std::uint64_t next = 0;  // the first row that no part has claimed
  velmor::SMatrixListwise result;
};

class TablePart : public velmor::ProblemPartBase {
 public:
  explicit TablePart(TableProblem& problem) : _problem(problem) {}

  bool ReadBatch() override {
    _from = _problem.next;
    _problem.next = std::min(_from + _batch.MaxRows(), _problem.table.rows);
    return _from < _problem.next;
  }

  void AccumulateBatch() override {
    _batch.Clear();
    _batch.AddColumns(_problem.table, _from,
                      std::min(_from + _batch.MaxRows(), _problem.table.rows));
    _mine += _batch;
  }

  void MergeResult() override { _problem.result += _mine; }

 private:
  TableProblem& _problem;
  std::uint64_t _from = 0;
  double _weight = 0.;
  velmor::DataBatch _batch{kColumns, static_cast<unsigned>(velmor::DefaultBlockRows(kColumns)),
                           &_weight, nullptr, nullptr};
  velmor::SMatrixListwise _mine;
};

velmor::ProblemPartBase* TableProblem::CreatePart() { return new TablePart(*this); }

void RegisterTable(const std::string& name, const std::shared_ptr<const Table>& table,
                   void (*run)(const velmor::TableView& view, int threads), int threads) {
  ForEachEngine("Table/p:48/" + name + "/threads:" + std::to_string(threads),
                [=](benchmark::State& state) {
                  Time(
                      state, static_cast<double>(Triangle(kColumns) * Table::kCases), [] {},
                      [&] { run(table->view, threads); });
                });
}

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
  const auto table = std::make_shared<const Table>();
  for (const int threads : {1, 2}) {
    RegisterTable(
        "driver", table,
        [](const velmor::TableView& view, int count) {
          TableProblem problem(view);
          velmor::Driver(&problem, count);
        },
        threads);
    RegisterTable(
        "forest", table,
        [](const velmor::TableView& view, int count) {
          velmor::Accumulate(view, velmor::SMatrixListwise(), {0, 0, count, {}}).Result();
        },
        threads);
  }
}

}  // namespace bench
