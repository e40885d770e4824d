// Fuzzes batches by group, however they are filled, and the sums that are made of them: with every
// engine they are those of the plain definition.
#include "ordered/engine.h"

#include "against_definition.h"

namespace velmor::test {
namespace {

// How batches are filled.
struct Filling {
  unsigned int groups;
  unsigned int room;
  unsigned int sortedAt;  // a row before which it is sorted, too
  bool isRefilled;        // after it had other cases
  bool hasRegWeights;     // which are not used
};

void Fill(DataBatchByGroup& batch, Host& host, const Cases& cases, unsigned int sortedAt) {
  for (std::size_t row = 0; row < cases.rows.size(); ++row) {
    if (row == sortedAt) {
      batch.SortByGroup();
    }
    host.Take(cases, row);
    std::copy(cases.rows[row].begin(), cases.rows[row].end(), batch.NextRow());
    batch.AddRow();
  }
  batch.SortByGroup();
}

// The cases stand group by group, those of one group in their order.
void RequireSorted(DataBatchByGroup& batch, const Cases& cases) {
  std::vector<std::size_t> order(cases.rows.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&cases](std::size_t a, std::size_t b) {
    return cases.groups[a] < cases.groups[b];
  });
  Require(batch.NRows() == order.size() && batch.IsSorted(), "a batch that is not sorted");
  for (std::size_t row = 0; row < order.size(); ++row) {
    for (unsigned int column = 0; column < batch.NColumns(); ++column) {
      Require(Bits(batch.Column(column)[row]) == Bits(cases.rows[order[row]][column]),
              "a value out of its place");
    }
    Require(!batch.HasWeights() || Bits(batch.Weights()[row]) == Bits(cases.weights[order[row]]),
            "a weight out of its place");
  }
  for (unsigned int group = 0; group < batch.NGroups(); ++group) {
    Require(batch.groupCount(group) == std::count(cases.groups.begin(), cases.groups.end(), group),
            "a wrong number of cases in a group");
  }
}

std::unique_ptr<DataBatchByGroup> Filled(const Cases& cases, unsigned int columns,
                                         const Filling& filling) {
  Host host;
  const auto rows = static_cast<unsigned int>(cases.rows.size());
  auto batch = std::make_unique<DataBatchByGroup>(
      columns, std::max(1U, rows + filling.room), cases.weights.empty() ? nullptr : &host.weight,
      filling.hasRegWeights ? &host.regWeight : nullptr, &host.group, filling.groups);
  if (filling.isRefilled) {
    Fill(*batch, host, cases.Slice(rows / 2, rows), filling.sortedAt);
    batch->Clear();
  }
  Fill(*batch, host, cases, filling.sortedAt);
  RequireSorted(*batch, cases);
  return batch;
}

}  // namespace

void Run(Input& input) {
  constexpr unsigned int kMostColumns[] = {4, 9, 9, 17, 40};
  constexpr unsigned int kRoom[] = {0, 1, 7, 200};
  ordered::Use(
      *ordered::Available()[input.Below(static_cast<unsigned int>(ordered::Available().size()))]);
  CaseShape shape(input, input.OneOf(kMostColumns));
  const unsigned int mostGroups = 2 + 1000 / (shape.columns * shape.columns);
  shape.groups = 1 + input.Below(input.Coin() ? std::min(300U, mostGroups) : 5);
  const Filling filling{shape.groups, input.OneOf(kRoom), input.Rows(200), input.Coin(),
                        shape.isRegWeighted};
  // It may know more groups than the batches.
  const unsigned int groups = shape.groups + input.Below(3);
  Exercise(
      input, shape, SumsDefinition<DataBatchByGroup>(groups),
      [&] {
        return std::make_unique<DiscIndividualMatrix>(static_cast<int>(groups),
                                                      static_cast<int>(shape.columns));
      },
      [&](const Cases& cases) { return Filled(cases, shape.columns, filling); },
      ReadSums<DiscIndividualMatrix>);
}

}  // namespace velmor::test
