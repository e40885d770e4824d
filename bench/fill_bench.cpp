// How many values a second go into a batch, row by row, and are sorted by group?
#include "bench.h"

namespace bench {
namespace {

double Values(unsigned columns) { return static_cast<double>(columns) * kRows; }

void AddRows(benchmark::State& state, unsigned columns) {
  const std::vector<double> values = UniformValues(std::size_t{columns} * kRows);
  double weight = 1.;
  velmor::DataBatch batch(columns, kRows, &weight, nullptr, nullptr);
  Time(
      state, Values(columns), [&] { batch.Clear(); },
      [&] {
        for (unsigned row = 0; row < kRows; ++row) {
          batch.AddRow(&values[std::size_t{row} * columns]);
        }
      });
}

void Sort(benchmark::State& state, unsigned columns) {
  double weight = 1.;
  unsigned group = 0;
  velmor::DataBatchByGroup batch(columns, kRows, &weight, nullptr, &group, kGroups);
  for (unsigned row = 0; row < kRows; ++row) {
    std::fill_n(batch.NextRow(), columns, 1. * row);
    group = row % kGroups;
    batch.AddRow();
  }
  Time(
      state, Values(columns), [] {}, [&] { batch.SortByGroup(); });
}

}  // namespace

void Register() {
  for (const unsigned p : {12U, 48U, 240U}) {
    const std::string shape = "/p:" + std::to_string(p);
    ForEachEngine("AddRow" + shape, [p](benchmark::State& state) { AddRows(state, p); });
    ForEachEngine("SortByGroup" + shape, [p](benchmark::State& state) { Sort(state, p); });
  }
}

}  // namespace bench
