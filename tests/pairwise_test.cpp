// The pairwise accumulators: which cases count where, their bits, merges, memory and refusals.
// Expected bits come from an independent program that takes every sum in the documented order.
#include <velmor/velmor.h>

#include "allocations.h"
#include "support.h"

#include <algorithm>
#include <random>

namespace velmor::test {
namespace {

using testing::ElementsAre;
using Doubles = std::vector<double>;

constexpr double kMissing = -9.;

Doubles Swapped(Doubles pair, double cscp) {
  std::swap(pair[3], pair[4]);
  std::swap(pair[5], pair[6]);
  pair[7] = cscp;
  return pair;
}

struct Golden {
  const char* name;
  bool weighted, regWeighted;
  std::vector<Doubles> variables;  // count, weight sums, mean, square sum, extremes
  std::vector<Doubles> pairs;      // of columns (1, 0), (2, 0), (2, 1)
  double cscp12;  // that of the pair (1, 2): its factors are taken in the other order
};

const Golden kGolden[] = {
    {"no weights",
     false,
     false,
     {{6., 0x1.8p+2, 0x1.8p+2, 0x1.3428f5c28f5c3p+2, 0x1.0a27e90ff9724p+7, -4.83, 8.25},
      {4., 0x1.p+2, 0x1.p+2, 0x1.b333333333334p+0, 0x1.4de6b50b0f27dp+7, -6.47, 8.27},
      {5., 0x1.4p+2, 0x1.4p+2, -0x1.2c28f5c28f5c3p+2, 0x1.8772474538ef4p+6, -8.57, 3.33}},
     {{3., 0x1.8p+1, 0x1.8p+1, -0x1.4e81b4e81b4fp-2, 0x1.0666666666667p+1, 0x1.d6a5f4cde46bap+6,
       0x1.58f27bb2fec58p+6, -0x1.8b9ba5e353f7dp+6},
      {4., 0x1.p+2, 0x1.p+2, -0x1.ac7ae147ae148p+2, 0x1.34cccccccccccp+2, 0x1.1760aa64c2f84p+4,
       0x1.f231758e21964p+6, -0x1.615e00d1b7176p+5},
      {3., 0x1.8p+1, 0x1.8p+1, -0x1.6a3d70a3d70a6p+1, 0x1.98bf258bf258ep+1, 0x1.1c474538ef34ep+6,
       0x1.1861506b0ac94p+7, 0x1.465b573eab368p+6}},
     0x1.465b573eab368p+6},
    {"case weights",
     true,
     false,
     {{6., 0x1.9p+3, 0x1.9p+3, 0x1.0c4ef88b97786p+2, 0x1.4c7a774a395f2p+8, -4.83, 8.25},
      {4., 0x1.e666666666666p+2, 0x1.e666666666666p+2, 0x1.0968044fc3a34p+2, 0x1.e67542294306p+7,
       -6.47, 8.27},
      {5., 0x1.6999999999999p+3, 0x1.6999999999999p+3, -0x1.143f6f0243f6fp+2, 0x1.a1db25998e77p+7,
       -8.57, 3.33}},
     {{3., 0x1.5333333333333p+2, 0x1.5333333333333p+2, 0x1.490220128c44dp+1, -0x1.11df279b8836p-1,
       0x1.8f652e59871ap+7, 0x1.f37427a30cd7cp+6, -0x1.3729cb6e9d7ccp+7},
      {4., 0x1.2p+3, 0x1.2p+3, -0x1.914ef63711859p+2, 0x1.fd8dc46164ceap+1, 0x1.40b4e02f20aecp+5,
       0x1.3c20ff1fd676fp+8, -0x1.ad1bee5b335c4p+6},
      {3., 0x1.7333333333333p+2, 0x1.7333333333333p+2, -0x1.4862de74862ep+0, 0x1.92fd873d163ecp+2,
       0x1.83c9e8781c966p+6, 0x1.041c5e67de70ep+7, 0x1.17f6f741d525cp+6}},
     0x1.17f6f741d525bp+6},
    {"regression weights",
     false,
     true,
     {{6., 0x1.8p+2, 0x1.ap+3, 0x1.2458da0881cfdp+2, 0x1.5ecd742c84e46p+8, -4.83, 8.25},
      {4., 0x1.p+2, 0x1.b333333333334p+2, 0x1.2c45df7912acp+1, 0x1.3b89729638d55p+8, -6.47, 8.27},
      {5., 0x1.4p+2, 0x1.499999999999ap+3, -0x1.5f923e3c3f3adp+2, 0x1.08ce90b4a9bc3p+7, -8.57,
       3.33}},
     {{3., 0x1.8p+1, 0x1.7333333333334p+2, 0x1.68b1f6d1be524p+0, 0x1.e5b19c6cc1808p-1,
       0x1.18ea7bf2a206cp+8, 0x1.a6a7f8a7cb755p+7, -0x1.e3823212a92aep+7},
      {4., 0x1.p+2, 0x1.299999999999ap+3, -0x1.9c4a6ec4a6ec5p+2, 0x1.00b8fb0b8fb0bp+2,
       0x1.717444732bb3cp+5, 0x1.49fbb1fafeb54p+8, -0x1.da468c89a8458p+6},
      {3., 0x1.8p+1, 0x1.8p+2, -0x1.00fb38a94d243p+2, 0x1.83c131d5acb72p+1, 0x1.8cde3cf003c1fp+6,
       0x1.23b6ebeb2e701p+8, 0x1.12c599c0bf30cp+7}},
     0x1.12c599c0bf30cp+7},
    {"both weights",
     true,
     true,
     {{6., 0x1.9p+3, 0x1.bdc28f5c28f5cp+4, 0x1.e0336602a93c5p+1, 0x1.b8c390ab51a46p+9, -4.83, 8.25},
      {4., 0x1.e666666666666p+2, 0x1.aa8f5c28f5c28p+3, 0x1.5770ded64f6a8p+2, 0x1.7f5e6ea77fap+8,
       -6.47, 8.27},
      {5., 0x1.6999999999999p+3, 0x1.7ca3d70a3d70ap+4, -0x1.4746280122e76p+2, 0x1.1f9ea11c1eab4p+8,
       -8.57, 3.33}},
     {{3., 0x1.5333333333333p+2, 0x1.60f5c28f5c28fp+3, 0x1.373a83ff25594p+2, -0x1.0cc68fb1b82p+1,
       0x1.6f2cb17cb3882p+8, 0x1.f729981b15e74p+7, -0x1.2d1c0a7f80cdcp+8},
      {4., 0x1.2p+3, 0x1.57d70a3d70a3dp+4, -0x1.811c4ca3ef6fep+2, 0x1.8daf89c067fdcp+1,
       0x1.a85c633ef95a6p+6, 0x1.9bbac216518a4p+9, -0x1.1ccd8975b27fp+8},
      {3., 0x1.7333333333333p+2, 0x1.7c7ae147ae147p+3, -0x1.51443c2ebf592p+1, 0x1.969540345cd71p+2,
       0x1.11600f16bd222p+7, 0x1.143c19ce74a4bp+8, 0x1.e7834fe2a0238p+6}},
     0x1.e7834fe2a0239p+6},
};

Cases GoldenCases(bool weighted, bool regWeighted) {
  Cases cases{{{8.25, -6.47, -8.57},
               {8.25, kMissing, -6.83},
               {2.73, -2.78, kMissing},
               {-4.83, 8.27, -3.25},
               {kMissing, 7.78, 3.33},
               {7.63, kMissing, -8.13},
               {6.86, kMissing, kMissing}},
              {},
              {},
              {}};
  if (weighted) {
    cases.weights = {0.7, 2.6, 1.8, 2.8, 2.3, 2.9, 1.7};
  }
  if (regWeighted) {
    cases.regWeights = {2.1, 1.9, 0.8, 2.9, 1.0, 2.4, 2.9};
  }
  return cases;
}

// Batches of 3, 2 and 2 cases.
template <class Accumulator>
void AddGoldenBatches(Accumulator& a, const Cases& cases) {
  std::size_t from = 0;
  for (const std::size_t to : {3U, 5U, 7U}) {
    a += *Batch(cases.Slice(from, to));
    from = to;
  }
}

void ExpectGolden(const Golden& g, const SMatrixPairwise& symmetric,
                  const NSMatrixPairwise& rectangular, const MatrixPairwise& matrix) {
  SCOPED_TRACE(g.name);
  for (int c = 0; c < 3; ++c) {
    const Doubles& expected = g.variables[static_cast<std::size_t>(c)];
    EXPECT_EQ(Bits(Fields(symmetric.Var(c))), Bits(expected));
    EXPECT_EQ(Bits(Fields(rectangular.Var(c))), Bits(expected));
    EXPECT_EQ(Bits(Fields(matrix.Var(static_cast<unsigned int>(c)))),
              Bits(Doubles(expected.begin(), expected.begin() + 5)));
  }
  std::size_t next = 0;
  for (const auto& [hi, lo] : {std::pair{1, 0}, {2, 0}, {2, 1}}) {
    const Doubles& expected = g.pairs[next++];
    EXPECT_EQ(Bits(PairFields(symmetric.Pair(hi, lo))), Bits(expected));
    EXPECT_EQ(&symmetric.Pair(lo, hi), &symmetric.Pair(hi, lo));
    const auto row = static_cast<unsigned int>(hi);
    const auto col = static_cast<unsigned int>(lo);
    EXPECT_EQ(Bits(PairFields(matrix.Pair(row, col))), Bits(expected));
    EXPECT_EQ(Bits(PairFields(matrix.Pair(col, row))), Bits(expected));
  }
  const Doubles first = Swapped(g.pairs[2], g.cscp12);
  EXPECT_EQ(Bits(PairFields(rectangular.Pair(1, 2))), Bits(first));
  EXPECT_EQ(&rectangular.Pair(2, 1), &rectangular.Pair(1, 2));
  EXPECT_EQ(rectangular.Pair(0, 2).Mean0(), g.pairs[1][4]);
}

TEST(Pairwise, SumsAndMergesToTheBit) {
  for (const Golden& g : kGolden) {
    const Cases cases = GoldenCases(g.weighted, g.regWeighted);
    SMatrixPairwise symmetric(kMissing);
    NSMatrixPairwise rectangular(kMissing, 0, 2, 3);
    MatrixPairwise matrix(kMissing);
    AddGoldenBatches(symmetric, cases);
    AddGoldenBatches(rectangular, cases);
    AddGoldenBatches(matrix, cases);
    ExpectGolden(g, symmetric, rectangular, matrix);
    EXPECT_EQ(symmetric.NRows(), 7U);
    EXPECT_EQ(matrix.HasRegWeights(), g.regWeighted);

    // A merge into an empty one copies, for good and with the bounds and the code.
    SMatrixPairwise symmetricCopy(0., 5, 6);
    NSMatrixPairwise rectangularCopy(0., 5, 6, 7);
    MatrixPairwise matrixCopy(0.);
    symmetricCopy += symmetric;
    rectangularCopy += rectangular;
    matrixCopy += matrix;
    symmetric += *Batch(cases);
    rectangular += *Batch(cases);
    matrix += *Batch(cases);
    ExpectGolden(g, symmetricCopy, rectangularCopy, matrixCopy);
    EXPECT_EQ(symmetricCopy.MissingCode(), kMissing);
    EXPECT_EQ(rectangularCopy.MissingCode(), kMissing);
    EXPECT_EQ(matrixCopy.MissingCode(), kMissing);
    EXPECT_EQ(symmetricCopy.Col1(), 0);
    EXPECT_EQ(symmetricCopy.Col2(), 3);
    EXPECT_EQ(rectangularCopy.Col1(), 2);
  }
}

// A merge's operations are not symmetric in its sides.
TEST(Pairwise, MergesRecordByRecord) {
  const Cases cases = GoldenCases(true, true);
  SMatrixPairwise a(kMissing);
  SMatrixPairwise b(kMissing);
  a += *Batch(cases.Slice(0, 4));
  b += *Batch(cases.Slice(4, 7));
  std::vector<Doubles> expected;
  for (int i = 0; i < 3; ++i) {
    const std::unique_ptr<VarStat> variable(a.Var(i).Copy());
    variable->Update(b.Var(i));
    expected.push_back(Fields(*variable));
    for (int j = 0; j < i; ++j) {
      const std::unique_ptr<PairStat> pair(a.Pair(i, j).Copy());
      pair->Update(b.Pair(i, j));
      expected.push_back(PairFields(*pair));
    }
  }
  a += b;
  std::size_t next = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Bits(Fields(a.Var(i))), Bits(expected[next++]));
    for (int j = 0; j < i; ++j) {
      EXPECT_EQ(Bits(PairFields(a.Pair(i, j))), Bits(expected[next++]));
    }
  }
}

