#pragma once

// What every accumulator's results are, to the bit: the plain kernels (kernels.h) and the records
// of present cases (statistics.h) called for one column and one pair of columns after the other.
// A definition changes its batches as the accumulator does; Results() are what the accessors
// return.

#include "cases.h"

namespace velmor::test {

using Doubles = std::vector<double>;

template <class Some = std::initializer_list<double>>
void Append(Doubles& all, const Some& some) {
  all.insert(all.end(), some.begin(), some.end());
}

// Columns [col0, col2) of a batch, and pairs of them: each column with those before it or, of a
// rectangle, each of [col0, col1) with each of [col1, col2).
struct Block {
  int col0, col1, col2;
  bool isRectangle;

  std::size_t Place(int column) const { return static_cast<std::size_t>(column - col0); }
  // Calls visit(i, j), column i being a product's first operand and a pair's first variable.
  template <class Visit>
  void ForEachPair(Visit visit) const {
    for (int i = col0; i < (isRectangle ? col1 : col2); ++i) {
      for (int j = isRectangle ? col1 : col0; j < (isRectangle ? col2 : i); ++j) {
        visit(i, j);
      }
    }
  }
};

// The block of an accumulator of so many columns.
template <class Accumulator>
Block BlockOf(const Accumulator& a, unsigned int columns) {
  const int all = static_cast<int>(columns);
  if constexpr (requires { a.Col0(); }) {
    constexpr bool kIsRectangle = std::is_same_v<Accumulator, NSMatrixListwise> ||
                                  std::is_same_v<Accumulator, NSMatrixPairwise>;
    return {a.Col0(), a.Col1(), a.Col2() == 0 ? all : a.Col2(), kIsRectangle};
  } else {
    return {0, 0, all, false};
  }
}

inline double* ColumnOf(DataBatch& batch, int column) {
  return batch.Column(static_cast<unsigned int>(column));
}

struct Totals {
  double nRows = 0.;
  double weightSum = 0.;
  double regWeightSum = 0.;

  void Add(const Totals& d) {
    nRows = d.nRows + nRows;
    weightSum = d.weightSum + weightSum;
    regWeightSum = d.regWeightSum + regWeightSum;
  }
};

// Results: the totals; each column's mean, square sum and, if there are any, extremes; each pair's
// product sum.
class ListwiseDefinition {
 public:
  ListwiseDefinition(const Block& block, bool hasExtremes)
      : _block(block), _hasExtremes(hasExtremes) {}

  void operator+=(DataBatch& batch) {
    ListwiseDefinition part(_block, _hasExtremes);
    part.Take(batch);
    *this += part;
  }

  void operator+=(const ListwiseDefinition& d) {
    if (_columns.empty() || (_isWeightless && d._totals.weightSum != 0.)) {
      *this = d;
    } else if (d._totals.weightSum != 0.) {
      MergeColumnsAndCells(d);
      _totals.Add(d._totals);
    }
  }

  Doubles Results() const {
    Doubles all{_totals.nRows, _totals.weightSum, _totals.regWeightSum};
    for (const Column& c : _columns) {
      Append(all, {c.mean, c.squares, c.min, c.max});
      all.resize(all.size() - (_hasExtremes ? 0 : 2));
    }
    Append(all, _cells);
    return all;
  }

 private:
  struct Column {
    double mean, squares, min, max;
  };

  void Take(DataBatch& batch) {
    const int n = static_cast<int>(batch.NRows());
    _totals.nRows = n;
    _totals.weightSum = WeightedSum(batch.Weights(), n);
    _isWeightless = _totals.weightSum == 0.;
    const double* const u = CombineWeights(batch.Weights(), batch.RegWeights(), n);
    _totals.regWeightSum = batch.HasRegWeights() ? Sum(u, n) : _totals.weightSum;
    for (int i = _block.col0; i < _block.col2; ++i) {
      double* const x = ColumnOf(batch, i);
      const Column c{WeightedMean(x, u, _totals.regWeightSum, n), 0., Mins(x, n), Maxs(x, n)};
      CenterData(x, c.mean, n);
      _columns.push_back({c.mean, CrossProduct(x, x, u, n), c.min, c.max});
    }
    _block.ForEachPair([&](int i, int j) {
      _cells.push_back(CrossProduct(ColumnOf(batch, i), ColumnOf(batch, j), u, n));
    });
  }

