// How many cells a second does each accumulator take a case into, batch after batch, on one thread?
// A rate is that of the whole of `+=` with batches of 4096 weighted cases, the merge included; the
// filling of the batch, which accumulating overwrites, is not timed.
#include <benchmark/benchmark.h>
#include <velmor/velmor.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr unsigned int kRows = 4096;
constexpr unsigned int kGroups = 5;
constexpr double kMissing = -1e300;

// Cases of independent uniform variables, a tenth of the values missing where asked for.
class Data {
 public:
  Data(unsigned int columns, bool missing) : _columns(columns), _values(_columns * kRows) {
    std::mt19937_64 random(4096);
    std::uniform_real_distribution<double> uniform(-1., 1.);
    for (double& value : _values) {
      value = missing && random() % 10 == 0 ? kMissing : uniform(random);
    }
  }

  void Fill(velmor::DataBatch& batch, double& weight, unsigned int& group) const {
    batch.Clear();
    for (unsigned int row = 0; row < kRows; ++row) {
      weight = 1. + row % 3;
      group = row % kGroups;
      batch.AddRow(&_values[std::size_t{row} * _columns]);
    }
  }

 private:
  std::size_t _columns;
  std::vector<double> _values;
};

// cells  results that each case enters
template <class Accumulator, class... Shape>
void Accumulate(benchmark::State& state, unsigned int columns, std::size_t cells, bool missing,
                Shape... shape) {
  const Data data(columns, missing);
  double weight = 0.;
  unsigned int group = 0;
  velmor::DataBatch batch(columns, kRows, &weight, nullptr, &group);
  Accumulator accumulator(shape...);
  for (auto _ : state) {
    state.PauseTiming();
    data.Fill(batch, weight, group);
    state.ResumeTiming();
    accumulator += batch;
  }
  state.counters["cell_rows"] = benchmark::Counter(static_cast<double>(cells) * kRows,
                                                   benchmark::Counter::kIsIterationInvariantRate);
}

std::size_t Triangle(std::size_t columns) { return columns * (columns + 1) / 2; }

void Symmetric(benchmark::State& state) {
  const auto p = static_cast<unsigned int>(state.range(0));
  Accumulate<velmor::SMatrixListwise>(state, p, Triangle(p), false);
}
void Rectangular(benchmark::State& state) {
  const auto p = static_cast<unsigned int>(state.range(0));
  const auto h = static_cast<int>(p / 2);
  const std::size_t cells = std::size_t{p / 2} * (p - p / 2);
  Accumulate<velmor::NSMatrixListwise>(state, p, cells, false, 0, h, static_cast<int>(p));
}
void Pairwise(benchmark::State& state, bool missing) {
  const auto p = static_cast<unsigned int>(state.range(0));
  Accumulate<velmor::SMatrixPairwise>(state, p, Triangle(p), missing, kMissing);
}
void Groups(benchmark::State& state) {
  const auto p = static_cast<unsigned int>(state.range(0));
  Accumulate<velmor::DiscriminantMatrix>(state, p, Triangle(p), false, static_cast<int>(kGroups),
                                         static_cast<int>(p));
}

constexpr int kSizes[] = {4, 12, 48};

void AtSizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : kSizes) {
    benchmark->Arg(size);
  }
}

BENCHMARK(Symmetric)->Apply(AtSizes);
BENCHMARK(Rectangular)->Apply(AtSizes);
BENCHMARK_CAPTURE(Pairwise, complete, false)->Apply(AtSizes);
BENCHMARK_CAPTURE(Pairwise, missing, true)->Apply(AtSizes);
BENCHMARK(Groups)->Apply(AtSizes);

}  // namespace
