// panels.cpp: panels from the columns of a batch.
#include "ordered/panels.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace velmor::ordered {

const Engine& EngineFor(std::size_t columns) {
  (void)columns;
  return Active();
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

void Panels::Center(std::size_t from, std::size_t rows, const double* means) const {
  for (std::size_t i = 0; i < _columns.count; ++i) {
    _engine->CenterColumn(_columns[i] + from, means[i], rows);
  }
}

void Panels::Pack(std::size_t from, std::size_t rows, const double* weights) {
  for (unsigned panel = 0; panel < _count; ++panel) {
    const std::size_t first = std::size_t{panel} * _engine->panel;
    std::array<const double*, kMaxPanel> columns{};
    for (std::size_t i = 0; i < _engine->panel; ++i) {
      columns[i] = _columns[std::min(first + i, _columns.count - 1)] + from;
    }
    _engine->Pack(columns.data(), rows, weights, _values + panel * Stride(),
                  _weighted != _values ? _weighted + panel * Stride() : nullptr);
  }
}

double MeanOf(const double* moments, std::size_t lanes, double weightSum) {
  const double runValue = moments[kRunValue * lanes];
  if (std::bit_cast<std::uint64_t>(moments[kRunEnded * lanes]) == 0) {
    return runValue;
  }
  return (moments[kSum * lanes] + moments[kRunWeight * lanes] * runValue) / weightSum;
}

}  // namespace velmor::ordered
