// Every result of every accumulator has the bits of the plain loops, with every engine of the
// machine: shapes around the edges of panels, tiles and blocks of rows; kinds of values, weights,
// missing values and groups.
#include "ordered/engine.h"

#include "results.h"
#include "support.h"

namespace velmor::test {
namespace {

class EngineTest : public testing::TestWithParam<const ordered::Engine*> {
 protected:
  void SetUp() override {
    ordered::Use(*GetParam());
    ASSERT_EQ(&ordered::Active(), GetParam());
  }
  void TearDown() override { ordered::Use(*ordered::Available().back()); }
};

// Where a value stands in its batch.
struct Place {
  int row, rows, column, columns;
  unsigned int batch;

  bool IsMiddle() const { return row == rows / 2; }
  // By chance, the same for all columns of a class.
  bool Coin(int ofClass, unsigned int percent) const {
    auto hash = (batch * 31U + static_cast<unsigned int>(ofClass)) * 2654435761U +
                static_cast<unsigned int>(row) * 2246822519U;
    hash = (hash ^ (hash >> 15U)) * 2246822507U;
    return (hash ^ (hash >> 13U)) % 100 < percent;
  }
};

struct Values {
  const char* name;
  double (*value)(const Place& at, double u);  // u is drawn from 0 to 1
};

// A constant column keeps those beside it in the loop that looks for ends of leading runs.
bool IsConstant(const Place& at) { return at.column % 32 == 20; }

double LeadingRun(const Place& at, double u) {
  constexpr int kLengths[] = {1, 193, 2, 7, 192, 8, 191};
  const bool isRun = IsConstant(at) || at.row < kLengths[at.column % 7];
  return isRun ? 0.1 * (at.column + 1) : std::round(8. * u) / 10.;
}

double SignedZero(const Place& at, double u) {
  const double zero = u < 0.5 ? 0. : -0.;
  const double other[] = {-u, u, u - 0.5};  // zeros tie as largest, as smallest, as neither
  return IsConstant(at) || at.row < 5 || std::fmod(u, 0.1) < 0.02 ? zero : other[at.column % 3];
}

double Subnormal(const Place& at, double u) {
  constexpr double kScales[] = {1., 1e-154, 1e-309};
  return kScales[at.column % 3] * (u - 0.5);
}

double Large(const Place& at, double u) {
  const double values[] = {1e308 * (u + 0.5), u, -u, 1e308 * (3. * u - 1.5)};
  return values[at.column % 4];
}

double NotFinite(const Place& at, double u) {
  const int kind = at.column % 8;
  if (at.row < 3 && kind == 4) {
    return -kInf;
  }
  if (at.IsMiddle() && kind == 3) {
    return kInf;
  }
  return (at.row == 0 && kind == 1) || (at.IsMiddle() && kind == 6) ? kNaN : u;
}

const Values kValues[] = {
    {"uniform", [](const Place&, double u) { return u - 0.5; }},
    {"leading runs, then ties", LeadingRun},
    {"zeros of both signs", SignedZero},
    {"subnormal numbers", Subnormal},
    {"sums that overflow", Large},
    {"large means", [](const Place&, double u) { return 1e8 + u; }},
    {"infinities and NaNs", NotFinite},
};

struct Weights {
  const char* name;
  bool weighted, regWeighted;
  bool hasWeightlessBatches;
};

const Weights kWeights[] = {
    {"no weights", false, false, false},        {"case weights", true, false, false},
    {"regression weights", false, true, false}, {"both weights", true, true, false},
    {"weightless batches", true, true, true},
};
// Which batches weigh nothing, a bit each. Such cases have no mean: listwise accumulators leave
// these batches out and plain sums do not mind, but pairwise ones leave out only a whole part.
using BatchSets = std::vector<unsigned int>;
const BatchSets kAnyWeightless{1, 2, 4, 3};
const BatchSets kWeightlessPart{4};

// Three batches: two for one accumulator and one for another.
struct Scenario {
  std::string name;
  unsigned int number;
  int columns;
  std::vector<Cases> batches;
};

// Some weights are negative or zero. Beside values that are not finite there are some such weights.
Cases RandomCases(const Values& values, const Weights& weights, Place at, std::mt19937& random) {
  const auto draw = [&random] { return std::uniform_real_distribution<double>(0., 1.)(random); };
  Cases cases;
  const auto weigh = [&](bool isWanted, double special, Doubles& all) {
    const bool isSpecial =
        values.value == NotFinite && at.columns % 2 == 0 && at.row == at.rows - 1;
    if (const double u = draw(); isWanted) {
      all.push_back(isSpecial ? special : u < 0.1 ? 0. : 2. * u - 0.4);
    }
  };
  for (at.row = 0; at.row < at.rows; ++at.row) {
    weigh(weights.weighted, kInf, cases.weights);
    weigh(weights.regWeighted, kNaN, cases.regWeights);
    auto& row = cases.rows.emplace_back();
    for (at.column = 0; at.column < at.columns; ++at.column) {
      row.push_back(values.value(at, draw()));
    }
  }
  return cases;
}

// Calls test(scenario) for each shape, with values, weights and rows that go on from turn to turn.
template <class Test>
void ForEachShape(unsigned int turn, const BatchSets& weightless, Test test) {
  constexpr int kColumns[] = {1,  2,  3,  4,  5,  7,  8,  9,  11, 12, 13, 15,
                              16, 17, 23, 24, 25, 31, 32, 33, 40, 65, 324};
  constexpr int kRows[] = {1,  2,  3,  4,   5,   7,   8,   9,   15,  16,  17,
                           63, 64, 65, 127, 191, 192, 193, 255, 257, 384, 385};
  constexpr int kFewRows[] = {40, 1, 9};
  for (unsigned int shape = 0; shape < std::size(kColumns); ++shape) {
    const unsigned int number = turn + shape;
    const bool isWide = kColumns[shape] > 40;
    if (isWide && number % 6 != 0) {
      continue;
    }
    const Values& values = kValues[number % std::size(kValues)];
    const Weights& weights = kWeights[number % std::size(kWeights)];
    Scenario s{values.name, number, kColumns[shape], {}};
    s.name +=
        std::string(", ") + weights.name + ", " + std::to_string(s.columns) + " columns, rows";
    std::mt19937 random(number);
    for (const unsigned int batch : {0U, 1U, 2U}) {
      const int rows =
          isWide ? kFewRows[batch] : kRows[(5 * shape + 8 * batch + turn) % std::size(kRows)];
      s.name += ' ' + std::to_string(rows);
      Cases cases = RandomCases(values, weights, {0, rows, 0, s.columns, batch}, random);
      if (weights.hasWeightlessBatches && (weightless[number % weightless.size()] >> batch & 1U)) {
        s.name += " (weightless)";
        std::fill(cases.weights.begin(), cases.weights.end(), 0.);
      }
      s.batches.push_back(std::move(cases));
    }
    SCOPED_TRACE(s.name);
    test(std::move(s));
  }
}

// The scenario's batches, accumulated in two parts that are then merged, give what the definition
// gives.
//   make, makeBatch  an empty accumulator, a batch of cases
template <class Make, class MakeBatch>
void ExpectDefined(const char* name, const Scenario& scenario, Make make, MakeBatch makeBatch) {
  SCOPED_TRACE(name);
  const auto run = [](const auto& operation) { operation(); };
  const auto columns = static_cast<unsigned int>(scenario.columns);
  Defined whole(make(), columns);
  const auto accumulate = [&](std::size_t from, std::size_t to) {
    Defined part(make(), columns);
    for (std::size_t i = from; i < to; ++i) {
      SCOPED_TRACE("batch " + std::to_string(i));
      ASSERT_EQ(part.Add(*makeBatch(scenario.batches[i]), *makeBatch(scenario.batches[i]), run),
                "");
    }
    ASSERT_EQ(whole.Merge(part, run), "") << "merged";
  };
  accumulate(0, 2);
  accumulate(2, 3);
}

// A batch of the cases, full or with room for more.
std::unique_ptr<DataBatch> Filled(const Cases& cases) {
  constexpr std::size_t kRoom[] = {0, 1, 37};
  CurrentCase current;
  auto batch = EmptyBatch<DataBatch>(cases, static_cast<unsigned int>(cases.rows[0].size()),
                                     kRoom[cases.rows.size() % 3], current);
  AddRows(*batch, current, cases);
  return batch;
}

// The accumulators of one family: over all columns, over some in the middle, and over two ranges.
// `code` is the missing code, where there is one.
template <class Matrix, class Symmetric, class Rectangular, class... Code>
void ExpectFamily(const Scenario& s, Code... code) {
  const int col0 = s.columns / 5;
  const int col2 = s.columns - s.columns / 7;
  ExpectDefined(
      "matrix", s, [&] { return std::make_unique<Matrix>(code...); }, Filled);
  ExpectDefined(
      "symmetric", s, [&] { return std::make_unique<Symmetric>(code...); }, Filled);
  ExpectDefined(
      "symmetric block", s, [&] { return std::make_unique<Symmetric>(code..., col0, col2); },
      Filled);
  const int first = s.number % 2 == 0 ? 0 : col0;
  const int col1 = first + 1 + static_cast<int>(s.number) % std::max(1, col2 - first - 1);
  if (col1 < col2) {
    ExpectDefined(
        "rectangular", s, [&] { return std::make_unique<Rectangular>(code..., first, col1, col2); },
        Filled);
  }
}

TEST_P(EngineTest, ListwiseResultsAreThoseOfThePlainLoops) {
  for (unsigned int turn = 0; turn < std::size(kValues) * std::size(kWeights); ++turn) {
    ForEachShape(turn, kAnyWeightless, [](const Scenario& s) {
      ExpectFamily<MatrixListwise, SMatrixListwise, NSMatrixListwise>(s);
    });
  }
}

// Classes of 1, 2, 3, 4, 5 and 9 columns, scattered.
int MixedClass(int column) {
  constexpr int kEnds[] = {1, 3, 6, 10, 15, 24};
  return static_cast<int>(std::upper_bound(kEnds, std::end(kEnds), column * 7 % 24) - kEnds) +
         column / 24 * 6;
}

struct Pattern {
  const char* name;
  double missingCode;
  bool (*isMissing)(const Place& at);
};

// The third one and every sixth after it are met by the most columns.
const Pattern kPatterns[] = {
    {"nothing", -99., [](const Place&) { return false; }},
    {"one value", -99.,
     [](const Place& at) { return at.IsMiddle() && at.column == at.columns / 2; }},
    {"some of every column", -99., [](const Place& at) { return at.Coin(at.column, 10); }},
    {"some of a third of the columns", -99.,
     [](const Place& at) { return at.column % 3 == 1 && at.Coin(at.column, 20); }},
    {"by blocks of 8 columns", -99., [](const Place& at) { return at.Coin(at.column / 8, 20); }},
    {"a column", -99., [](const Place& at) { return at.column == at.columns / 2; }},
    {"by interleaved groups", -99., [](const Place& at) { return at.Coin(at.column % 3, 20); }},
    {"half by classes", -99., [](const Place& at) { return at.Coin(MixedClass(at.column), 50); }},
    {"by classes", -99., [](const Place& at) { return at.Coin(MixedClass(at.column), 15); }},
    {"most columns of two batches", -99.,
     [](const Place& at) { return at.batch != 1 && at.column % 4 != 0; }},
    {"two columns never together", -99.,
     [](const Place& at) { return at.column == (at.row % 2 == 0 ? 0 : at.columns - 1); }},
    {"first rows", -99., [](const Place& at) { return at.row < 1 + at.column % 9; }},
    {"last rows", -99., [](const Place& at) { return at.rows - at.row < 2 + at.column % 9; }},
    {"one of the last rows", -99.,
     [](const Place& at) { return at.rows - at.row == 1 + at.column % 5; }},
    {"code infinity", kInf, [](const Place& at) { return at.Coin(at.column / 4, 20); }},
    {"code NaN", kNaN, [](const Place& at) { return at.Coin(at.column, 2); }},
    {"code 0", 0., [](const Place& at) { return at.Coin(at.column, 20); }},
    {"200 first rows", -99., [](const Place& at) { return at.column % 3 != 2 && at.row < 200; }},
};

// A missing zero has either sign.
void Lose(const Pattern& pattern, Scenario& s) {
  Place at{0, 0, 0, s.columns, 0};
  for (Cases& cases : s.batches) {
    at.rows = static_cast<int>(cases.rows.size());
    at.row = 0;
    for (auto& row : cases.rows) {
      at.column = 0;
      for (double& value : row) {
        if (pattern.isMissing(at)) {
          value = pattern.missingCode == 0. && at.row % 2 == 0 ? -0. : pattern.missingCode;
        }
        ++at.column;
      }
      ++at.row;
    }
    ++at.batch;
  }
}

TEST_P(EngineTest, PairwiseResultsAreThoseOfThePlainLoops) {
  unsigned int turn = 0;
  for (const Pattern& pattern : kPatterns) {
    SCOPED_TRACE(std::string("missing: ") + pattern.name);
    ForEachShape(turn++, kWeightlessPart, [&pattern](Scenario s) {
      Lose(pattern, s);
      ExpectFamily<MatrixPairwise, SMatrixPairwise, NSMatrixPairwise>(s, pattern.missingCode);
    });
  }
}

struct Grouping {
  const char* name;
  unsigned int groups;
  unsigned int (*group)(unsigned int row, unsigned int rows, unsigned int draw);
};

template <class Accumulator, class MakeBatch>
void ExpectGroupedSums(const Grouping& grouping, unsigned int turn, unsigned int nGroups,
                       MakeBatch makeBatch) {
  SCOPED_TRACE(grouping.name);
  ForEachShape(turn, kAnyWeightless, [&](Scenario s) {
    std::mt19937 random(s.number);
    for (Cases& cases : s.batches) {
      const auto rows = static_cast<unsigned int>(cases.rows.size());
      for (unsigned int row = 0; row < rows; ++row) {
        cases.groups.push_back(
            grouping.group(row, rows, static_cast<unsigned int>(random() % 900)));
      }
    }
    ExpectDefined(
        "sums", s,
        [&] { return std::make_unique<Accumulator>(static_cast<int>(nGroups), s.columns); },
        makeBatch);
  });
}

TEST_P(EngineTest, DiscriminantSumsAreThoseOfThePlainLoops) {
  const Grouping groupings[] = {
      {"one group", 1, [](auto, auto, auto) { return 0U; }},
      {"one of five groups", 5, [](auto, auto, auto) { return 3U; }},
      {"five groups", 5, [](auto, auto, auto draw) { return draw % 5; }},
      {"five groups, sorted", 5, [](auto row, auto rows, auto) { return row * 5 / rows; }},
      {"300 groups", 300, [](auto, auto, auto draw) { return draw % 300; }},
      {"400 groups, sorted", 400, [](auto row, auto, auto) { return row; }},
  };
  unsigned int turn = 0;
  for (const Grouping& grouping : groupings) {
    ExpectGroupedSums<DiscriminantMatrix>(grouping, turn++, grouping.groups, Filled);
  }
}

TEST_P(EngineTest, IndividualSumsAreThoseOfThePlainLoops) {
  const Grouping groupings[] = {
      {"one group", 1, [](auto, auto, auto) { return 0U; }},
      {"three groups", 3, [](auto, auto, auto draw) { return draw % 3; }},
      {"some groups empty", 9, [](auto, auto, auto draw) { return draw % 3 * 3; }},
      {"groups of one case", 26,
       [](auto row, auto, auto) { return row < 20 ? 19 - row : 20 + row % 3; }},
      {"one case elsewhere", 5, [](auto row, auto, auto) { return row == 5 ? 1U : 2U; }},
  };
  unsigned int turn = 0;
  for (const Grouping& grouping : groupings) {
    const auto makeBatch = [&grouping](const Cases& cases) {
      return GroupedBatch(cases, static_cast<unsigned int>(cases.rows[0].size()), grouping.groups);
    };
    // The accumulator knows a group more than the batches.
    ExpectGroupedSums<DiscIndividualMatrix>(grouping, turn++, grouping.groups + 1, makeBatch);
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, EngineTest, testing::ValuesIn(ordered::Available()),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace velmor::test