TEST(Pairwise, HandWorkedCase) {
  const Cases cases{{{1., 10.}, {-99., 20.}, {3., 30.}}, {}, {}, {}};
  const auto expect = [](const MatrixPairwise& a) {
    EXPECT_EQ(a.NRows(), 3U);
    EXPECT_EQ(a.WeightSum(), 3.);
    EXPECT_THAT(Fields(a.Var(0)), ElementsAre(2., 2., 2., 2., 2.));
    EXPECT_THAT(Fields(a.Var(1)), ElementsAre(3., 3., 3., 20., 200.));
    EXPECT_THAT(PairFields(a.Pair(0, 1)), ElementsAre(2., 2., 2., 20., 2., 200., 2., 20.));
  };
  MatrixPairwise whole(-99.);
  whole += *Batch(cases);
  expect(whole);
  MatrixPairwise batches(-99.);
  for (std::size_t i = 0; i < 3; ++i) {
    batches += *Batch(cases.Slice(i, i + 1));
  }
  expect(batches);
  MatrixPairwise part(-99.);
  MatrixPairwise rest(-99.);
  part += *Batch(cases.Slice(0, 1));
  rest += *Batch(cases.Slice(1, 3));
  part += rest;
  expect(part);
}

TEST(Pairwise, EqualityAloneMarksAValueAbsent) {
  const Cases cases{{{0., 1.}, {-0., 2.}, {kNaN, 3.}, {kInf, 4.}, {5., 5.}}, {}, {}, {}};
  const struct {
    const char* name;
    double code;
    int present;
  } codes[] = {
      {"zeros of both signs", 0., 3}, {"minus zero", -0., 3},
      {"NaN marks nothing", kNaN, 5}, {"infinity", kInf, 4},
      {"what does not occur", 7., 5},
  };
  for (const auto& c : codes) {
    SCOPED_TRACE(c.name);
    SMatrixPairwise a(c.code);
    a += *Batch(cases);
    EXPECT_EQ(a.Var(0).NRows(), c.present);
    EXPECT_EQ(a.Pair(0, 1).NRows(), c.present);
    EXPECT_EQ(a.Var(1).NRows(), 5);
    EXPECT_EQ(a.NRows(), 5U);
  }
}

