// The kernels: the order of their operations, their rules for runs, ties, NaN and absent arrays.
#include <velmor/auto_array.h>
#include <velmor/kernels.h>
#include <velmor/owned_array.h>

#include "support.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <new>

namespace velmor::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Doubles = std::vector<double>;

int Count(const Doubles& x) { return static_cast<int>(x.size()); }
const double* Data(const Doubles& x) { return x.empty() ? nullptr : x.data(); }

TEST(Kernels, SentinelsAreTheExactBits) {
  EXPECT_EQ(Bits(minvalue), 0xffefdcf158adbb99U);
  EXPECT_EQ(Bits(maxvalue), 0x7fefdcf158adbb99U);
}

// A rounded sum depends on its order: each of these differs from any other order of its terms.
TEST(Kernels, SumsAscendFromZero) {
  EXPECT_EQ(Sum(Doubles{1e16, 1., -1e16, 1.}), 1.);
  EXPECT_EQ(Sum(Doubles{1., 1e16, 1., -1e16}), 0.);
  EXPECT_EQ(Bits(Sum(Doubles{-0.})), Bits(0.));
  EXPECT_EQ(Bits(Sum(nullptr, 0)), Bits(0.));
  EXPECT_EQ(ProductSum(Doubles{1e8, 1., 1e8, 1.}, Doubles{1e8, 1., -1e8, 1.}), 1.);
}

// 1 + 2^-27 squared has a last bit below the 53rd, which a fused multiply-add would keep.
TEST(Kernels, ProductsAreRoundedBeforeTheyAreAdded) {
  const double a = 1. + 0x1p-27;
  const double rounded = 1. + 0x1p-26;
  EXPECT_EQ(ProductSum(Doubles{-rounded, a}, Doubles{1., a}), 0.);
  EXPECT_EQ(ProductSum(Doubles{-rounded, a}, Doubles{1., a}, Doubles{1., 1.}), 0.);
  EXPECT_EQ(CrossProduct(Doubles{-rounded, a}, Doubles{1., a}, Doubles{1., 1.}), 0.);
  EXPECT_EQ(WeightedMean(Doubles{2., -rounded, a}, Doubles{0., 1., a}, 1.), 0.);
  const unsigned int group = 0;
  Doubles sums{0.};
  Doubles squares{-rounded};
  GroupWeightedSumX(&a, &group, sums.data(), squares.data(), 1);
  EXPECT_EQ(squares[0], 0.);
}

// Associations that overflow or vanish tell (a * b) * c from a * (b * c).
TEST(Kernels, WeightIsAppliedToTheFirstOperand) {
  EXPECT_EQ(ProductSum(Doubles{1e-200}, Doubles{1e-200}, Doubles{1e200}), 0.);
  EXPECT_EQ(CrossProduct(Doubles{1e-200}, Doubles{1e200}, Doubles{1e-200}), 0.);
  EXPECT_EQ(CrossProduct(Doubles{1e200}, Doubles{1e-200}, Doubles{1e-200}), 1e-200);
  const double x = 1e200;
  const double w = 1e-200;
  EXPECT_EQ(ProductSum(&w, &w, &x, 1), 0.);
  const unsigned int group = 0;
  Doubles sums{0.};
  Doubles squares{0.};
  GroupWeightedSumX(&x, &group, &w, sums.data(), squares.data(), 1);
  EXPECT_EQ(squares[0], 1e200);
}

TEST(Kernels, WeightedSumWithoutWeightsIsACount) {
  EXPECT_EQ(WeightedSum(nullptr, 7), 7.);
  EXPECT_EQ(WeightedSum(Doubles{2., 3.}.data(), 2), 5.);
  EXPECT_EQ(WeightedSum(Doubles{2., 3.}, Doubles{10., 100.}), 320.);
  EXPECT_EQ(WeightedSum(Doubles{2., 3.}, Doubles{}), 5.);
}

