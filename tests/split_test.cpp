// However cases are split into batches, parts and threads, results are within the bounds that
// docs/accuracy.md derives ("Any split of the cases"), also where data are badly scaled.
#include <velmor/velmor.h>

#include "cases.h"
#include "proof.h"

#include <bit>
#include <random>

namespace velmor::test {
namespace {

constexpr double kUnit = 0x1p-53;
constexpr double kMissing = -7e77;
constexpr unsigned int kColumns = 4;

// What the bounds of a split depend on.
struct Split {
  std::size_t batchRows = 0;  // most cases in a batch
  std::size_t merges = 0;     // most merges that a batch's result passes through

  double Roundings() const { return static_cast<double>(batchRows + merges) + 5.; }
};

// A column over the cases that count: its exact mean, as far as 64 bits tell, and what bounds
// depend on.
struct Variable {
  long double mean = 0.;
  double most = 0., range = 0., deviation = 0.;

  double MeanBound(const Split& split) const {
    const double k = split.Roundings();
    return kUnit * (2. * k * most + static_cast<double>(split.merges) * k * range);
  }
};

// Two columns over the cases in which both are present.
struct Exact {
  Exact(const Cases& cases, std::size_t columnX, std::size_t columnY) {
    std::vector<std::array<long double, 3>> all;  // weight, x, y
    for (std::size_t i = 0; i < cases.rows.size(); ++i) {
      const double valueX = cases.rows[i][columnX];
      const double valueY = cases.rows[i][columnY];
      if (valueX != kMissing && valueY != kMissing) {
        const long double u = static_cast<long double>(cases.weights[i]) * cases.regWeights[i];
        all.push_back({u, valueX, valueY});
      }
    }
    const auto sum = [&all](auto term) {
      long double total = 0.;
      for (const auto& [u, a, b] : all) {
        total += u * term(a, b);
      }
      return total;
    };
    weight = sum([](auto, auto) { return 1.L; });
    x.mean = sum([](auto a, auto) { return a; }) / weight;
    y.mean = sum([](auto, auto b) { return b; }) / weight;
    product = sum([&](auto a, auto b) { return (a - x.mean) * (b - y.mean); });
    const auto square = [](long double distance) { return distance * distance; };
    x.deviation = Root(sum([&](auto a, auto) { return square(a - x.mean); }));
    y.deviation = Root(sum([&](auto, auto b) { return square(b - y.mean); }));
    for (const std::size_t place : {1U, 2U}) {
      const auto [low, high] = std::minmax_element(
          all.begin(), all.end(),
          [place](const auto& a, const auto& b) { return a[place] < b[place]; });
      Variable& variable = place == 1 ? x : y;
      variable.range = static_cast<double>((*high)[place] - (*low)[place]);
      variable.most =
          static_cast<double>(std::max(std::fabs((*high)[place]), std::fabs((*low)[place])));
    }
  }
  double Root(long double squares) const {
    return static_cast<double>(std::sqrt(squares / weight));
  }

  double ProductBound(const Split& split) const {
    const auto h = static_cast<double>(split.merges);
    const double ex = x.MeanBound(split);
    const double ey = y.MeanBound(split);
    return static_cast<double>(weight) *
           (kUnit * (h + 1.) * (split.Roundings() + 2.) * x.deviation * y.deviation +
            std::sqrt(2. * h) * (ex * y.deviation + ey * x.deviation) + (h + 1.) * ex * ey);
  }

