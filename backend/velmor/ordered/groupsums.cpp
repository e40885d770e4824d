// groupsums.cpp: each group's rows of a strip, summed up; start at ProductsAndGroupSums.
#include "ordered/groupsums.h"

#include "ordered/engine.h"
#include "ordered/kernels/tuning.h"
#include "ordered/panels.h"
#include "ordered/tiles.h"
#include "ordered/workspace.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

namespace velmor::ordered {
namespace {

// The rows of a strip, group by group.
class GroupedRows {
 public:
  GroupedRows(Workspace& workspace, std::size_t nGroups)
      : _ends(workspace.Take<std::uint32_t>(nGroups)) {
    std::fill_n(_ends, nGroups, 0U);
  }

  // Calls visit(group, its rows) for each group that has rows in the strip.
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
  std::uint32_t* _ends;  // of each group's rows; between strips, 0
  std::array<unsigned int, kStripRows> _seen{};
  std::array<std::uint8_t, kStripRows> _rows{};
};

// The sums of each group and column while they are running: a panel's groups one after the other.
class RunningGroupSums {
 public:
  RunningGroupSums(const Engine& engine, std::size_t columns, const GroupSums& groups,
                   Workspace& workspace)
      : _engine(engine),
        _groups(groups),
        _columns(columns),
        _size(PanelsOf(engine, columns) * Stride()),
        _sums(workspace.Take<double>(2 * _size)),
        _rows(workspace, groups.count) {
    std::fill_n(_sums, 2 * _size, 0.);
  }

  void Add(const Panels& panels, std::size_t from, std::size_t rows, const double* weights) {
    _rows.ForEach(_groups.ofCases + from, rows, [&](unsigned int group, Rows some) {
      double* const sums = _sums + std::size_t{group} * _engine.panel;
      _engine.PanelSums(panels.Values(0), panels.Count(), panels.Stride(), some, weights, Stride(),
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
  RunningGroupSums sums(EngineFor(x.count), x.count, groups, workspace);
  const double* const lastRow =
      TriangularProducts(x, nullptr, cases, 0, triangle, workspace,
                         [&](const Panels& panels, std::size_t from, std::size_t rows) {
                           sums.Add(panels, from, rows, From(cases.weights, from));
                         });
  sums.Copy();
  return static_cast<std::size_t>(lastRow - triangle) + x.count - 1;
}

}  // namespace velmor::ordered
