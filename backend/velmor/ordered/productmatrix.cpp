// productmatrix.cpp: blocks of columns in panels; start at CenteredProducts.
#include "ordered/productmatrix.h"

#include "ordered/engine.h"
#include "ordered/panels.h"
#include "ordered/tiles.h"
#include "ordered/workspace.h"

#include <algorithm>

namespace velmor::ordered {

double Moments(Columns x, Cases cases, double* means, double* mins, double* maxs) {
  const Engine& engine = EngineFor(x.count);
  const std::size_t lanes = engine.panel;
  const std::size_t panels = PanelsOf(engine, x.count);
  Workspace workspace;
  auto* const columns = workspace.Take<const double*>(panels * lanes);
  auto* const moments = workspace.Take<double>(panels * kMomentFields * lanes);
  for (std::size_t i = 0; i < panels * lanes; ++i) {
    columns[i] = x[ColumnInPlace(i, x.count)];
  }
  double weightSum = 0.;
  engine.ColumnMoments(columns, static_cast<unsigned>(panels), cases.rows, cases.weights, moments,
                       &weightSum);
  for (std::size_t i = 0; i < x.count; ++i) {
    const double* const ofColumn = moments + i / lanes * kMomentFields * lanes + i % lanes;
    means[i] = MeanOf(ofColumn, lanes, weightSum);
    if (mins != nullptr) {
      mins[i] = ofColumn[kMin * lanes];
      maxs[i] = ofColumn[kMax * lanes];
    }
  }
  return weightSum;
}

double* CenteredProducts(Columns x, const double* means, Cases cases, double* triangle) {
  Workspace workspace;
  return TriangularProducts(x, means, cases, 1, triangle, workspace,
                            [](const Panels&, std::size_t, std::size_t) {});
}

double* ProductsAndSums(Columns x, Cases cases, double* triangle, double* sums) {
  const Engine& engine = EngineFor(x.count);
  const std::size_t places = PanelsOf(engine, x.count) * engine.panel;
  Workspace workspace;
  auto* const panelSums = workspace.Take<double>(places);
  std::fill_n(panelSums, places, 0.);
  double* const lastRow = TriangularProducts(
      x, nullptr, cases, 1, triangle, workspace,
      [&](const Panels& panels, std::size_t from, std::size_t rows) {
        engine.PanelSums(panels.Values(0), panels.Count(), panels.Stride(), {rows, nullptr},
                         From(cases.weights, from), engine.panel, panelSums, nullptr);
      });
  std::copy_n(panelSums, x.count, sums);
  return lastRow;
}

double* RectangularProducts(Columns x, Columns y, const double* means, Cases cases, double* squares,
                            double* rectangle) {
  const Engine& engine = EngineFor(x.count + y.count);
  const std::size_t lanes = engine.panel;
  Workspace workspace;
  Panels first(engine, x, cases.weights != nullptr, workspace);
  Panels second(engine, y, false, workspace);
  const Tiles tiles(workspace, engine.panel, std::size_t{first.Count()} * second.Count());
  const std::size_t places = (first.Count() + second.Count()) * lanes;
  auto* const firstSquares = workspace.Take<double>(places);
  double* const secondSquares = firstSquares + first.Count() * lanes;
  std::fill_n(firstSquares, places, 0.);
  const auto addSquares = [&](const Panels& panels, std::size_t rows, const double* weights,
                              double* panelSquares) {
    engine.PanelSums(panels.Values(0), panels.Count(), panels.Stride(), {rows, nullptr}, weights,
                     lanes, nullptr, panelSquares);
  };
  ForEachStrip(cases.rows, [&](std::size_t from, std::size_t rows) {
    const double* const weights = From(cases.weights, from);
    first.Pack(from, rows, means, weights);
    addSquares(first, rows, weights, firstSquares);
    second.Pack(from, rows, means + x.count, nullptr);
    addSquares(second, rows, weights, secondSquares);
    for (unsigned j = 0; j < second.Count(); j += engine.tilePanels) {
      const unsigned panelsAtOnce = std::min(engine.tilePanels, second.Count() - j);
      for (unsigned i = 0; i < first.Count(); ++i) {
        engine.Products(first.Weighted(i), first.ColumnsOf(i), second.Values(j), panelsAtOnce,
                        second.Stride(), rows, tiles.Tile(std::size_t{i} * second.Count() + j));
      }
    }
  });
  std::copy_n(firstSquares, x.count, squares);
  std::copy_n(secondSquares, y.count, squares + x.count);
  double* row = rectangle;
  for (std::size_t i = 0; i < x.count; ++i, row += y.count) {
    for (std::size_t j = 0; j < y.count; j += lanes) {
      tiles.Copy(i / lanes * second.Count() + j / lanes, i % lanes, std::min(lanes, y.count - j),
                 row + j);
    }
  }
  return row;
}

}  // namespace velmor::ordered
