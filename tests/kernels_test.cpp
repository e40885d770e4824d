// The public kernels, records and arrays as a host uses them directly. Each line of
// golden/kernels.txt is a call and its results, to the bit.
#include <velmor/auto_array.h>
#include <velmor/kernels.h>
#include <velmor/owned_array.h>
#include <velmor/statistics.h>

#include "support.h"

#include <fstream>
#include <functional>
#include <map>

namespace velmor::test {
namespace {

using Doubles = std::vector<double>;

// A call's arguments, a number being an array of one.
struct Arguments : std::vector<Doubles> {
  double Number(std::size_t i) const { return at(i).at(0); }
  int Count(std::size_t i) const { return static_cast<int>(at(i).size()); }
  // Null for an empty array: there is none.
  const double* Data(std::size_t i) const { return at(i).empty() ? nullptr : at(i).data(); }
  std::vector<unsigned int> Groups(std::size_t i) const { return {at(i).begin(), at(i).end()}; }
};

Doubles Joined(const std::vector<Doubles>& arrays) {
  Doubles all;
  for (const Doubles& array : arrays) {
    all.push_back(static_cast<double>(array.size()));
    all.insert(all.end(), array.begin(), array.end());
  }
  return all;
}

// A record of so many columns of cases that are parted at the cuts: the first part's, updated by
// the others'.
template <class Handle>
Doubles MergedRecord(const Arguments& a, std::size_t columns) {
  WorkArea area;
  area._missingCode = a.Number(columns + 2);
  const auto recordOf = [&](int from, int to) {
    auto record = std::make_unique<Handle>();
    const auto data = [&](std::size_t i) { return a.Data(i) ? a.Data(i) + from : nullptr; };
    if constexpr (std::is_same_v<Handle, VarStat>) {
      record->Init(data(0), data(1), data(2), area, to - from);
    } else {
      record->Init(data(0), data(1), data(2), data(3), area, to - from);
    }
    return record;
  };
  std::vector<int> ends{0};
  for (std::size_t i = columns + 3; i < a.size(); ++i) {
    ends.push_back(static_cast<int>(a.Number(i)));
  }
  ends.push_back(a.Count(0));
  const auto merged = recordOf(0, ends[1]);
  for (std::size_t i = 2; i < ends.size(); ++i) {
    const std::unique_ptr<Handle> copy(merged->Copy());
    const Doubles before = Fields(*merged);
    merged->Update(*recordOf(ends[i - 1], ends[i]));
    EXPECT_EQ(Bits(Fields(*copy)), Bits(before)) << "a copy is one for good";
  }
  return Fields(*merged);
}

const std::map<std::string, std::function<Doubles(Arguments&)>> kCalls{
    {"Sum", [](auto& a) { return Doubles{Sum(a[0])}; }},
    {"WeightedSum",
     [](auto& a) { return Doubles{WeightedSum(a.Data(0), static_cast<int>(a.Number(1)))}; }},
    {"ProductSum",
     [](auto& a) {
       return Doubles{a.size() == 2 ? ProductSum(a[0], a[1]) : ProductSum(a[0], a[1], a[2])};
     }},
    {"CrossProduct", [](auto& a) { return Doubles{CrossProduct(a[0], a[1], a[2])}; }},
    {"CombineWeights",
     [](auto& a) {
       CombineWeights(a[0], a[1]);
       return a[0];
     }},
    {"WeightedMean", [](auto& a) { return Doubles{WeightedMean(a[0], a[1], a.Number(2))}; }},
    {"Maxs", [](auto& a) { return Doubles{Maxs(a[0])}; }},
    {"Mins", [](auto& a) { return Doubles{Mins(a[0])}; }},
    {"CenterData",
     [](auto& a) {
       CenterData(a[0], a.Number(1));
       return a[0];
     }},
    {"CopyNonmissing",
     [](auto& a) {
       std::vector<Doubles> out{{9.}, Doubles(20, 9.), {}};  // whatever was there is gone
       CopyNonmissing(a.Data(0), a.Data(1), a.Data(2), a.Number(3), a.Count(0), out[0], out[1],
                      out[2]);
       return Joined(out);
     }},
    {"CopyCompletePairs",
     [](auto& a) {
       std::vector<Doubles> out{{9.}, Doubles(20, 9.), {}, {9.}};
       CopyCompletePairs(a.Data(0), a.Data(1), a.Data(2), a.Data(3), a.Number(4), a.Count(0),
                         out[0], out[1], out[2], out[3]);
       return Joined(out);
     }},
    {"GroupWeightedSumX",
     [](auto& a) {
       Doubles& sums = a[3];
       Doubles& squares = a[4];
       const auto groups = a.Groups(1);
       a[2].empty()
           ? GroupWeightedSumX(a.Data(0), groups.data(), sums.data(), squares.data(), a.Count(0))
           : GroupWeightedSumX(a.Data(0), groups.data(), a.Data(2), sums.data(), squares.data(),
                               a.Count(0));
       sums.insert(sums.end(), squares.begin(), squares.end());
       return sums;
     }},
    {"WeightByGroup",
     [](auto& a) {
       const auto groups = a.Groups(0);
       double total = a.Number(3);
       a[1].empty() ? WeightByGroup(groups.data(), a[2], total, a.Count(0))
                    : WeightByGroup(groups.data(), a.Data(1), a[2], total, a.Count(0));
       a[2].push_back(total);
       return a[2];
     }},
    {"MeanDiff",
     [](auto& a) { return Doubles{MeanDiff(a.Number(0), a.Number(1), a.Number(2), a.Number(3))}; }},
    {"MatrixRow",
     [](auto& a) { return Doubles(1, MatrixRow(static_cast<unsigned int>(a.Number(0)))); }},
    {"VarStat", [](auto& a) { return MergedRecord<VarStat>(a, 1); }},
    {"PairStat", [](auto& a) { return MergedRecord<PairStat>(a, 2); }},
};

// The numbers and [arrays of numbers] of a text.
Arguments Parsed(const std::string& text) {
  Arguments arguments;
  bool isArray = false;
  for (const char* next = text.c_str(); *next != '\0';) {
    char* end = nullptr;
    const double number = std::strtod(next, &end);
    if (end != next) {
      isArray ? arguments.back().push_back(number) : arguments.push_back({number});
      next = end;
      continue;
    }
    if (*next == '[') {
      arguments.emplace_back();
    }
    isArray = *next == '[' || (isArray && *next != ']');
    ++next;
  }
  return arguments;
}

TEST(Kernels, HaveTheIndependentlyComputedResults) {
  std::ifstream lines(KERNELS);
  std::size_t cases = 0;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equals = line.find(" = ");
    if (equals == std::string::npos || line[0] == '#') {
      continue;
    }
    SCOPED_TRACE(line);
    const std::size_t parenthesis = line.find('(');
    Arguments arguments = Parsed(line.substr(parenthesis, equals - parenthesis));
    Doubles expected;
    for (const Doubles& result : Parsed(line.substr(equals + 3))) {
      expected.push_back(result[0]);
    }
    EXPECT_EQ(Bits(kCalls.at(line.substr(0, parenthesis))(arguments)), Bits(expected));
    ++cases;
  }
  EXPECT_GT(cases, 80U);
}

TEST(Kernels, CombineWeightsIntoTheCaseWeights) {
  Doubles w{2., 3.};
  const Doubles r{0.5, 10.};
  EXPECT_EQ(CombineWeights(static_cast<double*>(nullptr), nullptr, 2), nullptr);
  EXPECT_EQ(CombineWeights(nullptr, r.data(), 2U), r.data());
  EXPECT_EQ(CombineWeights(w.data(), nullptr, 2U), w.data());
  EXPECT_EQ(w, (Doubles{2., 3.}));
  EXPECT_EQ(CombineWeights(w.data(), r.data(), 2), w.data());
  EXPECT_EQ(w, (Doubles{1., 30.}));
  // An array of case weights that are none takes the others over.
  Doubles none;
  Doubles regWeights = r;
  CombineWeights(none, regWeights);
  EXPECT_EQ(std::pair(none, regWeights), std::pair(r, Doubles()));
  CombineWeights(none, regWeights);
  EXPECT_EQ(none, r);
}

TEST(Kernels, HaveExactSentinels) {
  EXPECT_EQ(Bits(minvalue), 0xffefdcf158adbb99U);
  EXPECT_EQ(Bits(maxvalue), 0x7fefdcf158adbb99U);
}

// A record of chance batches of these two values in turn, merged in a chance order, also by way of
// records that have no case yet.
VarStatData MergedAtRandom(std::mt19937& random, const Doubles& values, double weight) {
  WorkArea area;
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
    for (int i = 0; i < 100; ++i) {
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
  VarStat variable(record);
  EXPECT_EQ(variable.Data(), record);
  auto* const pairRecord = new PairStatData();
  PairStat pair(pairRecord);
  EXPECT_EQ(pair.Data(), pairRecord);
  const VarStat nothing(nullptr);
  const PairStat nothingEither(nullptr);
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
