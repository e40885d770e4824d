// However cases are split into batches, parts and threads, results are within the bounds that
// docs/accuracy.md derives ("Any split of the cases"), also where data are badly scaled.
#include <velmor/velmor.h>

#include "proof.h"
#include "support.h"

#include <bit>

namespace velmor::test {
namespace {

constexpr double kUnit = 0x1p-53;
constexpr double kMissing = -7e77;
constexpr unsigned int kColumns = 4;

// The statistics of two columns over the cases in which both are present, in two passes and in
// extended precision.
struct PairMoments {
  long double weightSum = 0.;
  long double mean0 = 0.;
  long double mean1 = 0.;
  long double cscp = 0.;
};

PairMoments TwoPasses(const Cases& cases, std::size_t column0, std::size_t column1) {
  const auto forEach = [&](auto use) {
    for (std::size_t i = 0; i < cases.rows.size(); ++i) {
      const double x = cases.rows[i][column0];
      const double y = cases.rows[i][column1];
      if (x != kMissing && y != kMissing) {
        use(x, y, static_cast<long double>(cases.weights[i]) * cases.regWeights[i]);
      }
    }
  };
  PairMoments m;
  forEach([&m](double x, double y, long double u) {
    m.weightSum += u;
    m.mean0 += u * x;
    m.mean1 += u * y;
  });
  m.mean0 /= m.weightSum;
  m.mean1 /= m.weightSum;
  forEach([&m](double x, double y, long double u) { m.cscp += u * (x - m.mean0) * (y - m.mean1); });
  return m;
}

// What the bounds of a split depend on.
struct Split {
  std::size_t batchRows = 0;  // most cases in a batch
  std::size_t merges = 0;     // most merges that a batch's result passes through

  double Roundings() const { return static_cast<double>(batchRows + merges) + 5.; }
};

// The exact results of two columns, as far as 64 bits tell, and what their bounds depend on.
struct Exact {
  PairMoments moments;
  double mostX = 0., mostY = 0.;  // magnitudes
  double rangeX = 0., rangeY = 0.;
  double deviationX = 0., deviationY = 0.;

  static double MeanBound(const Split& split, double most, double range) {
    const double k = split.Roundings();
    return kUnit * (2. * k * most + static_cast<double>(split.merges) * k * range);
  }
  double MeanBoundX(const Split& split) const { return MeanBound(split, mostX, rangeX); }
  double ProductBound(const Split& split) const {
    const auto h = static_cast<double>(split.merges);
    const double ex = MeanBound(split, mostX, rangeX);
    const double ey = MeanBound(split, mostY, rangeY);
    return static_cast<double>(moments.weightSum) *
           (kUnit * (h + 1.) * (split.Roundings() + 2.) * deviationX * deviationY +
            std::sqrt(2. * h) * (ex * deviationY + ey * deviationX) + (h + 1.) * ex * ey);
  }
};

Exact ExactOf(const Cases& cases, std::size_t x, std::size_t y) {
  const auto deviation = [](const PairMoments& m) {
    return static_cast<double>(std::sqrt(m.cscp / m.weightSum));
  };
  Exact exact;
  exact.moments = TwoPasses(cases, x, y);
  Cases both;
  for (std::size_t i = 0; i < cases.rows.size(); ++i) {
    const auto& row = cases.rows[i];
    if (row[x] != kMissing && row[y] != kMissing) {
      both.rows.push_back(row);
      both.weights.push_back(cases.weights[i]);
      both.regWeights.push_back(cases.regWeights[i]);
    }
  }
  const auto span = [&both](std::size_t column, double& most, double& range) {
    const auto [low, high] = std::minmax_element(
        both.rows.begin(), both.rows.end(),
        [column](const auto& a, const auto& b) { return a[column] < b[column]; });
    range = (*high)[column] - (*low)[column];
    most = std::max(std::fabs((*high)[column]), std::fabs((*low)[column]));
  };
  span(x, exact.mostX, exact.rangeX);
  span(y, exact.mostY, exact.rangeY);
  exact.deviationX = deviation(TwoPasses(both, x, x));
  exact.deviationY = deviation(TwoPasses(both, y, y));
  return exact;
}

// Large means beside small spreads, very different scales, a drift, outliers; weights of many
// sizes.
Cases BadlyScaled(std::size_t rows, bool hasMissing, std::mt19937& random) {
  std::normal_distribution<double> normal;
  const auto positive = [&] {
    return std::exp2(std::uniform_real_distribution<>(-20., 20.)(random));
  };
  Cases cases;
  for (std::size_t i = 0; i < rows; ++i) {
    const double drift = static_cast<double>(i) / static_cast<double>(rows);
    std::vector<double> row{1e9 + normal(random), 1e-120 * (normal(random) - 1e6 * drift),
                            random() % 50 == 0 ? 1e12 * normal(random) : normal(random),
                            -1e5 + drift + 1e-3 * normal(random)};
    for (double& value : row) {
      value = hasMissing && random() % 10 == 0 ? kMissing : value;
    }
    cases.rows.push_back(std::move(row));
    cases.weights.push_back(positive());
    cases.regWeights.push_back(positive());
  }
  return cases;
}

// NOLINTBEGIN(misc-no-recursion): a tree
// Accumulates cases [from, to) as a tree of parts that chance shapes, each of some batches.
template <class Accumulator, class Make>
Split AccumulateTree(const Cases& cases, std::size_t from, std::size_t to, std::size_t batchRows,
                     Make make, std::mt19937& random, Accumulator& sum) {
  if (to - from > 2 * batchRows && random() % 4 != 0) {
    const std::size_t middle = from + 1 + random() % (to - from - 1);
    const auto right = make();
    const Split a = AccumulateTree(cases, from, middle, batchRows, make, random, sum);
    const Split b = AccumulateTree(cases, middle, to, batchRows, make, random, *right);
    sum += *right;
    return {std::max(a.batchRows, b.batchRows), std::max(a.merges, b.merges) + 1};
  }
  Split split{batchRows, 0};
  for (; from < to; from += batchRows, ++split.merges) {
    sum += *Batch(cases.Slice(from, std::min(to, from + batchRows)), kColumns);
  }
  return split;
}

// NOLINTEND(misc-no-recursion)

TableView View(const Cases& cases, std::vector<double>& values) {
  values.clear();
  for (const auto& row : cases.rows) {
    values.insert(values.end(), row.begin(), row.end());
  }
  TableView table;
  table.rows = cases.rows.size();
  for (std::size_t column = 0; column < kColumns; ++column) {
    table.values.emplace_back(&values[column], std::ptrdiff_t{kColumns * sizeof(double)});
    table.values.back().absentCodes = {kMissing};
  }
  table.weights = ColumnView(cases.weights.data());
  table.regWeights = ColumnView(cases.regWeights.data());
  return table;
}

class SplitTest : public testing::Test {
 protected:
  // Calls check(accumulator, split) with the cases accumulated in many ways.
  template <class Make, class Check>
  static void InEveryWay(const Cases& cases, std::mt19937& random, Make make, Check check) {
    for (const std::size_t batchRows :
         {std::size_t{1}, std::size_t{3}, std::size_t{40}, cases.rows.size()}) {
      for (int trees = 0; trees < 3; ++trees) {
        const auto sum = make();
        check(*sum, AccumulateTree(cases, 0, cases.rows.size(), batchRows, make, random, *sum));
      }
      std::vector<double> values;
      AccumulateOptions options;
      options.blockRows = batchRows;
      options.threads = 1 + static_cast<int>(random() % 4);
      const auto blocks = (cases.rows.size() + batchRows - 1) / batchRows;
      check(*Accumulate(View(cases, values), *make(), options).Result(),
            {batchRows, static_cast<std::size_t>(std::bit_width(blocks - 1))});
    }
  }

