// Summaries: the bits of Accumulate however rows are cut, all or nothing, and the formulas.
#include "statebytes.h"
#include "summarytables.h"
#include "support.h"
#include "watchdog.h"

#include <cmath>
#include <thread>

namespace velmor::test {
namespace {

constexpr std::size_t kRows = 3001;

// Adds rows [0, rows) in pieces that a seed chooses, on one to three threads; looks at the summary
// now and then.
void UpdateInPieces(Summary& summary, const MixedTable& table, std::size_t rows,
                    std::uint32_t seed) {
  std::mt19937 random(seed);
  const std::size_t sizes[] = {0, 1, 2, 17, 64, 101, 512, 997, 2048, rows};
  for (std::size_t from = 0; from < rows;) {
    const std::size_t size = sizes[random() % std::size(sizes)];
    const std::size_t to = seed == 0 ? rows : std::min(rows, from + size);
    summary.Update(table.View(summary.Definition(), from, to),
                   {1 + static_cast<int>(random() % 3), {}});
    from = to;
    if (random() % 8 == 0) {
      summary.Save();
    }
  }
}

Bytes StateOfAll(const SummaryDefinition& definition, const MixedTable& table, std::size_t rows) {
  return Save(*Accumulate(table.Marked(definition, 0, rows), *AccumulatorFor(definition),
                          {definition.blockRows, 0, 1, {}})
                   .Result());
}

// Calls `test` with every combination of what can be defined.
template <class Test>
void ForEachDefinition(const Test& test) {
  for (unsigned i = 0; i < 16; ++i) {
    for (const std::uint64_t blockRows : {0U, 1U, 6U, 97U, 5000U}) {
      SCOPED_TRACE(std::to_string(i) + ", blocks of " + std::to_string(blockRows));
      Watchdog::NoteProgress();
      test(Summary(MixedDefinition((i & 1U) != 0 ? MissingRule::Listwise : MissingRule::Pairwise,
                                   (i & 2U) != 0 ? 2 : 0, (i & 4U) != 0, (i & 8U) != 0, blockRows))
               .Definition());
    }
  }
}

TEST(Summary, HasTheBitsOfAccumulateHoweverRowsAreCut) {
  const Watchdog watchdog;
  const MixedTable table(kRows);
  ForEachDefinition([&table](const SummaryDefinition& definition) {
    const Bytes expected = StateOfAll(definition, table, kRows);
    Bytes first;
    for (const std::uint32_t seed : {0U, 1U, 2U}) {
      SCOPED_TRACE(seed);
      Summary summary(definition);
      UpdateInPieces(summary, table, kRows, seed);
      const Bytes bytes = summary.Save();
      EXPECT_EQ(StatisticsIn(bytes, expected.size()), expected);
      EXPECT_EQ(summary.Copy().Save(), bytes);
      EXPECT_EQ(Summary::Load(bytes).Save(), bytes);
      first = seed == 0 ? bytes : first;
      EXPECT_EQ(bytes, first);
      const SummaryRows rows = summary.Rows();
      EXPECT_EQ(rows.used + rows.withoutWeight + rows.weightless + rows.incomplete, kRows);
      EXPECT_EQ(rows.withoutWeight != 0, definition.hasRegWeights);
      EXPECT_EQ(rows.weightless != 0, definition.hasWeights || definition.hasRegWeights);
      EXPECT_EQ(rows.incomplete != 0, definition.missing == MissingRule::Listwise);
    }
    CountCases("summaries: rows cut anyhow against Accumulate", 3);
  });
}

TEST(Summary, GoesOnAsACopyOrBehindWhatWasLoaded) {
  const MixedTable table(kRows);
  ForEachDefinition([&table](const SummaryDefinition& definition) {
    Summary summary(definition);
    UpdateInPieces(summary, table, 700, 3);
    Summary copy = summary.Copy();
    Summary loaded = Summary::Load(summary.Save());
    Summary rest(definition);
    const TableView more = table.View(definition, 700, kRows);
    for (Summary* const each : {&summary, &copy, &loaded, &rest}) {
      each->Update(more);
    }
    EXPECT_EQ(copy.Save(), summary.Save());
    // What is loaded ends a block, as what is merged does.
    Summary merged(definition);
    UpdateInPieces(merged, table, 700, 4);
    merged.Merge(rest);
    EXPECT_EQ(loaded.Save(), merged.Save());
    EXPECT_EQ(loaded.Rows().used, summary.Rows().used);
  });
}

TEST(Summary, MergesInTwosAndAllInABalancedTree) {
  const MixedTable table(kRows);
  const SummaryDefinition definition = MixedDefinition(MissingRule::Pairwise, 0, true, true, 50);
  for (const std::size_t count : {1U, 2U, 3U, 5U, 7U, 8U, 11U}) {
    SCOPED_TRACE(count);
    std::vector<Summary> level;
    std::vector<const Summary*> all;
    std::vector<Summary> operands;
    const Summary empty(definition);
    for (std::size_t i = 0; i < count; ++i) {
      operands.emplace_back(definition);
      operands.back().Update(table.View(definition, 90 * i, 90 * i + 85));
      level.push_back(operands.back().Copy());
    }
    for (const Summary& operand : operands) {
      all.insert(all.end(), {&empty, &operand});
    }
    while (level.size() > 1) {
      std::vector<Summary> next;
      for (std::size_t i = 0; i < level.size(); i += 2) {
        if (i + 1 < level.size()) {
          level[i].Merge(level[i + 1]);
          level[i].Merge(empty);
        }
        next.push_back(std::move(level[i]));
      }
      level = std::move(next);
    }
    EXPECT_EQ(Summary::MergeAll(all).Save(), level[0].Save());
    // Two are merged as their accumulators are.
    if (count == 2) {
      auto sum = AccumulatorFor(definition);
      for (const std::size_t from : {0U, 90U}) {
        *sum +=
            *Accumulate(table.Marked(definition, from, from + 85), *sum, {50, 0, 1, {}}).Result();
      }
      const Bytes expected = Save(*sum);
      EXPECT_EQ(StatisticsIn(level[0].Save(), expected.size()), expected);
    }
  }
  const Summary empty(definition);
  EXPECT_EQ(Summary::MergeAll({&empty, &empty}).Save(), empty.Save());
}

TEST(Summary, IsAsItWasAfterAnUpdateThatFails) {
  const Watchdog watchdog;
  const MixedTable table(kRows);
  const std::int64_t tooExact = (std::int64_t{1} << 53U) + 1;
  const struct {
    double weight;
    std::string message;
  } cases[] = {
      {-1.,
       "row 2199, case weights: -1; a weight is neither negative nor infinite, and is a "
       "number that a double can be"},
      {kInf,
       "row 2199, case weights: inf; a weight is neither negative nor infinite, and is a "
       "number that a double can be"},
      {kNaN,
       "row 2199, case weights: nan; a weight is neither negative nor infinite, and is a "
       "number that a double can be"},
      {1.,
       "row 2199, column 2: no double is equal to 9007199254740993; mark the value absent, or "
       "make the column one of doubles, which rounds it"},
  };
  for (const std::uint64_t blockRows : {6U, 97U, 5000U}) {
    for (const std::size_t before : {0U, 1U, 500U}) {
      for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        Summary summary(MixedDefinition(MissingRule::Pairwise, 0, true, false, blockRows));
        const SummaryDefinition& definition = summary.Definition();
        summary.Update(table.View(definition, 0, before));
        const Bytes saved = summary.Save();
        // Only the last row has another weight, and a value that no double has.
        std::vector<double> weights(2200, 1.);
        std::vector<std::int64_t> values(2200, 1);
        weights.back() = c.weight;
        values.back() = c.weight == 1. ? tooExact : 1;
        TableView bad = table.View(definition, before, before + 2200);
        bad.weights.emplace(weights.data());
        bad.values[2] = ColumnView(values.data());
        EXPECT_EQ(MessageOf<std::invalid_argument>([&] { summary.Update(bad); }), c.message);
        EXPECT_EQ(summary.Save(), saved);
        bad.rows = 2199;
        for (const int last : {0, 1, 2, 9}) {  // calls that let the update go on
          int calls = 0;
          const auto progress = [&](std::uint64_t /*rows*/) { return calls++ != last; };
          Summary other = summary.Copy();
          try {
            other.Update(bad, {2, progress});
            EXPECT_LE(calls, last);
          } catch (const Cancelled&) {
            EXPECT_EQ(other.Save(), saved);
          }
        }
        summary.Update(bad);
        Summary expected(definition);
        expected.Update(table.View(definition, 0, before));
        expected.Update(bad);
        EXPECT_EQ(summary.Save(), expected.Save());
      }
    }
  }
}

SummaryDefinition DefinitionOf(std::vector<SummaryColumn> columns,
                               MissingRule missing = MissingRule::Pairwise) {
  return {std::move(columns), 0, missing, false, false, 0};
}

// While rows are taken, nobody sees half of them; and the host's own exception arrives as it is,
// whatever rows there are behind.
TEST(Summary, IsNotReadByItsOwnUpdatesProgress) {
  const MixedTable table(kRows);
  Summary summary(MixedDefinition(MissingRule::Pairwise, 0, false, false, 8));
  summary.Update(table.View(summary.Definition(), 0, 5));
  const Bytes saved = summary.Save();
  TableView bad = table.View(summary.Definition(), 5, kRows);
  std::vector<double> values(kRows, 1.);
  values.back() = std::numeric_limits<double>::lowest();  // which can't be taken
  bad.values[0] = ColumnView(values.data() + 5);
  int reads = 0;
  const auto progress = [&](std::uint64_t rows) {
    EXPECT_THROW(summary.Column(0), std::logic_error);
    EXPECT_THROW(summary.Merge(summary), std::logic_error);
    if (rows > 1000) {
      throw std::invalid_argument("mine");
    }
    return ++reads != 0;
  };
  EXPECT_EQ(MessageOf<std::invalid_argument>([&] { summary.Update(bad, {2, progress}); }), "mine");
  EXPECT_GT(reads, 1);
  EXPECT_EQ(summary.Save(), saved);
}

TEST(Summary, IsReadByManyThreadsAtOnce) {
  const MixedTable table(kRows);
  Summary summary(MixedDefinition(MissingRule::Pairwise, 0, false, false, 97));
  summary.Update(table.View(summary.Definition(), 0, kRows));
  const Bytes saved = summary.Copy().Save();
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      EXPECT_EQ(i % 2 == 0 ? summary.Save() : summary.Copy().Save(), saved);
      EXPECT_EQ(Summary::MergeAll({&summary}).Column(1).rows, summary.Column(1).rows);
    });
  }
  std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
}