TEST(Pairwise, TotalsCountEveryCase) {
  const Cases cases{{{kMissing}, {kMissing}, {1.}}, {1., 2., 4.}, {3., 3., 3.}, {}};
  SMatrixPairwise a(kMissing);
  a += *Batch(cases.Slice(0, 2));
  EXPECT_EQ(a.Var(0).NRows(), 0);
  EXPECT_EQ(a.Var(0).Min(), maxvalue);
  EXPECT_EQ(a.Var(0).Max(), minvalue);
  a += *Batch(cases.Slice(2, 3));
  EXPECT_EQ(a.WeightSum(), 7.);
  EXPECT_EQ(a.RegWeightSum(), 21.);
  EXPECT_EQ(a.NRows(), 3U);
  EXPECT_THAT(Fields(a.Var(0)), ElementsAre(1., 4., 12., 1., 0., 1., 1.));
}

TEST(Pairwise, BlocksHaveTheirOwnPairs) {
  Doubles row{0., 1., 2., 4., 8., 16.};
  Cases cases{{row, row}, {}, {}, {}};
  cases.rows[1][1] = kMissing;
  SMatrixPairwise symmetric(kMissing, 2, 5);
  NSMatrixPairwise rectangular(kMissing, 1, 3, 6);
  NSMatrixPairwise noPairs(kMissing, 1, 1, 3);
  SMatrixPairwise single(kMissing, 1, 2);
  for (int batch = 0; batch < 2; ++batch) {
    for (MatrixBase* a :
         {static_cast<MatrixBase*>(&symmetric), static_cast<MatrixBase*>(&rectangular),
          static_cast<MatrixBase*>(&noPairs), static_cast<MatrixBase*>(&single)}) {
      *a += *Batch(cases);
      EXPECT_EQ(a->NRows(), 2U * (static_cast<unsigned int>(batch) + 1));
    }
  }
  EXPECT_EQ(symmetric.NColumns(), 3U);
  for (int hi = 2; hi < 5; ++hi) {
    for (int lo = 2; lo < hi; ++lo) {
      EXPECT_EQ(symmetric.Pair(lo, hi).Mean0(), row[static_cast<std::size_t>(hi)]);
      EXPECT_EQ(symmetric.Pair(lo, hi).Mean1(), row[static_cast<std::size_t>(lo)]);
    }
  }
  EXPECT_EQ(rectangular.NColumns(), 5U);
  for (int i = 1; i < 3; ++i) {
    for (int j = 3; j < 6; ++j) {
      EXPECT_EQ(rectangular.Pair(j, i).Mean0(), row[static_cast<std::size_t>(i)]);
      EXPECT_EQ(rectangular.Pair(j, i).Mean1(), row[static_cast<std::size_t>(j)]);
      EXPECT_EQ(rectangular.Pair(i, j).NRows(), i == 1 ? 2 : 4);
    }
  }
  EXPECT_EQ(noPairs.Var(1).NRows(), 2);
  EXPECT_EQ(noPairs.Var(2).NRows(), 4);
  EXPECT_EQ(single.Var(1).NRows(), 2);
}

