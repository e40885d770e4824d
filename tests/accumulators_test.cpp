// What every accumulator does alike, whatever life it has: its results are those of its plain
// definition (definition.h), to the bit; a merge into an empty one copies; either order of a pair
// is the same pair.
#include <velmor/velmor.h>

#include "accumulators.h"
#include "results.h"
#include "support.h"

namespace velmor::test {
namespace {

constexpr auto kRun = [](const auto& operation) { operation(); };

// The cases of a batch that a letter stands for. Lower-case letters are seeds.
// NOLINTNEXTLINE(readability-function-cognitive-complexity): a table, a line for each letter
Cases BatchCases(char letter) {
  const std::size_t rows = letter == '0' ? 0 : letter == '1' ? 1 : letter == 'T' ? 40 : 9;
  Cases cases = MixedCases(rows, letter % 2 == 0 ? 7 : 8);
  const auto weigh = [&cases](auto weight) {
    for (std::size_t i = 0; i < cases.weights.size(); ++i) {
      cases.weights[i] = weight(i);
    }
  };
  const auto fill = [&cases](auto value) {
    for (std::size_t i = 0; i < cases.rows.size(); ++i) {
      for (std::size_t j = 0; j < kColumns; ++j) {
        cases.rows[i][j] = value(i, j);
      }
    }
  };
  switch (letter) {
    case 'W':  // no case weighs anything
      weigh([](auto) { return 0.; });
      break;
    case 'Z':  // some do, but nothing together
      weigh([](auto i) { return i == 0 ? 4. : i == 1 ? -4. : 0.; });
      break;
    case 'N':  // less than nothing: what an a or b weighs is cancelled in the end
      weigh([](auto i) { return i == 0 ? -1. : 0.; });
      break;
    case 'U':  // a unit
      weigh([](auto i) { return i == 0 ? 1. : 0.; });
      break;
    case 'C':  // constant columns
      fill([](auto, auto j) { return 0.1 * static_cast<double>(j + 1); });
      break;
    case 'P':  // zeros, of which only signs tell the order
    case 'M':
      fill([letter](auto, auto) { return letter == 'P' ? 0. : -0.; });
      break;
    case 'T':  // the first zero's sign counts, which is in another lane than the first lane's zero
      fill([](auto i, auto j) {
        const double first = j % 2 == 0 ? -1. : 1.;
        return i < 3 ? first : i == 3 ? 0. : (i + 3 * j) % 11 == 5 ? kMissing : -0.;
      });
      break;
    case 'A':  // nothing is present
      fill([](auto, auto) { return kMissing; });
      break;
    case 'I':  // not finite
      cases.rows[1] = {kInf, 1e200, -kInf, -0., kNaN};
      cases.rows[2] = {-kInf, -1e200, -kInf, 1., 2.};
      break;
    default:
      break;
  }
  return cases;
}

constexpr struct {
  const char* name;
  const char* batches;  // a slash begins another accumulator, which is merged into the first one
} kLives[] = {
    {"no case", "0"},
    {"one case", "1"},
    {"batches", "ab1"},
    {"no case, then some", "0a0"},
    {"constant columns", "CC"},
    {"zeros of both signs", "PMMP"},
    {"the same in a merge", "P/M/P"},
    {"zeros as extremes", "TaT/T"},
    {"all absent", "AaA"},
    {"not finite", "aIb"},
    {"not finite later", "ab/I"},
    {"merges", "ab/b/1"},
    {"merged into nothing", "/ab/a"},
    {"nothing merged", "ab//0"},
    {"nothing merged into nothing", "//"},
    {"zero weight, then some", "WabW"},
    {"weights that cancel in a batch", "ZaZ"},
    {"weights that cancel over batches", "UNaUN"},
    {"zero weight merged", "ab/W/Z"},
    {"zero weight merged into nothing", "/W"},
    {"the same, then some", "/Z/ab/W"},
    {"merged into zero weight", "W/ab"},
    {"zero weight into zero weight", "Z/W"},
};

template <class Accumulator>
class AccumulatorTest : public testing::Test {};
TYPED_TEST_SUITE(AccumulatorTest, TypesOf<Classes>::Each);

TYPED_TEST(AccumulatorTest, HasTheResultsOfItsDefinition) {
  for (const unsigned int weights : {0U, 1U, 2U, 3U}) {
    const auto add = [&](Defined<TypeParam>& to, char letter) {
      Cases cases = CasesFor<TypeParam>(BatchCases(letter));
      cases.weights.resize(weights & 1U ? cases.weights.size() : 0);
      cases.regWeights.resize(weights & 2U ? cases.regWeights.size() : 0);
      ASSERT_EQ(to.Add(*BatchFor<TypeParam>(cases), *BatchFor<TypeParam>(cases), kRun), "")
          << "batch " << letter;
    };
    for (const auto& life : kLives) {
      SCOPED_TRACE(testing::Message() << life.name << ", weights " << weights);
      Defined whole(NewAccumulator<TypeParam>(), kColumns);
      const std::string batches = std::string(life.batches) + '/';
      const char* next = batches.c_str();
      for (; *next != '/'; ++next) {
        add(whole, *next);
      }
      while (*++next) {
        Defined part(NewAccumulator<TypeParam>(), kColumns);
        for (; *next != '/'; ++next) {
          add(part, *next);
        }
        ASSERT_EQ(whole.Merge(part, kRun), "");
        // They share nothing.
        add(part, 'a');
        ASSERT_EQ(whole.Difference(), "");
      }
      add(whole, 'b');
    }
  }
}

// Whatever bounds and missing code an empty accumulator was made with.
TYPED_TEST(AccumulatorTest, BecomesWhatIsMergedFirst) {
  const auto source = Accumulated<TypeParam>(MixedCases(9));
  const auto copy = MakeAccumulator<TypeParam>(0., {7, 8, 9});
  if constexpr (std::is_base_of_v<MatrixBase, TypeParam>) {
    // Without a case, the class of what is merged does not matter.
    SMatrixListwise listwise;
    NSMatrixPairwise pairwise(kMissing, 0, 1, 2);
    *copy += listwise;
    *copy += pairwise;
  }
  *copy += *source;
  EXPECT_EQ(Save(*copy), Save(*source));
}

TYPED_TEST(AccumulatorTest, LooksAtAPairFromBothSides) {
  const auto accumulator = Accumulated<TypeParam>(MixedCases(30));
  const TypeParam& a = *accumulator;
  if constexpr (requires { a.NGroup(); }) {
    Block{0, 0, a.NVar(), false}.ForEachPair([&a](int i, int j) {
      if constexpr (requires { a.sumW(i); }) {
        EXPECT_EQ(a.TSSP(i, j), a.TSSP(j, i));
      } else {  // rows of 1, 2, 3, ... products
        const int item = i * (i + 1) / 2 + j;
        EXPECT_EQ(a.TSSP(i + 1, j, 1), a.TSSP(item, 1));
        EXPECT_EQ(a.TSSP(j, i + 1, 1), a.TSSP(item, 1));
      }
    });
  } else {
    BlockOf(a, a.NColumns()).ForEachPair([&a](int i, int j) {
      using Number = std::conditional_t<std::is_base_of_v<MatrixBase, TypeParam>, int, unsigned>;
      const auto row = static_cast<Number>(i);
      const auto col = static_cast<Number>(j);
      if constexpr (requires { a.CCP(row, col); }) {
        EXPECT_EQ(a.CCP(row, col), a.CCP(col, row));
      } else {
        EXPECT_EQ(Fields(a.Pair(row, col)), Fields(a.Pair(col, row)));
      }
    });
  }
}

TEST(Accumulators, SayWhichColumnsTheyHave) {
  using Bounds = std::vector<int>;
  const auto boundsOf = [](const auto& a) {
    return Bounds{a.Col0(), a.Col1(), a.Col2(), static_cast<int>(a.NColumns())};
  };
  const auto expect = [&](auto empty, const Bounds& before, const Bounds& after) {
    EXPECT_EQ(boundsOf(*empty), before);
    *empty += *Batch(MixedCases(3));
    EXPECT_EQ(boundsOf(*empty), after);
    EXPECT_TRUE(empty->HasRegWeights());
  };
  expect(std::make_unique<SMatrixListwise>(), {0, 0, 0, 0}, {0, 0, 5, 5});
  expect(std::make_unique<SMatrixListwise>(1, 4), {1, 1, 4, 0}, {1, 1, 4, 3});
  expect(std::make_unique<NSMatrixListwise>(1, 2, 4), {1, 2, 4, 0}, {1, 2, 4, 3});
  expect(std::make_unique<SMatrixPairwise>(kMissing), {0, 0, 0, 0}, {0, 0, 5, 5});
  expect(std::make_unique<SMatrixPairwise>(kMissing, 1, 0), {1, 1, 0, 0}, {1, 1, 5, 4});
  expect(std::make_unique<NSMatrixPairwise>(kMissing, 1, 2, 4), {1, 2, 4, 0}, {1, 2, 4, 3});
  MatrixListwise listwise;
  MatrixPairwise pairwise(kMissing);
  EXPECT_TRUE((listwise += *Batch(MixedCases(3))).HasRegWeights());
  EXPECT_TRUE((pairwise += *Batch(MixedCases(3))).HasRegWeights());
}

// A batch by group is for one class; others leave it alone.
TEST(Accumulators, ABatchByGroupChangesNothingElsewhere) {
  SMatrixPairwise pairwise(kMissing);
  MatrixBase& base = pairwise;
  EXPECT_EQ(&(base += *GroupedBatch(MixedCases(3), kColumns, kGroups)), &base);
  EXPECT_EQ(base.NRows(), 0U);
}

}  // namespace
}  // namespace velmor::test
