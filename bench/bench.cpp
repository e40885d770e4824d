// bench.cpp: the data, the limits, and main.
#include "bench.h"

#include "limit.h"

#include <algorithm>
#include <random>
#include <string_view>

namespace bench {

std::vector<double> UniformValues(std::size_t count, unsigned seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> uniform(-1., 1.);
  std::vector<double> values(count);
  std::generate(values.begin(), values.end(), [&] { return uniform(random); });
  return values;
}

Cases::Cases(unsigned columns, GapsOf gapsOf, ValueOf valueOf)
    : _batch(columns, kRows, &_weight, nullptr, &_group),
      _columns(UniformValues(std::size_t{columns} * kRows)) {
  const std::vector<double> gaps = UniformValues(_columns.size(), 2);
  std::vector<double> row(columns);
  for (unsigned r = 0; r < kRows; ++r) {
    for (unsigned c = 0; c < columns; ++c) {
      double& value = _columns[std::size_t{c} * kRows + r];
      value = valueOf(r, c, value);
      const unsigned source = gapsOf(c);
      if (source != kNoGaps && gaps[std::size_t{source} * kRows + r] < -.8) {
        value = kMissing;
      }
      row[c] = value;
    }
    _weight = 1. + r % 3;
    _group = r % kGroups;
    _batch.AddRow(row.data());
  }
}

velmor::DataBatch& Cases::Refilled() {
  std::copy(_columns.begin(), _columns.end(), _batch.Column(0));
  return _batch;
}

namespace {
// Called through a variable, as the analyzer takes the function itself for a leak.
benchmark::internal::Benchmark* (*registerBenchmark)(const char*,
                                                     Body&&) = benchmark::RegisterBenchmark;
}  // namespace

void RegisterTimed(const std::string& name, Body body) {
  registerBenchmark(name.c_str(), std::move(body))->UseManualTime()->Unit(benchmark::kMicrosecond);
}

void ForEachEngine(const std::string& name, const Body& body) {
  for (const velmor::ordered::Engine* const engine : velmor::ordered::Available()) {
    RegisterTimed(name + '/' + engine->name, [engine, body](benchmark::State& state) {
      Use(*engine);
      body(state);
    });
  }
}

namespace {

// Of the vectors that an engine has.
struct Width {
  std::string_view engine;
  unsigned lanes;
  double (*multiplyAdd)(std::size_t steps);
  void (*addScaled)(double* a, const double* b, double s, std::size_t count);
};

Width WidthOf(std::string_view engine) {
  static constexpr Width kWidths[] = {{"baseline", 2, MultiplyAdd<2>, AddScaled<2>},
                                      {"avx2", 4, MultiplyAdd<4>, AddScaled<4>},
                                      {"avx512", 8, MultiplyAdd<8>, AddScaled<8>}};
  return *std::find_if(std::begin(kWidths), std::end(kWidths),
                       [engine](const Width& width) { return width.engine == engine; });
}

}  // namespace

void RegisterLimits() {
  constexpr std::size_t kSteps = 1 << 16;
  for (const velmor::ordered::Engine* const engine : velmor::ordered::Available()) {
    RegisterTimed(std::string("Limit/") + engine->name,
                  [width = WidthOf(engine->name)](benchmark::State& state) {
                    Time(
                        state, static_cast<double>(kSteps) * width.lanes * kChains, [] {},
                        [=] { benchmark::DoNotOptimize(width.multiplyAdd(kSteps)); });
                  });
  }
}

void RegisterBandwidth(std::size_t cells) {
  for (const velmor::ordered::Engine* const engine : velmor::ordered::Available()) {
    RegisterTimed("Bandwidth/cells:" + std::to_string(cells) + '/' + engine->name,
                  [cells, width = WidthOf(engine->name)](benchmark::State& state) {
                    std::vector<double> a(cells);
                    const std::vector<double> b = UniformValues(cells);
                    Time(
                        state, static_cast<double>(cells), [] {},
                        [&] { width.addScaled(a.data(), b.data(), 1.5, cells); });
                    benchmark::DoNotOptimize(a.data());
                  });
  }
}

}  // namespace bench

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  benchmark::AddCustomContext("compiler", VELMOR_COMPILER);
  benchmark::AddCustomContext("flags", VELMOR_FLAGS);
  bench::Register();
  benchmark::RunSpecifiedBenchmarks();
}