TEST(Summary, TakesTheNearestFloatForACode) {
  Summary summary(DefinitionOf({{"x", {-3.4028235e38, 0.1, 1e300}, true}}));
  const float values[] = {std::numeric_limits<float>::lowest(), 0.1F, 1.F};
  TableView table;
  table.rows = 3;
  table.values = {ColumnView(values)};
  table.values[0].absentCodes = {1., 2., 3., 4., 5., 0.1F};
  summary.Update(table);
  EXPECT_EQ(summary.Column(0).rows, 0U);
}

TEST(Summary, RefusesDefinitionsThatAreNone) {
  const auto with = [](auto change) {
    SummaryDefinition definition = MixedDefinition(MissingRule::Pairwise, 2, true, true, 9);
    change(definition);
    return definition;
  };
  const std::pair<SummaryDefinition, std::string> cases[] = {
      {DefinitionOf({}), "a summary has 1 to 65535 columns, not 0"},
      {with([](auto& d) { d.columns[3].name = "int16"; }),
       "column 3, \"int16\": there is another column of this name"},
      {with([](auto& d) { d.columns[4].name = "\xC0\x80"; }), "column 4: its name is not UTF-8"},
      {with([](auto& d) { d.columns[4].name = "\xED\xA0\x80"; }),
       "column 4: its name is not UTF-8"},
      {with([](auto& d) { d.columns[4].name = "cut\xE2\x82"; }), "column 4: its name is not UTF-8"},
      {with([](auto& d) { d.columns[0].missingCodes = {1, 2, 3, 4, 5, 6, 7, 8, 9}; }),
       "column 0, \"double\": 9 missing codes, where there can be 8"},
      {with([](auto& d) { d.columns[0].missingCodes = {kNaN}; }),
       "column 0, \"double\": NaN can't be a missing code; nanIsMissing says whether it is "
       "missing"},
      {with([](auto& d) { d.firstSide = 5; }),
       "no column is left for the second side: 5 of 5 are on the first"},
      {with([](auto& d) { d.blockRows = std::uint64_t{1} << 31U; }),
       "a block has at most 2147483647 rows, not 2147483648"},
      {with([](auto& d) { d.missing = MissingRule{2}; }),
       "there is no such rule for missing values"},
  };
  for (const auto& [definition, message] : cases) {
    EXPECT_EQ(MessageOf<std::invalid_argument>([&d = definition] { Summary summary(d); }), message);
  }
  // A column can stand on both sides.
  const Summary both(with([](auto& d) { d.columns[3].name = d.columns[0].name; }));
  EXPECT_EQ(both.Definition().columns[0].missingCodes, (std::vector{-9., 99.}));
}

