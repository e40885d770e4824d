// The listwise accumulators: their bits, their merges, what a batch looks like afterwards, and
// what they refuse. Expected bits come from an independent program that takes every sum in the
// documented order.
#include <velmor/velmor.h>

#include "support.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

namespace velmor::test {
namespace {

using testing::DoubleEq;
using testing::ElementsAre;
using testing::Pointwise;
using Doubles = std::vector<double>;

// Weight sums and means of `columns` columns.
template <class Accumulator>
Doubles Totals(const Accumulator& a, unsigned int columns = 3) {
  Doubles totals{a.WeightSum(), a.RegWeightSum()};
  for (unsigned int c = 0; c < columns; ++c) {
    if constexpr (std::is_base_of_v<MatrixBase, Accumulator>) {
      totals.push_back(a.Mean(static_cast<int>(c)));
    } else {
      totals.push_back(a.Mean(c));
    }
  }
  return totals;
}

// Cells (0, 0), (1, 0), (1, 1), (2, 0), ... read in alternating orders of their arguments.
template <class Accumulator>
Doubles Triangle(const Accumulator& a) {
  return {a.CCP(0, 0), a.CCP(0, 1), a.CCP(1, 1), a.CCP(2, 0), a.CCP(1, 2), a.CCP(2, 2)};
}

// The square sums and the row of cells of NSMatrixListwise(0, 1, 3).
Doubles SquaresAndRectangle(const NSMatrixListwise& a) {
  return {a.CCP(0, 0), a.CCP(1, 1), a.CCP(2, 2), a.CCP(0, 1), a.CCP(2, 0)};
}

struct Golden {
  const char* name;
  bool weighted, regWeighted;
  Doubles totals, triangle, rectangle;
};

// Seven cases as batches of 3, 2 and 2.
const Cases kGoldenCases{{{8.25, -6.47, -8.57},
                          {8.25, -5.68, -6.83},
                          {2.73, -2.78, 7.01},
                          {-4.83, 8.27, -3.25},
                          {1.82, 7.78, 3.33},
                          {7.63, 3.75, -8.13},
                          {6.86, 1.61, -3.41}},
                         {0.7, 2.6, 1.8, 2.8, 2.3, 2.9, 1.7},
                         {2.1, 1.9, 0.8, 2.9, 1.0, 2.4, 2.9},
                         {}};

const Golden kGolden[] = {
    {"no weights",
     false,
     false,
     {0x1.cp+2, 0x1.cp+2, 0x1.18c6f2d593bfap+2, 0x1.d9f7390d2a6c6p-1, -0x1.6af8af8af8afap+1},
     {0x1.1988784e2cd27p+7, -0x1.e9882d6836c50p+6, 0x1.badba224a1440p+7, -0x1.51fa2d862c5aap+6,
      0x1.c1753440d575cp+5, 0x1.a8a48acbbf2a9p+7},
     {0x1.1988784e2cd28p+7, 0x1.badba224a1440p+7, 0x1.a8a48acbbf2a9p+7, -0x1.e9882d6836c4ep+6,
      -0x1.51fa2d862c5aap+6}},
    {"case weights",
     true,
     false,
     {0x1.d999999999999p+3, 0x1.d999999999999p+3, 0x1.e96d51a4ab96ep+1, 0x1.0694e5279382ep+1,
      -0x1.6ad86c7d1813ep+1},
     {0x1.576934de90c94p+8, -0x1.0a79ad0a15c3ap+8, 0x1.b8b753a7529cep+8, -0x1.45cbee946f42dp+7,
      0x1.34ff3dd618c8ap+6, 0x1.98c03114c643ap+8},
     {0x1.576934de90c92p+8, 0x1.b8b753a7529cep+8, 0x1.98c03114c643ap+8, -0x1.0a79ad0a15c3ap+8,
      -0x1.45cbee946f42dp+7}},
    {"regression weights",
     false,
     true,
     {0x1.cp+2, 0x1.cp+3, 0x1.17c8ff1f4e1dep+2, 0x1.584d3d25bde10p+0, -0x1.1639eddc4e68cp+2},
     {0x1.65d07424d2662p+8, -0x1.227daa881d145p+8, 0x1.ae334e10a9020p+8, -0x1.1694ba1ce58ddp+7,
      0x1.cd24fabb3b4efp+6, 0x1.f7568422766b6p+7},
     {0x1.65d07424d2661p+8, 0x1.ae334e10a9020p+8, 0x1.f7568422766b6p+7, -0x1.227daa881d144p+8,
      -0x1.1694ba1ce58ddp+7}},
    {"both weights",
     true,
     true,
     {0x1.d999999999999p+3, 0x1.e28f5c28f5c28p+4, 0x1.cd58a103e256fp+1, 0x1.48f4e40cedd45p+1,
      -0x1.1067a641e5005p+2},
     {0x1.bcba3207c6fe3p+9, -0x1.3f37dba590054p+9, 0x1.a307c5cda778ap+9, -0x1.29b6a1c360351p+8,
      0x1.622a2fab60a74p+7, 0x1.eb6a8e3e1a0f2p+8},
     {0x1.bcba3207c6fe2p+9, 0x1.a307c5cda778ap+9, 0x1.eb6a8e3e1a0f2p+8, -0x1.3f37dba590054p+9,
      -0x1.29b6a1c360352p+8}},
};

Cases Weighted(Cases cases, bool weighted, bool regWeighted) {
  if (!weighted) {
    cases.weights.clear();
  }
  if (!regWeighted) {
    cases.regWeights.clear();
  }
  return cases;
}

// Adds batches of 3, 2 and 2 cases.
template <class Accumulator>
void AddGoldenBatches(Accumulator& a, const Cases& cases) {
  const std::size_t ends[] = {3, 5, 7};
  std::size_t from = 0;
  for (const std::size_t to : ends) {
    a += *Batch(cases.Slice(from, to));
    from = to;
  }
}

void ExpectGolden(const Golden& g) {
  SCOPED_TRACE(g.name);
  const Cases cases = Weighted(kGoldenCases, g.weighted, g.regWeighted);
  MatrixListwise matrix;
  SMatrixListwise symmetric;
  NSMatrixListwise rectangular(0, 1, 3);
  AddGoldenBatches(matrix, cases);
  AddGoldenBatches(symmetric, cases);
  AddGoldenBatches(rectangular, cases);
  EXPECT_EQ(Bits(Totals(matrix)), Bits(g.totals));
  EXPECT_EQ(Bits(Totals(symmetric)), Bits(g.totals));
  EXPECT_EQ(Bits(Totals(rectangular)), Bits(g.totals));
  EXPECT_EQ(Bits(Triangle(matrix)), Bits(g.triangle));
  EXPECT_EQ(Bits(Triangle(symmetric)), Bits(g.triangle));
  EXPECT_EQ(Bits(SquaresAndRectangle(rectangular)), Bits(g.rectangle));
}

TEST(Listwise, SumsAndMergesToTheBit) {
  for (const Golden& g : kGolden) {
    ExpectGolden(g);
  }
}

// Cells (0, 2), (0, 3), (1, 2), (1, 3) of two merged batches, with data in which they tell apart
// the two operands of a product and the ways in which a row's factor could be taken.
TEST(Listwise, RectangleTakesItsFactorsFromTheMergedMean) {
  const Cases cases{{{-8.06, -7.43, -1.67, -7.06},
                     {7.22, -8.31, 0.65, -3.02},
                     {6.34, -6.13, -2.93, -2.99},
                     {-4.59, -8.97, -1.15, -7.42},
                     {1.76, -7.74, -3.32, -0.93},
                     {7.3, -7.33, -6.44, 5.22}},
                    {0.2, 2.7, 1.8, 0.9, 2.5, 2.3},
                    {},
                    {}};
  NSMatrixListwise a(0, 2, 4);
  a += *Batch(cases.Slice(0, 3));
  a += *Batch(cases.Slice(3, 6));
  EXPECT_EQ(Bits(Doubles{a.CCP(0, 2), a.CCP(0, 3), a.CCP(1, 2), a.CCP(1, 3)}),
            Bits(Doubles{-0x1.6865d6d36433cp+3, 0x1.5751caad27572p+6, -0x1.605766ffa745bp+3,
                         0x1.4401733c79d19p+3}));
}

TEST(Listwise, MergedExtremesKeepTheEarlierOfEquals) {
  for (const double first : {0., -0.}) {
    SMatrixListwise symmetric;
    NSMatrixListwise rectangular(0, 1, 2);
    for (const double value : {first, -first}) {
      symmetric += *Batch({{{value, 1.}}, {}, {}, {}});
      rectangular += *Batch({{{value, 1.}}, {}, {}, {}});
    }
    const Doubles extremes{symmetric.Min(0), symmetric.Max(0), rectangular.Min(0),
                           rectangular.Max(0)};
    EXPECT_EQ(Bits(extremes), Bits(Doubles(4, first)));
  }
}

TEST(Listwise, AFirstMergeCopiesToTheBitAndForGood) {
  for (const Golden& g : kGolden) {
    SCOPED_TRACE(g.name);
    const Cases cases = Weighted(kGoldenCases, g.weighted, g.regWeighted);
    MatrixListwise matrix;
    SMatrixListwise symmetric(9, 10);
    NSMatrixListwise rectangular(9, 10, 11);
    {
      MatrixListwise m;
      SMatrixListwise s;
      NSMatrixListwise n(0, 1, 3);
      AddGoldenBatches(m, cases);
      AddGoldenBatches(s, cases);
      AddGoldenBatches(n, cases);
      matrix += m;
      symmetric += s;
      rectangular += n;
      // Neither is an accumulator without a case merged, nor does the source carry on in the copy.
      MatrixListwise noCase;
      SMatrixListwise noCaseEither;
      matrix += noCase;
      symmetric += noCaseEither;
      m += *Batch(cases);
      s += *Batch(cases);
      n += *Batch(cases);
    }
    EXPECT_EQ(Bits(Totals(matrix)), Bits(g.totals));
    EXPECT_EQ(Bits(Triangle(matrix)), Bits(g.triangle));
    EXPECT_EQ(Bits(Totals(symmetric)), Bits(g.totals));
    EXPECT_EQ(Bits(Triangle(symmetric)), Bits(g.triangle));
    EXPECT_EQ(Bits(Totals(rectangular)), Bits(g.totals));
    EXPECT_EQ(Bits(SquaresAndRectangle(rectangular)), Bits(g.rectangle));
    EXPECT_EQ(symmetric.Col2(), 3);
    EXPECT_EQ(rectangular.Col0(), 0);
    EXPECT_EQ(rectangular.Col1(), 1);
    EXPECT_EQ(rectangular.Col2(), 3);
    EXPECT_EQ(symmetric.HasRegWeights(), g.regWeighted);
    EXPECT_EQ(rectangular.HasRegWeights(), g.regWeighted);
    EXPECT_EQ(matrix.NRows(), 7U);
  }
}

// Three cases small enough to work by hand.
const Cases kHandCases{{{1., 2., 0.}, {2., 4., 1.}, {3., 7., 1.}}, {2., 1., 1.}, {1., 3., 0.5}, {}};

TEST(Listwise, HandWorkedCase) {
  const Cases cases = Weighted(kHandCases, true, false);
  const auto tryOn = [&](auto make, auto expect) {
    auto whole = make();
    *whole += *Batch(cases);
    expect(*whole);
    auto batches = make();
    *batches += *Batch(cases.Slice(0, 2));
    *batches += *Batch(cases.Slice(2, 3));
    expect(*batches);
    auto parts = make();
    auto second = make();
    *parts += *Batch(cases.Slice(0, 2));
    *second += *Batch(cases.Slice(2, 3));
    *second += *parts;
    expect(*second);
  };
  const auto expectColumns = [](const auto& a) {
    EXPECT_THAT(Totals(a), Pointwise(DoubleEq(), {4., 4., 1.75, 3.75, 0.5}));
    for (const auto& [column, min, max] : {std::tuple{0, 1., 3.}, {1, 2., 7.}, {2, 0., 1.}}) {
      EXPECT_EQ(a.Min(column), min);
      EXPECT_EQ(a.Max(column), max);
    }
    EXPECT_EQ(a.NRows(), 3U);
    EXPECT_EQ(a.NColumns(), 3U);
  };
  tryOn([] { return std::make_unique<SMatrixListwise>(); },
        [&](const SMatrixListwise& a) {
          expectColumns(a);
          EXPECT_THAT(Triangle(a), Pointwise(DoubleEq(), {2.75, 6.75, 16.75, 1.5, 3.5, 1.}));
        });
  tryOn([] { return std::make_unique<NSMatrixListwise>(0, 1, 3); },
        [&](const NSMatrixListwise& a) {
          expectColumns(a);
          EXPECT_THAT(SquaresAndRectangle(a), Pointwise(DoubleEq(), {2.75, 16.75, 1., 6.75, 1.5}));
        });
  tryOn([] { return std::make_unique<NSMatrixListwise>(0, 2, 3); },
        [&](const NSMatrixListwise& a) {
          expectColumns(a);
          EXPECT_DOUBLE_EQ(a.CCP(0, 2), 1.5);
          EXPECT_DOUBLE_EQ(a.CCP(2, 1), 3.5);
        });
}

TEST(Listwise, BlockIsItsColumnsOfTheBatch) {
  const Cases cases{{{9., 9., 1., 2., 9.}, {8., 7., 3., 6., 5.}}, {}, {}, {}};
  SMatrixListwise all;
  SMatrixListwise block(2, 4);
  EXPECT_EQ(all.Col2(), 0);
  EXPECT_EQ(block.NColumns(), 0U);
  all += *Batch(cases);
  block += *Batch(cases);
  EXPECT_EQ(all.Col0(), 0);
  EXPECT_EQ(all.Col1(), 0);
  EXPECT_EQ(all.Col2(), 5);
  EXPECT_EQ(all.NColumns(), 5U);
  EXPECT_EQ(block.NColumns(), 2U);
  EXPECT_EQ(block.Mean(2), 2.);
  EXPECT_EQ(block.CCP(3, 2), 4.);
  EXPECT_EQ(block.CCP(3, 3), 8.);
  EXPECT_EQ(block.Max(3), 6.);
}

TEST(Listwise, CentresItsColumnsAndCombinesTheWeightsInTheBatch) {
  const auto batch = Batch(kHandCases);
  SMatrixListwise a(0, 2);
  a += *batch;
  EXPECT_EQ(a.WeightSum(), 4.);
  EXPECT_EQ(a.RegWeightSum(), 5.5);
  EXPECT_THAT(Doubles(batch->Weights(), batch->Weights() + 3), ElementsAre(2., 3., 0.5));
  for (unsigned int i = 0; i < 3; ++i) {
    EXPECT_EQ(batch->Column(0)[i], kHandCases.rows[i][0] - a.Mean(0));
    EXPECT_EQ(batch->Column(2)[i], kHandCases.rows[i][2]);
  }
}

TEST(Listwise, AConstantColumnIsExact) {
  const Cases cases{{{0.1, 1.}, {0.1, 2.}, {0.1, 5.}}, {0.3, 0.7, 1.1}, {}, {}};
  SMatrixListwise symmetric;
  MatrixListwise matrix;
  symmetric += *Batch(cases);
  matrix += *Batch(cases);
  EXPECT_EQ(symmetric.Mean(0), 0.1);
  EXPECT_EQ(symmetric.CCP(0, 0), 0.);
  EXPECT_EQ(symmetric.CCP(1, 0), 0.);
  EXPECT_EQ(matrix.Mean(0), 0.1);
  EXPECT_EQ(matrix.CCP(1, 0), 0.);
}

TEST(Listwise, EmptyBatchesAndGroupedBatchesChangeNothing) {
  const double regWeight = 1.;
  DataBatch noCase(3, 1, nullptr, &regWeight, nullptr);
  const unsigned int group = 0;
  DataBatchByGroup grouped(3, 1, nullptr, nullptr, &group, 1);
  std::fill_n(grouped.NextRow(), 3, 1.);
  grouped.AddRow();
  grouped.SortByGroup();
  MatrixListwise matrix;
  matrix += noCase;
  EXPECT_FALSE(matrix.HasRegWeights());
  EXPECT_EQ(matrix.NColumns(), 0U);
  SMatrixListwise symmetric;
  MatrixBase& base = symmetric;
  EXPECT_EQ(&(base += noCase), &base);
  EXPECT_EQ(&(base += grouped), &base);
  EXPECT_FALSE(symmetric.HasRegWeights());
  EXPECT_EQ(symmetric.Col2(), 0);
  EXPECT_EQ(symmetric.NRows(), 0U);
  // Without the other holding a case, its class does not matter.
  NSMatrixListwise other(0, 1, 2);
  base += other;
  EXPECT_EQ(symmetric.NRows(), 0U);
}

TEST(Listwise, ZeroWeightContributesNothingFirstOrLater) {
  const Cases cases = Weighted(kHandCases, true, false);
  Cases zero = cases;
  zero.weights = {0., 1., -1.};
  zero.rows = {{5., 5., 5.}, {100., 100., -100.}, {7., 7., 7.}};
  const auto expect = [](const auto& a, const char* what) {
    SCOPED_TRACE(what);
    EXPECT_THAT(Totals(a), ElementsAre(4., 4., 1.75, 3.75, 0.5));
    EXPECT_EQ(a.CCP(1, 0), 6.75);
    EXPECT_EQ(a.NRows(), 3U);
  };
  const auto tryOn = [&](auto make) {
    auto first = make();
    *first += *Batch(zero);
    EXPECT_EQ(first->WeightSum(), 0.);
    EXPECT_EQ(first->NRows(), 3U);
    auto zeroOnly = make();
    *zeroOnly += *first;
    EXPECT_EQ(zeroOnly->NRows(), 3U);
    *first += *Batch(cases);
    expect(*first, "first batch");
    *first += *Batch(zero);
    expect(*first, "later batch");
    *first += *zeroOnly;
    expect(*first, "later merge");
    *zeroOnly += *first;
    expect(*zeroOnly, "first merge");
    *first += *Batch(cases);
    EXPECT_EQ(zeroOnly->WeightSum(), 4.);
  };
  tryOn([] { return std::make_unique<MatrixListwise>(); });
  tryOn([] { return std::make_unique<SMatrixListwise>(); });
  tryOn([] { return std::make_unique<NSMatrixListwise>(0, 1, 3); });

  SMatrixListwise extremes;
  extremes += *Batch(zero);
  EXPECT_EQ(extremes.Max(1), 100.);
  extremes += *Batch(cases);
  EXPECT_EQ(extremes.Max(1), 7.);
  EXPECT_EQ(extremes.Min(2), 0.);
}

TEST(Listwise, WeightsThatCancelLaterStillCount) {
  const Cases cases{{{1.}, {4.}, {2.}}, {1., -1., 2.}, {}, {}};
  const auto tryOn = [&](auto make) {
    auto a = make();
    for (std::size_t i = 0; i < 3; ++i) {
      *a += *Batch(cases.Slice(i, i + 1));
    }
    EXPECT_EQ(a->NRows(), 3U);
    EXPECT_EQ(a->WeightSum(), 2.);
  };
  tryOn([] { return std::make_unique<MatrixListwise>(); });
  tryOn([] { return std::make_unique<SMatrixListwise>(); });
}

TEST(Listwise, AnInfinityOrNaNStaysInItsOwnCells) {
  const Cases cases{{{1., 1., kInf}, {2., 5., 1.}, {kNaN, 3., 1.}}, {}, {}, {}};
  SMatrixListwise a;
  a += *Batch(cases);
  EXPECT_TRUE(std::isnan(a.Mean(0)));
  EXPECT_EQ(a.Mean(2), kInf);
  EXPECT_TRUE(std::isnan(a.CCP(2, 1)));
  EXPECT_EQ(a.Mean(1), 3.);
  EXPECT_EQ(a.CCP(1, 1), 8.);
  EXPECT_EQ(a.Min(0), 1.);
  EXPECT_EQ(a.Max(2), kInf);
}

// However cases are cut into batches and accumulators, the results are those of two passes over
// all of them, up to rounding.
TEST(Listwise, AnySplitAgreesWithTwoPasses) {
  constexpr unsigned int kColumns = 5;
  std::mt19937 random(20260131);
  std::uniform_real_distribution<double> value(-50., 100.);
  for (unsigned int trial = 0; trial < 40; ++trial) {
    SCOPED_TRACE(trial);
    const std::size_t rows = 2 + random() % 200;
    Cases cases = RandomWeights(random, rows, trial % 2 == 0, trial % 4 < 2);
    cases.rows.assign(rows, Doubles(kColumns));
    for (Doubles& row : cases.rows) {
      std::generate(row.begin(), row.end(), [&] { return value(random); });
    }
    const auto batch = [](const Cases& slice) { return Batch(slice, kColumns); };
    MatrixListwise matrix;
    SMatrixListwise symmetric;
    NSMatrixListwise rectangular(1, 3, 5);
    AccumulateSplit(random, cases, std::make_unique<MatrixListwise>, batch, matrix);
    AccumulateSplit(
        random, cases, [] { return std::make_unique<SMatrixListwise>(); }, batch, symmetric);
    AccumulateSplit(
        random, cases, [] { return std::make_unique<NSMatrixListwise>(1, 3, 5); }, batch,
        rectangular);
    EXPECT_EQ(symmetric.NRows(), rows);
    EXPECT_EQ(matrix.NRows(), rows);
    for (unsigned int a = 0; a < kColumns; ++a) {
      for (unsigned int b = 0; b <= a; ++b) {
        const PairMoments expected = TwoPasses(cases, a, b);
        const auto ccp = static_cast<double>(expected.cscp);
        const double error = 1e-10 * static_cast<double>(expected.weightSum);
        const int row = static_cast<int>(a);
        const int col = static_cast<int>(b);
        EXPECT_NEAR(symmetric.Mean(row), static_cast<double>(expected.mean0), 1e-12);
        EXPECT_NEAR(symmetric.CCP(row, col), ccp, error);
        EXPECT_NEAR(matrix.CCP(a, b), ccp, error);
        const bool hasCell = col >= 1 && (row == col || (row >= 3 && col < 3));
        EXPECT_NEAR(hasCell ? rectangular.CCP(col, row) : ccp, ccp, error);
      }
    }
  }
}

TEST(ListwiseDeathTest, RefusesWhatDoesNotFit) {
  const auto regWeighted = [](const Cases& cases) { return Batch(Weighted(cases, false, true)); };
  const Cases plain = Weighted(kHandCases, false, false);
  Cases zero = Weighted(kHandCases, true, false);
  zero.weights = {0., 0., 0.};

  MatrixListwise matrix;
  matrix += *Batch(plain);
  MatrixListwise zeroMatrix;
  zeroMatrix += *Batch(zero);
  SMatrixListwise symmetric(1, 3);
  symmetric += *Batch(plain);
  SMatrixListwise zeroSymmetric;
  zeroSymmetric += *Batch(zero);
  SMatrixListwise otherBlock(0, 2);
  otherBlock += *Batch(plain);
  NSMatrixListwise rectangular(0, 1, 3);
  rectangular += *Batch(plain);
  NSMatrixListwise zeroRectangular(0, 1, 3);
  zeroRectangular += *Batch(zero);
  NSMatrixListwise otherRanges(0, 2, 3);
  otherRanges += *Batch(plain);
  NSMatrixListwise narrower(0, 1, 2);
  narrower += *Batch(plain);
  MatrixBase& base = symmetric;
  MatrixBase& rectangularBase = rectangular;

  const std::string m = "velmor/matrixlistwise.cpp";
  const std::string s = "velmor/smatrixlistwise.cpp";
  const std::string ns = "velmor/nsmatrixlistwise.cpp";
  const std::string inBlock = "c < _my->_col2 && c >= _my->_col0";
  const std::string rowInBlock = "row < _my->_col2 && row >= _my->_col0";
  const std::string colInBlock = "col < _my->_col2 && col >= _my->_col0";
  const std::string weighs = "0. < WeightSum()";
  const std::string sameBlock = "_col0 == d._col0 && _col1 == d._col1 && _col2 == d._col2";
  const Violation violations[] = {
      {"mean of no column", [&] { matrix.Mean(3); }, m, "Mean", "col < NColumns()"},
      {"mean of nothing", [&] { zeroMatrix.Mean(0); }, m, "Mean", weighs},
      {"row", [&] { matrix.CCP(3, 0); }, m, "CCP", "row < NColumns()"},
      {"column", [&] { matrix.CCP(0, 3); }, m, "CCP", "col < NColumns()"},
      {"cell of nothing", [&] { zeroMatrix.CCP(0, 0); }, m, "CCP", weighs},
      {"narrower batch",
       [&] {
         matrix += *Batch({{{1.}}, {}, {}, {}});
       },
       m, "Update", "_means.size() == d._means.size()"},
      {"other weights", [&] { matrix += *regWeighted(kHandCases); }, m, "Update",
       "_hasRegWeights == d._hasRegWeights"},

      {"block of no column", [&] { SMatrixListwise(2, 0) += *Batch(plain); }, s, "Init",
       "_col0 == 0 && _col1 == 0"},
      {"negative block", [&] { SMatrixListwise(-1, 2) += *Batch(plain); }, s, "Init",
       "_col0==_col1 && _col0>=0"},
      {"block beyond the batch", [&] { SMatrixListwise(0, 4) += *Batch(plain); }, s, "Init",
       "_col2 <= nCols && _col2>_col0"},
      {"block backwards", [&] { SMatrixListwise(2, 1) += *Batch(plain); }, s, "Init",
       "_col2 <= nCols && _col2>_col0"},
      {"mean before the block", [&] { symmetric.Mean(0); }, s, "Mean", inBlock},
      {"mean beyond it", [&] { symmetric.Mean(3); }, s, "Mean", inBlock},
      {"mean of nothing", [&] { zeroSymmetric.Mean(0); }, s, "Mean", weighs},
      {"minimum", [&] { symmetric.Min(3); }, s, "Min", inBlock},
      {"minimum of nothing", [&] { zeroSymmetric.Min(0); }, s, "Min", weighs},
      {"maximum", [&] { symmetric.Max(0); }, s, "Max", inBlock},
      {"maximum of an empty one", [&] { SMatrixListwise(0, 2).Max(0); }, s, "Max",
       "!_my->IsEmpty()"},
      {"row", [&] { symmetric.CCP(0, 1); }, s, "CCP", rowInBlock},
      {"column", [&] { symmetric.CCP(1, 3); }, s, "CCP", colInBlock},
      {"cell of nothing", [&] { zeroSymmetric.CCP(0, 0); }, s, "CCP", weighs},
      {"other weights", [&] { base += *regWeighted(kHandCases); }, s, "Update",
       "_hasRegWeights == d._hasRegWeights"},
      {"other width", [&] { base += zeroSymmetric; }, s, "Update",
       "_means.size() == d._means.size()"},
      {"other block", [&] { base += otherBlock; }, s, "Update", sameBlock},
      {"other class", [&] { base += rectangularBase; }, "velmor/record/protocol.h", "SameClass",
       "sameClass != nullptr"},

      {"no first range", [&] { NSMatrixListwise(1, 1, 3) += *Batch(plain); }, ns, "Init",
       "_col0<_col1 && _col1<_col2"},
      {"beyond the batch", [&] { NSMatrixListwise(0, 2, 4) += *Batch(plain); }, ns, "Init",
       "_col2 <= (int)data.NColumns()"},
      {"negative range", [&] { NSMatrixListwise(-1, 1, 3) += *Batch(plain); },
       "tables/velmor/databatch.h", "Column", "colNum < _nColumns"},
      {"mean", [&] { rectangular.Mean(3); }, ns, "Mean", inBlock},
      {"mean of nothing", [&] { zeroRectangular.Mean(0); }, ns, "Mean", weighs},
      {"minimum", [&] { rectangular.Min(-1); }, ns, "Min", inBlock},
      {"minimum of nothing", [&] { zeroRectangular.Min(0); }, ns, "Min", weighs},
      {"maximum", [&] { rectangular.Max(3); }, ns, "Max", inBlock},
      {"maximum of an empty one", [&] { NSMatrixListwise(0, 1, 2).Max(0); }, ns, "Max",
       "!_my->IsEmpty()"},
      {"row", [&] { rectangular.CCP(3, 0); }, ns, "CCP", rowInBlock},
      {"column", [&] { rectangular.CCP(0, -1); }, ns, "CCP", colInBlock},
      {"cell of nothing", [&] { zeroRectangular.CCP(0, 1); }, ns, "CCP", weighs},
      {"pair of one range", [&] { rectangular.CCP(2, 1); }, ns, "CCP",
       "row < _my->_col1 && col >= _my->_col1"},
      {"other weights", [&] { rectangularBase += *regWeighted(kHandCases); }, ns, "Update",
       "_hasRegWeights == d._hasRegWeights"},
      {"other width", [&] { rectangularBase += narrower; }, ns, "Update",
       "_means.size() == d._means.size()"},
      {"other ranges", [&] { rectangularBase += otherRanges; }, ns, "Update", sameBlock},
      {"other class", [&] { rectangularBase += base; }, "velmor/record/protocol.h", "SameClass",
       "sameClass != nullptr"},
  };
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

}  // namespace
}  // namespace velmor::test
