// How long is it from columns in memory to a covariance matrix? The tables' other side is what
// numpy and pandas take for it (covariance.py).
#include "bench.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace bench {
namespace {

constexpr std::size_t kCases = 1'000'000;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A table with case weights and without missing values, or the other way round.
struct Table {
  Table(unsigned columns, bool isWeighted) : values(UniformValues(columns * kCases)) {
    view.rows = kCases;
    for (unsigned column = 0; column < columns; ++column) {
      view.values.emplace_back(&values[column * kCases]).nanIsAbsent = !isWeighted;
    }
    const std::vector<double> others = UniformValues(values.size(), 2);
    if (isWeighted) {
      std::transform(others.begin(), others.begin() + kCases, std::back_inserter(weights),
                     [](double x) { return 1. + x / 2.; });
      view.weights.emplace(weights.data());
    } else {  // a tenth is missing
      std::transform(values.begin(), values.end(), others.begin(), values.begin(),
                     [](double x, double y) { return y < -.8 ? kNaN : x; });
    }
  }

  std::vector<double> values;
  std::vector<double> weights;
  velmor::TableView view;
};

std::vector<double> Covariances(const velmor::SMatrixListwise& sums) {
  std::vector<double> covariances;
  const int columns = static_cast<int>(sums.NColumns());
  for (int row = 0; row < columns; ++row) {
    for (int column = 0; column < columns; ++column) {
      covariances.push_back(sums.CCP(row, column) / (sums.WeightSum() - 1.));
    }
  }
  return covariances;
}

std::vector<double> Covariances(const velmor::SMatrixPairwise& sums) {
  std::vector<double> covariances;
  const int columns = static_cast<int>(sums.NColumns());
  for (int row = 0; row < columns; ++row) {
    for (int column = 0; column < columns; ++column) {
      covariances.push_back(row == column ? sums.Var(row).CSS() / (sums.Var(row).WeightSum() - 1.)
                                          : sums.Pair(row, column).CSCP() /
                                                (sums.Pair(row, column).WeightSum() - 1.));
    }
  }
  return covariances;
}

template <class Accumulator>
void RegisterCovariances(const std::string& name, unsigned columns, bool isWeighted,
                         const Accumulator& shape) {
  const auto table = std::make_shared<const Table>(columns, isWeighted);
  ForEachEngine(name + "/p:" + std::to_string(columns), [&shape, columns, table](auto& state) {
    Time(
        state, static_cast<double>(Triangle(columns) * kCases), [] {},
        [&] {
          const auto forest = velmor::Accumulate(table->view, shape, {0, 0, 1, {}});
          benchmark::DoNotOptimize(Covariances(*forest.Result()));
        });
  });
}

}  // namespace

void Register() {
  static const velmor::SMatrixListwise kListwise;
  static const velmor::SMatrixPairwise kPairwise(kMissing);
  for (const unsigned columns : {12U, 50U}) {
    RegisterCovariances("Weighted", columns, true, kListwise);
    RegisterCovariances("Pairwise", columns, false, kPairwise);
  }
}

}  // namespace bench