TEST(Summary, RefusesWhatDiffersAndSaysWhatItIs) {
  const MixedTable table(10);
  const SummaryDefinition own = MixedDefinition(MissingRule::Pairwise, 2, true, true, 9);
  const struct {
    std::function<void(SummaryDefinition&)> change;
    std::string message;
  } cases[] = {
      {[](auto& d) { d.columns.pop_back(); }, "4 columns, not 5"},
      {[](auto& d) { std::swap(d.columns[2], d.columns[3]); },
       "column 2 is \"größe\", not \"int16\""},
      {[](auto& d) {
         d.columns[2].missingCodes = {7., 1.};
       },
       "column 2, \"int16\" has the missing codes NaN, 1, 7, not NaN, 7"},
      {[](auto& d) { d.columns[4].nanIsMissing = true; },
       "column 4, \"byte\" has the missing codes NaN, not none"},
      {[](auto& d) { d.firstSide = 1; }, "1 columns on the first side, not 2"},
      {[](auto& d) { d.missing = MissingRule::Listwise; },
       "missing values are left out listwise, not pairwise"},
      {[](auto& d) { d.hasWeights = false; }, "no case weights"},
      {[](auto& d) { d.hasRegWeights = false; }, "no regression weights"},
      {[](auto& d) { d.blockRows = 8; }, "blocks of 8 rows, not of 9"},
  };
  Summary summary(own);
  summary.Update(table.View(own, 0, 10));
  const Bytes saved = summary.Save();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    SummaryDefinition changed = own;
    c.change(changed);
    const Summary other(changed);
    EXPECT_EQ(MessageOf<std::invalid_argument>([&] { summary.Merge(other); }),
              "the second summary does not belong to the first: " + c.message);
    EXPECT_EQ(MessageOf<std::invalid_argument>([&] {
                Summary::MergeAll({&summary, &other});
              }),
              "summary 1 does not belong to the first: " + c.message);
  }
  const auto refusal = [&](auto change) {
    TableView view = table.View(own, 0, 10);
    change(view);
    return MessageOf<std::invalid_argument>([&] { summary.Update(view); });
  };
  const std::string misfit = "the table does not fit the summary: ";
  EXPECT_EQ(refusal([](auto& t) { t.values.pop_back(); }),
            misfit + "it has 4 columns of values, not 5");
  EXPECT_EQ(refusal([](auto& t) { t.weights.reset(); }), misfit + "it has no case weights");
  EXPECT_EQ(refusal([](auto& t) { t.values[1].data = nullptr; }),
            misfit + "column 1, \"float\" has no address");
  EXPECT_EQ(
      refusal([](auto& t) { t.values[1].absentCodes = {11., 12., 13., 14., 15., 16., 17., 18.}; }),
      misfit + "column 1, \"float\" has more than 8 missing codes");
  EXPECT_EQ(refusal([](auto& t) { t.values[1].type = ValueType{11}; }),
            misfit + "column 1, \"float\" has a type of values that there is not");
  const double huge = 1e200;
  EXPECT_EQ(refusal([&](auto& t) {
              t.weights.emplace(&huge, 0);
              t.regWeights.emplace(&huge, 0);
            }),
            "row 0, weights: the product of 1e+200 and 1e+200 is no positive double; rescale the "
            "weights");
  EXPECT_EQ(summary.Save(), saved);
  EXPECT_EQ(MessageOf<std::invalid_argument>([] { Summary::MergeAll({}); }), "no summary to merge");
  EXPECT_EQ(MessageOf<std::out_of_range>([&] { summary.Column(5); }),
            "there is no column 5 in a summary of 5");
  EXPECT_EQ(MessageOf<std::out_of_range>([&] { summary.Pair(3, 4); }),
            "columns 3 and 4 are not paired");
}

