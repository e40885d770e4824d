// Are the other accumulators of complete cases as fast as SMatrixListwise with as many cells? And
// what do group sums gain over their plain loops?
#include "bench.h"

#include "ordered/kernels/tuning.h"
#include "ordered/workspace.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace bench {
namespace {

constexpr unsigned kColumns = 48;
constexpr std::size_t kSums = std::size_t{kColumns} * kGroups;
constexpr auto kGroupCount = static_cast<int>(kGroups);

// Batches sorted by group are only read.
void ByGroup(benchmark::State& state) {
  const std::vector<double> values = UniformValues(kColumns);
  double weight = 0.;
  unsigned group = 0;
  velmor::DataBatchByGroup batch(kColumns, kRows, &weight, nullptr, &group, kGroups);
  for (unsigned row = 0; row < kRows; ++row) {
    std::copy(values.begin(), values.end(), batch.NextRow());
    weight = 1. + row % 3;
    group = row % kGroups;
    batch.AddRow();
  }
  batch.SortByGroup();
  velmor::DiscIndividualMatrix accumulator(kGroupCount, kColumns);
  accumulator += batch;
  Time(
      state, static_cast<double>(Triangle(kColumns)) * kRows, [] {}, [&] { accumulator += batch; });
}

constexpr double kGroupCells = static_cast<double>(kColumns) * kRows;

// The plain loops, column by column.
void PlainGroupSums(benchmark::State& state, Cases& cases) {
  velmor::DataBatch& batch = cases.Refilled();
  std::vector<double> sums(kSums);
  std::vector<double> squares(sums.size());
  Time(
      state, kGroupCells, [] {},
      [&] {
        for (unsigned i = 0; i < kColumns; ++i) {
          velmor::GroupWeightedSumX(batch.Column(i), batch.Groups(), batch.Weights(),
                                    &sums[std::size_t{i} * kGroups],
                                    &squares[std::size_t{i} * kGroups], kRows);
        }
      });
}

// The kernel over as many rows, strip after strip. Its panels are there: products need them.
void KernelGroupSums(benchmark::State& state) {
  using velmor::ordered::kStripRows;
  const velmor::ordered::Engine& engine = velmor::ordered::Active();
  const std::size_t panels = kColumns / engine.panel;
  const std::size_t stride = kStripRows * engine.panel;
  velmor::ordered::Workspace workspace;
  auto* const values = workspace.Take<double>(panels * stride);
  auto* const sums = workspace.Take<double>(2 * kSums);
  const std::vector<double> uniform = UniformValues(panels * stride);
  std::copy(uniform.begin(), uniform.end(), values);
  const std::vector<double> weights(kStripRows, 1.5);
  std::array<std::vector<std::uint8_t>, kGroups> rows;
  for (std::size_t row = 0; row < kStripRows; ++row) {
    rows[row % kGroups].push_back(static_cast<std::uint8_t>(row));
  }
  Time(
      state, static_cast<double>(kColumns) * kStripRows, [&] { std::fill_n(sums, 2 * kSums, 0.); },
      [&] {
        for (unsigned group = 0; group < kGroups; ++group) {
          double* const ofGroup = sums + std::size_t{group} * engine.panel;
          engine.PanelSums(values, static_cast<unsigned>(panels), stride,
                           {rows[group].size(), rows[group].data()}, weights.data(),
                           std::size_t{kGroups} * engine.panel, ofGroup, ofGroup + kSums);
        }
      });
}

}  // namespace

void Register() {
  RegisterLimits();
  const auto wide = std::make_shared<Cases>(240);
  const auto cases = std::make_shared<Cases>(kColumns);
  RegisterSymmetric(101, std::make_shared<Cases>(101));
  ForEachEngine("NSMatrixListwise/p:24x216", Accumulating(wide, std::size_t{24} * 216, [] {
                  return velmor::NSMatrixListwise(0, 24, 240);
                }));
  RegisterSymmetric(kColumns, cases);
  ForEachEngine("MatrixListwise/p:48",
                Accumulating(cases, Triangle(kColumns), [] { return velmor::MatrixListwise(); }));
  ForEachEngine("DiscriminantMatrix/p:48", Accumulating(cases, Triangle(kColumns), [] {
                  return velmor::DiscriminantMatrix(kGroupCount, kColumns);
                }));
  ForEachEngine("DiscIndividualMatrix/p:48", ByGroup);
  ForEachEngine("GroupSums/p:48", KernelGroupSums);
  RegisterTimed("GroupSums/p:48/plain",
                [cases](benchmark::State& state) { PlainGroupSums(state, *cases); });
}

}  // namespace bench
