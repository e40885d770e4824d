// How many values a second go into a batch, row by row and from a table, and are sorted by group?
#include "bench.h"

#include <cstring>

namespace bench {
namespace {

double Values(unsigned columns) { return static_cast<double>(columns) * kRows; }

// Times `fill`, which fills the batch. Once before: then the batch's memory has been touched.
template <class Fill>
void TimeFilling(benchmark::State& state, velmor::DataBatch& batch, Fill fill) {
  fill();
  Time(
      state, Values(batch.NColumns()), [&] { batch.Clear(); }, fill);
}

void AddRows(benchmark::State& state, unsigned columns) {
  const std::vector<double> values = UniformValues(std::size_t{columns} * kRows);
  double weight = 1.;
  velmor::DataBatch batch(columns, kRows, &weight, nullptr, nullptr);
  TimeFilling(state, batch, [&] {
    for (unsigned row = 0; row < kRows; ++row) {
      batch.AddRow(&values[std::size_t{row} * columns]);
    }
  });
}

// What filling a batch with doubles takes at least.
void Copy(benchmark::State& state, unsigned columns) {
  const std::vector<double> values = UniformValues(std::size_t{columns} * kRows);
  std::vector<double> copy(values.size());
  Time(
      state, Values(columns), [] {},
      [&] {
        std::memcpy(copy.data(), values.data(), values.size() * sizeof(double));
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
      });
}

// A table of doubles, column by column or row by row. No value is absent.
enum class Layout { Columns, Rows };

void AddColumns(benchmark::State& state, unsigned columns, Layout layout, bool nanIsAbsent) {
  const std::vector<double> values = UniformValues(std::size_t{columns} * kRows);
  velmor::TableView table;
  table.rows = kRows;
  for (unsigned j = 0; j < columns; ++j) {
    table.values.push_back(
        layout == Layout::Columns
            ? velmor::ColumnView(&values[std::size_t{j} * kRows])
            : velmor::ColumnView(&values[j],
                                 std::ptrdiff_t{columns} * std::ptrdiff_t{sizeof(double)}));
    table.values[j].nanIsAbsent = nanIsAbsent;
  }
  velmor::DataBatch batch(columns, kRows, nullptr, nullptr, nullptr);
  TimeFilling(state, batch, [&] { batch.AddColumns(table, 0, kRows); });
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
    ForEachEngine("memcpy" + shape, [p](benchmark::State& state) { Copy(state, p); });
    ForEachEngine("AddColumns" + shape,
                  [p](benchmark::State& state) { AddColumns(state, p, Layout::Columns, false); });
    ForEachEngine("AddColumns" + shape + "/NaNs",
                  [p](benchmark::State& state) { AddColumns(state, p, Layout::Columns, true); });
    ForEachEngine("AddColumns" + shape + "/rows",
                  [p](benchmark::State& state) { AddColumns(state, p, Layout::Rows, false); });
    ForEachEngine("SortByGroup" + shape, [p](benchmark::State& state) { Sort(state, p); });
  }
}

}  // namespace bench