TEST(Kernels, WeightedMean) {
  const struct {
    const char* name;
    Doubles x, weights;
    double weightSum, mean;
  } cases[] = {
      {"no element", {}, {}, 0., 0.},
      {"equal values, zero sum", {2.5, 2.5, 2.5}, {1., 2., 3.}, 0., 2.5},
      {"equal values, unweighted", {0.1, 0.1, 0.1}, {}, 3., 0.1},
      {"zeros of both signs are a run", {-0., 0.}, {}, 2., -0.},
      {"no run", {1., 2.}, {}, 2., 1.5},
      {"run, weighted", {3., 3., 5.}, {1., 1., 2.}, 4., 4.},
      // 3 * 0.1 is not 0.1 + 0.1 + 0.1.
      {"run is multiplied", {0.1, 0.1, 0.1, 0.}, {}, 1., 3. * 0.1},
      {"later equal values are added", {0., 0.1, 0.1, 0.1}, {}, 1., 0.1 + 0.1 + 0.1},
      {"run's weights ascend", {1., 1., 1., 1., 0.}, {1e16, 1., -1e16, 1., 5.}, 1., 1.},
      {"run's sum is added last", {1., 1e16, -1e16}, {}, 1., 1.},
      {"NaN first", {kNaN, kNaN}, {}, 2., kNaN},
      {"NaN ends a run", {1., kNaN, 1.}, {}, 3., kNaN},
      {"zero sum, values differ", {1., 2.}, {0., 0.}, 0., kNaN},
      {"infinite run", {kInf, kInf}, {1., 1.}, 2., kInf},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Bits(WeightedMean(c.x, c.weights, c.weightSum)), Bits(c.mean));
    EXPECT_EQ(Bits(WeightedMean(c.x.data(), Data(c.weights), c.weightSum, Count(c.x))),
              Bits(c.mean));
  }
}

TEST(Kernels, ExtremesPassOverLaterNaNsAndKeepTheEarlierOfEquals) {
  const struct {
    const char* name;
    Doubles x;
    double min, max;
  } cases[] = {
      {"no element", {}, maxvalue, minvalue},
      {"NaN inside", {1., kNaN, 3.}, 1., 3.},
      {"NaN first", {kNaN, 1., 3.}, kNaN, kNaN},
      {"zeros, minus first", {-0., 0.}, -0., -0.},
      {"zeros, plus first", {0., -0.}, 0., 0.},
      {"beyond the sentinels", {kInf, -kInf}, -kInf, kInf},
  };
  for (auto c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Bits(Mins(c.x)), Bits(c.min));
    EXPECT_EQ(Bits(Maxs(c.x)), Bits(c.max));
  }
}

TEST(Kernels, CombineWeights) {
  Doubles w{2., 3.};
  const Doubles r{0.5, 10.};
  EXPECT_EQ(CombineWeights(static_cast<double*>(nullptr), nullptr, 2), nullptr);
  EXPECT_EQ(CombineWeights(nullptr, r.data(), 2U), r.data());
  EXPECT_EQ(CombineWeights(w.data(), nullptr, 2U), w.data());
  EXPECT_THAT(w, ElementsAre(2., 3.));
  EXPECT_EQ(CombineWeights(w.data(), r.data(), 2), w.data());
  EXPECT_THAT(w, ElementsAre(1., 30.));

  Doubles none;
  Doubles regWeights = r;
  CombineWeights(none, regWeights);
  EXPECT_EQ(none, r);
  EXPECT_THAT(regWeights, IsEmpty());
  CombineWeights(none, regWeights);
  EXPECT_EQ(none, r);
  regWeights = {2., 2., 7.};
  CombineWeights(none, regWeights);
  EXPECT_THAT(none, ElementsAre(1., 20.));
}

