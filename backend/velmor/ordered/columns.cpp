// columns.cpp: blocks of columns in panels, and rows of cells; start at CenteredProducts.
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

// The products of all pairs of columns, the cells of row i up to column i + extra - 1 copied one
// row after the other. Returns the start of the last row.
//   visit  called with the panels, as they are packed, for each block: (panels, first row, rows)
template <class Visit>
double* TriangularProducts(Columns x, const double* means, Cases cases, std::size_t extra,
                           double* cells, Workspace& workspace, Visit visit) {
  Panels panels(EngineFor(x.count), x, cases.weights != nullptr, workspace);
  const std::size_t lanes = panels.UsedEngine().panel;
  const Tiles tiles(workspace, lanes, TriangleTile(panels.Count(), 0));
  ForEachBlock(cases.rows, [&](std::size_t from, std::size_t rows) {
    panels.Pack(from, rows, means, From(cases.weights, from));
    visit(panels, from, rows);
    AddTriangle(panels.UsedEngine(), x.count, panels.Values(0), panels.Weighted(0), rows,
                tiles.Tile(0));
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

}  // namespace

double Moments(Columns x, Cases cases, double* means, double* mins, double* maxs) {
  const Engine& engine = EngineFor(x.count);
  const std::size_t lanes = engine.panel;
  const std::size_t panels = (x.count + lanes - 1) / lanes;
  Workspace workspace;
  auto* const columns = workspace.Take<const double*>(panels * lanes);
  auto* const moments = workspace.Take<double>(panels * kMomentFields * lanes);
  for (std::size_t i = 0; i < panels * lanes; ++i) {
    columns[i] = x[std::min(i, x.count - 1)];
  }
  double weightSum = cases.weights ? 0. : static_cast<double>(cases.rows);
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
  const std::size_t cells = (x.count + engine.panel - 1) / engine.panel * engine.panel;
  Workspace workspace;
  auto* const panelSums = workspace.Take<double>(2 * cells);
  std::fill_n(panelSums, 2 * cells, 0.);
  double* const lastRow = TriangularProducts(
      x, nullptr, cases, 1, triangle, workspace,
      [&](const Panels& panels, std::size_t from, std::size_t rows) {
        engine.GroupSums(panels.Values(0), panels.Count(), panels.Stride(), {rows, nullptr},
                         From(cases.weights, from), engine.panel, panelSums, panelSums + cells);
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
  // The columns' sums, which nobody asks for, and their sums of squares.
  const std::size_t sumsSize = (first.Count() + second.Count()) * lanes;
  auto* const sums = workspace.Take<double>(2 * sumsSize);
  std::fill_n(sums, 2 * sumsSize, 0.);
  const auto addSquares = [&](const Panels& panels, std::size_t rows, const double* weights,
                              double* panelSums) {
    engine.GroupSums(panels.Values(0), panels.Count(), panels.Stride(), {rows, nullptr}, weights,
                     lanes, panelSums, panelSums + sumsSize);
  };
  ForEachBlock(cases.rows, [&](std::size_t from, std::size_t rows) {
    const double* const weights = From(cases.weights, from);
    first.Pack(from, rows, means, weights);
    addSquares(first, rows, weights, sums);
    second.Pack(from, rows, means + x.count, nullptr);
    addSquares(second, rows, weights, sums + first.Count() * lanes);
    for (unsigned j = 0; j < second.Count(); j += engine.tilePanels) {
      const unsigned panelsAtOnce = std::min(engine.tilePanels, second.Count() - j);
      for (unsigned i = 0; i < first.Count(); ++i) {
        engine.Products(first.Weighted(i), first.ColumnsOf(i), second.Values(j), panelsAtOnce,
                        second.Stride(), rows, tiles.Tile(std::size_t{i} * second.Count() + j));
      }
    }
  });
  std::copy_n(sums + sumsSize, x.count, squares);
  std::copy_n(sums + sumsSize + first.Count() * lanes, y.count, squares + x.count);
  double* row = rectangle;
  for (std::size_t i = 0; i < x.count; ++i, row += y.count) {
    for (std::size_t j = 0; j < y.count; j += lanes) {
      tiles.Copy(i / lanes * second.Count() + j / lanes, i % lanes, std::min(lanes, y.count - j),
                 row + j);
    }
  }
  return row;
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

// The sums of each group and column while they are running: a panel's groups one after the other.
class PanelGroupSums {
 public:
  PanelGroupSums(const Engine& engine, std::size_t columns, const GroupSums& groups,
                 Workspace& workspace)
      : _engine(engine),
        _groups(groups),
        _columns(columns),
        _size((columns + engine.panel - 1) / engine.panel * Stride()),
        _sums(workspace.Take<double>(2 * _size)),
        _rows(workspace, groups.count) {
    std::fill_n(_sums, 2 * _size, 0.);
  }

  void Add(const Panels& panels, std::size_t from, std::size_t rows, const double* weights) {
    _rows.ForEach(_groups.ofCases + from, rows, [&](unsigned int group, Rows some) {
      double* const sums = _sums + std::size_t{group} * _engine.panel;
      _engine.GroupSums(panels.Values(0), panels.Count(), panels.Stride(), some, weights, Stride(),
                        sums, sums + _size);
    });
  }

  void Copy() const {
    const std::size_t lanes = _engine.panel;
    for (std::size_t i = 0; i < _columns; ++i) {
      for (std::size_t group = 0; group < _groups.count; ++group) {
        const std::size_t cell = i / lanes * Stride() + group * lanes + i % lanes;
        _groups.sums[i * _groups.count + group] = _sums[cell];
        _groups.squareSums[i * _groups.count + group] = _sums[_size + cell];
      }
    }
  }

 private:
  std::size_t Stride() const { return _groups.count * _engine.panel; }  // from a panel to the next

  const Engine& _engine;
  const GroupSums& _groups;
  std::size_t _columns;
  std::size_t _size;
  double* _sums;  // and then the sums of squares
  GroupedRows _rows;
};

}  // namespace

std::size_t ProductsAndGroupSums(Columns x, Cases cases, const GroupSums& groups,
                                 double* triangle) {
  Workspace workspace;
  PanelGroupSums sums(EngineFor(x.count), x.count, groups, workspace);
  const double* const lastRow =
      TriangularProducts(x, nullptr, cases, 0, triangle, workspace,
                         [&](const Panels& panels, std::size_t from, std::size_t rows) {
                           sums.Add(panels, from, rows, From(cases.weights, from));
                         });
  sums.Copy();
  return static_cast<std::size_t>(lastRow - triangle) + x.count - 1;
}

void Copy(const void* from, std::size_t count, double* to) { Active().Copy(from, count, to); }

void Transpose(const double* const* rows, std::size_t count, Columns columns) {
  // So many columns of a page of rows at a time that the lines read stay in the first-level cache.
  constexpr std::size_t kRowsAtOnce = 64;
  for (std::size_t from = 0; from < count; from += kRowsAtOnce) {
    Active().Transpose(rows + from, std::min(kRowsAtOnce, count - from), columns.count,
                       columns.stride, columns.first + from);
  }
}

void MarkEqual(const double* x, std::size_t rows, double value, std::uint64_t* bits) {
  Active().MarkEqual(x, rows, value, bits);
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

void MergeRow(Shifts shifts, double factorA, double factorB, const double* cellsB,
              std::size_t count, double* cellsA) {
  Active().MergeRow(shifts.ofA, shifts.ofB, factorA, factorB, cellsB, count, cellsA);
}

}  // namespace velmor::ordered
