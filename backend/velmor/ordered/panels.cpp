// panels.cpp: panels from the columns of a batch.
#include "ordered/panels.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace velmor::ordered {

const Engine& EngineFor(std::size_t columns) {
  const Engine& active = Active();
  return columns <= active.fewColumns ? *active.narrower : active;
}

Panels::Panels(const Engine& engine, Columns columns, bool hasWeighted, Workspace& workspace)
    : _engine(&engine),
      _columns(columns),
      _count(static_cast<unsigned>(PanelsOf(engine, columns.count))),
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
    columns[i] = _columns[ColumnInPlace(first + i, _columns.count)] + row;
  }
  return columns;
}

// The panels of a tile's columns stay in the first-level cache while those of its rows come from
// the second-level cache, where as many rows as are resident stay while all columns pass by.
void AddTriangle(const Engine& engine, std::size_t columns, const double* values,
                 const double* weighted, std::size_t stride, std::size_t rows, double* tiles) {
  const std::size_t lanes = engine.panel;
  const std::size_t count = PanelsOf(engine, columns);
  const std::size_t resident = kResidentColumns / lanes;
  const auto tile = [=](std::size_t i, std::size_t j) {
    return tiles + TriangleTile(i, j) * lanes * lanes;
  };
  for (std::size_t from = 0; from < count; from += resident) {
    const std::size_t to = std::min(count, from + resident);
    for (std::size_t j = 0; j < to; j += engine.tilePanels) {
      for (std::size_t i = std::max(from, j); i < to; ++i) {
        const auto width = static_cast<unsigned>(std::min(lanes, columns - i * lanes));
        const std::size_t end = engine.narrowsDiagonals ? i : i + 1;
        const auto panels =
            static_cast<unsigned>(std::min<std::size_t>(engine.tilePanels, end - j));
        if (panels > 0) {
          engine.Products(weighted + i * stride, width, values + j * stride, panels, stride, rows,
                          tile(i, j));
        }
        if (engine.narrowsDiagonals && panels < engine.tilePanels) {
          engine.DiagonalProducts(weighted + i * stride, width, values + i * stride, rows,
                                  tile(i, i));
        }
      }
    }
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
