// Fuzzes batches by group, however they are filled, and the sums that are made of them: with every
// engine they are those of the plain definition.
#include "against_definition.h"

namespace velmor::test {
namespace {

// How batches are filled.
struct Filling {
  unsigned int groups;
  unsigned int room;
  std::size_t sortedAt;  // a row before which it is sorted, too
  bool isRefilled;       // after it had other cases
};

void Fill(DataBatchByGroup& batch, CurrentCase& current, const Cases& cases, std::size_t sortedAt) {
  const std::size_t middle = std::min(sortedAt, cases.rows.size());
  AddRows(batch, current, cases.Slice(0, middle));
  if (middle < cases.rows.size()) {
    batch.SortByGroup();
  }
  AddRows(batch, current, cases.Slice(middle, cases.rows.size()));
  batch.SortByGroup();
}

// The cases stand group by group, those of one group in their order.
void RequireSorted(DataBatchByGroup& batch, const Cases& cases) {
  std::vector<std::size_t> order(cases.rows.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&cases](std::size_t a, std::size_t b) {
    return cases.groups[a] < cases.groups[b];
  });
  std::vector<std::uint64_t> expected{order.size()};
  const auto add = [&](auto valueOf) {
    for (const std::size_t row : order) {
      expected.push_back(Bits(valueOf(row)));
    }
  };
  if (!cases.weights.empty()) {
    add([&](std::size_t row) { return cases.weights[row]; });
  }
  for (unsigned int column = 0; column < batch.NColumns(); ++column) {
    add([&](std::size_t row) { return cases.rows[row][column]; });
  }
  for (unsigned int group = 0; group < batch.NGroups(); ++group) {
    expected.push_back(
        static_cast<std::uint64_t>(std::count(cases.groups.begin(), cases.groups.end(), group)));
  }
  Require(batch.IsSorted() && Contents(batch) == expected, "a batch that is not sorted");
}

std::unique_ptr<DataBatchByGroup> Filled(const Cases& cases, unsigned int columns,
                                         const Filling& filling) {
  CurrentCase current;
  auto batch = EmptyBatch<DataBatchByGroup>(cases, columns, filling.room, current, filling.groups);
  if (filling.isRefilled) {
    Fill(*batch, current, cases.Slice(cases.rows.size() / 2, cases.rows.size()), filling.sortedAt);
    batch->Clear();
  }
  Fill(*batch, current, cases, filling.sortedAt);
  RequireSorted(*batch, cases);
  return batch;
}

}  // namespace

void Run(Input& input) {
  constexpr unsigned int kMostColumns[] = {4, 9, 9, 17, 40};
  constexpr unsigned int kRoom[] = {0, 1, 7, 200};
  UseAnyEngine(input);
  CaseShape shape(input, input.OneOf(kMostColumns));
  const unsigned int mostGroups = 2 + 1000 / (shape.columns * shape.columns);
  shape.groups = 1 + input.Below(input.Coin() ? std::min(300U, mostGroups) : 5);
  const Filling filling{shape.groups, input.OneOf(kRoom), input.Rows(200), input.Coin()};
  // It may know more groups than the batches.
  const auto groups = static_cast<int>(shape.groups + input.Below(3));
  Exercise(
      input, shape,
      [&] {
        return std::make_unique<DiscIndividualMatrix>(groups, static_cast<int>(shape.columns));
      },
      [&](const Cases& cases) { return Filled(cases, shape.columns, filling); });
}

}  // namespace velmor::test