TEST(Pairwise, EmptyBatchesAndZeroWeightMergesChangeNothing) {
  const double regWeight = 1.;
  DataBatch noCase(1, 1, nullptr, &regWeight, nullptr);
  const Cases cases{{{1.}, {2.}}, {1., 3.}, {}, {}};
  Cases zero = cases;
  zero.weights = {1., -1.};
  const auto tryOn = [&](auto make, const char* name) {
    SCOPED_TRACE(name);
    auto a = make();
    *a += noCase;
    EXPECT_EQ(a->NColumns(), 0U);
    EXPECT_FALSE(a->HasRegWeights());
    *a += *Batch(cases);
    auto ofZero = make();
    *ofZero += *Batch(zero);
    EXPECT_EQ(ofZero->NRows(), 2U);
    *a += *ofZero;
    *a += *make();
    EXPECT_EQ(a->NRows(), 2U);
    EXPECT_EQ(a->WeightSum(), 4.);
    EXPECT_EQ(Fields(a->Var(0))[0], 2.);
    EXPECT_EQ(a->Var(0).Mean(), 1.75);
    // As a batch it is one like any other: its cases count.
    *a += *Batch(zero);
    EXPECT_EQ(a->NRows(), 4U);
    EXPECT_EQ(Fields(a->Var(0))[0], 4.);
  };
  tryOn([] { return std::make_unique<SMatrixPairwise>(kMissing, 0, 1); }, "symmetric");
  tryOn([] { return std::make_unique<NSMatrixPairwise>(kMissing, 0, 1, 1); }, "rectangular");
  tryOn([] { return std::make_unique<MatrixPairwise>(kMissing); }, "matrix");
}

