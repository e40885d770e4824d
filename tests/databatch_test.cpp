// Both kinds of batches: what lands where, what a new filling forgets, what is refused.
#include <velmor/databatch.h>
#include <velmor/databatchbygroup.h>

#include "support.h"

#include <gmock/gmock.h>

namespace velmor::test {
namespace {

using testing::ElementsAre;
using Doubles = std::vector<double>;

template <class T>
std::vector<T> First(const T* values, unsigned int count) {
  return {values, values + count};
}

TEST(DataBatch, KeepsEachCaseAsItWasWhenAdded) {
  const Cases cases{
      {{1., -0.}, {kNaN, kInf}, {-99., 5e-324}}, {1., 2., 3.}, {0., .5, 1.}, {7, 3, 9}};
  CurrentCase current;
  DataBatch batch(2, 3, &current.weight, &current.regWeight, &current.group);
  EXPECT_EQ(batch.NColumns(), 2U);
  EXPECT_EQ(batch.MaxRows(), 3U);
  for (int filling = 0; filling < 2; ++filling) {
    for (std::size_t i = 0; i < 3; ++i) {
      AddRows(batch, current, cases.Slice(i, i + 1));
      EXPECT_EQ(batch.NRows(), i + 1);
      EXPECT_EQ(batch.MaxGroupSeen(), i == 2 ? 9 : 7U);
    }
    current = {};
    EXPECT_EQ(First(batch.Weights(), 3), cases.weights);
    EXPECT_EQ(First(batch.RegWeights(), 3), cases.regWeights);
    EXPECT_EQ(First(batch.Groups(), 3), cases.groups);
    EXPECT_EQ(Bits(First(batch.Column(0), 3)), Bits({1., kNaN, -99.}));
    EXPECT_EQ(Bits(First(batch.Column(1), 3)), Bits({-0., kInf, 5e-324}));
    batch.Clear();
    EXPECT_EQ(batch.NRows(), 0U);
    EXPECT_EQ(batch.MaxGroupSeen(), 0U);
  }
}

// However many rows are added before and after a column's address is asked for: some are put into
// the columns eight at a time, as long as nobody looks.
TEST(DataBatch, ShowsRowsThatAreAddedWhileAColumnsAddressIsHeld) {
  constexpr unsigned int kRows = 300;
  for (const unsigned int before : {0U, 1U, 7U, 64U, 130U}) {
    DataBatch batch(2, kRows, nullptr, nullptr, nullptr);
    const double* column = nullptr;
    for (unsigned int row = 0; row < kRows; ++row) {
      column = row == before ? batch.Column(1) : column;
      const double values[] = {-1., 1. + row};
      batch.AddRow(values);
      if (column) {
        ASSERT_EQ(column[row], 1. + row) << before;
        ASSERT_EQ(column[0], 1.) << before;
      }
    }
  }
}

TEST(DataBatch, HasOnlyWhatTheHostGivesAnAddressFor) {
  const CurrentCase current;
  for (const unsigned int mask : {0U, 1U, 2U, 4U, 7U}) {
    const auto given = [&](unsigned int bit, const auto& value) {
      return mask & bit ? &value : nullptr;
    };
    DataBatch batch(1, 1, given(1, current.weight), given(2, current.regWeight),
                    given(4, current.group));
    batch.AddRow(&current.weight);
    EXPECT_EQ(batch.HasWeights(), (mask & 1U) != 0);
    EXPECT_EQ(batch.Weights() != nullptr, (mask & 1U) != 0);
    EXPECT_EQ(batch.HasRegWeights(), (mask & 2U) != 0);
    EXPECT_EQ(batch.RegWeights() != nullptr, (mask & 2U) != 0);
    EXPECT_EQ(batch.Groups() != nullptr, (mask & 4U) != 0);
  }
}

TEST(DataBatch, RowSizeCountsWhatACaseTakes) {
  EXPECT_EQ(DataBatch::RowSize(3, true, false, true), 36U);
  EXPECT_EQ(DataBatch::RowSize(1, false, false, false), 8U);
  EXPECT_EQ(DataBatchByGroup::RowSize(3, true, true, false), 40U);
}

TEST(DataBatchByGroup, SortsStablyEachTimeItIsFilled) {
  CurrentCase current;
  DataBatchByGroup batch(2, 6, &current.weight, &current.regWeight, &current.group, 4);
  EXPECT_EQ(batch.NGroups(), 4U);
  const struct {
    const char* name;
    Doubles values;
    std::vector<unsigned int> groups;
    Doubles sorted;
    std::vector<unsigned int> counts;
  } fillings[] = {
      {"every group but the last", {10, 20, 30, 40}, {2, 0, 2, 1}, {20, 40, 10, 30}, {1, 1, 2, 0}},
      {"an empty group between, to capacity",
       {1, 2, 3, 4, 5, 6},
       {3, 3, 0, 3, 0, 1},
       {3, 5, 6, 1, 2, 4},
       {2, 1, 0, 3}},
      {"no case", {}, {}, {}, {0, 0, 0, 0}},
  };
  for (const auto& f : fillings) {
    SCOPED_TRACE(f.name);
    batch.Clear();
    Cases cases{{}, f.values, {}, f.groups};
    for (const double value : f.values) {
      cases.rows.push_back({value, 1000. + value});
    }
    AddRows(batch, current, cases);
    EXPECT_FALSE(batch.IsSorted());
    const unsigned int n = batch.NRows();
    for (int repeat = 0; repeat < 2; ++repeat) {
      batch.SortByGroup();
      EXPECT_TRUE(batch.IsSorted());
      EXPECT_EQ(First(batch.Column(0), n), f.sorted);
      EXPECT_EQ(First(batch.Weights(), n), f.sorted);
      for (unsigned int i = 0; i < n; ++i) {
        EXPECT_EQ(batch.Column(1)[i], f.sorted[i] + 1000.);
      }
      for (unsigned int group = 0; group < 4; ++group) {
        EXPECT_EQ(batch.groupCount(group), f.counts[group]);
      }
    }
  }
}

TEST(DataBatchByGroup, IsNoLongerSortedOnceColumnsAreAdded) {
  CurrentCase current;
  DataBatchByGroup batch(1, 3, nullptr, nullptr, &current.group, 2);
  AddRows(batch, current, {{{10.}}, {}, {}, {1}});
  batch.SortByGroup();
  EXPECT_FALSE(batch.HasWeights());
  EXPECT_EQ(batch.Weights(), nullptr);
  const CaseTable table({{{20.}, {30.}}, {}, {}, {1, 0}}, 1);
  batch.AddColumns(table.View(), 0, 0);
  EXPECT_TRUE(batch.IsSorted());
  batch.AddColumns(table.View(), 0, 2);
  EXPECT_FALSE(batch.IsSorted());
  batch.SortByGroup();
  EXPECT_THAT(First(batch.Column(0), 3), ElementsAre(30., 10., 20.));
}

TEST(DataBatchByGroup, WithoutGroupsTakesCasesAllTheSame) {
  DataBatchByGroup batch(1, 2, nullptr, nullptr, nullptr, 2);
  const double value = 1.;
  AddRow(batch, &value);
  EXPECT_EQ(batch.AddColumns(CaseTable({{{value}}, {}, {}, {}}, 1).View(), 0, 1), 1U);
  EXPECT_EQ(batch.NRows(), 2U);
  EXPECT_FALSE(batch.IsSorted());
}

TEST(BatchDeathTest, RefusesWhatItCannotHold) {
  const double value = 0.;
  unsigned int group = 0;
  DataBatch full(1, 1, nullptr, nullptr, nullptr);
  full.AddRow(&value);
  DataBatchByGroup fullByGroup(1, 1, nullptr, nullptr, &group, 2);
  AddRow(fullByGroup, &value);
  DataBatchByGroup open(1, 1, nullptr, nullptr, &group, 2);
  DataBatchByGroup ungrouped(1, 1, nullptr, nullptr, nullptr, 2);
  const std::string source = "velmor/databatch.cpp";
  const std::string header = "tables/velmor/databatch.h";
  const std::string sourceByGroup = "velmor/databatchbygroup.cpp";
  const std::string headerByGroup = "tables/velmor/databatchbygroup.h";
  const auto make = [](unsigned int columns, unsigned int rows) {
    DataBatch(columns, rows, nullptr, nullptr, nullptr);
  };
  const auto makeByGroup = [](unsigned int columns, unsigned int rows) {
    DataBatchByGroup(columns, rows, nullptr, nullptr, nullptr, 1);
  };
  const auto addBeyondGroups = [&] {
    group = 2;
    open.AddRow();
  };
  const auto addAnyGroups = [&] {
    full.AddColumns(TableView(), 0, 0, {}, DataBatch::kMostGroups + 1);
  };
  const Violation violations[] = {
      {"no columns", [&] { make(0, 1); }, source, "DataBatch", "0 < nColumns"},
      {"no rows", [&] { make(1, 0); }, source, "DataBatch", "0 < nRows"},
      {"full", [&] { full.AddRow(&value); }, source, "AddRow", "_nRows < _maxRows"},
      {"groups", addAnyGroups, source, "AddColumns", "nGroups <= kMostGroups"},
      {"column", [&] { full.Column(1); }, header, "Column", "colNum < _nColumns"},

      {"no columns", [&] { makeByGroup(0, 1); }, sourceByGroup, "DataBatchByGroup", "0 < nColumns"},
      {"no rows", [&] { makeByGroup(1, 0); }, sourceByGroup, "DataBatchByGroup", "0 < nRows"},
      {"full", [&] { fullByGroup.AddRow(); }, sourceByGroup, "AddRow", "_nRows < _maxRows"},
      {"no next row", [&] { fullByGroup.NextRow(); }, sourceByGroup, "NextRow",
       "_nRows < _maxRows"},
      {"group", addBeyondGroups, sourceByGroup, "AddRow", "tmpGroupVal<_maxGroup"},
      {"no groups", [&] { ungrouped.SortByGroup(); }, sourceByGroup, "SortByGroup", "_pGroup!=0"},
      {"no count", [&] { ungrouped.groupCount(0); }, headerByGroup, "groupCount",
       "_pGroup != nullptr"},
      {"count of no group", [&] { fullByGroup.groupCount(2); }, headerByGroup, "groupCount",
       "group < NGroups()"},
      {"column", [&] { fullByGroup.Column(1); }, headerByGroup, "Column", "colNum < _nColumns"},
  };
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

}  // namespace
}  // namespace velmor::test
