// Both kinds of batches: what lands where, what a new filling forgets, what is refused.
#include <velmor/databatch.h>
#include <velmor/databatchbygroup.h>

#include "support.h"

#include <gmock/gmock.h>

#include <span>

namespace velmor::test {
namespace {

using testing::ElementsAre;

template <class T>
std::vector<T> First(const T* values, unsigned int count) {
  return {values, values + count};
}

// The host's current case.
struct Host {
  double weight = 0.;
  double regWeight = 0.;
  unsigned int group = 0;
};

TEST(DataBatch, KeepsEachCaseAsItWasWhenAdded) {
  Host host;
  DataBatch batch(2, 3, &host.weight, &host.regWeight, &host.group);
  const double values[][2] = {{1., -0.}, {kNaN, kInf}, {-99., 5e-324}};
  for (unsigned int i = 0; i < 3; ++i) {
    host = {1. + i, 0.5 * i, std::vector<unsigned int>{7, 3, 9}[i]};
    batch.AddRow(values[i]);
    EXPECT_EQ(batch.NRows(), i + 1);
  }
  host = {};
  EXPECT_THAT(First(batch.Weights(), 3), ElementsAre(1., 2., 3.));
  EXPECT_THAT(First(batch.RegWeights(), 3), ElementsAre(0., 0.5, 1.));
  EXPECT_THAT(First(batch.Groups(), 3), ElementsAre(7, 3, 9));
  EXPECT_EQ(batch.MaxGroupSeen(), 9U);
  for (unsigned int column = 0; column < 2; ++column) {
    for (unsigned int row = 0; row < 3; ++row) {
      EXPECT_EQ(Bits(batch.Column(column)[row]), Bits(values[row][column]));
    }
  }
  EXPECT_EQ(batch.NColumns(), 2U);
  EXPECT_EQ(batch.MaxRows(), 3U);
}

TEST(DataBatch, HasOnlyWhatTheHostGivesAnAddressFor) {
  Host host;
  for (const unsigned int mask : {0U, 1U, 2U, 4U, 7U}) {
    DataBatch batch(1, 1, mask & 1U ? &host.weight : nullptr, mask & 2U ? &host.regWeight : nullptr,
                    mask & 4U ? &host.group : nullptr);
    batch.AddRow(&host.weight);
    EXPECT_EQ(batch.HasWeights(), (mask & 1U) != 0);
    EXPECT_EQ(batch.Weights() != nullptr, (mask & 1U) != 0);
    EXPECT_EQ(batch.HasRegWeights(), (mask & 2U) != 0);
    EXPECT_EQ(batch.RegWeights() != nullptr, (mask & 2U) != 0);
    EXPECT_EQ(batch.Groups() != nullptr, (mask & 4U) != 0);
  }
}

TEST(DataBatch, ClearedBatchTakesItsFullCapacityAgain) {
  Host host;
  host.group = 4;
  DataBatch batch(1, 2, nullptr, nullptr, &host.group);
  const double first[] = {1., 2.};
  batch.AddRow(&first[0]);
  batch.AddRow(&first[1]);
  batch.Clear();
  EXPECT_EQ(batch.NRows(), 0U);
  EXPECT_EQ(batch.MaxGroupSeen(), 0U);
  host.group = 1;
  batch.AddRow(&first[1]);
  batch.AddRow(&first[0]);
  EXPECT_THAT(First(batch.Column(0), 2), ElementsAre(2., 1.));
  EXPECT_EQ(batch.MaxGroupSeen(), 1U);
}

TEST(DataBatch, RowSizeCountsWhatACaseTakes) {
  EXPECT_EQ(DataBatch::RowSize(3, true, false, true), 36U);
  EXPECT_EQ(DataBatch::RowSize(1, false, false, false), 8U);
  EXPECT_EQ(DataBatchByGroup::RowSize(3, true, true, false), 40U);
}

TEST(DataBatchDeathTest, RefusesWhatItCannotHold) {
  const double value = 0.;
  DataBatch full(1, 1, nullptr, nullptr, nullptr);
  full.AddRow(&value);
  const std::string source = "velmor/databatch.cpp";
  const Violation violations[] = {
      {"no columns", [] { DataBatch(0, 1, nullptr, nullptr, nullptr); }, source, "DataBatch",
       "0 < nColumns"},
      {"no rows", [] { DataBatch(1, 0, nullptr, nullptr, nullptr); }, source, "DataBatch",
       "0 < nRows"},
      {"full", [&] { full.AddRow(&value); }, source, "AddRow", "_nRows < _maxRows"},
      {"groups beyond any group number",
       [&] { full.AddColumns(TableView(), 0, 0, {}, DataBatch::kMostGroups + 1); }, source,
       "AddColumns", "nGroups <= kMostGroups"},
      {"column", [&] { full.Column(1); }, "tables/velmor/databatch.h", "Column",
       "colNum < _nColumns"},
  };
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

// Adds single-column cases (group, value, weight).
struct GroupedCase {
  unsigned int group;
  double value;
  double weight;
};

void Fill(DataBatchByGroup& batch, Host& host, std::span<const GroupedCase> cases) {
  for (const GroupedCase& c : cases) {
    host = {c.weight, 0., c.group};
    for (unsigned int column = 0; column < batch.NColumns(); ++column) {
      batch.NextRow()[column] = c.value + 1000. * column;
    }
    batch.AddRow();
  }
}

TEST(DataBatchByGroup, SortsStablyEachTimeItIsFilled) {
  Host host;
  DataBatchByGroup batch(2, 6, &host.weight, &host.regWeight, &host.group, 4);
  EXPECT_EQ(batch.NGroups(), 4U);
  const struct {
    const char* name;
    std::vector<GroupedCase> cases;
    std::vector<unsigned int> counts;
    std::vector<double> column;
    std::vector<double> weights;
  } fillings[] = {
      {"every group but the last",
       {{2, 10, 1}, {0, 20, 2}, {2, 30, 3}, {1, 40, 4}},
       {1, 1, 2, 0},
       {20, 40, 10, 30},
       {2, 4, 1, 3}},
      {"an empty group between, to capacity",
       {{3, 1, 6}, {3, 2, 5}, {0, 3, 4}, {3, 4, 3}, {0, 5, 2}, {1, 6, 1}},
       {2, 1, 0, 3},
       {3, 5, 6, 1, 2, 4},
       {4, 2, 1, 6, 5, 3}},
      {"no case", {}, {0, 0, 0, 0}, {}, {}},
  };
  for (const auto& f : fillings) {
    SCOPED_TRACE(f.name);
    batch.Clear();
    Fill(batch, host, f.cases);
    EXPECT_FALSE(batch.IsSorted());
    const auto n = batch.NRows();
    for (int repeat = 0; repeat < 2; ++repeat) {
      batch.SortByGroup();
      EXPECT_TRUE(batch.IsSorted());
      EXPECT_EQ(First(batch.Column(0), n), f.column);
      EXPECT_EQ(First(batch.Weights(), n), f.weights);
      for (unsigned int i = 0; i < n; ++i) {
        EXPECT_EQ(batch.Column(1)[i], f.column[i] + 1000.);
      }
      for (unsigned int group = 0; group < 4; ++group) {
        EXPECT_EQ(batch.groupCount(group), f.counts[group]);
      }
    }
  }
}

TEST(DataBatchByGroup, WithoutWeightsSortsTheValues) {
  Host host;
  DataBatchByGroup batch(1, 2, nullptr, nullptr, &host.group, 2);
  const GroupedCase cases[] = {{1, 10, 0}, {0, 20, 0}};
  Fill(batch, host, cases);
  batch.SortByGroup();
  EXPECT_FALSE(batch.HasWeights());
  EXPECT_EQ(batch.Weights(), nullptr);
  EXPECT_THAT(First(batch.Column(0), 2), ElementsAre(20., 10.));
}

TEST(DataBatchByGroup, IsNoLongerSortedOnceColumnsAreAdded) {
  Host host{0., 0., 1};
  DataBatchByGroup batch(1, 3, nullptr, nullptr, &host.group, 2);
  const GroupedCase first[] = {{1, 10, 0}};
  Fill(batch, host, first);
  batch.SortByGroup();
  const double values[] = {20., 30.};
  const unsigned int groups[] = {1, 0};
  TableView table;
  table.rows = 2;
  table.values.emplace_back(&values[0]);
  table.groups.emplace(&groups[0]);
  batch.AddColumns(table, 0, 0);
  EXPECT_TRUE(batch.IsSorted());
  batch.AddColumns(table, 0, 2);
  EXPECT_FALSE(batch.IsSorted());
  batch.SortByGroup();
  EXPECT_THAT(First(batch.Column(0), 3), ElementsAre(30., 10., 20.));
}

TEST(DataBatchByGroup, WithoutGroupsTakesCasesAllTheSame) {
  DataBatchByGroup batch(1, 2, nullptr, nullptr, nullptr, 2);
  const double value = 1.;
  *batch.NextRow() = value;
  batch.AddRow();
  TableView table;
  table.rows = 1;
  table.values.emplace_back(&value);
  EXPECT_EQ(batch.AddColumns(table, 0, 1), 1U);
  EXPECT_EQ(batch.NRows(), 2U);
  EXPECT_FALSE(batch.IsSorted());
}

TEST(DataBatchByGroupDeathTest, RefusesWhatItCannotSort) {
  Host host;
  DataBatchByGroup full(1, 1, nullptr, nullptr, &host.group, 2);
  *full.NextRow() = 0.;
  full.AddRow();
  DataBatchByGroup open(1, 1, nullptr, nullptr, &host.group, 2);
  DataBatchByGroup ungrouped(1, 1, nullptr, nullptr, nullptr, 2);
  const std::string source = "velmor/databatchbygroup.cpp";
  const std::string header = "tables/velmor/databatchbygroup.h";
  const Violation violations[] = {
      {"no columns", [] { DataBatchByGroup(0, 1, nullptr, nullptr, nullptr, 1); }, source,
       "DataBatchByGroup", "0 < nColumns"},
      {"no rows", [] { DataBatchByGroup(1, 0, nullptr, nullptr, nullptr, 1); }, source,
       "DataBatchByGroup", "0 < nRows"},
      {"full", [&] { full.AddRow(); }, source, "AddRow", "_nRows < _maxRows"},
      {"no next row", [&] { full.NextRow(); }, source, "NextRow", "_nRows < _maxRows"},
      {"group number",
       [&] {
         host.group = 2;
         open.AddRow();
       },
       source, "AddRow", "tmpGroupVal<_maxGroup"},
      {"no groups to sort by", [&] { ungrouped.SortByGroup(); }, source, "SortByGroup",
       "_pGroup!=0"},
      {"no groups to count", [&] { ungrouped.groupCount(0); }, header, "groupCount",
       "_pGroup != nullptr"},
      {"count of no group", [&] { full.groupCount(2); }, header, "groupCount", "group < NGroups()"},
      {"column", [&] { full.Column(1); }, header, "Column", "colNum < _nColumns"},
  };
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

}  // namespace
}  // namespace velmor::test
