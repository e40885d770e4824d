// Are the other accumulators of complete cases as fast as SMatrixListwise with as many cells? And
// what do group sums gain over their plain loops?
#include "bench.h"

#include "ordered/columns.h"

namespace bench {
namespace {

constexpr unsigned kColumns = 48;
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

// sums(batch, sums, squareSums) adds the batch's cases to their groups.
template <class Sums>
auto GroupSums(std::shared_ptr<Cases> cases, Sums sums) {
  return [cases = std::move(cases), sums](benchmark::State& state) {
    velmor::DataBatch& batch = cases->Refilled();
    std::vector<double> x(std::size_t{kColumns} * kGroups);
    std::vector<double> squares(x.size());
    Time(
        state, static_cast<double>(kColumns) * kRows, [] {},
        [&] { sums(batch, x.data(), squares.data()); });
  };
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
  ForEachEngine("GroupSums/p:48",
                GroupSums(cases, [](velmor::DataBatch& batch, double* x, double* squares) {
                  velmor::ordered::GroupSums({batch.Column(0), batch.MaxRows(), batch.NColumns()},
                                             {batch.NRows(), batch.Weights()}, batch.Groups(),
                                             kGroups, x, squares);
                }));
  RegisterTimed("GroupSums/p:48/plain",
                GroupSums(cases, [](velmor::DataBatch& batch, double* x, double* squares) {
                  for (unsigned i = 0; i < kColumns; ++i, x += kGroups, squares += kGroups) {
                    velmor::GroupWeightedSumX(batch.Column(i), batch.Groups(), batch.Weights(), x,
                                              squares, kRows);
                  }
                }));
}

}  // namespace bench
