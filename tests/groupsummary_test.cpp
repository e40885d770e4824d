// Summaries of groups: each group has the bits of its own rows, all or nothing, and the formulas.
#include "statebytes.h"
#include "summarytables.h"
#include "support.h"
#include "watchdog.h"

#include <cmath>

namespace velmor::test {
namespace {

constexpr std::size_t kRows = 3001;
constexpr std::int64_t kFirstLabel = -3;

GroupSummaryDefinition GroupedDefinition(bool hasTexts, bool areKnown, bool hasWeights,
                                         std::uint64_t blockRows) {
  const SummaryDefinition columns =
      MixedDefinition(MissingRule::Listwise, 0, hasWeights, false, blockRows);
  GroupSummaryDefinition definition{columns.columns, hasTexts, {}, hasWeights, blockRows};
  for (std::int64_t i = 0; areKnown && i < 60; ++i) {  // not in the order in which they come
    const std::int64_t label = kFirstLabel + 59 - i;
    definition.groups.push_back(hasTexts ? GroupLabel(std::to_string(label)) : GroupLabel(label));
  }
  return definition;
}

// Rows with a group each: some with none, and some groups rare.
class GroupedTable {
 public:
  explicit GroupedTable(std::size_t rows, std::uint32_t seed = 1) : _table(rows, seed) {
    std::mt19937 random(seed);
    for (std::size_t i = 0; i < rows; ++i) {
      const auto group =
          static_cast<std::int16_t>(random() % 3 == 0 ? random() % 55 : random() % 4);
      _groups.push_back(random() % 20 == 0 ? kNoGroup : group);
    }
    for (int i = 0; i < 60; ++i) {
      _texts.push_back(std::to_string(kFirstLabel + i));
    }
    for (std::int16_t& group : _groups) {
      group = static_cast<std::int16_t>(group == kNoGroup ? kNoGroup : group + kFirstLabel);
    }
    std::transform(_groups.begin(), _groups.end(), std::back_inserter(_places), [](auto group) {
      return group == kNoGroup ? std::uint8_t{255} : static_cast<std::uint8_t>(group - kFirstLabel);
    });
  }

  void Update(GroupSummary& summary, std::size_t from, std::size_t to, int threads) const {
    const GroupSummaryDefinition& definition = summary.Definition();
    GroupView groups;
    if (definition.hasTextLabels) {
      groups.numbers = ColumnView(_places.data() + from);
      groups.numbers.absentCodes = {255.};
      groups.texts.assign(_texts.begin(), _texts.end());
    } else {
      groups.numbers = ColumnView(_groups.data() + from);
      groups.numbers.absentCodes = {kNoGroup};
    }
    summary.Update(_table.View(Common(definition), from, to), groups, {threads, {}});
  }

  // A summary of the rows of one group.
  Summary OfGroup(const GroupSummaryDefinition& definition, const GroupLabel& label) const {
    Summary summary(Common(definition));
    for (std::size_t row = 0; row < _groups.size(); ++row) {
      const bool isText = std::holds_alternative<std::string>(label);
      if (_groups[row] != kNoGroup &&
          (isText ? std::to_string(_groups[row]) == std::get<std::string>(label)
                  : _groups[row] == std::get<std::int64_t>(label))) {
        // One by one, and complete ones only, as blocks are of complete rows.
        Summary one(Common(definition));
        one.Update(_table.View(Common(definition), row, row + 1));
        if (one.Rows().used != 0) {
          summary.Update(_table.View(Common(definition), row, row + 1), {1, {}});
        }
      }
    }
    return summary;
  }

  static SummaryDefinition Common(const GroupSummaryDefinition& definition) {
    return {definition.columns,    0,     MissingRule::Listwise,
            definition.hasWeights, false, definition.blockRows};
  }

 private:
  static constexpr std::int16_t kNoGroup = -99;

