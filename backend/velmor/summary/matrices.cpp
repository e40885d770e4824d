// matrices.cpp: a summary's statistics as matrices; start at MatrixReader::Fill.
#include "summary/matrices.h"

#include "record/cells.h"

#include <algorithm>
#include <limits>

namespace velmor {
namespace {

constexpr double kNoEntry = std::numeric_limits<double>::quiet_NaN();

// Sets all entries, by stretches of rows: ofRow(i, from, to, out) sets those of columns [from, to)
// in row i of the definition's columns. A symmetric matrix is asked for its lower triangle only,
// and in squares, so that what is written to column after column stays in the cache.
template <class Number, class OfRow>
void FillRows(const SummaryDefinition& definition, MatrixPlace<Number> place, const OfRow& ofRow) {
  const std::size_t columns = definition.columns.size();
  const std::size_t first = definition.firstSide;
  for (std::size_t i = 0; i < first; ++i) {
    ofRow(i, first, columns, place.to + i * place.rowStride);
  }
  constexpr std::size_t kSide = 64;
  for (std::size_t row = 0; first == 0 && row < columns; row += kSide) {
    const std::size_t rowEnd = std::min(row + kSide, columns);
    for (std::size_t column = 0; column <= row; column += kSide) {
      for (std::size_t i = row; i < rowEnd; ++i) {
        ofRow(i, column, std::min(column + kSide, i + 1), place.to + i * place.rowStride + column);
      }
      for (std::size_t j = column; j < std::min(column + kSide, rowEnd); ++j) {
        for (std::size_t i = std::max(row, j + 1); i < rowEnd; ++i) {
          place.to[j * place.rowStride + i] = place.to[i * place.rowStride + j];
        }
      }
    }
  }
}

}  // namespace

MatrixReader::MatrixReader(const SummaryDefinition& definition, const Parts& parts)
    : _definition(definition), _parts(parts), _columns(definition.columns.size()) {
  for (std::size_t i = 0; i < _columns.size(); ++i) {
    _columns[i] = ColumnOf(definition, parts, i);
  }
}

template <class Number, class OfColumn, class OfPair>
void MatrixReader::Fill(MatrixPlace<Number> place, OfColumn ofColumn, OfPair ofPair) const {
  FillRows(_definition, place, [&](std::size_t i, std::size_t from, std::size_t to, Number* out) {
    for (std::size_t j = from; j < to; ++j) {
      out[j - from] = i == j ? ofColumn(_columns[i]) : ofPair(Pair(i, j));
    }
  });
}

template <class OfProducts>
void MatrixReader::FillComplete(MatrixPlace<double> place, OfProducts ofProducts) const {
  const MatrixBase& part = *_parts.All().front();
  const std::size_t first = _definition.firstSide;
  const std::size_t second = _columns.size() - first;
  const double* const cells =
      WithMatrix(_definition, part, [](const auto& matrix) -> const double* {
        if constexpr (requires { CellsOf(matrix); }) {
          return CellsOf(matrix);
        } else {
          return nullptr;  // which is asked for complete cases only
        }
      });
  FillRows(_definition, place, [&](std::size_t i, std::size_t from, std::size_t to, double* out) {
    const double* const row = cells + (first != 0 ? i * second : i * (i + 1) / 2);
    ofProducts(row + (from - first), i, from, to, out);
  });
}

void MatrixReader::CrossProducts(MatrixPlace<double> place) const {
  if (IsComplete()) {
    FillComplete(place, [](const double* products, std::size_t /*i*/, std::size_t from,
                           std::size_t to, double* out) { std::copy_n(products, to - from, out); });
  } else {
    Fill(
        place, [](const ColumnStatistics& column) { return column.squares; },
        [](const PairStatistics& pair) { return pair.products; });
  }
}

void MatrixReader::Covariances(MatrixPlace<double> place, double ddof,
                               std::uint64_t fewestRows) const {
  const auto weightSum = [=](const auto& statistics) {  // NaN where no entry is wanted
    return statistics.rows == 0 || statistics.rows < fewestRows ? kNoEntry : statistics.weightSum;
  };
  if (IsComplete()) {
    const double divisor = DivisorOf(weightSum(_columns[0]), ddof);
    FillComplete(place, [divisor](const double* products, std::size_t /*i*/, std::size_t from,
                                  std::size_t to, double* out) {
      std::transform(products, products + (to - from), out,
                     [divisor](double product) { return product / divisor; });
    });
  } else {
    Fill(
        place,
        [&](const ColumnStatistics& column) {
          return column.squares / DivisorOf(weightSum(column), ddof);
        },
        [&](const PairStatistics& pair) {
          return pair.products / DivisorOf(weightSum(pair), ddof);
        });
  }
}

void MatrixReader::Correlations(MatrixPlace<double> place, std::uint64_t fewestRows) const {
  const auto ofColumn = [=](const ColumnStatistics& column) {
    return column.rows >= fewestRows && SpreadOf(column.squares) > 0. ? 1. : kNoEntry;
  };
  if (!IsComplete()) {
    Fill(place, ofColumn, [=](const PairStatistics& pair) {
      return pair.rows < fewestRows
                 ? kNoEntry
                 : CorrelationOf(pair.products, SpreadOf(pair.squaresA), SpreadOf(pair.squaresB));
    });
    return;
  }
  std::vector<double> spreads(_columns.size());
  std::transform(_columns.begin(), _columns.end(), spreads.begin(), [=](const auto& column) {
    return column.rows < fewestRows ? kNoEntry : SpreadOf(column.squares);
  });
  FillComplete(place, [&](const double* products, std::size_t i, std::size_t from, std::size_t to,
                          double* out) {
    for (std::size_t j = from; j < to; ++j) {
      out[j - from] = CorrelationOf(products[j - from], spreads[i], spreads[j]);
    }
    if (from <= i && i < to) {
      out[i - from] = ofColumn(_columns[i]);
    }
  });
}

template <class Number, class Of>
void MatrixReader::FillTotals(MatrixPlace<Number> place, Of of) const {
  if (!IsComplete()) {
    Fill(place, of, of);
    return;
  }
  FillRows(_definition, place,
           [&](std::size_t /*i*/, std::size_t from, std::size_t to, Number* out) {
             std::fill_n(out, to - from, of(_columns[0]));
           });
}

void MatrixReader::PairRows(MatrixPlace<std::uint64_t> place) const {
  FillTotals(place, [](const auto& statistics) { return statistics.rows; });
}

void MatrixReader::PairWeightSums(MatrixPlace<double> place) const {
  FillTotals(place, [](const auto& statistics) { return statistics.weightSum; });
}

}  // namespace velmor
