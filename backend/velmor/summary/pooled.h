#pragma once

// Statistics over the groups of a summary: what lies within them and between them.

#include "summary/matrices.h"

#include <cstddef>
#include <vector>

namespace velmor {

// Sets a symmetric matrix to 0.
void FillZeros(const SummaryDefinition& definition, MatrixPlace<double> place);

// Adds the centred products of each group.
void AddWithin(const SummaryDefinition& definition, const std::vector<Parts>& groups,
               MatrixPlace<double> place);

// The groups' means, and what they make together.
class PooledMeans {
 public:
  PooledMeans(const SummaryDefinition& definition, const std::vector<Parts>& groups);

  double WeightSum() const { return _weightSum; }
  double Mean(std::size_t column) const { return _means[column]; }
  // Adds the sum over the groups of w (m - M)(m - M)', their weights and means being w and m and
  // the mean of all M.
  void AddBetween(MatrixPlace<double> place) const;

 private:
  struct Group {
    double weight = 0.;
    std::vector<double> means;
  };
  std::vector<Group> _groups;  // those that have rows
  double _weightSum = 0.;
  std::vector<double> _means;  // of all
};

}  // namespace velmor
