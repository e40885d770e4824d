// Accumulate: the same bytes on any number of threads, from the whole table or from parts of it.
#include <norvwlib/norvwlib.h>
#include <velmor/velmor.h>

#include "accumulators.h"
#include "support.h"
#include "watchdog.h"

// The host's own service, so that a test can be a host that gives no threads.
static std::int64_t threadsOfHost = 3;
std::int64_t getthreads_() { return threadsOfHost; }

namespace velmor::test {
namespace {

// Cases as columns of memory.
class Table {
 public:
  explicit Table(Cases cases) : _cases(std::move(cases)) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      std::vector<double>& column = _columns.emplace_back();
      for (const auto& row : _cases.rows) {
        column.push_back(row[i]);
      }
    }
  }

  // Rows from `from` on.
  TableView View(std::size_t from = 0) const {
    TableView view;
    view.rows = _cases.rows.size() - from;
    for (const auto& column : _columns) {
      view.values.emplace_back(column.data() + from).absentCodes = {kMissing};
    }
    view.weights.emplace(_cases.weights.data() + from);
    view.regWeights.emplace(_cases.regWeights.data() + from);
    view.groups.emplace(_cases.groups.data() + from);
    return view;
  }
  const Cases& GetCases() const { return _cases; }
  double& Value(std::size_t row, std::size_t column) { return _columns[column][row]; }
  unsigned int& Group(std::size_t row) { return _cases.groups[row]; }

 private:
  Cases _cases;
  std::vector<std::vector<double>> _columns;
};

template <class Accumulator>
class AccumulateTest : public testing::Test {};
TYPED_TEST_SUITE(AccumulateTest, TypesOf<Accumulators>::Each);

TYPED_TEST(AccumulateTest, HasTheSameBytesOnAnyNumberOfThreads) {
  const Watchdog watchdog;
  constexpr std::uint64_t kBlockRows = 20;
  Cases cases = MixedCases(1010);
  std::fill_n(cases.weights.begin() + 3 * kBlockRows, kBlockRows, 0.);
  const Table table(cases);
  const auto shape = NewAccumulator<TypeParam>();

  BlockForest<TypeParam> expected(kBlockRows, *shape);
  for (std::uint64_t block = 0; block < 51; ++block) {
    const std::uint64_t from = block * kBlockRows;
    const auto to = std::min<std::uint64_t>(from + kBlockRows, 1010);
    expected.Add(block, Accumulated<TypeParam>(table.GetCases().Slice(from, to)));
  }
  for (const int threads : {1, 2, 3, 7, 0}) {
    SCOPED_TRACE(threads);
    const auto forest = Accumulate(table.View(), *shape, {kBlockRows, 0, threads, {}});
    EXPECT_EQ(Save(forest), Save(expected));
    EXPECT_EQ(Save(*forest.Result()), Save(*expected.Result()));
  }
  // In two parts, the second one first.
  constexpr std::uint64_t kSplit = 17;
  auto whole = Accumulate(table.View(kSplit * kBlockRows), *shape, {kBlockRows, kSplit, 2, {}});
  TableView first = table.View();
  first.rows = kSplit * kBlockRows;
  whole.Merge(Accumulate(first, *shape, {kBlockRows, 0, 2, {}}));
  EXPECT_EQ(Save(whole), Save(expected));
}

TYPED_TEST(AccumulateTest, TakesATableOfNoRowsAndOneOfAbsentValues) {
  const auto shape = NewAccumulator<TypeParam>();
  EXPECT_EQ(Save(*Accumulate(Table(Cases{}).View(), *shape).Result()), Save(*shape));
  Cases cases = MixedCases(600);
  for (auto& row : cases.rows) {
    row.assign(kColumns, kMissing);
  }
  const auto forest = Accumulate(Table(cases).View(), *shape);
  EXPECT_EQ(forest.NRows(), kIsPairwise<TypeParam> ? 600U : 0U);
  EXPECT_EQ(forest.NBlocks(), 1U);
}

TEST(AccumulateOptions, BlockRowsFollowFromTheWidthAlone) {
  const std::uint64_t expected[][2] = {
      {1, 131072}, {12, 10922}, {48, 2730}, {256, 512}, {5000, 512}};
  for (const auto& [columns, rows] : expected) {
    EXPECT_EQ(DefaultBlockRows(columns), rows);
  }
}

