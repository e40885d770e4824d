#pragma once

// Whole matrices of a summary's statistics.

#include "summary/records.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmor {

// Where the entries of a matrix go: (i, j) to to[i * rowStride + j].
template <class Number>
struct MatrixPlace {
  Number* to;
  std::size_t rowStride;
};

// Reads matrices off the parts of a summary, as Summary says. Constructing it reads the columns.
class MatrixReader {
 public:
  MatrixReader(const SummaryDefinition& definition, const Parts& parts);

  void CrossProducts(MatrixPlace<double> place) const;
  void Covariances(MatrixPlace<double> place, double ddof, std::uint64_t fewestRows) const;
  void Correlations(MatrixPlace<double> place, std::uint64_t fewestRows) const;
  void PairRows(MatrixPlace<std::uint64_t> place) const;
  void PairWeightSums(MatrixPlace<double> place) const;

 private:
  PairStatistics Pair(std::size_t a, std::size_t b) const {
    return PairOf(_definition, _parts, a, b, _columns[a], _columns[b]);
  }
  // Whether all pairs have the rows of the only part.
  bool IsComplete() const {
    return _definition.missing == MissingRule::Listwise && _parts.All().size() == 1;
  }
  // Sets the entries to ofColumn(column) on the diagonal and to ofPair(pair) elsewhere.
  template <class Number, class OfColumn, class OfPair>
  void Fill(MatrixPlace<Number> place, OfColumn ofColumn, OfPair ofPair) const;
  // Sets all entries to of(statistics of the column or the pair), which are the same for complete
  // cases.
  template <class Number, class Of>
  void FillTotals(MatrixPlace<Number> place, Of of) const;
  // As Fill, for complete cases, by stretches of rows: ofProducts(products, i, from, to, out) sets
  // the entries of row i and columns [from, to), given their centred products.
  template <class OfProducts>
  void FillComplete(MatrixPlace<double> place, OfProducts ofProducts) const;

  const SummaryDefinition& _definition;
  const Parts& _parts;
  std::vector<ColumnStatistics> _columns;
};

}  // namespace velmor