  void MergeColumnsAndCells(const ListwiseDefinition& d) {
    const double a = _totals.regWeightSum;
    const double b = d._totals.regWeightSum;
    const std::vector<Column> mine = _columns;
    const std::vector<Column>& other = d._columns;
    Doubles shift;  // of a column's mean, before it was rounded into the merged mean
    for (std::size_t i = 0; i < mine.size(); ++i) {
      shift.push_back(MeanDiff(mine[i].mean, a, other[i].mean, b));
      _columns[i].mean = mine[i].mean + shift[i];
      _columns[i].max = other[i].max > mine[i].max ? other[i].max : mine[i].max;
      _columns[i].min = mine[i].min > other[i].min ? other[i].min : mine[i].min;
    }
    const auto ofMine = [&](std::size_t i) { return _columns[i].mean - mine[i].mean; };
    const auto ofOther = [&](std::size_t i) { return _columns[i].mean - other[i].mean; };
    const auto merge = [&](std::size_t i, std::size_t j, double& cell, double otherCell) {
      const double factor = a * (_block.isRectangle ? ofMine(i) : shift[i]);
      cell = ((otherCell + factor * ofMine(j)) + (b * ofOther(i)) * ofOther(j)) + cell;
    };
    for (std::size_t i = 0; i < mine.size(); ++i) {
      double& squares = _columns[i].squares;
      if (_block.isRectangle) {
        squares = ((other[i].squares + (shift[i] * shift[i]) * a) + (ofOther(i) * ofOther(i)) * b) +
                  squares;
      } else {
        merge(i, i, squares, other[i].squares);
      }
    }
    std::size_t k = 0;
    _block.ForEachPair([&](int i, int j) {
      merge(_block.Place(i), _block.Place(j), _cells[k], d._cells[k]);
      ++k;
    });
  }

  Block _block;
  bool _hasExtremes;
  Totals _totals;
  bool _isWeightless = false;  // no case that weighs anything has come
  std::vector<Column> _columns;
  Doubles _cells;  // of the block's pairs
};

// Results: the totals; the fields of each column's record and of each pair's.
class PairwiseDefinition {
 public:
  PairwiseDefinition(const Block& block, bool hasExtremes, double missingCode)
      : _block(block), _hasExtremes(hasExtremes) {
    _work._missingCode = missingCode;
  }

  void operator+=(DataBatch& batch) {
    const int n = static_cast<int>(batch.NRows());
    const double* const w = batch.Weights();
    const double* const r = batch.RegWeights();
    Totals totals{static_cast<double>(n), WeightedSum(w, n), 0.};
    totals.regWeightSum = !r ? totals.weightSum : w ? ProductSum(w, r, n) : Sum(r, n);
    _totals.Add(totals);
    _variables.resize(_block.Place(_block.col2));
    for (int i = _block.col0; i < _block.col2; ++i) {
      VarStatData part;
      part.Init(ColumnOf(batch, i), w, r, _work, n);
      _variables[_block.Place(i)].Update(part);
    }
    std::size_t k = 0;
    _block.ForEachPair([&](int i, int j) {
      PairStatData part;
      part.Init(ColumnOf(batch, i), ColumnOf(batch, j), w, r, _work, n);
      _pairs.resize(std::max(_pairs.size(), k + 1));
      _pairs[k++].Update(part);
    });
  }

  void operator+=(const PairwiseDefinition& d) {
    if (_variables.empty()) {
      *this = d;
    } else if (d._totals.weightSum != 0.) {
      for (std::size_t i = 0; i < _variables.size(); ++i) {
        _variables[i].Update(d._variables[i]);
      }
      for (std::size_t k = 0; k < _pairs.size(); ++k) {
        _pairs[k].Update(d._pairs[k]);
      }
      _totals.Add(d._totals);
    }
  }

  Doubles Results() const {
    Doubles all{_totals.nRows, _totals.weightSum, _totals.regWeightSum};
    for (const VarStatData& v : _variables) {
      Append(all, {static_cast<double>(v._nRows), v._weightSum, v._regWeightSum, v._mean, v._css,
                   v._min, v._max});
      all.resize(all.size() - (_hasExtremes ? 0 : 2));
    }
    for (const PairStatData& p : _pairs) {
      Append(all, {static_cast<double>(p._nRows), p._weightSum, p._regWeightSum, p._mean0, p._mean1,
                   p._css0, p._css1, p._cscp});
    }
    return all;
  }

