// weights.cpp: which rows count, by their weights; start at WeightCheck::Take.
#include "summary/weights.h"

#include "table/columnvalues.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>
#include <string>

namespace velmor {
namespace {

// Rows that are looked at together. A multiple of 64, for bits in words.
constexpr std::size_t kStretch = 512;
using Stretch = std::array<double, kStretch>;

// Whether a weight, or a product of weights, is one that a row can count with.
bool Counts(double weight) { return 0. < weight && weight <= std::numeric_limits<double>::max(); }

// Reads one kind of weights; without any, each is 1.
void ReadWeights(const std::optional<ColumnView>& view, RowRange rows, Stretch& weights,
                 std::array<std::uint64_t, kStretch / 64>& absent) {
  if (view) {
    ReadColumns({&*view, 1}, rows, {weights.data(), 0, 1});
    MarkAbsent(*view, rows, weights.data(), absent.data());
  } else {
    std::fill_n(weights.begin(), rows.count, 1.);
  }
}

void CheckWeight(const ColumnView& view, std::uint64_t row, double weight, const char* name) {
  if (!(0. <= weight && weight <= std::numeric_limits<double>::max())) {
    throw std::invalid_argument("row " + std::to_string(row) + ", " + name + ": " +
                                Text(view, row) + "; a weight is neither negative nor infinite, " +
                                "and is a number that a double can be");
  }
}

}  // namespace

void WeightCheck::GoTo(std::uint64_t row) {
  while (_next < row && (_table.weights || _table.regWeights)) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kStretch, row - _next));
    Take(_next, count);
    _next += count;
  }
}

void WeightCheck::Take(std::uint64_t first, std::size_t count) {
  Stretch weights;     // NOLINT(*-member-init): as many are set as are read
  Stretch regWeights;  // NOLINT(*-member-init)
  std::array<std::uint64_t, kStretch / 64> absent{};
  ReadWeights(_table.weights, {first, count}, weights, absent);
  ReadWeights(_table.regWeights, {first, count}, regWeights, absent);
  std::size_t usual = 0;
  for (std::size_t i = 0; i < count; ++i) {
    usual +=
        Counts(weights[i]) && Counts(regWeights[i]) && Counts(weights[i] * regWeights[i]) ? 1U : 0U;
  }
  if (usual == count && absent == decltype(absent){}) {
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    TakeRow(first + i, (absent[i / 64] >> i % 64 & 1U) != 0, weights[i], regWeights[i]);
  }
}

void WeightCheck::TakeRow(std::uint64_t row, bool isAbsent, double weight, double regWeight) {
  if (_isSkipped && _isSkipped(row)) {
    return;
  }
  if (isAbsent) {
    ++_withoutWeight;
    return;
  }
  if (_table.weights) {
    CheckWeight(*_table.weights, row, weight, "case weights");
  }
  if (_table.regWeights) {
    CheckWeight(*_table.regWeights, row, regWeight, "regression weights");
  }
  if (weight == 0. || regWeight == 0.) {
    ++_weightless;
  } else if (!Counts(weight * regWeight)) {
    throw std::invalid_argument("row " + std::to_string(row) + ", weights: the product of " +
                                Text(weight) + " and " + Text(regWeight) +
                                " is no positive double; rescale the weights");
  }
}

}  // namespace velmor