// A summary of columns of doubles.
Summary SummaryOf(const std::vector<std::vector<double>>& columns, MissingRule missing,
                  std::uint64_t blockRows = 0) {
  SummaryDefinition definition = DefinitionOf({}, missing);
  TableView table;
  table.rows = columns[0].size();
  for (const auto& column : columns) {
    definition.columns.push_back({std::to_string(definition.columns.size()), {}, true});
    table.values.emplace_back(column.data());
  }
  definition.blockRows = blockRows;
  Summary summary(definition);
  summary.Update(table);
  return summary;
}

// Correlations within some units of the last place; on the diagonal and where there is none, exact.
void ExpectCorrelations(const Summary& summary, std::uint64_t fewestRows,
                        const std::vector<double>& expected) {
  const std::size_t side = summary.MatrixColumns();
  std::vector<double> to(summary.MatrixRows() * side, -7.);
  summary.Correlations(to.data(), side, fewestRows);
  ASSERT_EQ(to.size(), expected.size());
  for (std::size_t i = 0; i < to.size(); ++i) {
    const bool isExact = std::isnan(expected[i]) || i / side == i % side;
    EXPECT_TRUE(isExact ? Bits(to[i]) == Bits(expected[i]) : std::abs(to[i] - expected[i]) < 4e-16)
        << i << ": " << to[i];
  }
}

