// columns.cpp: blocks of columns in panels, and rows of cells; start at SymmetricProducts.
#include "ordered/columns.h"

#include "ordered/chains.h"
#include "ordered/engine.h"
#include "ordered/panels.h"
#include "ordered/workspace.h"

#include <algorithm>
#include <array>
#include <utility>

namespace velmor::ordered {
namespace {

// Columns whose panels of a block of rows take less than half of a second-level cache of half a
// megabyte.
constexpr unsigned kResidentColumns = 128;

// Calls visit(first row, rows) for each block of rows.
template <class Visit>
void ForEachBlock(std::size_t rows, Visit visit) {
  for (std::size_t from = 0; from < rows; from += kBlockRows) {
    visit(from, std::min(kBlockRows, rows - from));
  }
}

const double* From(const double* weights, std::size_t row) {
  return weights ? weights + row : nullptr;
}

// Running sums of products, a tile of panel by panel after the other.
class Tiles {
 public:
  Tiles(Workspace& workspace, unsigned panel, std::size_t tiles)
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

// The tiles of a triangle of panels, row by row.
std::size_t TriangleTile(std::size_t i, std::size_t j) { return i * (i + 1) / 2 + j; }

// Adds a block of rows to the tiles of all pairs of panels. The panels of a tile's columns stay in
// the first-level cache while those of its rows come from the second-level cache, where as many
// rows as are resident stay while all columns pass by.
void AddTriangle(const Panels& x, std::size_t rows, const Tiles& tiles) {
  const Engine& engine = x.UsedEngine();
  const unsigned resident = kResidentColumns / engine.panel;
  for (unsigned from = 0; from < x.Count(); from += resident) {
    const unsigned to = std::min(x.Count(), from + resident);
    for (unsigned j = 0; j < to; j += engine.tilePanels) {
      for (unsigned i = std::max(from, j); i < to; ++i) {
        const unsigned panels = std::min(engine.tilePanels, i - j);
        if (panels > 0) {
          engine.Products(x.Weighted(i), x.ColumnsOf(i), x.Values(j), panels, x.Stride(), rows,
                          tiles.Tile(TriangleTile(i, j)));
        }
        if (panels < engine.tilePanels) {
          engine.DiagonalProducts(x.Weighted(i), x.ColumnsOf(i), x.Values(i), rows,
                                  tiles.Tile(TriangleTile(i, i)));
        }
      }
    }
  }
}

// The products of all pairs of columns, the cells of row i up to column i + extra - 1 copied one
// row after the other. Returns the start of the last row.
double* TriangularProducts(Columns x, const double* means, Cases cases, std::size_t extra,
                           double* cells) {
  const Engine& engine = EngineFor(x.count);
  Workspace workspace;
  Panels panels(engine, x, cases.weights != nullptr, workspace);
  const Tiles tiles(workspace, engine.panel, TriangleTile(panels.Count(), 0));
  ForEachBlock(cases.rows, [&](std::size_t from, std::size_t rows) {
    if (means != nullptr) {
      panels.Center(from, rows, means);
    }
    panels.Pack(from, rows, From(cases.weights, from));
    AddTriangle(panels, rows, tiles);
  });
  double* row = cells;
  for (std::size_t i = 0; i < x.count; ++i) {
    row += i == 0 ? 0 : i - 1 + extra;
    const std::size_t length = i + extra;
    for (std::size_t j = 0; j < length; j += engine.panel) {
      tiles.Copy(TriangleTile(i / engine.panel, j / engine.panel), i % engine.panel,
                 std::min<std::size_t>(engine.panel, length - j), row + j);
    }
  }
  return row;
}

}  // namespace

double Moments(Columns x, Cases cases, double* means, double* mins, double* maxs) {
  // A few panels at a time stay near between packing and summing.
  constexpr unsigned kPanelsAtOnce = 6;
  const Engine& engine = EngineFor(x.count);
  const std::size_t lanes = engine.panel;
  double weightSum = cases.weights ? 0. : static_cast<double>(cases.rows);
  for (std::size_t first = 0; first < x.count; first += kPanelsAtOnce * lanes) {
    Workspace workspace;
    const Columns some{x[first], x.stride, std::min(x.count - first, kPanelsAtOnce * lanes)};
    Panels panels(engine, some, false, workspace);
    auto* const moments = workspace.Take<double>(panels.Count() * kMomentFields * lanes);
    ForEachBlock(cases.rows, [&](std::size_t from, std::size_t rows) {
      panels.Pack(from, rows, nullptr);
      engine.Moments(panels.Values(0), panels.Count(), panels.Stride(), {rows, nullptr},
                     From(cases.weights, from), from == 0, moments,
                     first == 0 ? &weightSum : nullptr);
    });
    for (std::size_t i = 0; i < some.count; ++i) {
      const double* const ofColumn = moments + i / lanes * kMomentFields * lanes + i % lanes;
      means[first + i] = MeanOf(ofColumn, lanes, weightSum);
      if (mins != nullptr) {
        mins[first + i] = ofColumn[kMin * lanes];
        maxs[first + i] = ofColumn[kMax * lanes];
      }
    }
  }
  return weightSum;
}

double* SymmetricProducts(Columns x, const double* means, Cases cases, double* triangle) {
  return TriangularProducts(x, means, cases, 1, triangle);
}

std::size_t PairProducts(Columns x, Cases cases, double* triangle) {
  if (x.count == 0) {
    return 0;
  }
  const double* const lastRow = TriangularProducts(x, nullptr, cases, 0, triangle);
  return static_cast<std::size_t>(lastRow - triangle) + x.count - 1;
}

double* RectangularProducts(Columns x, Columns y, const double* means, Cases cases, double* squares,
                            double* rectangle) {
  const Engine& engine = EngineFor(x.count + y.count);
  const std::size_t lanes = engine.panel;
  Workspace workspace;
  Panels first(engine, x, cases.weights != nullptr, workspace);
  Panels second(engine, y, false, workspace);
  const Tiles tiles(workspace, engine.panel, std::size_t{first.Count()} * second.Count());
  auto* const sums = workspace.Take<double>((first.Count() + second.Count()) * lanes);
  double* const secondSums = sums + first.Count() * lanes;
  std::fill_n(sums, (first.Count() + second.Count()) * lanes, 0.);
  ForEachBlock(cases.rows, [&](std::size_t from, std::size_t rows) {
    const double* const weights = From(cases.weights, from);
    first.Center(from, rows, means);
    first.Pack(from, rows, weights);
    engine.SquareSums(first.Values(0), first.Count(), first.Stride(), rows, weights, sums);
    second.Center(from, rows, means + x.count);
    second.Pack(from, rows, nullptr);
    engine.SquareSums(second.Values(0), second.Count(), second.Stride(), rows, weights, secondSums);
    for (unsigned j = 0; j < second.Count(); j += engine.tilePanels) {
      const unsigned panelsAtOnce = std::min(engine.tilePanels, second.Count() - j);
      for (unsigned i = 0; i < first.Count(); ++i) {
        engine.Products(first.Weighted(i), first.ColumnsOf(i), second.Values(j), panelsAtOnce,
                        second.Stride(), rows, tiles.Tile(std::size_t{i} * second.Count() + j));
      }
    }
  });
  std::copy_n(sums, x.count, squares);
  std::copy_n(secondSums, y.count, squares + x.count);
  double* row = rectangle;
  for (std::size_t i = 0; i < x.count; ++i, row += y.count) {
    for (std::size_t j = 0; j < y.count; j += lanes) {
      tiles.Copy(i / lanes * second.Count() + j / lanes, i % lanes, std::min(lanes, y.count - j),
                 row + j);
    }
  }
  return row;
}

void WeightedSums(Columns x, Cases cases, double* sums) {
  const Engine& engine = EngineFor(x.count);
  Workspace workspace;
  Panels panels(engine, x, false, workspace);
  const std::size_t cells = std::size_t{panels.Count()} * engine.panel;
  auto* const panelSums = workspace.Take<double>(2 * cells);
  std::fill_n(panelSums, 2 * cells, 0.);
  ForEachBlock(cases.rows, [&](std::size_t from, std::size_t rows) {
    panels.Pack(from, rows, nullptr);
    engine.GroupSums(panels.Values(0), panels.Count(), panels.Stride(), {rows, nullptr},
                     From(cases.weights, from), engine.panel, panelSums, panelSums + cells);
  });
  std::copy_n(panelSums, x.count, sums);
}

namespace {

// The rows of a block, group by group.
class GroupedRows {
 public:
  GroupedRows(Workspace& workspace, std::size_t nGroups)
      : _ends(workspace.Take<std::uint32_t>(nGroups)) {
    std::fill_n(_ends, nGroups, 0U);
  }