TEST(Pairwise, KeepsLittleAndAllocatesNothingOnceItHasSeenItsLargestBatch) {
  constexpr unsigned int kColumns = 100;
  Cases cases;
  for (int i = 0; i < 1000; ++i) {
    cases.rows.emplace_back(kColumns, i % 3 == 0 ? kMissing : i);
    cases.weights.push_back(1. + i);
    cases.regWeights.push_back(1.);
  }
  const auto largest = Batch(cases);
  const auto smaller = Batch(cases.Slice(3, 9));
  const auto tryOn = [&](auto& a, auto& empty, std::size_t pairs) {
    const Allocations before = allocations;
    a += *largest;
    EXPECT_GT(allocations.count, before.count);
    const std::size_t most = 128 * (pairs + kColumns) + 32 * cases.rows.size();
    EXPECT_LE(allocations.bytes - before.bytes, most);
    const std::size_t count = allocations.count + allocations.scratch;
    a += *largest;
    a += *smaller;
    EXPECT_EQ(allocations.count + allocations.scratch, count);
    empty += a;
    EXPECT_LE(allocations.bytes - before.bytes, 2 * most);
  };
  SMatrixPairwise symmetric(kMissing);
  SMatrixPairwise emptySymmetric(kMissing);
  tryOn(symmetric, emptySymmetric, kColumns * (kColumns - 1) / 2);
  NSMatrixPairwise rectangular(kMissing, 0, 45, 100);
  NSMatrixPairwise emptyRectangular(kMissing, 0, 45, 100);
  tryOn(rectangular, emptyRectangular, 2475);  // 45 * 55
  MatrixPairwise matrix(kMissing);
  MatrixPairwise emptyMatrix(kMissing);
  tryOn(matrix, emptyMatrix, kColumns * (kColumns - 1) / 2);
}