  // Of errors over bounds; at most 1.
  static void Check(double error, double bound) {
    ++figures;
    EXPECT_LE(std::fabs(error), bound);
  }
  static void TearDownTestSuite() { CountCases("accuracy: splits within their bounds", figures); }

 private:
  static inline std::size_t figures = 0;
};

double Difference(double value, long double exact) {
  return static_cast<double>(static_cast<long double>(value) - exact);
}

TEST_F(SplitTest, ListwiseResultsAreWithinTheirBounds) {
  for (const std::uint32_t seed : {1U, 2U, 3U}) {
    std::mt19937 random(seed);
    const Cases cases = BadlyScaled(700, false, random);
    const auto make = [] { return std::make_unique<SMatrixListwise>(0, int{kColumns}); };
    for (int x = 0; x < int{kColumns}; ++x) {
      for (int y = 0; y <= x; ++y) {
        SCOPED_TRACE(testing::Message() << "columns " << x << ", " << y << ", seed " << seed);
        const Exact exact =
            ExactOf(cases, static_cast<std::size_t>(x), static_cast<std::size_t>(y));
        InEveryWay(cases, random, make, [&](const SMatrixListwise& a, const Split& split) {
          Check(Difference(a.Mean(x), exact.moments.mean0), exact.MeanBoundX(split));
          Check(Difference(a.CCP(x, y), exact.moments.cscp), exact.ProductBound(split));
          Check(Difference(a.RegWeightSum(), exact.moments.weightSum),
                kUnit * split.Roundings() * a.RegWeightSum());
        });
      }
    }
  }
}

TEST_F(SplitTest, PairwiseResultsAreWithinTheirBounds) {
  std::mt19937 random(4);
  const Cases cases = BadlyScaled(500, true, random);
  const auto make = [] { return std::make_unique<SMatrixPairwise>(kMissing, 0, int{kColumns}); };
  for (int x = 1; x < int{kColumns}; ++x) {
    for (int y = 0; y < x; ++y) {
      SCOPED_TRACE(testing::Message() << "columns " << x << ", " << y);
      const Exact exact = ExactOf(cases, static_cast<std::size_t>(x), static_cast<std::size_t>(y));
      InEveryWay(cases, random, make, [&](const SMatrixPairwise& a, const Split& split) {
        Check(Difference(a.Pair(x, y).Mean0(), exact.moments.mean0), exact.MeanBoundX(split));
        Check(Difference(a.Pair(x, y).CSCP(), exact.moments.cscp), exact.ProductBound(split));
      });
    }
  }
}

// The bounds tell something: the textbook's formula is beyond those of a single batch.
TEST_F(SplitTest, TheOnePassFormulaIsNotWithinThem) {
  std::mt19937 random(5);
  const Cases cases = BadlyScaled(700, false, random);
  double weight = 0.;
  double sum = 0.;
  double squares = 0.;
  for (std::size_t i = 0; i < cases.rows.size(); ++i) {
    const double u = cases.weights[i] * cases.regWeights[i];
    weight += u;
    sum += u * cases.rows[i][0];
    squares += u * cases.rows[i][0] * cases.rows[i][0];
  }
  const Exact exact = ExactOf(cases, 0, 0);
  EXPECT_GT(std::fabs(Difference(squares - sum * sum / weight, exact.moments.cscp)),
            exact.ProductBound({cases.rows.size(), 0}));
}

}  // namespace
}  // namespace velmor::test
