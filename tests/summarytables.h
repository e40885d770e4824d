#pragma once

// Tables for summaries: every kind of mark and of weights, in pieces.

#include <velmor/velmor.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace velmor::test {

using Bytes = std::vector<std::byte>;

// Columns that are paired or not, missing values treated one way or the other, and so on.
inline SummaryDefinition MixedDefinition(MissingRule missing, std::size_t firstSide,
                                         bool hasWeights, bool hasRegWeights,
                                         std::uint64_t blockRows) {
  return {{{"double", {99., -9.}, true},
           {"float", {0.1}, false},
           {"int16", {7.}, true},
           {"größe", {}, true},
           {"byte", {}, false}},
          firstSide,
          missing,
          hasWeights,
          hasRegWeights,
          blockRows};
}

// Rows for MixedDefinition. Some values are missing by a code, by NaN, or by a bitmap.
class MixedTable {
 public:
  explicit MixedTable(std::size_t rows, std::uint32_t seed = 1) : _validity(rows / 8 + 1) {
    std::mt19937 random(seed);
    const auto one = [&random](unsigned of) { return random() % of == 0; };
    for (std::size_t i = 0; i < rows; ++i) {
      const double x = static_cast<double>(random() % 1000) / 7.;
      _doubles.push_back(one(9) ? (one(2) ? 99. : -9.) : x);
      _doubles.back() = one(9) ? std::numeric_limits<double>::quiet_NaN() : _doubles.back();
      _floats.push_back(one(9) ? 0.1F : static_cast<float>(x * 3.));
      _shorts.push_back(static_cast<std::int16_t>(random() % 30));
      _exact.push_back(x - static_cast<double>(random() % 100));
      _bytes.push_back(static_cast<std::uint8_t>(random()));
      _weights.push_back(one(9) ? 0. : static_cast<double>(1 + random() % 64) / 8.);
      _regWeights.push_back(one(9) ? -99.F : one(9) ? 0.F : static_cast<float>(1 + random() % 9));
      _validity[i / 8] |= static_cast<std::uint8_t>((one(9) ? 0U : 1U) << i % 8);
    }
  }

  // Rows [from, to), with the weights that the definition has.
  TableView View(const SummaryDefinition& definition, std::size_t from, std::size_t to) const {
    TableView table;
    table.rows = to - from;
    table.values.emplace_back(_doubles.data() + from);
    table.values.emplace_back(_floats.data() + from);
    table.values.emplace_back(_shorts.data() + from);
    table.values.emplace_back(_exact.data() + from);
    table.values.emplace_back(_bytes.data() + from);
    table.values[3].validity = _validity.data();
    table.values[3].validityOffset = from;
    if (definition.hasWeights) {
      table.weights.emplace(_weights.data() + from);
    }
    if (definition.hasRegWeights) {
      table.regWeights.emplace(_regWeights.data() + from).absentCodes = {-99.};
    }
    return table;
  }

  // What the definition adds to the views, for Accumulate.
  TableView Marked(const SummaryDefinition& definition, std::size_t from, std::size_t to) const {
    TableView table = View(definition, from, to);
    for (std::size_t i = 0; i < table.values.size(); ++i) {
      table.values[i].nanIsAbsent = definition.columns[i].nanIsMissing;
      table.values[i].absentCodes = definition.columns[i].missingCodes;
    }
    table.values[1].absentCodes = {0.1F};
    for (auto* const weights : {&table.weights, &table.regWeights}) {
      if (*weights) {
        (*weights)->absentCodes.push_back(0.);
      }
    }
    return table;
  }

 private:
  std::vector<double> _doubles;
  std::vector<float> _floats;
  std::vector<std::int16_t> _shorts;
  std::vector<double> _exact;
  std::vector<std::uint8_t> _bytes;
  std::vector<double> _weights;
  std::vector<float> _regWeights;
  std::vector<std::uint8_t> _validity;
};

// The accumulator that a summary's rows go into.
inline std::unique_ptr<MatrixBase> AccumulatorFor(const SummaryDefinition& definition) {
  const int columns = static_cast<int>(definition.columns.size());
  const int first = static_cast<int>(definition.firstSide);
  constexpr double kCode = std::numeric_limits<double>::lowest();
  if (definition.missing == MissingRule::Pairwise) {
    return first != 0 ? std::unique_ptr<MatrixBase>(
                            std::make_unique<NSMatrixPairwise>(kCode, 0, first, columns))
                      : std::make_unique<SMatrixPairwise>(kCode, 0, columns);
  }
  return first != 0
             ? std::unique_ptr<MatrixBase>(std::make_unique<NSMatrixListwise>(0, first, columns))
             : std::make_unique<SMatrixListwise>(0, columns);
}

// The statistics in a saved summary of one part, as an accumulator's state; none while no row is
// used.
inline Bytes StatisticsIn(const Bytes& summary, std::size_t size) {
  const std::ptrdiff_t hash = 8;
  return summary.size() < size + 8 ? Bytes()
                                   : Bytes(summary.end() - hash - static_cast<std::ptrdiff_t>(size),
                                           summary.end() - hash);
}

}  // namespace velmor::test