// However cases are cut into batches and accumulators, each pair's statistics are those of two
// passes over the cases in which both are present, up to rounding.
TEST(Pairwise, AnySplitAgreesWithTwoPasses) {
  constexpr unsigned int kColumns = 4;
  std::mt19937 random(20260207);
  std::uniform_real_distribution<double> value(-50., 100.);
  for (unsigned int trial = 0; trial < 40; ++trial) {
    SCOPED_TRACE(trial);
    const std::size_t rows = 1 + random() % 150;
    const unsigned int missingPercent = trial % 5 == 0 ? 90 : 20;
    Cases cases = RandomWeights(random, rows, trial % 2 == 0, trial % 4 < 2);
    cases.rows.assign(rows, Doubles(kColumns));
    for (Doubles& row : cases.rows) {
      std::generate(row.begin(), row.end(),
                    [&] { return random() % 100 < missingPercent ? kMissing : value(random); });
    }
    const auto batch = [](const Cases& slice) { return Batch(slice, kColumns); };
    SMatrixPairwise symmetric(kMissing);
    NSMatrixPairwise rectangular(kMissing, 0, 2, 4);
    MatrixPairwise matrix(kMissing);
    AccumulateSplit(
        random, cases, [] { return std::make_unique<SMatrixPairwise>(kMissing); }, batch,
        symmetric);
    AccumulateSplit(
        random, cases, [] { return std::make_unique<NSMatrixPairwise>(kMissing, 0, 2, 4); }, batch,
        rectangular);
    AccumulateSplit(
        random, cases, [] { return std::make_unique<MatrixPairwise>(kMissing); }, batch, matrix);
    EXPECT_EQ(symmetric.NRows(), rows);
    const auto expectPair = [&](const auto& pair, std::size_t first, std::size_t second) {
      const PairMoments expected = TwoPasses(cases, first, second, kMissing);
      EXPECT_EQ(static_cast<int>(pair.NRows()), expected.nRows);
      EXPECT_NEAR(pair.RegWeightSum(), static_cast<double>(expected.weightSum), 1e-11);
      if (expected.nRows > 0) {
        EXPECT_NEAR(pair.Mean0(), static_cast<double>(expected.mean0), 1e-11);
        EXPECT_NEAR(pair.Mean1(), static_cast<double>(expected.mean1), 1e-11);
        EXPECT_NEAR(pair.CSCP(), static_cast<double>(expected.cscp), 1e-9);
      }
    };
    for (unsigned int a = 0; a < kColumns; ++a) {
      for (unsigned int b = 0; b < a; ++b) {
        expectPair(symmetric.Pair(static_cast<int>(a), static_cast<int>(b)), a, b);
        expectPair(matrix.Pair(a, b), a, b);
      }
    }
    for (const auto& [first, second] : {std::pair{0, 2}, {0, 3}, {1, 2}, {1, 3}}) {
      expectPair(rectangular.Pair(first, second), static_cast<std::size_t>(first),
                 static_cast<std::size_t>(second));
    }
  }
}