  // Calls visit(group, its rows) for each group that has rows in the block.
  template <class Visit>
  void ForEach(const unsigned int* groups, std::size_t rows, Visit visit) {
    std::size_t seen = 0;
    for (std::size_t row = 0; row < rows; ++row) {
      if (_ends[groups[row]]++ == 0) {
        _seen[seen++] = groups[row];
      }
    }
    std::uint32_t begin = 0;
    for (std::size_t i = 0; i < seen; ++i) {
      begin += std::exchange(_ends[_seen[i]], begin);
    }
    for (std::size_t row = 0; row < rows; ++row) {
      _rows[_ends[groups[row]]++] = static_cast<std::uint8_t>(row);
    }
    begin = 0;
    for (std::size_t i = 0; i < seen; ++i) {
      const std::uint32_t end = std::exchange(_ends[_seen[i]], 0U);
      visit(_seen[i], Rows{end - begin, _rows.data() + begin});
      begin = end;
    }
  }

 private:
  std::uint32_t* _ends;  // of each group's rows; between blocks, 0
  std::array<unsigned int, kBlockRows> _seen{};
  std::array<std::uint8_t, kBlockRows> _rows{};
};

}  // namespace

void GroupSums(Columns x, Cases cases, const unsigned int* groups, std::size_t nGroups,
               double* sums, double* squareSums) {
  const Engine& engine = EngineFor(x.count);
  const std::size_t lanes = engine.panel;
  const std::size_t stride = nGroups * lanes;  // from a panel's sums to the next one's
  Workspace workspace;
  Panels panels(engine, x, false, workspace);
  GroupedRows grouped(workspace, nGroups);
  auto* const panelSums = workspace.Take<double>(2 * panels.Count() * stride);
  double* const panelSquares = panelSums + panels.Count() * stride;
  const auto forEachSum = [&](auto use) {
    for (std::size_t i = 0; i < x.count; ++i) {
      for (std::size_t group = 0; group < nGroups; ++group) {
        const std::size_t cell = i / lanes * stride + group * lanes + i % lanes;
        use(sums[i * nGroups + group], panelSums[cell]);
        use(squareSums[i * nGroups + group], panelSquares[cell]);
      }
    }
  };
  forEachSum([](double sum, double& panelSum) { panelSum = sum; });
  ForEachBlock(cases.rows, [&](std::size_t from, std::size_t rows) {
    panels.Pack(from, rows, nullptr);
    grouped.ForEach(groups + from, rows, [&](unsigned int group, Rows ofGroup) {
      engine.GroupSums(panels.Values(0), panels.Count(), panels.Stride(), ofGroup,
                       From(cases.weights, from), stride, panelSums + group * lanes,
                       panelSquares + group * lanes);
    });
  });
  forEachSum([](double& sum, double panelSum) { sum = panelSum; });
}

void Transpose(const double* const* rows, std::size_t count, Columns columns) {
  // So many columns of a page of rows at a time that the lines read stay in the first-level cache.
  constexpr std::size_t kRowsAtOnce = 64;
  for (std::size_t from = 0; from < count; from += kRowsAtOnce) {
    Active().Transpose(rows + from, std::min(kRowsAtOnce, count - from), columns.count,
                       columns.stride, columns.first + from);
  }
}

void AddCells(const double* d, std::size_t count, double* cells) {
  Active().AddCells(d, count, cells);
}

void MergeMeans(SideMeans a, SideMeans b, std::size_t count, double* merged) {
  for (std::size_t i = 0; i < count; ++i) {
    merged[i] = a.means[i] + MeanDiff(a.means[i], a.weight, b.means[i], b.weight);
  }
}

void MergeExtremes(const double* minsB, const double* maxsB, std::size_t count, double* minsA,
                   double* maxsA) {
  for (std::size_t i = 0; i < count; ++i) {
    maxsA[i] = maxsB[i] > maxsA[i] ? maxsB[i] : maxsA[i];
    minsA[i] = minsA[i] > minsB[i] ? minsB[i] : minsA[i];
  }
}

void MergePairs(double* const* a, const double* const* b, std::size_t count) {
  Active().MergePairs(a, b, count);
}

void MergeRow(SideMeans a, SideMeans b, const double* merged, double factorA, double factorB,
              const double* cellsB, std::size_t count, double* cellsA) {
  Active().MergeRow(a.means, b.means, merged, factorA, factorB, cellsB, count, cellsA);
}

}  // namespace velmor::ordered
