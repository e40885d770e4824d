// inputs.cpp: the golden table's cases; start at MakeInputs, below.
#include "inputs.h"

#include <iterator>
#include <string_view>

namespace velmor::test {
namespace {

// Numbers of a seed; the engine's are the standard's.
class Draw {
 public:
  explicit Draw(std::uint32_t seed) : _random(seed) {}

  std::uint64_t Below(std::uint64_t bound) { return _random() % bound; }
  bool Chance(std::uint64_t oneIn) { return Below(oneIn) == 0; }
  // A whole number of [from, to], times 2^exponent: exact, if the result has no more than 53 bits
  // and none below 2^-1074.
  double Scaled(int exponent, std::int64_t from, std::int64_t to) {
    const auto offset = Below(static_cast<std::uint64_t>(to - from + 1));
    return std::ldexp(static_cast<double>(from + static_cast<std::int64_t>(offset)), exponent);
  }

 private:
  std::mt19937_64 _random;
};

constexpr std::int64_t kMillion = std::int64_t{1} << 20U;

struct Values {
  const char* name;
  double (*value)(Draw& draw, int row, int column);
};

const Values kValues[] = {
    {"mixed-scales",
     [](Draw& draw, int row, int column) {
       constexpr int kExponents[] = {-20, 10, -45, 0, 30};
       return draw.Scaled(kExponents[column % 5] + row % 3, -kMillion, kMillion);
     }},
    {"leading-runs",
     [](Draw& draw, int row, int column) {
       constexpr int kLengths[] = {1, 193, 2, 7, 192, 8, 64};
       const bool isRun = row < kLengths[column % 7];
       return isRun ? std::ldexp(column + 1., -4) : draw.Scaled(-3, 0, 9);
     }},
    {"zeros",
     [](Draw& draw, int row, int column) {
       const double zero = draw.Chance(2) ? 0. : -0.;
       return row < 3 || draw.Chance(3) ? zero : draw.Scaled(-4, column % 2 - 8, 8);
     }},
    {"subnormal",
     [](Draw& draw, int /*row*/, int column) {
       constexpr int kExponents[] = {-1074, -1060, -537, -20};
       return draw.Scaled(kExponents[column % 4], -kMillion, kMillion);
     }},
    {"overflow",
     [](Draw& draw, int /*row*/, int column) {
       // Sums, squares, nothing.
       constexpr int kExponents[] = {1003, 490, -20};
       return draw.Scaled(kExponents[column % 3], 0, kMillion);
     }},
    {"large-means",
     [](Draw& draw, int /*row*/, int column) {
       return std::ldexp(1., 20 + column % 8) + draw.Scaled(-20, 0, kMillion);
     }},
    {"not-finite",
     [](Draw& draw, int row, int column) {
       const double special[] = {kInf, -kInf, kNaN};
       const bool isSpecial = column % 4 == 3 && (row == column / 4 || draw.Chance(20));
       return isSpecial ? special[column / 4 % 3] : draw.Scaled(-10, -1000, 1000);
     }},
};

struct Weights {
  const char* name;
  bool isWeighted, isRegWeighted, isLastBatchWeightless;
};

const Weights kWeights[] = {
    {"unweighted", false, false, false},        {"case-weights", true, false, false},
    {"regression-weights", false, true, false}, {"both-weights", true, true, false},
    {"weightless-batch", true, true, true},
};

Cases MakeCases(const Values& values, const Weights& weights, int rows, const Input& input,
                bool isWeightless, Draw& draw) {
  Cases cases;
  for (int row = 0; row < rows; ++row) {
    if (weights.isWeighted) {
      // Some weigh nothing, but never the first.
      const bool isZero = isWeightless || (row > 0 && draw.Chance(9));
      cases.weights.push_back(isZero ? 0. : draw.Scaled(-5, 1, 99));
    }
    if (weights.isRegWeighted) {
      cases.regWeights.push_back(draw.Scaled(-7, 1, 999));
    }
    cases.groups.push_back(static_cast<unsigned int>(draw.Below(kInputGroups)));
    auto& present = cases.rows.emplace_back();
    for (int column = 0; column < input.columns; ++column) {
      const double value = values.value(draw, row, column);
      const bool isMissing = column % 3 != 0 && draw.Chance(7);
      present.push_back(isMissing ? input.missingCode : value);
    }
  }
  return cases;
}

}  // namespace

std::vector<Input> MakeInputs() {
  constexpr int kColumns[] = {5, 3, 8, 1, 9, 4, 13, 2, 7};
  constexpr int kWide[] = {24, 41, 65};
  constexpr int kRows[] = {9, 1, 64, 200, 17, 2, 65, 8, 193, 31, 5};
  // Infinite and NaN codes are values to listwise accumulators, so they come with such values.
  constexpr double kCodes[] = {-999., 0.};
  constexpr double kSpecialCodes[] = {kInf, kNaN, -999.};
  std::vector<Input> inputs;
  for (const Values& values : kValues) {
    const bool isSpecial = values.name == std::string_view("not-finite");
    for (const Weights& weights : kWeights) {
      const std::size_t n = inputs.size();
      Draw draw(static_cast<std::uint32_t>(n));
      Input input;
      input.columns = n % 11 == 10 ? kWide[n / 11 % 3] : kColumns[n % std::size(kColumns)];
      input.missingCode = isSpecial ? kSpecialCodes[n % 3] : kCodes[n % 2];
      for (std::size_t i = 0; i < input.batches.size(); ++i) {
        const int rows = kRows[(3 * n + 5 * i) % std::size(kRows)];
        const bool isWeightless = weights.isLastBatchWeightless && i == 2;
        input.batches[i] = MakeCases(values, weights, rows, input, isWeightless, draw);
      }
      inputs.push_back(std::move(input));
    }
  }
  return inputs;
}

TypedTable::TypedTable(std::uint32_t seed) : _rows(kRows) {
  Draw draw(seed);
  constexpr std::uint64_t kMost = std::uint64_t{1} << 53U;  // that a double can count to
  for (Row& row : _rows) {
    row.number =
        draw.Chance(9) ? kNaN : draw.Scaled(draw.Chance(2) ? -30 : 12, -kMillion, kMillion);
    row.single = static_cast<float>(draw.Scaled(-40, 0, kMillion));
    row.int8 = static_cast<std::int8_t>(draw.Scaled(0, -100, 100));
    row.int64 = static_cast<std::int64_t>(draw.Below(kMost)) - static_cast<std::int64_t>(kMost / 2);
    row.uint64 = draw.Below(kMost) << 11U;
    row.truth = draw.Chance(3);
    row.weight = draw.Chance(30) ? -1. : draw.Scaled(-5, 1, 99);
    row.regWeight = static_cast<float>(draw.Scaled(-7, 1, 999));
    row.group = static_cast<std::uint16_t>(draw.Below(kInputGroups));
  }
}

TableView TypedTable::View() const {
  const Row& first = _rows[0];
  const auto column = [](const auto& value) { return ColumnView(&value, sizeof(Row)); };
  TableView table;
  table.rows = kRows;
  table.values = {column(first.number), column(first.single), column(first.int8),
                  column(first.int64),  column(first.uint64), column(first.truth)};
  table.values[0].nanIsAbsent = true;
  table.values[2].absentCodes = {-100., 7.};
  table.weights = column(first.weight);
  table.weights->absentCodes = {-1.};
  table.regWeights = column(first.regWeight);
  table.groups = column(first.group);
  return table;
}

}  // namespace velmor::test
