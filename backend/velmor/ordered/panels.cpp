// panels.cpp: panels from the columns of a batch.
#include "ordered/panels.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace velmor::ordered {

const Engine& EngineFor(std::size_t columns) {
  const Engine& active = Active();
  const bool areFew = 2 * columns <= std::size_t{3} * active.panel;
  return areFew && active.narrower != nullptr ? *active.narrower : active;
}

Panels::Panels(const Engine& engine, Columns columns, bool hasWeighted, Workspace& workspace)
    : _engine(&engine),
      _columns(columns),
      _count(static_cast<unsigned>((columns.count + engine.panel - 1) / engine.panel)),
      _values(workspace.Take<double>(_count * Stride())),
      _weighted(hasWeighted ? workspace.Take<double>(_count * Stride()) : _values) {}

unsigned Panels::ColumnsOf(unsigned panel) const {
  return std::min(_engine->panel,
                  static_cast<unsigned>(_columns.count - std::size_t{panel} * _engine->panel));
}

void Panels::Pack(std::size_t from, std::size_t rows, const double* means, const double* weights) {
  for (unsigned panel = 0; panel < _count; ++panel) {
    const std::array<double*, kMaxPanel> columns = ColumnsAt(panel, from);
    if (means != nullptr) {
      _engine->CenterColumns(columns.data(), ColumnsOf(panel), rows,
                             means + std::size_t{panel} * _engine->panel);
    }
    _engine->Pack(columns.data(), rows, weights, _values + panel * Stride(),
                  _weighted != _values ? _weighted + panel * Stride() : nullptr);
  }
}

std::array<double*, kMaxPanel> Panels::ColumnsAt(unsigned panel, std::size_t row) const {
  const std::size_t first = std::size_t{panel} * _engine->panel;
  std::array<double*, kMaxPanel> columns{};
  for (std::size_t i = 0; i < _engine->panel; ++i) {
    columns[i] = _columns[std::min(first + i, _columns.count - 1)] + row;
  }
  return columns;
}

double MeanOf(const double* moments, std::size_t lanes, double weightSum) {
  const double runValue = moments[kRunValue * lanes];
  if (std::bit_cast<std::uint64_t>(moments[kRunEnded * lanes]) == 0) {
    return runValue;
  }
  return (moments[kSum * lanes] + moments[kRunWeight * lanes] * runValue) / weightSum;
}

}  // namespace velmor::ordered
