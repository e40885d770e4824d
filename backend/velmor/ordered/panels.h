#pragma once

// Columns in panels, as the operations over blocks of columns prepare them for the kernels.

#include "ordered/cases.h"
#include "ordered/engine.h"
#include "ordered/kernels/tuning.h"
#include "ordered/workspace.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace velmor::ordered {

// The engine for a problem of so many columns: the active one, or its narrower one for few.
const Engine& EngineFor(std::size_t columns);

// Panels that so many columns fill.
constexpr std::size_t PanelsOf(const Engine& engine, std::size_t columns) {
  return (columns + engine.panel - 1) / engine.panel;
}

// The column in a place of the panels of so many columns: behind the last column, that one again.
constexpr std::size_t ColumnInPlace(std::size_t place, std::size_t columns) {
  return std::min(place, columns - 1);
}

// Columns of a batch, and one strip of their rows in panels. The last panel may have fewer columns
// than the others.
class Panels {
 public:
  // Takes the panels' memory.
  //   hasWeighted  whether there are also panels of weights times values; if not, Weighted gives
  //                the panels of values
  Panels(const Engine& engine, Columns columns, bool hasWeighted, Workspace& workspace);

  const Engine& UsedEngine() const { return *_engine; }
  unsigned Count() const { return _count; }
  std::size_t Stride() const { return kStripRows * _engine->panel; }  // from a panel to the next
  unsigned ColumnsOf(unsigned panel) const;
  const double* Values(unsigned panel) const { return _values + panel * Stride(); }
  const double* Weighted(unsigned panel) const { return _weighted + panel * Stride(); }

  // Fills the panels from a strip of rows.
  //   means    are first subtracted from the columns, in place, unless null. This is a step of its
  //            own for each panel: columns that are a power of two apart share a set of the
  //            first-level cache, and reading, writing and turning them at once takes longer than
  //            one after the other
  //   weights  of the strip's rows; null without weighted panels
  void Pack(std::size_t from, std::size_t rows, const double* means, const double* weights);

 private:
  // The addresses of a row in a panel's columns.
  std::array<double*, kMaxPanel> ColumnsAt(unsigned panel, std::size_t row) const;

  const Engine* _engine;
  Columns _columns;
  unsigned _count;
  double* _values;
  double* _weighted;
};

// The tiles of a triangle of panels, row by row.
constexpr std::size_t TriangleTile(std::size_t i, std::size_t j) { return i * (i + 1) / 2 + j; }

// Adds the products of a strip of rows to the tiles of all pairs of panels, each of panel^2 cells.
//   values, weighted  panels of so many columns, `stride` doubles apart
void AddTriangle(const Engine& engine, std::size_t columns, const double* values,
                 const double* weighted, std::size_t stride, std::size_t rows, double* tiles);

// The mean from a column's moments, whose fields are `lanes` doubles apart.
double MeanOf(const double* moments, std::size_t lanes, double weightSum);

}  // namespace velmor::ordered