TEST(SummaryFormulas, AreDefinedWhereTheyHaveAMeaning) {
  for (const MissingRule missing : {MissingRule::Pairwise, MissingRule::Listwise}) {
    const bool isPairwise = missing == MissingRule::Pairwise;
    // Exact numbers; a column without spread, one of tiny numbers, one that two rows lack.
    const Summary summary = SummaryOf({{1., 2., 3., 6.},
                                       {-2e-120, -4e-120, -6e-120, -12e-120},
                                       {0.1, 0.1, 0.1, 0.1},
                                       {5., 9., kNaN, kNaN}},
                                      missing, 1);
    const double n = isPairwise ? 4. : 2.;
    const ColumnStatistics x = summary.Column(0);
    EXPECT_EQ(x.rows, isPairwise ? 4U : 2U);
    EXPECT_EQ(x.mean, isPairwise ? 3. : 1.5);
    EXPECT_EQ(x.squares, isPairwise ? 14. : 0.5);
    EXPECT_EQ(x.Variance(), x.squares / (n - 1.));
    EXPECT_EQ(x.Variance(0.), x.squares / n);
    EXPECT_TRUE(std::isnan(x.Variance(n)));
    EXPECT_EQ(summary.Column(2).squares, 0.);
    EXPECT_EQ(summary.Column(2).Variance(), 0.);
    ExpectCorrelations(
        summary, 1,
        {1., -1., kNaN, 1., -1., 1., kNaN, -1., kNaN, kNaN, kNaN, kNaN, 1., -1., kNaN, 1.});
    std::vector<double> ofThree(16, kNaN);
    if (isPairwise) {
      ofThree[0] = ofThree[5] = 1.;
      ofThree[1] = ofThree[4] = -1.;
    }
    ExpectCorrelations(summary, 3, ofThree);
    EXPECT_NEAR(summary.Pair(0, 3).Correlation(), 1., 4e-16);
    EXPECT_EQ(summary.Pair(3, 0).products, 2.);
    EXPECT_EQ(summary.Pair(3, 0).meanA, 7.);
    EXPECT_EQ(summary.Pair(0, 3).Covariance(), 2.);
    EXPECT_TRUE(std::isnan(summary.Pair(0, 3).Covariance(2.)));
    // Rows of a matrix stand apart; nothing is written between them.
    std::vector<double> products(20, -7.);
    summary.CrossProducts(products.data(), 5);
    EXPECT_EQ(products[15], 2.);
    EXPECT_EQ(products[10], 0.);
    EXPECT_EQ(products[4], -7.);
    std::vector<double> covariances(16);
    summary.Covariances(covariances.data(), 4, 1., 3);
    EXPECT_EQ(Bits(covariances[0]), Bits(isPairwise ? 14. / 3. : kNaN));
    EXPECT_EQ(Bits(covariances[3]), Bits(kNaN));
    std::vector<std::uint64_t> rows(16);
    summary.PairRows(rows.data(), 4);
    EXPECT_EQ(rows, isPairwise ? (std::vector<std::uint64_t>{4, 4, 4, 2, 4, 4, 4, 2,  //
                                                             4, 4, 4, 2, 2, 2, 2, 2})
                               : std::vector<std::uint64_t>(16, 2));
    std::vector<double> weights(16);
    summary.PairWeightSums(weights.data(), 4);
    EXPECT_TRUE(std::equal(rows.begin(), rows.end(), weights.begin()));
  }
  const Summary empty(DefinitionOf({{"x", {}, true}}));
  EXPECT_TRUE(std::isnan(empty.Column(0).mean) && std::isnan(empty.Column(0).Variance()));
  ExpectCorrelations(empty, 1, {kNaN});
}

