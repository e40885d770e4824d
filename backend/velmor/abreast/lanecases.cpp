// lanecases.cpp: counts, weights and masks of the lanes; start at LaneCases::Take.
#include "abreast/lanecases.h"

#include <algorithm>
#include <array>
#include <bit>

namespace velmor {

void FinishMeans(const ordered::Engine& engine, const double* moments, std::size_t columns,
                 const double* weightSums, double* means) {
  const std::size_t lanes = engine.lanes;
  for (std::size_t i = 0; i < columns * lanes; ++i) {
    const double* const fields = moments + i / lanes * ordered::kAbreastFields * lanes + i % lanes;
    const double first = fields[ordered::kAbreastRunValue * lanes];
    const double runWeight = fields[ordered::kAbreastRunWeight * lanes];
    const bool hasEnded =
        std::bit_cast<std::uint64_t>(fields[ordered::kAbreastRunEnded * lanes]) != 0;
    means[i] = hasEnded ? (fields[ordered::kAbreastSum * lanes] + runWeight * first) /
                              weightSums[i % lanes]
                        : first;
  }
}

LaneCases::LaneCases(const ordered::Engine& engine, const TableView& table, std::size_t rows,
                     ordered::Workspace& workspace)
    : _engine(engine),
      _hasWeights(table.weights.has_value()),
      _hasRegWeights(table.regWeights.has_value()),
      _counts(workspace.Take<std::uint64_t>(engine.lanes)),
      _weightSums(Vectors(1, workspace)),
      _regWeightSums(Vectors(1, workspace)),
      _weights(HasWeights() ? Vectors(rows, workspace) : nullptr),
      _caseWeights(HasBothWeights() ? Vectors(rows, workspace) : nullptr),
      _regWeights(Vectors(BlockReader::kPieceRows, workspace)),
      _used(Vectors(rows, workspace)),
      _areSomeLeftOut(workspace.Take<bool>(rows / BlockReader::kPieceRows + 1)) {}

void LaneCases::Start() {
  std::fill_n(_counts, _engine.lanes, std::uint64_t{0});
  std::fill_n(_weightSums, _engine.lanes, 0.);
  std::fill_n(_regWeightSums, _engine.lanes, 0.);
}

ordered::RowsAbreast LaneCases::Rows(std::size_t from, std::size_t count) const {
  const std::size_t at = from * _engine.lanes;
  return {count, HasWeights() ? _weights + at : nullptr,
          _areSomeLeftOut[from / BlockReader::kPieceRows] ? _used + at : nullptr};
}

void LaneCases::Take(const BlockReader& reader, std::size_t from, std::size_t count) {
  constexpr auto kAll = std::bit_cast<double>(~std::uint64_t{0});
  const std::size_t lanes = _engine.lanes;
  const std::size_t at = from * lanes;
  const auto leftOut = reader.LeftOut();
  bool& areSome = _areSomeLeftOut[from / BlockReader::kPieceRows];
  areSome =
      std::any_of(leftOut.begin(), leftOut.end(), [](std::uint64_t bits) { return bits != 0; });
  for (std::size_t lane = 0; lane < lanes; ++lane) {
    _counts[lane] += count - static_cast<std::size_t>(std::popcount(leftOut[lane]));
    for (std::size_t row = 0; areSome && row < count; ++row) {
      _used[at + row * lanes + lane] = (leftOut[lane] >> row & 1U) != 0 ? 0. : kAll;
    }
  }
  if (!HasWeights()) {
    return;
  }
  _engine.TurnAbreast(_hasWeights ? reader.Weights() : reader.RegWeights(), count, _weights + at);
  if (HasBothWeights()) {
    _engine.SumAbreast(Rows(from, count), _weightSums);
    std::copy_n(_weights + at, count * lanes, _caseWeights + at);
    _engine.TurnAbreast(reader.RegWeights(), count, _regWeights);
    for (std::size_t i = 0; i < count * lanes; ++i) {
      _weights[at + i] = _regWeights[i] * _weights[at + i];
    }
  }
  _engine.SumAbreast(Rows(from, count), _regWeightSums);
}

void LaneCases::Finish() {
  for (std::size_t lane = 0; lane < _engine.lanes; ++lane) {
    const auto count = static_cast<double>(_counts[lane]);
    if (!HasWeights()) {
      _regWeightSums[lane] = count;
    }
    if (!HasBothWeights()) {
      _weightSums[lane] = _hasRegWeights ? count : _regWeightSums[lane];
    }
  }
}

bool LaneCases::CanMerge() const {
  std::array<double, ordered::kMaxLanes> sums{};
  std::copy_n(_weightSums, _engine.lanes, sums.begin());
  for (std::size_t step = 1; step < _engine.lanes; step *= 2) {
    for (std::size_t lane = 0; lane < _engine.lanes; lane += 2 * step) {
      if (sums[lane] == 0. || sums[lane + step] == 0.) {
        return false;
      }
      sums[lane] = sums[lane + step] + sums[lane];
    }
  }
  return std::count(_counts, _counts + _engine.lanes, std::uint64_t{0}) == 0;
}

void LaneCases::Merge() {
  for (std::size_t step = 1; step < _engine.lanes; step *= 2) {
    for (std::size_t lane = 0; lane < _engine.lanes; lane += 2 * step) {
      _counts[lane] += _counts[lane + step];
      _weightSums[lane] = _weightSums[lane + step] + _weightSums[lane];
      _regWeightSums[lane] = _regWeightSums[lane + step] + _regWeightSums[lane];
    }
  }
}

}  // namespace velmor