 private:
  Block _block;
  bool _hasExtremes;
  Totals _totals;
  WorkArea _work;
  std::vector<VarStatData> _variables;
  std::vector<PairStatData> _pairs;
};

// Of the discriminant accumulators. Results: the number of cases, their weight, and plain sums.
template <class Batch>
class SumsDefinition {
 public:
  explicit SumsDefinition(unsigned int nGroups) : _nGroups(nGroups) {}

  void operator+=(Batch& batch) {
    SumsDefinition part(_nGroups);
    part._nRows = batch.NRows();
    part.Take(batch);
    *this += part;
  }

  void operator+=(const SumsDefinition& d) {
    if (_sums.empty()) {
      *this = d;
    } else if (d._weightSum != 0.) {
      _nRows = d._nRows + _nRows;
      _weightSum = d._weightSum + _weightSum;
      std::transform(d._sums.begin(), d._sums.end(), _sums.begin(), _sums.begin(), std::plus<>());
    }
  }

  Doubles Results() const {
    Doubles all{_nRows, _weightSum};
    Append(all, _sums);
    return all;
  }

 private:
  void Take(Batch& batch);

  unsigned int _nGroups;
  double _nRows = 0.;
  double _weightSum = 0.;
  Doubles _sums;
};

// DiscriminantMatrix: the groups' weights; of each column its sums by group, then its square sums;
// each pair's product sum.
template <>
inline void SumsDefinition<DataBatch>::Take(DataBatch& batch) {
  const int n = static_cast<int>(batch.NRows());
  const int columns = static_cast<int>(batch.NColumns());
  _sums.resize(_nGroups);
  WeightByGroup(batch.Groups(), batch.Weights(), _sums, _weightSum, n);
  for (int i = 0; i < columns; ++i) {
    Doubles ofColumn(std::size_t{_nGroups} * 2);
    GroupWeightedSumX(ColumnOf(batch, i), batch.Groups(), batch.Weights(), ofColumn.data(),
                      ofColumn.data() + _nGroups, n);
    Append(_sums, ofColumn);
  }
  Block{0, 0, columns, false}.ForEachPair([&](int i, int j) {
    _sums.push_back(CrossProduct(ColumnOf(batch, i), ColumnOf(batch, j), batch.Weights(), n));
  });
}

// DiscIndividualMatrix, group by group: the products of each column with itself and those before
// it, the columns' sums, the weight.
template <>
inline void SumsDefinition<DataBatchByGroup>::Take(DataBatchByGroup& batch) {
  _weightSum = WeightedSum(batch.Weights(), static_cast<int>(batch.NRows()));
  std::size_t from = 0;
  for (unsigned int group = 0; group < _nGroups; ++group) {
    const int n = group < batch.NGroups() ? static_cast<int>(batch.groupCount(group)) : 0;
    const double* const w = batch.HasWeights() ? batch.Weights() + from : nullptr;
    const auto x = [&](unsigned int i) { return batch.Column(i) + from; };
    for (unsigned int i = 0; i < batch.NColumns(); ++i) {
      for (unsigned int j = 0; j <= i; ++j) {
        _sums.push_back(CrossProduct(x(i), x(j), w, n));
      }
    }
    for (unsigned int i = 0; i < batch.NColumns(); ++i) {
      _sums.push_back(w ? ProductSum(x(i), w, n) : Sum(x(i), n));
    }
    _sums.push_back(WeightedSum(w, n));
    from += static_cast<std::size_t>(n);
  }
}

// What the accumulator, an empty one, makes of batches of so many columns.
template <class Accumulator>
auto Define(const Accumulator& a, unsigned int columns) {
  if constexpr (requires { a.NGroup(); }) {
    constexpr bool kIsByGroup = std::is_same_v<Accumulator, DiscIndividualMatrix>;
    using SomeBatch = std::conditional_t<kIsByGroup, DataBatchByGroup, DataBatch>;
    return SumsDefinition<SomeBatch>(static_cast<unsigned int>(a.NGroup()));
  } else {
    const Block block = BlockOf(a, columns);
    constexpr bool kHasExtremes = std::is_base_of_v<MatrixBase, Accumulator>;
    if constexpr (requires { a.MissingCode(); }) {
      return PairwiseDefinition(block, kHasExtremes, a.MissingCode());
    } else {
      return ListwiseDefinition(block, kHasExtremes);
    }
  }
}

}  // namespace velmor::test
