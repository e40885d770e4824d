// With every engine of the machine every accumulator has the bits of its definition: in shapes that
// cross the edges of panels, tiles and strips and of what is worked on at a time, and with patterns
// of missing values. Kernels have their own test (contract_test.cpp), special values the fuzzers.
#include "ordered/engine.h"

#include "results.h"
#include "support.h"

#include <numeric>

namespace velmor::test {
namespace {

constexpr double kCode = -99.;
constexpr unsigned int kGroups = 300;

// Where a value stands.
struct Place {
  unsigned int row, rows, column, columns, batch;

  // By chance, the same for all columns of a class.
  bool Coin(unsigned int ofClass, unsigned int percent) const {
    std::minstd_rand random((ofClass * 1009 + row) * 31 + batch + 1);
    random.discard(2);  // the next number no longer goes up with the row
    return random() / 7 % 100 < percent;
  }
};

const struct {
  const char* name;
  bool (*isMissing)(const Place& at);
} kPatterns[] = {
    {"nothing", [](const Place&) { return false; }},
    {"some of every column", [](const Place& at) { return at.Coin(at.column, 10); }},
    {"the same of interleaved columns", [](const Place& at) { return at.Coin(at.column % 3, 20); }},
    {"by classes of 1 to 9 columns",
     [](const Place& at) {
       return at.Coin(static_cast<unsigned int>(std::sqrt(at.column * 7 % 24)), 15);
     }},
    {"most columns of two batches",
     [](const Place& at) { return at.batch != 1 && at.column % 4 != 0; }},
    {"two columns never together",
     [](const Place& at) { return at.column == (at.row % 2 == 0 ? 0 : at.columns - 1); }},
    {"one of the last rows", [](const Place& at) { return at.rows - at.row == 1 + at.column % 2; }},
    {"200 first rows", [](const Place& at) { return at.column % 3 != 2 && at.row < 200; }},
};

// Three batches: two for one accumulator and one for another.
struct Scenario {
  std::string name;
  unsigned int columns;
  std::vector<Cases> batches;
};

// Columns begin with runs of equal values.
template <class Draw>
std::vector<double> MakeRow(Place at, bool (*isMissing)(const Place& at), Draw draw) {
  constexpr unsigned int kRuns[] = {1, 2, 200, 7, 192};
  std::vector<double> row(at.columns);
  for (at.column = 0; at.column < at.columns; ++at.column) {
    const double value = at.row < kRuns[at.column % 5] ? 0.1 * (at.column + 1) : draw();
    row[at.column] = isMissing(at) ? kCode : value;
  }
  return row;
}

Scenario MakeScenario(unsigned int number) {
  constexpr unsigned int kColumns[] = {1, 3, 4, 5, 8, 9, 12, 13, 17, 24, 25, 33, 41};
  constexpr unsigned int kRows[] = {1, 193, 8, 385, 64, 5, 576, 192, 65};
  const auto& pattern = kPatterns[number % std::size(kPatterns)];
  const bool isWide = number % 40 == 1;  // more running sums of pairs than are worked on at a time
  Place at{0, 0, 0, isWide ? 324 : kColumns[number % std::size(kColumns)], 0};
  Scenario scenario{
      pattern.name + std::string(" missing, columns ") + std::to_string(at.columns) + ", rows",
      at.columns,
      {}};
  std::minstd_rand random(number + 1);
  const auto draw = [&random] { return std::uniform_real_distribution<double>(-1., 1.)(random); };
  for (; at.batch < 3; ++at.batch) {
    at.rows = isWide ? 40 : kRows[(number / 3 + 2 * at.batch) % std::size(kRows)];
    scenario.name += ' ' + std::to_string(at.rows);
    Cases& cases = scenario.batches.emplace_back();
    for (at.row = 0; at.row < at.rows; ++at.row) {
      cases.rows.push_back(MakeRow(at, pattern.isMissing, draw));
      cases.weights.resize(number / 2 % 2 == 0 ? 0 : at.row + 1, draw() + 0.9);
      cases.regWeights.resize(number / 4 % 2 == 0 ? 0 : at.row + 1, draw() + 0.9);
      cases.groups.push_back(
          static_cast<unsigned int>(random() / 7 % (number % 2 == 0 ? 5 : kGroups)));
    }
  }
  return scenario;
}

class EngineTest : public testing::TestWithParam<const ordered::Engine*> {
 protected:
  void SetUp() override { ordered::Use(*GetParam()); }
  void TearDown() override { ordered::Use(*ordered::Available().back()); }

  // Two batches and the merge with a third have the results of the definition.
  template <class Accumulator, class SomeBatch = DataBatch, class... Shape>
  static void Expect(const Scenario& s, Shape... shape) {
    const auto run = [](const auto& operation) { operation(); };
    Defined whole(std::make_unique<Accumulator>(shape...), s.columns);
    Defined part(std::make_unique<Accumulator>(shape...), s.columns);
    for (std::size_t i = 0; i < s.batches.size(); ++i) {
      const auto make = [&] {
        if constexpr (std::is_same_v<SomeBatch, DataBatch>) {
          return Batch(s.batches[i], s.columns);
        } else {
          return GroupedBatch(s.batches[i], s.columns, kGroups);
        }
      };
      ASSERT_EQ((i < 2 ? whole : part).Add(*make(), *make(), run), "") << s.name << ", batch " << i;
    }
    ASSERT_EQ(whole.Merge(part, run), "") << s.name << ", merged";
  }
};

TEST_P(EngineTest, ResultsHaveTheBitsOfTheDefinition) {
  for (unsigned int number = 0; number < 120 && !HasFatalFailure(); ++number) {
    const Scenario s = MakeScenario(number);
    const int columns = static_cast<int>(s.columns);
    const int from = columns / 5;
    const int middle = (columns + from + 1) / 2;
    Expect<MatrixListwise>(s);
    Expect<MatrixPairwise>(s, kCode);
    Expect<SMatrixListwise>(s, from, columns);
    Expect<SMatrixPairwise>(s, kCode, from, columns);
    if (middle < columns) {
      Expect<NSMatrixListwise>(s, from, middle, columns);
      Expect<NSMatrixPairwise>(s, kCode, from, middle, columns);
    }
    if (columns < 100) {
      Expect<DiscriminantMatrix>(s, static_cast<int>(kGroups), columns);
      Expect<DiscIndividualMatrix, DataBatchByGroup>(s, static_cast<int>(kGroups), columns);
    }
  }
}

// More columns than have room among the running sums that are worked on at a time.
TEST_P(EngineTest, PairsOfVeryManyColumnsAreThoseOfAListwiseBlock) {
  constexpr unsigned int kColumns = 1030;
  Cases cases;
  cases.rows = {std::vector<double>(kColumns, 0.1), std::vector<double>(kColumns)};
  std::iota(cases.rows[1].begin(), cases.rows[1].end(), 1.);
  MatrixListwise listwise;
  MatrixPairwise pairwise(kCode);
  listwise += *Batch(cases);
  pairwise += *Batch(cases);
  for (unsigned int i = 1; i < kColumns; ++i) {
    ASSERT_EQ(pairwise.Pair(i, i / 2).CSCP(), listwise.CCP(i, i / 2)) << "column " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, EngineTest, testing::ValuesIn(ordered::Available()),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace velmor::test
