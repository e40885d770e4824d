// How fast are tables in memory accumulated, from few columns to many, from a million rows to some
// thousand, by one thread and by two?
#include "bench.h"

#include <limits>

namespace bench {
namespace {

constexpr std::size_t kMostRows = 1'000'000;
constexpr std::size_t kMostColumns = 48;  // of so many rows

// Values that all tables are cut from, with case weights; or a tenth of them missing, without.
struct Values {
  explicit Values(bool areMissing) : values(UniformValues(kMostRows * kMostColumns)) {
    if (areMissing) {
      for (double& value : values) {
        value = value < -.8 ? std::numeric_limits<double>::quiet_NaN() : value;
      }
    } else {
      weights = UniformValues(kMostRows, 2);
      for (double& weight : weights) {
        weight = 1. + weight / 2.;
      }
    }
  }

  velmor::TableView Table(std::size_t columns, std::size_t rows) const {
    velmor::TableView view;
    view.rows = rows;
    for (std::size_t column = 0; column < columns; ++column) {
      view.values.emplace_back(&values[column * rows]).nanIsAbsent = weights.empty();
    }
    if (!weights.empty()) {
      view.weights.emplace(weights.data());
    }
    return view;
  }

  std::vector<double> values;
  std::vector<double> weights;
};

template <class Accumulator>
void RegisterTable(const std::string& name, std::size_t columns, std::size_t rows, int threads,
                   const Accumulator& shape, const std::shared_ptr<const Values>& values) {
  ForEachEngine(name + "/p:" + std::to_string(columns) + "/rows:" + std::to_string(rows) +
                    "/threads:" + std::to_string(threads),
                [=, &shape](benchmark::State& state) {
                  const velmor::TableView table = values->Table(columns, rows);
                  const std::size_t cells =
                      values->weights.empty() ? Triangle(columns - 1) : Triangle(columns);
                  Time(
                      state, static_cast<double>(cells * rows), [] {},
                      [&] {
                        const auto forest = velmor::Accumulate(table, shape, {0, 0, threads, {}});
                        benchmark::DoNotOptimize(forest.Result());
                      });
                });
}

template <class Accumulator>
void RegisterTables(const std::string& name, const Accumulator& shape, bool areMissing) {
  const auto values = std::make_shared<const Values>(areMissing);
  for (const std::size_t columns : {2U, 4U, 8U, 12U, 24U, 48U}) {
    RegisterTable(name, columns, kMostRows, 1, shape, values);
  }
  if (!areMissing) {
    RegisterTable(name, 96, kMostRows / 2, 1, shape, values);
  }
  for (const std::size_t columns : {4U, 12U, 48U}) {
    RegisterTable(name, columns, 100'000, 1, shape, values);
    RegisterTable(name, columns, 20'000, 1, shape, values);
    RegisterTable(name, columns, kMostRows, 2, shape, values);
  }
}

}  // namespace

void Register() {
  static const velmor::SMatrixListwise kListwise;
  static const velmor::SMatrixPairwise kPairwise(kMissing);
  RegisterLimits();
  RegisterTables("Listwise", kListwise, false);
  RegisterTables("Pairwise", kPairwise, true);
}

}  // namespace bench
