// The discriminant accumulators: where each sum lies, merges, and what they refuse.
#include <velmor/velmor.h>

#include "support.h"

#include <random>

namespace velmor::test {
namespace {

TEST(DiscriminantMatrix, HandWorkedCase) {
  const Cases cases{{{1.}, {3.}, {5.}}, {}, {}, {0, 0, 1}};
  DiscriminantMatrix a(2, 1);
  a += *Batch(cases);
  EXPECT_EQ(a.sumW(0), 2.);
  EXPECT_EQ(a.sumW(1), 1.);
  EXPECT_EQ(a.sumX1(0, 0), 4.);
  EXPECT_EQ(a.sumX1(1, 0), 5.);
  EXPECT_EQ(a.sumX2(0, 0), 10.);
  EXPECT_EQ(a.sumX2(1, 0), 25.);
  EXPECT_EQ(a.WeightSum(), 3.);
  EXPECT_EQ(a.NRows(), 3U);
}

TEST(DiscIndividualMatrix, HandWorkedCase) {
  const Cases cases{{{1.}, {4.}, {2.}}, {}, {}, {0, 1, 0}};
  DiscIndividualMatrix a(3, 1);
  a += *GroupedBatch(cases, 1, 2);
  // Items: sum of squares, sum, count. Group 2 had no case.
  const double expected[3][3] = {{5., 16., 0.}, {3., 4., 0.}, {2., 1., 0.}};
  for (int item = 0; item < 3; ++item) {
    for (int group = 0; group < 3; ++group) {
      EXPECT_EQ(a.TSSP(item, group), expected[item][group]);
    }
  }
  EXPECT_EQ(a.TSSP(1, 0, 0), 5.);
  EXPECT_EQ(a.TSSP(0, 1, 1), 16.);
  EXPECT_EQ(a.WeightSum(), 3.);
}

// The sum of weighted terms over the cases of a group, over all cases for a negative one.
template <class Term>
double PlainSum(const Cases& cases, int group, Term term) {
  double sum = 0.;
  for (std::size_t i = 0; i < cases.rows.size(); ++i) {
    if (group < 0 || cases.groups[i] == static_cast<unsigned int>(group)) {
      sum += (cases.weights.empty() ? 1. : cases.weights[i]) * term(cases.rows[i]);
    }
  }
  return sum;
}

constexpr int kColumns = 4;
constexpr int kProducts = 10;  // of four variables with each other and themselves
constexpr int kGroups = 3;

void ExpectPlainSums(const Cases& cases, const DiscriminantMatrix& total,
                     const DiscIndividualMatrix& individual, int group) {
  const auto one = [](const auto& /*row*/) { return 1.; };
  EXPECT_EQ(total.sumW(group), PlainSum(cases, group, one));
  EXPECT_EQ(individual.TSSP(kProducts + kColumns, group), PlainSum(cases, group, one));
  int product = 0;
  for (int i = 0; i < kColumns; ++i) {
    const auto x = [i](const auto& row) { return row[static_cast<std::size_t>(i)]; };
    EXPECT_EQ(total.sumX1(group, i), PlainSum(cases, group, x));
    EXPECT_EQ(individual.TSSP(kProducts + i, group), PlainSum(cases, group, x));
    for (int j = 0; j <= i; ++j, ++product) {
      const auto xy = [x, j](const auto& row) { return x(row) * row[static_cast<std::size_t>(j)]; };
      EXPECT_EQ(individual.TSSP(product, group), PlainSum(cases, group, xy));
      EXPECT_EQ(individual.TSSP(i + 1, j, group), PlainSum(cases, group, xy));
      if (i == j) {
        EXPECT_EQ(total.sumX2(group, i), PlainSum(cases, group, xy));
      } else {
        EXPECT_EQ(total.TSSP(i, j), PlainSum(cases, -1, xy));
        EXPECT_EQ(total.TSSP(j, i), PlainSum(cases, -1, xy));
      }
    }
  }
}

// Sums of integers are exact, so whatever way the cases are cut up, the two accumulators hold the
// very sums that a loop over all cases gives.
TEST(Discriminant, AnySplitHoldsThePlainSums) {
  std::mt19937 random(20260214);
  const auto integer = [&random](unsigned int below) {
    return static_cast<double>(random() % below);
  };
  for (int trial = 0; trial < 30; ++trial) {
    SCOPED_TRACE(trial);
    Cases cases;
    const std::size_t rows = 1 + random() % 60;
    for (std::size_t i = 0; i < rows; ++i) {
      cases.rows.emplace_back(kColumns);
      std::generate(cases.rows[i].begin(), cases.rows[i].end(), [&] { return integer(41) - 20.; });
      cases.groups.push_back(static_cast<unsigned int>(random() % kGroups));
    }
    cases.weights.resize(trial % 2 == 0 ? rows : 0);
    std::generate(cases.weights.begin(), cases.weights.end(), [&] { return 1. + integer(4); });

    DiscriminantMatrix total;
    DiscIndividualMatrix individual;
    AccumulateSplit(
        random, cases, [] { return std::make_unique<DiscriminantMatrix>(kGroups, kColumns); },
        [](const Cases& slice) { return Batch(slice, kColumns); }, total);
    AccumulateSplit(
        random, cases, [] { return std::make_unique<DiscIndividualMatrix>(kGroups, kColumns); },
        [](const Cases& slice) { return GroupedBatch(slice, kColumns, kGroups); }, individual);
    EXPECT_EQ(total.NRows(), rows);
    EXPECT_EQ(individual.NRows(), rows);
    const double weightSum = PlainSum(cases, -1, [](const auto& /*row*/) { return 1.; });
    EXPECT_EQ(total.WeightSum(), weightSum);
    EXPECT_EQ(individual.WeightSum(), weightSum);
    for (int group = 0; group < kGroups; ++group) {
      ExpectPlainSums(cases, total, individual, group);
    }
  }
}

// Two batches, of 4 and 3 cases.
TEST(Discriminant, SumsAndMergesToTheBit) {
  using Doubles = std::vector<double>;
  const Cases cases{{{-4.34, 3.33, 3.31},
                     {6.29, -5.66, -4.85},
                     {-6.35, -4.95, 4.21},
                     {-6.66, 0.56, -5.15},
                     {-3.7, -1.23, 6.08},
                     {1.95, -8.74, -4.03},
                     {-6.36, 6.68, 5.58}},
                    {2.4, 2.5, 2.3, 2.9, 2.4, 0.8, 2.6},
                    {},
                    {1, 1, 1, 1, 1, 0, 1}};
  DiscriminantMatrix total(2, 3);
  DiscIndividualMatrix individual(2, 3);
  for (const auto& [from, to] : {std::pair{0U, 4U}, {4U, 7U}}) {
    total += *Batch(cases.Slice(from, to));
    individual += *GroupedBatch(cases.Slice(from, to), 3, 2);
  }
  const Doubles products{-0x1.5ec3c36113405p+7, -0x1.c29f5ad96a6a0p+7, 0x1.23dbf5d78811cp+7};
  EXPECT_EQ(Bits({total.TSSP(1, 0), total.TSSP(2, 0), total.TSSP(2, 1)}), Bits(products));
  // Items of each group: products, sums, weight.
  const Doubles items[2] = {
      {0x1.85604189374bcp+1, -0x1.b44d013a92a31p+3, 0x1.e8e1719f7f8ccp+5, -0x1.925aee631f8a1p+2,
       0x1.c2d81adea8977p+4, 0x1.9fc45cbbc2b96p+3, 0x1.8f5c28f5c28f6p+0, -0x1.bf7ced916872cp+2,
       -0x1.9cac083126e98p+1, 0x1.999999999999ap-1},
      {0x1.f7837de939eaep+8, -0x1.437ef34d6a162p+7, 0x1.1b9de353f7cedp+8, -0x1.b60c8366516dap+7,
       0x1.d701e4f765fd9p+6, 0x1.7474a03c4b09fp+8, -0x1.b0353f7ced917p+5, -0x1.80c49ba5e3540p+0,
       0x1.3aac083126e98p+4, 0x1.e333333333333p+3}};
  for (int group = 0; group < 2; ++group) {
    Doubles found;
    for (int item = 0; item < 10; ++item) {
      found.push_back(individual.TSSP(item, group));
    }
    EXPECT_EQ(Bits(found), Bits(items[group]));
    EXPECT_EQ(total.sumW(group), items[group][9]);
    for (int variable = 0; variable < 3; ++variable) {
      EXPECT_EQ(total.sumX1(group, variable), items[group][static_cast<std::size_t>(6 + variable)]);
    }
    EXPECT_EQ(total.sumX2(group, 2), items[group][5]);
  }
  // Taken over all cases, not group by group.
  EXPECT_EQ(individual.WeightSum(), 0x1.fcccccccccccdp+3);
}

// The order of the operations, where it shows: a weighted square is (x * w) * x, a weighted product
// (w * x) * y, and sums ascend.
TEST(Discriminant, OperationsKeepTheirOrder) {
  const Cases cases{
      {{1e200, 1e200}, {1e16, 1.}, {1., 1.}, {-1e16, 1.}}, {1e-200, 1., 1., 1.}, {}, {0, 1, 1, 1}};
  DiscriminantMatrix total(2, 2);
  total += *Batch(cases);
  const double weighted = 1e200 * 1e-200;
  EXPECT_EQ(total.sumX2(0, 0), weighted * 1e200);
  EXPECT_EQ(total.sumX1(1, 0), 0.);
  EXPECT_EQ(total.TSSP(1, 0), (1e-200 * 1e200) * 1e200);
  DiscIndividualMatrix individual(2, 2);
  individual += *GroupedBatch(cases, 2, 2);
  EXPECT_EQ(individual.TSSP(1, 0), (1e-200 * 1e200) * 1e200);
  EXPECT_EQ(individual.TSSP(1, 1), 0.);
  EXPECT_EQ(individual.TSSP(3, 1), 0.);
}

TEST(Discriminant, ZeroWeightContributesNothingUnlessItIsFirst) {
  const Cases cases{{{1.}, {3.}}, {1., 2.}, {}, {0, 1}};
  Cases zero = cases;
  zero.weights = {1., -1.};
  const auto tryOn = [&](auto make, auto add) {
    auto first = make();
    add(first, zero);
    EXPECT_EQ(first.WeightSum(), 0.);
    EXPECT_EQ(first.NRows(), 2U);
    auto later = make();
    add(later, cases);
    add(later, zero);
    later += first;
    auto empty = make();
    later += empty;
    EXPECT_EQ(later.NRows(), 2U);
    EXPECT_EQ(later.WeightSum(), 3.);
    add(first, cases);
    EXPECT_EQ(first.NRows(), 4U);
  };
  tryOn([] { return DiscriminantMatrix(2, 1); },
        [](DiscriminantMatrix& a, const Cases& c) { a += *Batch(c); });
  tryOn([] { return DiscIndividualMatrix(2, 1); },
        [](DiscIndividualMatrix& a, const Cases& c) { a += *GroupedBatch(c, 1, 2); });
}

TEST(Discriminant, AFirstMergeCopiesForGood) {
  const Cases cases{{{1.}, {3.}}, {}, {}, {0, 1}};
  DiscriminantMatrix total;
  DiscIndividualMatrix individual;
  {
    DiscriminantMatrix t(2, 1);
    DiscIndividualMatrix i(2, 1);
    t += *Batch(cases);
    i += *GroupedBatch(cases, 1, 2);
    total += t;
    individual += i;
    t += *Batch(cases);
    i += *GroupedBatch(cases, 1, 2);
  }
  EXPECT_EQ(total.NGroup(), 2);
  EXPECT_EQ(total.NVar(), 1);
  EXPECT_EQ(total.sumX2(1, 0), 9.);
  EXPECT_EQ(individual.NGroup(), 2);
  EXPECT_EQ(individual.TSSP(0, 1), 9.);
  EXPECT_EQ(individual.NRows(), 2U);
}

TEST(DiscriminantDeathTest, RefusesWhatDoesNotFit) {
  const Cases cases{{{1., 2.}, {3., 5.}}, {}, {}, {0, 1}};
  Cases ungrouped = cases;
  ungrouped.groups.clear();
  Cases zero = cases;
  zero.weights = {0., 0.};
  DiscriminantMatrix t(2, 2);
  t += *Batch(cases);
  DiscriminantMatrix zeroT(2, 2);
  zeroT += *Batch(zero);
  DiscriminantMatrix otherT(3, 2);
  otherT += *Batch(cases);
  DiscIndividualMatrix i(2, 2);
  i += *GroupedBatch(cases, 2, 2);
  DiscIndividualMatrix zeroI(2, 2);
  zeroI += *GroupedBatch(zero, 2, 2);
  DiscIndividualMatrix otherI(3, 2);
  otherI += *GroupedBatch(cases, 2, 2);

  const std::string tFile = "velmor/DiscriminantMatrix.cpp";
  const std::string iFile = "velmor/DscIndividualMatrix.cpp";
  const std::string group = "group < NGroup() && group >= 0";
  const std::string groupVal = "groupVal < NGroup() && groupVal >= 0";
  const std::string var = "var < NVar() && var >= 0";
  const std::string weighs = "0. < WeightSum()";
  const std::string sameShape = "_nVar == d._nVar && _nGroup == d._nGroup";
  const Violation violations[] = {
      {"group's weight", [&] { t.sumW(2); }, tFile, "sumW", "c < NGroup() && c >= 0"},
      {"weight of nothing", [&] { zeroT.sumW(0); }, tFile, "sumW", weighs},
      {"sum's group", [&] { t.sumX1(2, 0); }, tFile, "sumX1", group},
      {"sum's variable", [&] { t.sumX1(0, -1); }, tFile, "sumX1", var},
      {"sum of nothing", [&] { zeroT.sumX1(0, 0); }, tFile, "sumX1", weighs},
      {"square's group", [&] { t.sumX2(-1, 0); }, tFile, "sumX2", group},
      {"square's variable", [&] { t.sumX2(0, 2); }, tFile, "sumX2", var},
      {"square of nothing", [&] { zeroT.sumX2(0, 0); }, tFile, "sumX2", weighs},
      {"row", [&] { t.TSSP(2, 0); }, tFile, "TSSP", "row < NVar() && row >= 0"},
      {"column", [&] { t.TSSP(0, 2); }, tFile, "TSSP", "col < NVar() && col >= 0"},
      {"product of nothing", [&] { zeroT.TSSP(1, 0); }, tFile, "TSSP", weighs},
      {"a variable with itself", [&] { t.TSSP(1, 1); }, tFile, "TSSP", "row != col"},
      {"negative groups", [] { DiscriminantMatrix(-1, 2); }, tFile, "Data",
       "0 <= nGroup && 0 <= nVar"},
      {"columns", [&] { DiscriminantMatrix(2, 3) += *Batch(cases); }, tFile, "Init",
       "nCols == _nVar"},
      {"no groups", [&] { t += *Batch(ungrouped); }, tFile, "Init", "batch.Groups() != nullptr"},
      {"group too large", [&] { DiscriminantMatrix(1, 2) += *Batch(cases); }, tFile, "Init",
       "batch.MaxGroupSeen() < Groups()"},
      {"other shape", [&] { t += otherT; }, tFile, "Update", sameShape},
      {"other class", [&] { t += i; }, "velmor/record/protocol.h", "SameClass",
       "sameClass != nullptr"},

      {"item", [&] { i.TSSP(6, 0); }, iFile, "TSSP", "0 <= tsspIndex && tsspIndex < countMatrix"},
      {"item's group", [&] { i.TSSP(0, 2); }, iFile, "TSSP", groupVal},
      {"item of nothing", [&] { zeroI.TSSP(0, 0); }, iFile, "TSSP", weighs},
      {"row", [&] { i.TSSP(3, 0, 0); }, iFile, "TSSP", "row <= NVar() && row >= 0"},
      {"column", [&] { i.TSSP(0, 3, 0); }, iFile, "TSSP", "col <= NVar() && col >= 0"},
      {"product's group", [&] { i.TSSP(1, 0, 2); }, iFile, "TSSP", groupVal},
      {"product of nothing", [&] { zeroI.TSSP(1, 0, 0); }, iFile, "TSSP", weighs},
      {"equal indices", [&] { i.TSSP(1, 1, 0); }, iFile, "TSSP", "row != col"},
      {"negative variables", [] { DiscIndividualMatrix(2, -1); }, iFile, "Data",
       "0 <= nGroup && 0 <= nVar"},
      {"plain batch", [&] { i += *Batch(cases); }, "tables/velmor/DscIndividualMatrix.h",
       "operator+=", "false"},
      {"columns", [&] { DiscIndividualMatrix(2, 3) += *GroupedBatch(cases, 2, 2); }, iFile, "Init",
       "nCols == _nVar"},
      {"unsorted", [&] { i += *GroupedBatch(cases, 2, 2, false); }, iFile, "Init",
       "batch.IsSorted()"},
      {"too many groups", [&] { i += *GroupedBatch(cases, 2, 3); }, iFile, "Init",
       "batch.NGroups() <= static_cast<unsigned int>(_nGroup)"},
      {"other shape", [&] { i += otherI; }, iFile, "Update", sameShape},
      {"other class", [&] { i += t; }, "velmor/record/protocol.h", "SameClass",
       "sameClass != nullptr"},
  };
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

}  // namespace
}  // namespace velmor::test