TEST(AccumulateErrors, NameTheFirstBadBlockOfTheTable) {
  const Watchdog watchdog;
  Table table(MixedCases(500));
  for (const std::size_t row : {123U, 124U, 321U, 400U}) {
    table.Value(row, 2) = 1e300;  // the missing code below
  }
  for (const int threads : {1, 2, 7}) {
    const auto message = MessageOf<std::invalid_argument>([&] {
      Accumulate(table.View(), SMatrixPairwise(1e300), {10, 0, threads, {}});
    });
    EXPECT_THAT(message, testing::HasSubstr("row 123, column 2"));
  }
}

TEST(AccumulateErrors, NameWhatDoesNotFit) {
  Table table(MixedCases(30));
  table.Group(25) = kGroups;
  TableView narrow = table.View();
  narrow.values.pop_back();
  TableView ungrouped = table.View();
  ungrouped.groups.reset();
  TableView empty = table.View();
  empty.values.clear();
  const std::string begin = "the table does not fit the accumulator: ";
  const struct {
    std::string message;
    const TableView& table;
    std::unique_ptr<MatrixBase> shape;
  } cases[] = {
      {begin + "it has 4 columns of values, not 5", narrow,
       std::make_unique<SMatrixListwise>(0, 5)},
      {begin + "it has 0 columns of values", empty, std::make_unique<SMatrixListwise>()},
      {begin + "it has 5 columns of values, not 6", table.View(),
       std::make_unique<DiscriminantMatrix>(3, 6)},
      {begin + "it has 5 columns of values, not 4", table.View(),
       std::make_unique<DiscIndividualMatrix>(3, 4)},
      {begin + "no table has the accumulator's bounds", table.View(),
       std::make_unique<NSMatrixListwise>(2, 2, 4)},
      {begin + "no table has the accumulator's bounds", table.View(),
       std::make_unique<DiscriminantMatrix>()},
      {begin + "it has 5 columns of values, not 8", table.View(),
       std::make_unique<SMatrixPairwise>(kMissing, 7, 0)},
      {begin + "it has no column of groups", ungrouped,
       std::make_unique<DiscIndividualMatrix>(3, 5)},
      {"row 25, groups: 3 is no group number; groups are whole numbers below 3", table.View(),
       std::make_unique<DiscriminantMatrix>(3, 5)},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(MessageOf<std::invalid_argument>([&] {
                Accumulate(c.table, *c.shape, {10, 0, 2, {}});
              }),
              c.message);
  }
  threadsOfHost = 0;
  EXPECT_EQ(MessageOf<std::runtime_error>([&] { Accumulate(table.View(), SMatrixListwise()); }),
            "the host ended the run after 0 of 1 blocks");
  threadsOfHost = 3;
}

TEST(AccumulateDeathTest, RefusesWhatCannotBeNumbered) {
  const Table table(MixedCases(3));
  const auto accumulate = [&](std::uint64_t blockRows, std::uint64_t firstBlock) {
    return [&table, blockRows, firstBlock] {
      Accumulate(table.View(), SMatrixListwise(), {blockRows, firstBlock, 1, {}});
    };
  };
  const std::string file = "velmor/accumulate.cpp";
  const Violation violations[] = {
      {"no columns", [] { DefaultBlockRows(0); }, file, "DefaultBlockRows", "0 < columns"},
      {"rows of a block", accumulate(std::uint64_t{1} << 32U, 0), file, "Accumulate",
       "blockRows <= std::numeric_limits<unsigned int>::max()"},
      {"last block", accumulate(1, (std::uint64_t{1} << 63U) - 2), file, "Run",
       "_blocks <= kMostBlocks && options.firstBlock <= kMostBlocks - _blocks"},
  };
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

TEST(AccumulateProgress, CountsRowsAndCancels) {
  const Watchdog watchdog;
  const Table table(MixedCases(95));
  for (const int threads : {1, 3}) {
    std::vector<std::uint64_t> seen;
    const auto see = [&seen](std::uint64_t rows) {
      seen.push_back(rows);
      return true;
    };
    Accumulate(table.View(), SMatrixListwise(), {20, 0, threads, see});
    EXPECT_EQ(seen, (std::vector<std::uint64_t>{0, 20, 40, 60, 80, 95}));

    const auto cancel = [](std::uint64_t rows) { return rows < 40; };
    EXPECT_EQ(MessageOf<Cancelled>([&] {
                Accumulate(table.View(), SMatrixListwise(), {20, 0, threads, cancel});
              }),
              "the run was cancelled after 40 of 95 rows");
    const auto fail = [](std::uint64_t /*rows*/) -> bool { throw std::logic_error("progress"); };
    EXPECT_EQ(MessageOf<std::logic_error>([&] {
                Accumulate(table.View(), SMatrixListwise(), {20, 0, threads, fail});
              }),
              "progress");
  }
}

}  // namespace
}  // namespace velmor::test
