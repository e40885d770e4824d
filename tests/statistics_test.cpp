// The records and handles as a host uses them directly.
#include <velmor/statistics.h>

#include <velmor/kernels.h>

#include "support.h"

namespace velmor::test {
namespace {

using testing::ElementsAre;
using Doubles = std::vector<double>;

const double* Data(const Doubles& values) { return values.empty() ? nullptr : values.data(); }

WorkArea Area(double missingCode) {
  WorkArea area;
  area._missingCode = missingCode;
  return area;
}

TEST(VarStat, Init) {
  const struct {
    const char* name;
    Doubles x, w, rw, fields;
  } cases[] = {
      {"no weights", {1., -9., 3.}, {}, {}, {2., 2., 2., 2., 2., 1., 3.}},
      {"case weights, of the kept cases",
       {1., -9., 4.},
       {2., 7., 1.},
       {},
       {2., 3., 3., 2., 6., 1., 4.}},
      {"regression weights", {1., -9., 4.}, {}, {2., 7., 1.}, {2., 2., 3., 2., 6., 1., 4.}},
      {"both", {1., -9., 4.}, {4., 7., 1.}, {.5, 7., 1.}, {2., 5., 3., 2., 6., 1., 4.}},
      {"zero and negative weights count",
       {1., 2., 3.},
       {1., 0., -3.},
       {},
       {3., -2., -2., 4., 6., 1., 3.}},
      {"equal values", {.1, -9., .1}, {0., 1., 0.}, {}, {2., 0., 0., .1, 0., .1, .1}},
      {"none present", {-9., -9.}, {1., 2.}, {3., 4.}, {0., 0., 0., 0., 0., maxvalue, minvalue}},
      {"NaN counts", {kNaN, 1.}, {}, {}, {2., 2., 2., kNaN, kNaN, kNaN, kNaN}},
  };
  WorkArea area = Area(-9.);
  VarStat used;  // Init forgets what it held
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    used.Init(c.x.data(), Data(c.w), Data(c.rw), area, static_cast<int>(c.x.size()));
    EXPECT_EQ(Bits(Fields(used)), Bits(c.fields));
  }
}

TEST(PairStat, InitCountsCompletePairs) {
  const Doubles x{1., -9., 3.};
  const Doubles y{4., 5., -9.};
  WorkArea area = Area(-9.);
  PairStat pair;
  pair.Init(x.data(), y.data(), nullptr, nullptr, area, 3);
  EXPECT_THAT(Fields(pair), ElementsAre(1., 1., 1., 1., 4., 0., 0., 0.));
  pair.Init(x.data(), y.data(), nullptr, x.data(), area, 2);
  EXPECT_THAT(Fields(pair), ElementsAre(1., 1., 1., 1., 4., 0., 0., 0.));
}

TEST(VarStat, UpdateIsTheStatisticsOfAll) {
  const Doubles x{1., 3., 5.};
  WorkArea area = Area(-9.);
  VarStat first;
  VarStat second;
  first.Init(x.data(), nullptr, nullptr, area, 2);
  second.Init(x.data() + 2, nullptr, nullptr, area, 1);
  const std::unique_ptr<VarStat> copy(first.Copy());
  first.Update(second);
  EXPECT_THAT(Fields(first), ElementsAre(3., 3., 3., 3., 8., 1., 5.));
  EXPECT_THAT(Fields(*copy), ElementsAre(2., 2., 2., 2., 2., 1., 3.));
  // A record of no case has extremes beyond all values; they stay out.
  VarStat none;
  first.Update(none);
  EXPECT_THAT(Fields(first), ElementsAre(3., 3., 3., 3., 8., 1., 5.));
}

TEST(PairStat, UpdateIsTheStatisticsOfAll) {
  const Doubles x{1., 3., 5.};
  const Doubles y{2., 6., 4.};
  WorkArea area = Area(-9.);
  PairStat first;
  PairStat second;
  first.Init(x.data(), y.data(), nullptr, nullptr, area, 2);
  EXPECT_THAT(Fields(first), ElementsAre(2., 2., 2., 2., 4., 2., 8., 4.));
  second.Init(x.data() + 2, y.data() + 2, nullptr, nullptr, area, 1);
  const std::unique_ptr<PairStat> copy(first.Copy());
  first.Update(second);
  EXPECT_THAT(Fields(first), ElementsAre(3., 3., 3., 3., 4., 8., 8., 4.));
  EXPECT_EQ(copy->CSS1(), 8.);
  EXPECT_EQ(copy->NRows(), 2);
}

TEST(VarStat, UpdateTakesNoShortCut) {
  // mean * b / b is not the mean for this one.
  const Doubles x{0.1, 0.1};
  const Doubles w{0.3, 0.4};
  WorkArea area = Area(-9.);
  VarStat ofBatch;
  ofBatch.Init(x.data(), w.data(), nullptr, area, 2);
  ASSERT_EQ(ofBatch.Mean(), 0.1);
  VarStat stored;
  stored.Update(ofBatch);
  EXPECT_EQ(stored.Mean(), 0.1 * ofBatch.RegWeightSum() / ofBatch.RegWeightSum());
}

TEST(VarStat, ZeroWeightSumsMergeWithoutShift) {
  const Doubles x{1., 3.};
  const Doubles w{0., 0.};
  WorkArea area = Area(-9.);
  VarStat a;
  VarStat b;
  a.Init(x.data(), w.data(), nullptr, area, 1);
  b.Init(x.data() + 1, w.data(), nullptr, area, 1);
  a.Update(b);
  EXPECT_THAT(Fields(a), ElementsAre(2., 0., 0., 1., 0., 1., 3.));
}

TEST(VarStat, ExtremesTakeTheOtherSidesWhenOneIsNotANumber) {
  const auto merged = [](double a, double b) {
    auto first = std::make_unique<VarStatData>();
    auto second = std::make_unique<VarStatData>();
    first->_nRows = second->_nRows = 1;
    first->_min = first->_max = a;
    second->_min = second->_max = b;
    first->Update(*second);
    return Bits(Doubles{first->_min, first->_max});
  };
  EXPECT_EQ(merged(kNaN, 2.), Bits(Doubles{2., 2.}));
  EXPECT_EQ(merged(2., kNaN), Bits(Doubles{kNaN, kNaN}));
  EXPECT_EQ(merged(0., -0.), Bits(Doubles{-0., -0.}));
}

// A record of chance batches of these two values in turn, merged in a chance order, also by way of
// records that have no case yet.
VarStatData MergedAtRandom(std::mt19937& random, const Doubles& values, double weight) {
  WorkArea area = Area(-9.);
  std::vector<VarStatData> records(1 + random() % 60);
  const bool isWeighted = random() % 2 == 0;
  std::uniform_real_distribution<double> exponent(-10., 10.);
  for (VarStatData& record : records) {
    const Doubles weights(2, isWeighted ? weight * std::exp2(exponent(random)) : weight);
    VarStatData batch;
    batch.Init(values.data(), weights.data(), nullptr, area, 2);
    record.Update(batch);
  }
  while (records.size() > 1) {
    const std::size_t at = random() % (records.size() - 1);
    VarStatData other;
    other.Update(records[at + 1]);
    records[at].Update(random() % 8 == 0 ? other : records[at + 1]);
    records.erase(records.begin() + static_cast<std::ptrdiff_t>(at) + 1);
  }
  return records[0];
}

TEST(Varies, TellsASpreadFromWhatMergesLeaveOfEqualValues) {
  const struct {
    double x, y, weight;
  } cases[] = {{0., 0., 1.},
               {.1, .1, 1.},
               {-1. / 3., -1. / 3., .3},
               {1e15 + .3, 1e15 + .3, 1e12},
               {1e100, 1e100, 1e100},
               {1e150, 1e150, 1.},  // squares that overflow
               {1e-120, 1e-120, 1e-12},
               {3e-323, 3e-323, 1.},
               {0., 1e-120, 1.},
               {1e-120, 1.000001e-120, 1e12},
               {-1e-120, 1e-120, 1e-12},
               {.1, .1 + 1e-12, .3},
               {1e15, 1e15 + 1000., 1.},
               {1e100, 1.00001e100, 1e100},
               {0., 1e-309, 1e302}};
  std::mt19937 random(1);
  for (const auto& c : cases) {
    bool hasSquares = c.x == 0. || std::abs(c.x) < 1e-200;
    for (int i = 0; i < 300; ++i) {
      const VarStatData record = MergedAtRandom(random, {c.x, c.y}, c.weight);
      ASSERT_EQ(Varies(record._css, record._mean, record._regWeightSum), c.x != c.y)
          << c.x << " and " << c.y << ", " << record._css;
      hasSquares = hasSquares || record._css > 0.;
    }
    EXPECT_TRUE(hasSquares) << c.x;
  }
  EXPECT_FALSE(Varies(kNaN, 1., 1.) || Varies(1., kNaN, 1.));
}

TEST(Handles, OwnTheRecordThatTheyAreGiven) {
  auto* const record = new VarStatData();
  record->_nRows = 4;
  VarStat variable(record);
  EXPECT_EQ(variable.Data(), record);
  EXPECT_EQ(variable.NRows(), 4);
  auto* const pairRecord = new PairStatData();
  PairStat pair(pairRecord);
  pair.Data()->_cscp = 2.;
  EXPECT_EQ(pair.CSCP(), 2.);
  const VarStat nothing(nullptr);
  const PairStat nothingEither(nullptr);
}

}  // namespace
}  // namespace velmor::test