TEST(SummaryFormulas, KeepCorrelationsWithinOne) {
  std::mt19937 random(1);
  std::vector<std::vector<double>> columns(40, std::vector<double>(50));
  for (std::size_t i = 0; i < columns.size(); ++i) {
    for (std::size_t row = 0; row < 50; ++row) {
      columns[i][row] = i % 2 == 0 ? static_cast<double>(random() % 1000) / 7.
                                   : columns[i - 1][row] * static_cast<double>(i) / 3.;
    }
  }
  for (const MissingRule missing : {MissingRule::Pairwise, MissingRule::Listwise}) {
    const Summary summary = SummaryOf(columns, missing, 7);
    std::vector<double> to(1600);
    summary.Correlations(to.data(), 40);
    for (std::size_t i = 0; i < 1600; ++i) {
      EXPECT_LE(std::abs(to[i]), 1.);
      EXPECT_EQ(to[i], to[i % 40 * 40 + i / 40]);
    }
  }
}

TEST(Summary, GoesOnBeyondTheRowsThatAnAccumulatorCounts) {
  const MixedTable table(kRows);
  for (const unsigned i : {0U, 1U, 2U, 3U}) {
    SCOPED_TRACE(i);
    Summary summary(MixedDefinition((i & 1U) != 0 ? MissingRule::Listwise : MissingRule::Pairwise,
                                    (i & 2U) != 0 ? 2 : 0, false, false, 500));
    summary.Update(table.View(summary.Definition(), 0, 1000));
    const SummaryRows once = summary.Rows();
    const ColumnStatistics x = summary.Column(3);
    const PairStatistics pair = summary.Pair(4, 0);
    constexpr int kDoublings = 24;
    for (int doubling = 0; doubling < kDoublings; ++doubling) {
      summary.Merge(summary);
    }
    EXPECT_EQ(summary.Rows().used, once.used << kDoublings);
    EXPECT_GT(summary.Rows().used, std::uint64_t{1} << 32U);
    Summary loaded = Summary::Load(summary.Save());
    EXPECT_EQ(loaded.Save(), summary.Save());
    for (const Summary* const all : {&summary, &loaded}) {
      EXPECT_EQ(all->Column(3).rows, x.rows << kDoublings);
      EXPECT_NEAR(all->Column(3).mean, x.mean, 1e-13 * std::abs(x.mean));
      EXPECT_EQ(all->Column(3).min, x.min);
      EXPECT_NEAR(all->Column(3).Variance(0.), x.Variance(0.), 1e-13 * x.Variance(0.));
      EXPECT_EQ(all->Pair(4, 0).rows, pair.rows << kDoublings);
      EXPECT_NEAR(all->Pair(4, 0).Correlation(), pair.Correlation(), 1e-13);
      EXPECT_EQ(all->WeightSum(), static_cast<double>(once.used << kDoublings));
    }
    summary.Update(table.View(summary.Definition(), 0, 1));
    EXPECT_GE(summary.Rows().used, once.used << kDoublings);
  }
}

