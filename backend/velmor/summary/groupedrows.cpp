// groupedrows.cpp: rows in the order of their groups; start at GroupedRows::Take.
#include "summary/groupedrows.h"

#include "summary/definition.h"
#include "summary/labels.h"

#include <algorithm>
#include <numeric>

namespace velmor {
namespace {

// Where a host that adds rows one by one keeps the current one's. Never read here.
constexpr double kAnyWeight = 1.;
constexpr unsigned int kAnyGroup = 0;

}  // namespace

GroupedRows::GroupedRows(std::size_t columns, bool hasWeights, unsigned mostRows)
    : _columns(columns),
      _rowNumbers(mostRows),
      _batch(static_cast<unsigned>(columns + 1), mostRows, hasWeights ? &kAnyWeight : nullptr,
             nullptr, &kAnyGroup, mostRows) {
  std::iota(_rowNumbers.begin(), _rowNumbers.end(), 0.);
}

void GroupedRows::Take(const TableView& table, std::uint64_t from,
                       const std::vector<std::uint32_t>& groups) {
  NumberLocally(groups);
  TableView rows = RowsFrom(table, from);
  rows.rows = groups.size();
  rows.values.emplace_back(_rowNumbers.data());
  rows.groups.emplace(_locals.data()).absentCodes = {double{Labels::kNone}};
  _runs.clear();
  _batch.Clear();
  _batch.AddColumns(rows, 0, rows.rows);
  _batch.SortByGroup();
  const double* const rowNumbers = _batch.Column(static_cast<unsigned>(_columns));
  unsigned next = 0;
  for (unsigned local = 0; local < _groups.size(); ++local) {
    const unsigned count = _batch.groupCount(local);
    if (count != 0) {
      _runs.push_back({_groups[local], static_cast<unsigned>(rowNumbers[next]), next, count});
      next += count;
    }
  }
  std::sort(_runs.begin(), _runs.end(),
            [](const Run& a, const Run& b) { return a.firstRow < b.firstRow; });
}

// Numbers the groups that rows are of from 0 on.
void GroupedRows::NumberLocally(const std::vector<std::uint32_t>& groups) {
  _groups.clear();
  _locals.resize(groups.size());
  for (std::size_t i = 0; i < groups.size(); ++i) {
    const std::uint32_t group = groups[i];
    if (group == Labels::kNone) {
      _locals[i] = group;
      continue;
    }
    if (group >= _localOf.size()) {
      _localOf.resize(std::size_t{group} + 1);
    }
    std::uint32_t& local = _localOf[group];
    if (local >= _groups.size() || _groups[local] != group) {
      local = static_cast<std::uint32_t>(_groups.size());
      _groups.push_back(group);
    }
    _locals[i] = local;
  }
}

TableView GroupedRows::View(const Run& run) {
  TableView table;
  table.rows = run.count;
  for (unsigned i = 0; i < _columns; ++i) {
    table.values.emplace_back(_batch.Column(i) + run.from);
  }
  if (_batch.HasWeights()) {
    table.weights.emplace(_batch.Weights() + run.from);
  }
  return table;
}

}  // namespace velmor