TEST(PairwiseDeathTest, RefusesWhatDoesNotFit) {
  const Cases plain{{{1., 2., 3.}, {4., 6., 5.}}, {}, {}, {}};
  const Cases narrow{{{1.}}, {}, {}, {}};
  Cases regWeighted = plain;
  regWeighted.regWeights = {1., 1.};
  Cases zero = plain;
  zero.weights = {0., 0.};

  SMatrixPairwise s(kMissing, 0, 2);
  s += *Batch(plain);
  SMatrixPairwise zeroS(kMissing);
  zeroS += *Batch(zero);
  SMatrixPairwise all(kMissing);
  all += *Batch(plain);
  SMatrixPairwise shifted(kMissing, 1, 3);
  shifted += *Batch(plain);
  SMatrixPairwise otherCode(0., 0, 2);
  otherCode += *Batch(plain);
  SMatrixPairwise withRegWeights(kMissing, 0, 2);
  withRegWeights += *Batch(regWeighted);
  NSMatrixPairwise ns(kMissing, 0, 2, 3);
  ns += *Batch(plain);
  NSMatrixPairwise zeroNs(kMissing, 0, 1, 3);
  zeroNs += *Batch(zero);
  NSMatrixPairwise otherRanges(kMissing, 0, 1, 3);
  otherRanges += *Batch(plain);
  NSMatrixPairwise otherNsCode(0., 0, 2, 3);
  otherNsCode += *Batch(plain);
  NSMatrixPairwise narrower(kMissing, 0, 1, 2);
  narrower += *Batch(plain);
  NSMatrixPairwise regWeightedNs(kMissing, 0, 2, 3);
  regWeightedNs += *Batch(regWeighted);
  MatrixPairwise m(kMissing);
  m += *Batch(plain);
  MatrixPairwise zeroM(kMissing);
  zeroM += *Batch(zero);
  MatrixPairwise narrowM(kMissing);
  narrowM += *Batch(narrow);
  MatrixPairwise otherMCode(0.);
  otherMCode += *Batch(plain);
  MatrixPairwise regWeightedM(kMissing);
  regWeightedM += *Batch(regWeighted);

  const std::string sFile = "velmor/smatrixpairwise.cpp";
  const std::string nsFile = "velmor/nsmatrixpairwise.cpp";
  const std::string mFile = "velmor/matrixpairwise.cpp";
  const std::string header = "tables/velmor/databatch.h";
  const std::string weighs = "0. < WeightSum()";
  const std::string inBlock = "col < Col2() && col >= Col0()";
  const std::string rowInBlock = "row < _my->_col2 && row >= _my->_col0";
  const std::string colInBlock = "col < _my->_col2 && col >= _my->_col0";
  const std::string sameWidth = "_varStats.size() == d._varStats.size()";
  const std::string sameWeights = "_hasRegWeights == d._hasRegWeights";
  const std::string sameCode = "IsSameCode(_work._missingCode, d._work._missingCode)";
  const Violation violations[] = {
      {"variable", [&] { s.Var(2); }, sFile, "Var", inBlock},
      {"variable of nothing", [&] { zeroS.Var(0); }, sFile, "Var", weighs},
      {"row", [&] { s.Pair(2, 0); }, sFile, "Pair", rowInBlock},
      {"column", [&] { s.Pair(0, -1); }, sFile, "Pair", colInBlock},
      {"a column with itself", [&] { s.Pair(1, 1); }, sFile, "Pair", "row != col"},
      {"pair of nothing", [&] { zeroS.Pair(1, 0); }, sFile, "Pair", weighs},
      {"other weights", [&] { s += *Batch(regWeighted); }, sFile, "Update",
       "_hasRegWeights == data.HasRegWeights()"},
      {"block backwards", [&] { SMatrixPairwise(kMissing, 2, 1) += *Batch(plain); }, sFile, "Init",
       "0 <= _col0 && _col0 < _col2"},
      {"block beyond the batch", [&] { SMatrixPairwise(kMissing, 0, 4) += *Batch(plain); }, header,
       "Column", "colNum < _nColumns"},
      {"later batch too narrow", [&] { all += *Batch(narrow); }, header, "Column",
       "colNum < _nColumns"},
      {"other width", [&] { s += all; }, sFile, "Update", sameWidth},
      {"other weights merged", [&] { s += withRegWeights; }, sFile, "Update", sameWeights},
      {"other block", [&] { s += shifted; }, sFile, "Update",
       "_col0 == d._col0 && _col2 == d._col2"},
      {"other code", [&] { s += otherCode; }, sFile, "Update", sameCode},
      {"other class", [&] { s += ns; }, "velmor/record/protocol.h", "SameClass",
       "sameClass != nullptr"},

      {"variable", [&] { ns.Var(3); }, nsFile, "Var", inBlock},
      {"variable of nothing", [&] { zeroNs.Var(0); }, nsFile, "Var", weighs},
      {"row", [&] { ns.Pair(3, 0); }, nsFile, "Pair", rowInBlock},
      {"column", [&] { ns.Pair(0, 3); }, nsFile, "Pair", colInBlock},
      {"a column with itself", [&] { ns.Pair(1, 1); }, nsFile, "Pair", "row != col"},
      {"pair of nothing", [&] { zeroNs.Pair(0, 1); }, nsFile, "Pair", weighs},
      {"pair of one range", [&] { ns.Pair(1, 0); }, nsFile, "Pair",
       "row < _my->_col1 && col >= _my->_col1"},
      {"other weights", [&] { ns += *Batch(regWeighted); }, nsFile, "Update",
       "_hasRegWeights == data.HasRegWeights()"},
      {"ranges backwards", [&] { NSMatrixPairwise(kMissing, 0, 3, 2) += *Batch(plain); }, nsFile,
       "Init", "0 <= _col0 && _col0 <= _col1 && _col1 <= _col2 && _col0 < _col2"},
      {"later batch too narrow", [&] { ns += *Batch(narrow); }, header, "Column",
       "colNum < _nColumns"},
      {"other width", [&] { ns += narrower; }, nsFile, "Update", sameWidth},
      {"other weights merged", [&] { ns += regWeightedNs; }, nsFile, "Update", sameWeights},
      {"ranges beyond the batch", [&] { NSMatrixPairwise(kMissing, 0, 2, 4) += *Batch(plain); },
       header, "Column", "colNum < _nColumns"},
      {"other ranges", [&] { ns += otherRanges; }, nsFile, "Update",
       "_col0 == d._col0 && _col1 == d._col1 && _col2 == d._col2"},
      {"other code", [&] { ns += otherNsCode; }, nsFile, "Update", sameCode},
      {"other class", [&] { ns += s; }, "velmor/record/protocol.h", "SameClass",
       "sameClass != nullptr"},

      {"variable", [&] { m.Var(3); }, mFile, "Var", "col < NColumns()"},
      {"variable of nothing", [&] { zeroM.Var(0); }, mFile, "Var", weighs},
      {"row", [&] { m.Pair(3, 0); }, mFile, "Pair", "row < NColumns()"},
      {"column", [&] { m.Pair(0, 3); }, mFile, "Pair", "col < NColumns()"},
      {"a column with itself", [&] { m.Pair(1, 1); }, mFile, "Pair", "row != col"},
      {"pair of nothing", [&] { zeroM.Pair(0, 1); }, mFile, "Pair", weighs},
      {"other columns", [&] { m += *Batch(narrow); }, mFile, "Update", "_varStats.size() == nCols"},
      {"other weights", [&] { m += *Batch(regWeighted); }, mFile, "Update",
       "_hasRegWeights == data.HasRegWeights()"},
      {"other width", [&] { m += narrowM; }, mFile, "Update", sameWidth},
      {"other weights merged", [&] { m += regWeightedM; }, mFile, "Update", sameWeights},
      {"other code", [&] { m += otherMCode; }, mFile, "Update", sameCode},
  };
  for (const Violation& v : violations) {
    ExpectAbort(v);
  }
}

}  // namespace
}  // namespace velmor::test
