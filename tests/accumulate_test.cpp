// Accumulate: the same bytes on any number of threads, from the whole table or from parts of it.
#include <norvwlib/norvwlib.h>
#include <velmor/velmor.h>

#include "accumulators.h"
#include "support.h"
#include "watchdog.h"

#include <chrono>
#include <thread>

// The host's own services, so that a test can be a host that gives no threads, or one that lets a
// run with an error pass.
static std::int64_t threadsOfHost = 3;
std::int64_t getthreads_() { return threadsOfHost; }
std::int64_t atnnxt_() { return 0; }

namespace velmor::test {
namespace {

CaseTable TableOf(Cases cases) { return {std::move(cases), kColumns, {kMissing}}; }

template <class Accumulator>
class AccumulateTest : public testing::Test {};
TYPED_TEST_SUITE(AccumulateTest, TypesOf<Accumulators>::Each);

TYPED_TEST(AccumulateTest, HasTheSameBytesOnAnyNumberOfThreads) {
  const Watchdog watchdog;
  constexpr std::size_t kRows = 1010;
  constexpr std::size_t kBlockRows = 20;
  constexpr unsigned int kNoGroup = 77;
  Cases cases = MixedCases(kRows);
  std::fill_n(cases.weights.begin() + 3 * kBlockRows, kBlockRows, 0.);
  std::fill_n(cases.rows.begin() + 7 * kBlockRows, kBlockRows, std::vector(kColumns, kMissing));
  Cases taken = cases;
  for (std::size_t row = 5; row < kRows; row += 50) {
    cases.groups[row] = kNoGroup;
    if (requires(const TypeParam& a) { a.NGroup(); }) {
      taken.rows[row].assign(kColumns, kMissing);  // left out only by those that have groups
    }
  }
  const auto accumulate = [&cases](std::size_t from, std::size_t to, int threads) {
    const CaseTable table = TableOf(cases.Slice(from, std::max(to, from + 1)));
    TableView view = table.View();
    view.rows = to - from;
    view.groups->absentCodes = {kNoGroup};
    return Accumulate(view, *NewAccumulator<TypeParam>(),
                      {kBlockRows, from / kBlockRows, threads, {}});
  };
  BlockForest<TypeParam> expected(kBlockRows, *NewAccumulator<TypeParam>());
  EXPECT_EQ(Save(accumulate(0, 0, 2)), Save(expected));
  for (std::size_t from = 0; from < kRows; from += kBlockRows) {
    const Cases block = taken.Slice(from, std::min(from + kBlockRows, kRows));
    expected.Add(from / kBlockRows, Accumulated<TypeParam>(block));
  }
  for (const int threads : {1, 2, 3, 7, 0}) {
    SCOPED_TRACE(threads);
    const auto forest = accumulate(0, kRows, threads);
    EXPECT_EQ(Save(forest), Save(expected));
    EXPECT_EQ(Save(*forest.Result()), Save(*expected.Result()));
  }
  // In two parts, the second one first.
  constexpr std::size_t kSplit = 17 * kBlockRows;
  auto whole = accumulate(kSplit, kRows, 2);
  whole.Merge(accumulate(0, kSplit, 2));
  EXPECT_EQ(Save(whole), Save(expected));
}

TEST(AccumulateOptions, BlockRowsFollowFromTheWidthAlone) {
  const std::uint64_t expected[][3] = {{1, 504, 131072}, {12, 504, 10922}, {64, 504, 2048},
                                       {65, 2016, 2016}, {256, 512, 512},  {5000, 512, 512}};
  for (const auto& [columns, rows, rowsByGroup] : expected) {
    EXPECT_EQ(DefaultBlockRows(columns), rows);
    EXPECT_EQ(DefaultBlockRowsByGroup(columns), rowsByGroup);
  }
}

// Two bad blocks, the first in its last row and the second in its first: they are found in that
// order when the second one is claimed late, else most often in the other.
TEST(AccumulateErrors, NameTheFirstBadBlockInWhateverOrderTheyAreFound) {
  const Watchdog watchdog;
  constexpr std::size_t kBlockRows = 1U << 20U;
  constexpr double kBad = 1e300;  // the missing code below
  std::vector<double> column(2 * kBlockRows, 1.);
  column[kBlockRows - 1] = column[kBlockRows] = kBad;
  TableView table;
  table.rows = column.size();
  table.values.emplace_back(column.data());
  for (const bool isLate : {false, true}) {
    std::uint64_t claimed = 0;
    const auto progress = [&](std::uint64_t rows) {
      claimed = rows;
      std::this_thread::sleep_for(std::chrono::milliseconds(rows == 0 ? 20 : isLate ? 100 : 0));
      return true;
    };
    while (claimed == 0) {  // until both are
      EXPECT_EQ(MessageOf<std::invalid_argument>([&] {
                  Accumulate(table, SMatrixPairwise(kBad), {kBlockRows, 0, 2, progress});
                }),
                "row 1048575, column 0: the value 1e+300 equals the missing code; choose a code "
                "that no value has");
    }
  }
}

TEST(AccumulateErrors, NameWhatDoesNotFit) {
  Cases cases = MixedCases(30);
  cases.groups[25] = kGroups;
  const CaseTable memory = TableOf(cases);
  const TableView table = memory.View();
  TableView narrow = table;
  narrow.values.pop_back();
  TableView ungrouped = table;
  ungrouped.groups.reset();
  TableView empty = table;
  empty.values.clear();
  const auto expect = [](const std::string& message, const TableView& of, const MatrixBase& shape) {
    EXPECT_EQ(MessageOf<std::invalid_argument>([&] {
                Accumulate(of, shape, {10, 0, 2, {}});
              }),
              message);
  };
  const std::string begin = "the table does not fit the accumulator: ";
  const std::string bounds = begin + "no table has the accumulator's bounds";
  const std::string columns = begin + "it has 5 columns of values, not ";
  expect(begin + "it has 4 columns of values, not 5", narrow, SMatrixListwise(0, 5));
  expect(begin + "it has 0 columns of values", empty, SMatrixListwise());
  expect(columns + "6", table, DiscriminantMatrix(3, 6));
  expect(columns + "4", table, DiscIndividualMatrix(3, 4));
  expect(columns + "8", table, SMatrixPairwise(kMissing, 7, 0));
  expect(bounds, table, NSMatrixListwise(2, 2, 4));
  expect(bounds, table, DiscriminantMatrix());
  expect(begin + "it has no column of groups", ungrouped, DiscIndividualMatrix(3, 5));
  expect("row 25, groups: 3 is no group number; groups are whole numbers below 3", table,
         DiscriminantMatrix(3, 5));
  threadsOfHost = 0;
  EXPECT_EQ(MessageOf<std::runtime_error>([&] { Accumulate(table, SMatrixListwise()); }),
            "the host ended the run after 0 of 1 blocks");
  threadsOfHost = 3;
  EXPECT_EQ(Accumulate(table, SMatrixListwise()).BlockRows(), DefaultBlockRows(kColumns));
}

TEST(AccumulateDeathTest, RefusesWhatCannotBeNumbered) {
  const CaseTable table = TableOf(MixedCases(3));
  const auto accumulate = [&](std::uint64_t blockRows, std::uint64_t firstBlock) {
    Accumulate(table.View(), SMatrixListwise(), {blockRows, firstBlock, 1, {}});
  };
  const std::string file = "velmor/accumulate.cpp";
  ExpectAbort({"no columns", [] { DefaultBlockRows(0); }, file, "DefaultBlockRows", "0 < columns"});
  ExpectAbort({"no columns by group", [] { DefaultBlockRowsByGroup(0); }, file,
               "DefaultBlockRowsByGroup", "0 < columns"});
  ExpectAbort({"rows of a block", [&] { accumulate(std::uint64_t{1} << 32U, 0); }, file,
               "Accumulate", "blockRows <= std::numeric_limits<unsigned int>::max()"});
  ExpectAbort({"last block", [&] { accumulate(1, (std::uint64_t{1} << 63U) - 2); }, file, "Run",
               "_blocks <= kMostBlocks && options.firstBlock <= kMostBlocks - _blocks"});
}

TEST(AccumulateProgress, CountsRowsCancelsAndFails) {
  const Watchdog watchdog;
  const CaseTable table = TableOf(MixedCases(95));
  for (const int threads : {1, 3}) {
    const auto accumulate = [&](const std::function<bool(std::uint64_t)>& progress) {
      Accumulate(table.View(), SMatrixListwise(), {20, 0, threads, progress});
    };
    std::vector<std::uint64_t> seen;
    accumulate([&seen](std::uint64_t rows) {
      seen.push_back(rows);
      return true;
    });
    EXPECT_EQ(seen, (std::vector<std::uint64_t>{0, 20, 40, 60, 80, 95}));
    EXPECT_EQ(
        MessageOf<Cancelled>([&] { accumulate([](std::uint64_t rows) { return rows < 40; }); }),
        "the run was cancelled after 40 of 95 rows");
    // An error is the caller's from the first call to the last, when all rows have been taken.
    for (const std::uint64_t last : {0U, 40U, 95U}) {
      EXPECT_THROW(accumulate([last](std::uint64_t rows) {
                     return rows < last ? true : throw std::logic_error("progress");
                   }),
                   std::logic_error);
      EXPECT_THROW(accumulate([last](std::uint64_t rows) {
                     return rows < last ? true : throw NorvGoToCaller();
                   }),
                   NorvGoToCaller);
    }
  }
}

}  // namespace
}  // namespace velmor::test