Summary SomeSummary(MissingRule missing, std::size_t firstSide, std::size_t rows) {
  Summary summary(MixedDefinition(missing, firstSide, true, firstSide != 0, 20));
  summary.Update(MixedTable(rows).View(summary.Definition(), 0, rows));
  return summary;
}

TEST(SummaryState, HasTheBytesThatItAlwaysHad) {
  const auto check = [](const std::string& name, const Summary& summary) {
    ExpectGolden(name + ".1.velmor", summary.Save(),
                 [](const Bytes& bytes) { return Summary::Load(bytes).Save(); });
  };
  check("SummaryPairwise", SomeSummary(MissingRule::Pairwise, 0, 90));
  check("SummaryListwise", SomeSummary(MissingRule::Listwise, 0, 90));
  check("SummaryPairwiseRectangle", SomeSummary(MissingRule::Pairwise, 2, 90));
  check("SummaryListwiseRectangle", SomeSummary(MissingRule::Listwise, 2, 90));
  check("SummaryEmpty", SomeSummary(MissingRule::Pairwise, 0, 0));
}

TEST(SummaryState, IsRefusedForAnyOtherByteAndSaysWhatIsWrong) {
  const Bytes valid = SomeSummary(MissingRule::Listwise, 2, 90).Save();
  const auto load = [](const Bytes& bytes) { Summary::Load(bytes); };
  ExpectEachByteToCount(valid, load);
  // Values of bytes whose hash fits, and what is said of them.
  const struct {
    std::size_t at;
    unsigned char value;
    std::string message;
  } cases[] = {
      {0, 'V', "not a summary: it does not begin like one"},
      {8, 2, "a summary of format version 2, which this version of the library does not read"},
      {12, 2, "the state is wrong before byte 24: this is not a summary without groups"},
      {16, 0, "the summary has 551 bytes and should have 512"},
      {24, 8, "the state is wrong before byte 28: unknown flags"},
      {24, 3,
       "the state is wrong before byte 543: a part of the statistics has regression "
       "weights, not none"},
      {28, 255, "the state is wrong before byte 72: the state ends too early"},
      {32, 9,
       "the state is wrong before byte 191: no column is left for the second side: 9 of 5 "
       "are on the first"},
      {36, 0,
       "the state is wrong before byte 191: missing codes or rows of a block that are not "
       "in their normal form"},
      {47, 255, "the state is wrong before byte 48: a count is too large"},
      {40, 1, "the state is wrong before byte 543: rows that are not there"},
      {76, 'D', ""},
      {76, 0xFF, "the state is wrong before byte 191: column 0: its name is not UTF-8"},
      {82, 2, "the state is wrong before byte 86: a flag is neither 0 nor 1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.at);
    Bytes bytes = valid;
    bytes[c.at] = std::byte{c.value};
    Rehash(bytes);
    if (c.message.empty()) {
      EXPECT_EQ(Summary::Load(bytes).Definition().columns[0].name, "Double");
    } else {
      EXPECT_EQ(MessageOf<StateError>([&] { load(bytes); }), c.message);
    }
  }
}

}  // namespace
}  // namespace velmor::test