  long double weight, product;
  Variable x, y;
};

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

// Accumulates the cases as parts of some batches each, and merges neighbours as chance has it.
template <class Accumulator, class Make>
Split AccumulateParts(const Cases& cases, std::size_t batchRows, Make make, std::mt19937& random,
                      std::unique_ptr<Accumulator>& sum) {
  struct Part {
    std::unique_ptr<Accumulator> accumulator;
    std::size_t merges = 0;
  };
  std::vector<Part> parts;
  for (std::size_t from = 0; from < cases.rows.size(); from += batchRows) {
    if (parts.empty() || random() % 3 == 0) {
      parts.push_back({make()});
    }
    const std::size_t to = std::min(cases.rows.size(), from + batchRows);
    *parts.back().accumulator += *Batch(cases.Slice(from, to), kColumns);
    ++parts.back().merges;
  }
  while (parts.size() > 1) {
    const auto left = parts.begin() + static_cast<std::ptrdiff_t>(random() % (parts.size() - 1));
    *left->accumulator += *left[1].accumulator;
    left->merges = std::max(left->merges, left[1].merges) + 1;
    parts.erase(left + 1);
  }
  sum = std::move(parts[0].accumulator);
  return {batchRows, parts[0].merges};
}

// Calls check(accumulator, split) with the cases accumulated in many ways. Returns how many.
template <class Make, class Check>
std::size_t InEveryWay(const Cases& cases, std::mt19937& random, Make make, Check check) {
  const CaseTable table(cases, kColumns, {kMissing});
  const std::size_t all = cases.rows.size();
  std::size_t ways = 0;
  for (const std::size_t batchRows : {std::size_t{1}, std::size_t{3}, std::size_t{40}, all}) {
    for (int repeat = 0; repeat < 3; ++repeat, ++ways) {
      auto sum = make();
      const Split split = AccumulateParts(cases, batchRows, make, random, sum);
      check(*sum, split);
    }
    const int threads = 1 + static_cast<int>(random() % 4);
    const auto blocks = (all + batchRows - 1) / batchRows;
    check(*Accumulate(table.View(), *make(), {batchRows, 0, threads, {}}).Result(),
          {batchRows, static_cast<std::size_t>(std::bit_width(blocks - 1))});
    ++ways;
  }
  return ways;
}

double Error(double value, long double exact) {
  return static_cast<double>(std::fabs(static_cast<long double>(value) - exact));
}

// Returns how many results were compared.
template <class Accumulator, class... Code>
std::size_t ExpectWithinBounds(std::uint32_t seed, Code... missingCode) {
  constexpr bool kIsPairwise = sizeof...(missingCode) != 0;
  std::mt19937 random(seed);
  const Cases cases = BadlyScaled(600, kIsPairwise, random);
  const auto make = [&] { return std::make_unique<Accumulator>(missingCode...); };
  std::size_t ways = 0;
  for (int row = 0; row < int{kColumns}; ++row) {
    for (int col = 0; col < (kIsPairwise ? row : row + 1); ++col) {
      SCOPED_TRACE(testing::Message() << "columns " << row << ", " << col << ", seed " << seed);
      const Exact exact(cases, static_cast<std::size_t>(row), static_cast<std::size_t>(col));
      const auto check = [&](const Split& split, double weight, double mean, double product) {
        EXPECT_LE(Error(weight, exact.weight), kUnit * split.Roundings() * weight);
        EXPECT_LE(Error(mean, exact.x.mean), exact.x.MeanBound(split));
        EXPECT_LE(Error(product, exact.product), exact.ProductBound(split));
      };
      ways += InEveryWay(cases, random, make, [&](const Accumulator& a, const Split& split) {
        if constexpr (kIsPairwise) {
          const PairStat& pair = a.Pair(row, col);
          check(split, pair.RegWeightSum(), pair.Mean0(), pair.CSCP());
        } else {
          check(split, a.RegWeightSum(), a.Mean(row), a.CCP(row, col));
        }
      });
    }
  }
  return 3 * ways;
}

TEST(Splits, GiveResultsWithinTheirBounds) {
  std::size_t figures = ExpectWithinBounds<SMatrixPairwise>(4, kMissing);
  for (const std::uint32_t seed : {1U, 2U, 3U}) {
    figures += ExpectWithinBounds<SMatrixListwise>(seed);
  }
  CountCases("accuracy: splits within their bounds", figures);
}

// The bounds tell something: the textbook's formula is beyond those of a single batch.
TEST(Splits, TheOnePassFormulaIsNotWithinThem) {
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
  const Exact exact(cases, 0, 0);
  EXPECT_GT(Error(squares - sum * sum / weight, exact.product),
            exact.ProductBound({cases.rows.size()}));
}

}  // namespace
}  // namespace velmor::test
