// The host's floating-point environment changes no bit of a result, and a result changes nothing of
// the environment: for every accumulator and record, in batches and in merges.
#include <velmor/velmor.h>

#include "support.h"

#include <cfenv>

#ifdef __SSE2__
#include <xmmintrin.h>
#endif

namespace velmor::test {
namespace {

using Doubles = std::vector<double>;

// Values whose sums are inexact, beside a column of subnormal numbers.
const Cases kCases{{{0.1, 0x1p-1060}, {0.7, 0x1.8p-1059}, {1.3, 0x1.1p-1058}, {0.2, 0x1.9p-1060}},
                   {0.3, 0.7, 1.1, 0.9},
                   {1.7, 0.6, 0.1, 2.3},
                   {1, 0, 1, 0}};

// Two batches into one accumulator, a third into another, and a merge.
template <class Accumulator, class MakeBatch>
void AddAndMerge(Accumulator& a, Accumulator& other, MakeBatch makeBatch) {
  a += *makeBatch(kCases.Slice(0, 2));
  a += *makeBatch(kCases.Slice(2, 3));
  other += *makeBatch(kCases.Slice(3, 4));
  a += other;
}

void Append(Doubles& all, std::initializer_list<double> more) {
  for (const double x : more) {
    all.push_back(x);
  }
}

// The bits of everything that is inexact.
std::vector<std::uint64_t> Results() {
  const auto plain = [](const Cases& cases) { return Batch(cases); };
  Doubles results;
  {
    MatrixListwise a;
    MatrixListwise b;
    AddAndMerge(a, b, plain);
    Append(results, {a.RegWeightSum(), a.Mean(0), a.Mean(1), a.CCP(1, 0)});
  }
  {
    SMatrixListwise a;
    SMatrixListwise b;
    AddAndMerge(a, b, plain);
    Append(results, {a.RegWeightSum(), a.Mean(0), a.Mean(1), a.CCP(0, 0)});
  }
  {
    NSMatrixListwise a(0, 1, 2);
    NSMatrixListwise b(0, 1, 2);
    AddAndMerge(a, b, plain);
    Append(results, {a.RegWeightSum(), a.Mean(1), a.CCP(0, 0), a.CCP(1, 0)});
  }
  {
    MatrixPairwise a(-9.);
    MatrixPairwise b(-9.);
    AddAndMerge(a, b, plain);
    Append(results, {a.RegWeightSum(), a.Var(1).Mean(), a.Pair(1, 0).CSCP()});
  }
  {
    SMatrixPairwise a(-9.);
    SMatrixPairwise b(-9.);
    AddAndMerge(a, b, plain);
    Append(results, {a.RegWeightSum(), a.Var(1).Mean(), a.Pair(1, 0).CSS1()});
  }
  {
    NSMatrixPairwise a(-9., 0, 1, 2);
    NSMatrixPairwise b(-9., 0, 1, 2);
    AddAndMerge(a, b, plain);
    Append(results, {a.RegWeightSum(), a.Var(1).Mean(), a.Pair(1, 0).CSCP()});
  }
  {
    DiscriminantMatrix a(2, 2);
    DiscriminantMatrix b(2, 2);
    AddAndMerge(a, b, plain);
    Append(results, {a.WeightSum(), a.sumX1(1, 1), a.sumX2(0, 0), a.TSSP(1, 0)});
  }
  {
    DiscIndividualMatrix a(2, 2);
    DiscIndividualMatrix b(2, 2);
    AddAndMerge(a, b, [](const Cases& cases) { return GroupedBatch(cases, 2, 2); });
    Append(results, {a.WeightSum(), a.TSSP(0, 0), a.TSSP(4, 1), a.TSSP(1, 0)});
  }
  {
    const double x[] = {0.1, 0.7, 1.3};
    const double small[] = {0x1p-1060, 0x1.8p-1059, 0x1.1p-1058};
    WorkArea area;
    VarStatData variables[2];
    PairStatData pairs[2];
    for (const int i : {0, 1}) {
      variables[i].Init(small + i, x, nullptr, area, 2);
      pairs[i].Init(x + i, small + i, x, nullptr, area, 2);
    }
    variables[0].Update(variables[1]);
    pairs[0].Update(pairs[1]);
    Append(results, {variables[0]._mean, variables[0]._regWeightSum, pairs[0]._mean1,
                     pairs[0]._css0, pairs[0]._cscp});
  }
  return Bits(results);
}

TEST(Environment, RoundingIsToNearestWhateverTheHostHasSet) {
  const auto expected = Results();
  for (const int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
    ASSERT_EQ(std::fesetround(mode), 0);
    std::feraiseexcept(FE_DIVBYZERO);
    const auto results = Results();
    const int after = std::fegetround();
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(results, expected);
    EXPECT_EQ(after, mode);
    EXPECT_NE(std::fetestexcept(FE_DIVBYZERO), 0);
    std::feclearexcept(FE_ALL_EXCEPT);
  }
}

#ifdef __SSE2__
TEST(Environment, SubnormalsAreKeptWhereTheHostFlushesThem) {
  const auto expected = Results();
  constexpr unsigned int kFlush = 0x8040;  // flush to zero, denormals are zero
  const unsigned int mode = _mm_getcsr();
  _mm_setcsr(mode | kFlush);
  const auto results = Results();
  const unsigned int after = _mm_getcsr();
  _mm_setcsr(mode);
  EXPECT_EQ(results, expected);
  EXPECT_EQ(after & kFlush, kFlush);
}
#endif

}  // namespace
}  // namespace velmor::test