TEST(Kernels, CopiesKeepWhatIsPresent) {
  const Doubles x{1., -1., 2., kNaN, -0.};
  const Doubles y{4., 5., -1., 6., 7.};
  const Doubles w{1., 5., 0., -2., 3.};
  const struct {
    const char* name;
    double code;
    Doubles kept, keptWeights, pairX, pairY;
  } cases[] = {
      {"a number", -1., {1., 2., kNaN, -0.}, {1., 0., -2., 3.}, {1., kNaN, -0.}, {4., 6., 7.}},
      {"zero marks both zeros",
       0.,
       {1., -1., 2., kNaN},
       {1., 5., 0., -2.},
       {1., -1., 2., kNaN},
       {4., 5., -1., 6.}},
      {"NaN marks nothing", kNaN, x, w, x, y},
  };
  Doubles outX{9.};
  Doubles outY(20, 9.);
  Doubles outW;
  Doubles outR{9.};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CopyNonmissing(x.data(), w.data(), nullptr, c.code, 5, outX, outW, outR);
    EXPECT_EQ(Bits(outX), Bits(c.kept));
    EXPECT_EQ(outW, c.keptWeights);
    EXPECT_THAT(outR, IsEmpty());
    CopyCompletePairs(x.data(), y.data(), nullptr, w.data(), c.code, 5, outX, outY, outW, outR);
    EXPECT_EQ(Bits(outX), Bits(c.pairX));
    EXPECT_EQ(outY, c.pairY);
    EXPECT_THAT(outW, IsEmpty());
    EXPECT_EQ(outR.size(), outX.size());
  }
}

TEST(Kernels, GroupSumsAddToWhatIsThere) {
  const Doubles x{1., 2., 3.};
  const Doubles w{2., 1., 0.5};
  const unsigned int groups[] = {0, 1, 0};
  Doubles sums{100., 200.};
  Doubles squares{0., 0.};
  GroupWeightedSumX(x.data(), groups, sums.data(), squares.data(), 3);
  EXPECT_THAT(sums, ElementsAre(104., 202.));
  EXPECT_THAT(squares, ElementsAre(10., 4.));
  GroupWeightedSumX(x.data(), groups, w.data(), sums.data(), squares.data(), 3);
  EXPECT_THAT(sums, ElementsAre(107.5, 204.));
  EXPECT_THAT(squares, ElementsAre(16.5, 8.));
  double total = 1.;
  WeightByGroup(groups, sums, total, 3);
  EXPECT_THAT(sums, ElementsAre(109.5, 205.));
  EXPECT_EQ(total, 4.);
  WeightByGroup(groups, w.data(), sums, total, 3);
  EXPECT_THAT(sums, ElementsAre(112., 206.));
  EXPECT_EQ(total, 7.5);
}

TEST(Kernels, MeanDiffMultipliesBeforeItDivides) {
  EXPECT_EQ(Bits(MeanDiff(1., 0., 5., 0.)), Bits(0.));
  EXPECT_EQ(MeanDiff(1., 2., 5., -2.), 0.);
  EXPECT_EQ(MeanDiff(1., 1., 5., 3.), 3.);
  EXPECT_EQ(MeanDiff(0., 1e300, 1e10, 1e300), kInf);
}

TEST(Kernels, PackedRowsWrapLikeTheirOffsets) {
  const std::pair<unsigned int, unsigned int> rows[] = {
      {0, 0}, {1, 1}, {3, 6}, {65535, 2147450880}, {65536, 32768}};
  for (const auto& [row, offset] : rows) {
    EXPECT_EQ(MatrixRow(row), offset);
  }
}

TEST(AutoArray, KeepsAShortArrayInside) {
  using Short = auto_array<double, 1>;
  for (const unsigned long length : {0UL, 1UL, 2UL, 100UL}) {
    Short array(length);
    std::fill(array.begin(), array.end(), 1.);
    EXPECT_EQ(array.end() - array.begin(), static_cast<std::ptrdiff_t>(length));
    const void* const begin = array.begin();
    const std::less<> before;
    EXPECT_EQ(!before(begin, &array) && before(begin, &array + 1), length <= 1);
  }
}

TEST(OwnedArray, ACopyOfNoneIsNone) {
  const OwnedArray<double> none;
  const OwnedArray<double> empty(0);
  EXPECT_EQ(static_cast<double*>(OwnedArray<double>(none)), nullptr);
  EXPECT_NE(static_cast<double*>(OwnedArray<double>(empty)), nullptr);
}

}  // namespace
}  // namespace velmor::test
