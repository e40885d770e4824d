#pragma once

// What the benchmarks share. A rate counts cells (or pairs, or values) times rows in a second, on
// one thread unless the name says otherwise, and is named operation/shape/who: an engine, or
// "plain" for the loops that define the result (tests/definition.h).

#include <benchmark/benchmark.h>
#include <velmor/velmor.h>

#include "ordered/engine.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bench {

constexpr unsigned kRows = 4096;
constexpr unsigned kGroups = 5;
constexpr double kMissing = -1e300;

// Each program's own: registers its benchmarks.
void Register();

// Limit/<engine> for every engine of this machine: products and sums, rounded apart, with vectors
// as wide as the engine's.
void RegisterLimits();

// The same for a merge: Bandwidth/cells:<cells>/<engine>, in cells of two arrays.
void RegisterBandwidth(std::size_t cells);

constexpr std::size_t Triangle(std::size_t columns) { return columns * (columns + 1) / 2; }

// Independent values between -1 and 1, for a seed the same in every run.
std::vector<double> UniformValues(std::size_t count, unsigned seed = 1);

// 4096 cases in a batch, with case weights and groups, that can be filled with them again and
// again.
class Cases {
 public:
  // A tenth of the values is missing in each column for which gapsOf says the column that it shares
  // them with, none in a column for which it says kNoGaps.
  using GapsOf = unsigned (*)(unsigned column);
  static constexpr unsigned kNoGaps = -1U;
  // What becomes of a value between -1 and 1.
  using ValueOf = double (*)(unsigned row, unsigned column, double uniform);

  explicit Cases(
      unsigned columns, GapsOf gapsOf = [](unsigned) { return kNoGaps; },
      ValueOf valueOf = [](unsigned, unsigned, double uniform) { return uniform; });

  // The batch as if just filled.
  velmor::DataBatch& Refilled();

 private:
  double _weight = 0.;
  unsigned _group = 0;
  velmor::DataBatch _batch;
  std::vector<double> _columns;  // as in the batch
};

// Times work(), but not prepare(), which comes before it each time. `amount` is what work() does.
template <class Prepare, class Work>
void Time(benchmark::State& state, double amount, Prepare prepare, Work work) {
  using Clock = std::chrono::steady_clock;
  for (auto _ : state) {
    prepare();
    const Clock::time_point start = Clock::now();
    work();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
  state.counters["cell_rows"] =
      benchmark::Counter(amount, benchmark::Counter::kIsIterationInvariantRate);
}

// Registers a benchmark that calls Time.
using Body = std::function<void(benchmark::State&)>;
void RegisterTimed(const std::string& name, Body body);

// Registers name/<engine> for every engine of this machine.
void ForEachEngine(const std::string& name, const Body& body);

// The whole of += with a batch, into an accumulator that already holds one. make() gives an empty
// accumulator, `cells` is what each row enters.
template <class Make>
auto Accumulating(std::shared_ptr<Cases> cases, std::size_t cells, Make make) {
  return [cases = std::move(cases), cells, make](benchmark::State& state) {
    auto accumulator = make();
    velmor::DataBatch& batch = cases->Refilled();
    accumulator += batch;
    Time(
        state, static_cast<double>(cells) * kRows, [&] { cases->Refilled(); },
        [&] { accumulator += batch; });
  };
}

// SMatrixListwise/p:<columns> for every engine.
inline void RegisterSymmetric(unsigned columns, const std::shared_ptr<Cases>& cases) {
  ForEachEngine("SMatrixListwise/p:" + std::to_string(columns),
                Accumulating(cases, Triangle(columns), [] { return velmor::SMatrixListwise(); }));
}

}  // namespace bench
