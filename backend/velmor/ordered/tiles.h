#pragma once

// Running sums of products in tiles, for the operations that go on strip of rows by strip of rows.

#include "ordered/cases.h"
#include "ordered/kernels/tuning.h"
#include "ordered/panels.h"
#include "ordered/workspace.h"

#include <algorithm>
#include <cstddef>

namespace velmor::ordered {

// Calls visit(first row, rows) for each strip of rows.
template <class Visit>
void ForEachStrip(std::size_t rows, Visit visit) {
  for (std::size_t from = 0; from < rows; from += kStripRows) {
    visit(from, std::min(kStripRows, rows - from));
  }
}

inline const double* From(const double* weights, std::size_t row) {
  return weights ? weights + row : nullptr;
}

// Running sums of products: tiles of `panel` by `panel` cells, one after the other.
class Tiles {
 public:
  Tiles(Workspace& workspace, std::size_t panel, std::size_t tiles)
      : _panel(panel), _cells(workspace.Take<double>(tiles * panel * panel)) {
    std::fill_n(_cells, tiles * panel * panel, 0.);
  }
  double* Tile(std::size_t tile) const { return _cells + tile * _panel * _panel; }
  // `count` cells of a tile's row.
  void Copy(std::size_t tile, std::size_t row, std::size_t count, double* to) const {
    std::copy_n(Tile(tile) + row * _panel, count, to);
  }

 private:
  std::size_t _panel;
  double* _cells;
};

// The products of all pairs of columns, row after row: of row i the cells of the first i + extra
// columns. Returns the start of the last row.
//   means  subtracted from the columns first, in place, unless null
//   visit  called as visit(panels, first row, rows) for each strip, when it is packed
template <class Visit>
double* TriangularProducts(Columns x, const double* means, Cases cases, std::size_t extra,
                           double* cells, Workspace& workspace, Visit visit) {
  Panels panels(EngineFor(x.count), x, cases.weights != nullptr, workspace);
  const std::size_t lanes = panels.UsedEngine().panel;
  const Tiles tiles(workspace, lanes, TriangleTile(panels.Count(), 0));
  ForEachStrip(cases.rows, [&](std::size_t from, std::size_t rows) {
    panels.Pack(from, rows, means, From(cases.weights, from));
    visit(panels, from, rows);
    AddTriangle(panels.UsedEngine(), x.count, panels.Values(0), panels.Weighted(0), panels.Stride(),
                rows, tiles.Tile(0));
  });
  double* row = cells;
  for (std::size_t i = 0; i < x.count; ++i) {
    row += i == 0 ? 0 : i - 1 + extra;
    const std::size_t length = i + extra;
    for (std::size_t j = 0; j < length; j += lanes) {
      tiles.Copy(TriangleTile(i / lanes, j / lanes), i % lanes, std::min(lanes, length - j),
                 row + j);
    }
  }
  return row;
}

}  // namespace velmor::ordered