  MixedTable _table;
  std::vector<std::int16_t> _groups;
  std::vector<std::uint8_t> _places;
  std::vector<std::string> _texts;
};

GroupSummary Grouped(const GroupSummaryDefinition& definition, const GroupedTable& table,
                     std::size_t from, std::size_t to, std::uint32_t seed = 0) {
  GroupSummary summary(definition);
  std::mt19937 random(seed);
  const std::size_t sizes[] = {1, 2, 64, 101, 997, 2048};
  while (from < to) {
    const std::size_t size = seed == 0 ? to : sizes[random() % std::size(sizes)];
    const std::size_t end = std::min(to, from + size);
    table.Update(summary, from, end, 1 + static_cast<int>(random() % 3));
    from = end;
  }
  return summary;
}

TEST(GroupSummary, HasTheBitsOfEachGroupsRowsHoweverRowsAreCut) {
  const Watchdog watchdog;
  const GroupedTable table(kRows);
  for (unsigned i = 0; i < 8; ++i) {
    for (const std::uint64_t blockRows : {0U, 1U, 7U, 97U}) {
      SCOPED_TRACE(std::to_string(i) + ", blocks of " + std::to_string(blockRows));
      Watchdog::NoteProgress();
      const auto definition =
          GroupSummary(GroupedDefinition((i & 1U) != 0, (i & 2U) != 0, (i & 4U) != 0, blockRows))
              .Definition();
      const GroupSummary whole = Grouped(definition, table, 0, kRows);
      const Bytes bytes = whole.Save();
      for (const std::uint32_t seed : {1U, 2U}) {
        EXPECT_EQ(Grouped(definition, table, 0, kRows, seed).Save(), bytes);
      }
      EXPECT_EQ(whole.Copy().Save(), bytes);
      EXPECT_EQ(GroupSummary::Load(bytes).Save(), bytes);
      std::uint64_t used = 0;
      for (std::size_t group = 0; group < whole.NGroups(); ++group) {
        const Summary expected = table.OfGroup(definition, whole.Label(group));
        EXPECT_EQ(whole.GroupRows(group), expected.Rows().used);
        used += whole.GroupRows(group);
        std::vector<double> found(25);
        std::vector<double> wanted(25);
        whole.CrossProducts(group, found.data(), 5);
        expected.CrossProducts(wanted.data(), 5);
        EXPECT_EQ(Bits(found), Bits(wanted));
        EXPECT_EQ(Bits(whole.Column(group, 1).mean), Bits(expected.Column(1).mean));
        whole.Covariances(group, found.data(), 5);
        expected.Covariances(wanted.data(), 5);
        EXPECT_EQ(Bits(found), Bits(wanted));
      }
      const SummaryRows rows = whole.Rows();
      EXPECT_EQ(rows.used, used);
      EXPECT_EQ(rows.used + rows.weightless + rows.incomplete + whole.WithoutGroup(), kRows);
      EXPECT_GT(whole.WithoutGroup(), 0U);
      EXPECT_EQ(rows.weightless != 0, definition.hasWeights);
    }
  }
}

TEST(GroupSummary, MergesTheGroupsOfBoth) {
  const GroupedTable table(900);
  for (const bool areKnown : {false, true}) {
    const GroupSummaryDefinition definition = GroupedDefinition(true, areKnown, true, 7);
    std::vector<GroupSummary> parts;
    for (const std::size_t from : {0U, 30U, 60U, 500U}) {
      parts.push_back(Grouped(definition, table, from, std::min<std::size_t>(from + 30, 900)));
    }
    const GroupSummary empty(definition);
    GroupSummary left = parts[0].Copy();
    left.Merge(parts[1]);
    GroupSummary right = parts[2].Copy();
    right.Merge(parts[3]);
    left.Merge(right);
    left.Merge(empty);
    EXPECT_EQ(
        GroupSummary::MergeAll({parts.data(), &empty, &parts[1], &parts[2], &parts[3]}).Save(),
        left.Save());
    // Groups and their order are those of one summary over all rows.
    GroupSummary all(definition);
    for (const std::size_t from : {0U, 30U, 60U, 500U}) {
      table.Update(all, from, from + 30, 1);
    }
    ASSERT_EQ(left.NGroups(), all.NGroups());
    for (std::size_t group = 0; group < all.NGroups(); ++group) {
      EXPECT_EQ(left.Label(group), all.Label(group));
      EXPECT_EQ(left.GroupRows(group), all.GroupRows(group));
      EXPECT_EQ(left.GroupWeightSum(group), all.GroupWeightSum(group));
    }
    GroupSummary loaded = GroupSummary::Load(left.Save());
    table.Update(loaded, 600, 700, 2);
    table.Update(left, 600, 700, 2);
    EXPECT_EQ(loaded.Save(), left.Save());
  }
}

// Three groups of four rows; the means are 10^8 times the spread, and known exactly.
TEST(GroupSummary, KeepsItsDigitsWhereMeansAreLarge) {
  const double base = 1e8;
  std::vector<double> x;
  std::vector<double> y;
  std::vector<int> groups;
  for (int i = 0; i < 12; ++i) {
    const int group = i % 3;
    const int turn = i / 3;
    const double step = turn - 1.5;  // -1.5, -0.5, 0.5, 1.5: squares of 5 in all
    x.push_back(base + group + step);
    y.push_back(-base - group + 2. * step);
    groups.push_back(group);
  }
  GroupSummaryDefinition definition{{{"x", {}, true}, {"y", {}, true}}, false, {}, false, 1};
  std::vector<GroupSummary> pieces;
  for (std::size_t i = 0; i < 12; ++i) {
    TableView table;
    table.rows = 1;
    table.values = {ColumnView(&x[i]), ColumnView(&y[i])};
    pieces.emplace_back(definition).Update(table, {ColumnView(&groups[i]), {}});
  }
  GroupSummary summary(definition);
  for (const std::size_t i : {5U, 11U, 0U, 3U, 8U, 1U, 2U, 4U, 9U, 10U, 6U, 7U}) {
    summary.Merge(pieces[i]);
  }
  const auto expect = [&](auto read, const std::vector<double>& expected) {
    std::vector<double> to(4);
    (summary.*read)(to.data(), 2);
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_NEAR(to[i], expected[i], 1e-7);
    }
  };
  EXPECT_EQ(summary.Label(0), GroupLabel(2));
  EXPECT_EQ(summary.WeightSum(), 12.);
  EXPECT_NEAR(summary.Mean(0), base + 1., 1e-7);
  expect(&GroupSummary::WithinProducts, {15., 30., 30., 60.});
  expect(&GroupSummary::BetweenProducts, {8., -8., -8., 8.});
  expect(&GroupSummary::TotalProducts, {23., 22., 22., 68.});
}

TEST(GroupSummary, RefusesWhatDoesNotFitAndIsAsItWas) {
  const GroupedTable table(100);
  const double x[] = {1., 2., 3.};
  TableView rows;
  rows.rows = 3;
  rows.values = {ColumnView(x)};
  const auto of = [](bool hasTexts, std::vector<GroupLabel> groups) {
    return GroupSummaryDefinition{{{"x", {}, true}}, hasTexts, std::move(groups), false, 4};
  };
  const std::int64_t known[] = {7, 7, 8};
  const std::uint64_t large[] = {7, 7, ~std::uint64_t{0}};
  const double halves[] = {7., 7., 0.5};
  const std::string_view texts[] = {"a", "b", "\xFF"};
  const struct {
    GroupSummaryDefinition definition;
    GroupView groups;
    std::string message;
  } cases[] = {
      {of(false, {7}), {ColumnView(known), {}}, "row 2, groups: 8 is none of the groups"},
      {of(false, {}),
       {ColumnView(large), {}},
       "row 2, groups: 18446744073709551615 is no integer of 64 bits with a sign"},
      {of(false, {}),
       {ColumnView(halves), {}},
       "row 0, groups: 7 is no integer of 64 bits with a sign"},
      {of(false, {}), {}, "the table does not fit the summary: groups has no address"},
      {of(true, {}), {ColumnView(known), {"a"}}, "row 0, groups: there is no text 7"},
      {of(true, {"a"}),
       {ColumnView(known), std::vector<std::string_view>(9, texts[1])},
       "row 0, groups: \"b\" is none of the groups"},
      {of(true, {}),
       {ColumnView(known), std::vector<std::string_view>(9, texts[2])},
       "row 0, groups: the label is not UTF-8"},
  };
  for (const auto& c : cases) {
    GroupSummary summary(c.definition);
    const Bytes before = summary.Save();
    EXPECT_EQ(MessageOf<std::invalid_argument>([&] { summary.Update(rows, c.groups); }), c.message);
    EXPECT_EQ(summary.Save(), before);
    EXPECT_THROW(summary.Label(9), std::out_of_range);
  }
  const std::pair<GroupSummaryDefinition, std::string> wrong[] = {
      {of(true, {"a", "a"}), "group 1, \"a\": there is another group of this label"},
      {of(true, {7}), "group 0: its label is no text in UTF-8"},
      {of(true, {"\xFF"}), "group 0: its label is no text in UTF-8"},
      {of(false, {"a"}), "group 0: its label is no whole number"},
  };
  for (const auto& [definition, message] : wrong) {
    EXPECT_EQ(MessageOf<std::invalid_argument>([&d = definition] { GroupSummary summary(d); }),
              message);
  }
  const std::tuple<GroupSummaryDefinition, GroupSummaryDefinition, std::string> apart[] = {
      {of(true, {}), of(false, {}), "groups have numbers as labels, not texts"},
      {of(true, {"a"}), of(true, {"b"}), R"(group 0 is "b", not "a")"},
      {of(true, {"a"}), of(true, {}), "0 groups are known beforehand, not 1"},
      {of(true, {}), GroupedDefinition(true, false, false, 4), "5 columns, not 1"},
  };
  for (const auto& [a, b, message] : apart) {
    GroupSummary first(a);
    const GroupSummary second(b);
    EXPECT_EQ(MessageOf<std::invalid_argument>([&] { first.Merge(second); }),
              "summary 1 does not belong to the first: " + message);
  }
  // A group is not met in a row that is left out, nor in an update that is cancelled.
  GroupSummary summary(of(false, {}));
  rows.values[0].absentCodes = {1.};
  const std::int64_t labels[] = {5, 4, 3};
  EXPECT_THROW(summary.Update(rows, {ColumnView(labels), {}}, {1, [](auto at) { return at == 0; }}),
               Cancelled);
  EXPECT_EQ(summary.NGroups(), 0U);
  summary.Update(rows, {ColumnView(labels), {}});
  EXPECT_EQ(summary.NGroups(), 2U);
  EXPECT_EQ(summary.Label(0), GroupLabel(4));
}

TEST(GroupSummaryState, HasTheBytesThatItAlwaysHadAndNoOthers) {
  const GroupedTable table(60);
  for (const bool isKnown : {false, true}) {
    const Bytes bytes =
        Grouped(GroupedDefinition(!isKnown, isKnown, !isKnown, 20), table, 0, 60).Save();
    ExpectGolden(isKnown ? "GroupSummaryKnown.1.velmor" : "GroupSummaryMet.1.velmor", bytes,
                 [](const Bytes& b) { return GroupSummary::Load(b).Save(); });
    ExpectEachByteToCount(bytes, [](const Bytes& b) { GroupSummary::Load(b); });
    EXPECT_THROW(Summary::Load(bytes), StateError);
  }
}

}  // namespace
}  // namespace velmor::test
