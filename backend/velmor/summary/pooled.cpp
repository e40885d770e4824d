// pooled.cpp: within groups and between them; start at PooledMeans.
#include "summary/pooled.h"

#include <algorithm>
#include <functional>
#include <limits>

namespace velmor {

void FillZeros(const SummaryDefinition& definition, MatrixPlace<double> place) {
  const std::size_t columns = definition.columns.size();
  for (std::size_t i = 0; i < columns; ++i) {
    std::fill_n(place.to + i * place.rowStride, columns, 0.);
  }
}

void AddWithin(const SummaryDefinition& definition, const std::vector<Parts>& groups,
               MatrixPlace<double> place) {
  const std::size_t columns = definition.columns.size();
  std::vector<double> products(columns * columns);
  for (const Parts& group : groups) {
    MatrixReader(definition, group).CrossProducts({products.data(), columns});
    for (std::size_t i = 0; i < columns; ++i) {
      double* const row = place.to + i * place.rowStride;
      std::transform(row, row + columns, products.data() + i * columns, row, std::plus<>());
    }
  }
}

// The mean of all is that of the first group and the weighted mean of the others' distances from
// it. So large means cost no digits.
PooledMeans::PooledMeans(const SummaryDefinition& definition, const std::vector<Parts>& groups) {
  const std::size_t columns = definition.columns.size();
  for (const Parts& parts : groups) {
    if (parts.All().empty()) {
      continue;
    }
    Group& group = _groups.emplace_back();
    for (std::size_t i = 0; i < columns; ++i) {
      const ColumnStatistics column = ColumnOf(definition, parts, i);
      group.weight = column.weightSum;
      group.means.push_back(column.mean);
    }
    _weightSum += group.weight;
  }
  _means.assign(columns, std::numeric_limits<double>::quiet_NaN());
  for (std::size_t i = 0; i < columns && !_groups.empty(); ++i) {
    const double first = _groups.front().means[i];
    double distances = 0.;
    for (const Group& group : _groups) {
      distances += group.weight * (group.means[i] - first);
    }
    _means[i] = first + distances / _weightSum;
  }
}

void PooledMeans::AddBetween(MatrixPlace<double> place) const {
  const std::size_t columns = _means.size();
  std::vector<double> shifts(columns);
  for (const Group& group : _groups) {
    std::transform(group.means.begin(), group.means.end(), _means.begin(), shifts.begin(),
                   std::minus<>());
    for (std::size_t i = 0; i < columns; ++i) {
      for (std::size_t j = 0; j < columns; ++j) {
        // The shifts' product first, so that the matrix is symmetric to the bit.
        place.to[i * place.rowStride + j] += group.weight * (shifts[i] * shifts[j]);
      }
    }
  }
}

}  // namespace velmor
