#pragma once

// Cases for accumulators and the bits of their results; needs no test framework, so that programs
// for other machines can be built with it.

#include <velmor/velmor.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace velmor::test {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// The bits of a double; every NaN is one pattern.
inline std::uint64_t Bits(double x) {
  return std::bit_cast<std::uint64_t>(std::isnan(x) ? kNaN : x);
}

inline std::vector<std::uint64_t> Bits(const std::vector<double>& xs) {
  std::vector<std::uint64_t> bits(xs.size());
  std::transform(xs.begin(), xs.end(), bits.begin(), [](double x) { return Bits(x); });
  return bits;
}

// A data set: values of all columns case by case, weights where they are not empty.
struct Cases {
  std::vector<std::vector<double>> rows;
  std::vector<double> weights;
  std::vector<double> regWeights;
  std::vector<unsigned int> groups;

  // Cases [from, to).
  Cases Slice(std::size_t from, std::size_t to) const {
    const auto cut = [from, to](const auto& all) {
      using Vector = std::decay_t<decltype(all)>;
      return all.empty() ? Vector() : Vector(all.data() + from, all.data() + to);
    };
    return {cut(rows), cut(weights), cut(regWeights), cut(groups)};
  }
};

// The host's current case, as batches look at it.
struct CurrentCase {
  double weight = 0.;
  double regWeight = 0.;
  unsigned int group = 0;
};

inline void AddRow(DataBatch& batch, const double* values) { batch.AddRow(values); }
inline void AddRow(DataBatchByGroup& batch, const double* values) {
  std::copy_n(values, batch.NColumns(), batch.NextRow());
  batch.AddRow();
}

// Adds the cases one by one to a batch that looks at `current`.
template <class SomeBatch>
void AddRows(SomeBatch& batch, CurrentCase& current, const Cases& cases) {
  for (std::size_t row = 0; row < cases.rows.size(); ++row) {
    current = {cases.weights.empty() ? 0. : cases.weights[row],
               cases.regWeights.empty() ? 0. : cases.regWeights[row],
               cases.groups.empty() ? 0 : cases.groups[row]};
    AddRow(batch, cases.rows[row].data());
  }
}

// An empty batch for as many cases as there are and `room` more, with their kinds of weights.
//   nGroups  of a batch by group
template <class SomeBatch, class... Groups>
std::unique_ptr<SomeBatch> EmptyBatch(const Cases& cases, unsigned int columns, std::size_t room,
                                      const CurrentCase& current, Groups... nGroups) {
  return std::make_unique<SomeBatch>(
      columns, static_cast<unsigned int>(std::max<std::size_t>(1, cases.rows.size() + room)),
      cases.weights.empty() ? nullptr : &current.weight,
      cases.regWeights.empty() ? nullptr : &current.regWeight,
      cases.groups.empty() && sizeof...(nGroups) == 0 ? nullptr : &current.group, nGroups...);
}

// A batch that holds the cases. No more can be added to it.
inline std::unique_ptr<DataBatch> Batch(const Cases& cases, unsigned int columns) {
  CurrentCase current;
  auto batch = EmptyBatch<DataBatch>(cases, columns, 1, current);
  AddRows(*batch, current, cases);
  return batch;
}

inline std::unique_ptr<DataBatch> Batch(const Cases& cases) {
  return Batch(cases, static_cast<unsigned int>(cases.rows.at(0).size()));
}

// A batch of grouped cases, sorted. No more can be added to it.
inline std::unique_ptr<DataBatchByGroup> GroupedBatch(const Cases& cases, unsigned int columns,
                                                      unsigned int nGroups) {
  CurrentCase current;
  auto batch = EmptyBatch<DataBatchByGroup>(cases, columns, 1, current, nGroups);
  AddRows(*batch, current, cases);
  batch->SortByGroup();
  return batch;
}

// Cases in memory, row by row, as a host's table.
class CaseTable {
 public:
  CaseTable(Cases cases, unsigned int columns, std::vector<double> absentCodes = {})
      : _cases(std::move(cases)), _columns(columns), _absentCodes(std::move(absentCodes)) {
    for (const auto& row : _cases.rows) {
      _values.insert(_values.end(), row.begin(), row.end());
    }
  }

  TableView View() const {
    TableView view;
    view.rows = _cases.rows.size();
    const auto width = static_cast<std::ptrdiff_t>(_columns * sizeof(double));
    for (std::size_t column = 0; column < _columns; ++column) {
      view.values.emplace_back(_values.data() + column, width).absentCodes = _absentCodes;
    }
    const auto add = [](const auto& all, std::optional<ColumnView>& column) {
      if (!all.empty()) {
        column.emplace(all.data());
      }
    };
    add(_cases.weights, view.weights);
    add(_cases.regWeights, view.regWeights);
    add(_cases.groups, view.groups);
    return view;
  }

 private:
  Cases _cases;
  unsigned int _columns;
  std::vector<double> _absentCodes;
  std::vector<double> _values;
};

// All that a batch holds, as bits. One by group has to be sorted.
template <class SomeBatch>
std::vector<std::uint64_t> Contents(SomeBatch& batch) {
  std::vector<std::uint64_t> all{batch.NRows()};
  const auto add = [&](const auto* x, unsigned int count) {
    std::transform(x, x ? x + count : x, std::back_inserter(all), [](double v) { return Bits(v); });
  };
  const unsigned int rows = batch.NRows();
  add(batch.Weights(), rows);
  for (unsigned int column = 0; column < batch.NColumns(); ++column) {
    add(batch.Column(column), rows);
  }
  if constexpr (requires { batch.groupCount(0); }) {
    for (unsigned int group = 0; group < batch.NGroups(); ++group) {
      all.push_back(batch.groupCount(group));
    }
  } else {
    all.push_back(batch.MaxGroupSeen());
    add(batch.RegWeights(), rows);
    add(batch.Groups(), rows);
  }
  return all;
}

// Every field of a variable's or a pair's record.
template <class Record>
std::vector<double> Fields(const Record& r) {
  std::vector<double> fields{static_cast<double>(r.NRows()), r.WeightSum(), r.RegWeightSum()};
  if constexpr (requires { r.CSCP(); }) {
    fields.insert(fields.end(), {r.Mean0(), r.Mean1(), r.CSS0(), r.CSS1(), r.CSCP()});
  } else {
    fields.insert(fields.end(), {r.Mean(), r.CSS()});
    if constexpr (requires { r.Min(); }) {
      fields.insert(fields.end(), {r.Min(), r.Max()});
    }
  }
  return fields;
}

}  // namespace velmor::test
