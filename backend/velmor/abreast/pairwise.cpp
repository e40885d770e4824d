// pairwise.cpp: the present rows of columns and pairs in all blocks; start at
// PairwiseBlocks::Accumulate.
//
// Columns of a pattern are present in the same rows of every block. The columns of one pattern or
// of two, when these are wide enough, are taken together, as if nothing were missing in the rows
// that they have. The other pairs are taken by kernels in which a lane selects the rows of its
// pair.
#include "abreast/pairwise.h"

#include "ordered/chains.h"
#include "ordered/floatenvironment.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <numeric>

namespace velmor {

namespace {

// With fewer columns, pairs one by one are quicker.
constexpr std::size_t kWideAbreast = 3;

// Rows of which pairs are taken at a time. Zen 5, 10^9 pairs a second of 12, 24, 48 and 96 columns
// with 32, 64, 128 and 504 rows: 1.82, 1.86, 1.88, 1.84; 2.62, 2.74, 2.83, 2.60; 3.39, 3.57, 3.59,
// 3.16; 3.72, 4.00, 4.07, 3.17.
constexpr std::size_t kPairRows = 128;

// As a variable's record merges extremes: b's is taken where either is not a number.
void MergeExtremes(double minB, double maxB, double& min, double& max) {
  min = minB > min ? min : minB;
  max = max > maxB ? max : maxB;
}

}  // namespace

PairwiseBlocks::PairwiseBlocks(const ordered::Engine& engine, const TableView& table,
                               const Shape& shape, std::uint64_t blockRows)
    : _engine(engine),
      _lanes(engine.lanes),
      _reader(engine, table, _workspace, shape.missingCode),
      _missingCode(shape.missingCode),
      _rows(blockRows),
      _pieces((_rows + BlockReader::kPieceRows - 1) / BlockReader::kPieceRows),
      _allRows(_pieces * BlockReader::kPieceRows),
      _first(static_cast<std::size_t>(shape.bounds[0])),
      _columns(static_cast<unsigned>(shape.Columns())),
      _isRectangle(shape.Facts().ranges == Ranges::TwoOrOne),
      _firstRange(static_cast<unsigned>(_isRectangle ? shape.bounds[1] - shape.bounds[0] : 0)),
      _pairs(_isRectangle ? std::size_t{_firstRange} * (_columns - _firstRange)
                          : std::size_t{_columns} * (_columns - 1) / 2),
      _cases(engine, table, _rows, _workspace) {}

bool PairwiseBlocks::Accumulate(std::uint64_t firstRow, bool /*goesOn*/) {
  const DefaultFloatEnvironment environment;
  _reader.Choose(firstRow, _rows);
  if (!Read()) {
    return false;
  }
  FindPatterns();
  std::fill_n(_pairRecords, _pairs * ordered::kPairFieldsAbreast * _lanes, 0.);
  for (std::size_t b = 0; b < _patternCount; ++b) {
    TakePatterns(_patterns[b], _patterns[b]);
    for (std::size_t a = 0; a < b; ++a) {
      if (IsWide(_patterns[a]) && IsWide(_patterns[b])) {
        TakePatterns(_patterns[a], _patterns[b]);
      }
    }
  }
  ListPairs();
  PassOverListed(_engine.PairSumsAbreast);
  FinishListedSums();
  PassOverListed(_engine.PairProductsAbreast);
  _engine.FreshPairs(_variableRecords, _columns);
  _engine.FreshPairs(_pairRecords, _pairs);
  return true;
}

// All columns, turned, and the _lanes' cases.
bool PairwiseBlocks::Read() {
  _cases.Start();
  for (std::size_t from = 0; from < _rows; from += BlockReader::kPieceRows) {
    const std::size_t count = std::min(BlockReader::kPieceRows, _rows - from);
    _reader.ReadValues(from, count, BlockReader::kPieceRows);
    if (!_reader.ReadRest(from, count)) {
      return false;
    }
    _cases.Take(_reader, from, count);
    Turn(from, count);
  }
  _cases.Finish();
  return true;
}

// A piece of all columns. A value in a row that is left out counts as absent.
void PairwiseBlocks::Turn(std::size_t from, std::size_t count) {
  const std::uint64_t all = ~std::uint64_t{0} >> (64 - count);
  for (std::size_t c = 0; c < _columns; ++c) {
    double* const turned = ValuesOf(c, from);
    _engine.TurnAbreast(_reader.Values()[_first + c], count, turned);
    for (std::size_t lane = 0; lane < _lanes; ++lane) {
      const std::uint64_t absent = _reader.LeftOut()[lane] | _reader.Absent(_first + c)[lane];
      WordsOf(c)[lane * _pieces + from / BlockReader::kPieceRows] = all & ~absent;
      for (std::uint64_t bits = absent; bits != 0; bits &= bits - 1) {
        turned[static_cast<std::size_t>(std::countr_zero(bits)) * _lanes + lane] = _missingCode;
      }
    }
  }
}

bool PairwiseBlocks::HaveSameRows(std::uint32_t a, std::uint32_t b) const {
  return std::memcmp(WordsOf(a), WordsOf(b), _lanes * _pieces * sizeof(std::uint64_t)) == 0;
}

// Range by range, pattern by pattern, and in ascending order.
bool PairwiseBlocks::IsBefore(std::uint32_t a, std::uint32_t b) const {
  if ((a < _firstRange) != (b < _firstRange)) {
    return a < _firstRange;
  }
  const int order = std::memcmp(WordsOf(a), WordsOf(b), _lanes * _pieces * sizeof(std::uint64_t));
  return order != 0 ? order < 0 : a < b;
}

void PairwiseBlocks::FindPatterns() {
  std::iota(_order, _order + _columns, 0U);
  std::sort(_order, _order + _columns,
            [this](std::uint32_t a, std::uint32_t b) { return IsBefore(a, b); });
  _patternCount = 0;
  for (std::size_t from = 0, to = 0; from < _columns; from = to) {
    while (to < _columns && (_order[from] < _firstRange) == (_order[to] < _firstRange) &&
           HaveSameRows(_order[from], _order[to])) {
      _patternOf[_order[to++]] = static_cast<std::uint32_t>(_patternCount);
    }
    _patterns[_patternCount++] = {_order + from, to - from};
  }
}

bool PairwiseBlocks::IsWide(Pattern pattern) { return pattern.size() >= kWideAbreast; }

// The columns of two patterns by each other; or those of one, with the variables.
void PairwiseBlocks::TakePatterns(Pattern a, Pattern b) {
  const bool isOne = a.data() == b.data();
  if (!isOne && !IsPair(a.front(), b.back()) && !IsPair(a.back(), b.front()) &&
      !IsPair(b.back(), a.front()) && !IsPair(b.front(), a.back())) {
    return;
  }
  std::copy(a.begin(), a.end(), _taskColumns);
  std::copy(b.begin(), b.end(), _taskColumns + (isOne ? 0 : a.size()));
  const std::span<const std::uint32_t> columns(_taskColumns, a.size() + (isOne ? 0 : b.size()));
  const bool areSomeAbsent = FindRowsOf(a.front(), b.front());
  TakeMeansOf(columns, areSomeAbsent);
  TakeProductsOf(a.size(), columns, isOne && !_isRectangle && a.size() > 1, areSomeAbsent);
  if (isOne) {
    PutVariables(a);
    if (!_isRectangle) {
      PutPairsWithin(a);
    }
  } else {
    PutPairsBetween(a, b);
  }
}

// The rows in which both columns are present, as masks, with their number and weights. Returns
// whether there are others.
bool PairwiseBlocks::FindRowsOf(std::uint32_t a, std::uint32_t b) {
  double* const counts = VectorOf(_totals, ordered::kLaneRows);
  double* const caseWeights = VectorOf(_totals, ordered::kLaneCaseWeight);
  double* const weights = VectorOf(_totals, ordered::kLaneWeight);
  _engine.CountAbreast(WordsOf(a), WordsOf(b), _pieces, counts);
  const bool areSomeAbsent = std::any_of(counts, counts + _lanes, [this](double count) {
    return count != static_cast<double>(_rows);
  });
  if (areSomeAbsent) {
    _engine.PresentAbreast(ValuesOf(a), ValuesOf(b), _missingCode, _rows, _masks);
  }
  const double* const masks = areSomeAbsent ? _masks : nullptr;
  std::copy_n(counts, _lanes, weights);
  if (_cases.HasWeights()) {
    std::fill_n(weights, _lanes, 0.);
    _engine.SumAbreast({_rows, _cases.Weights(), masks}, weights);
  }
  std::copy_n(_cases.HasRegWeights() ? counts : weights, _lanes, caseWeights);
  if (_cases.HasBothWeights()) {
    std::fill_n(caseWeights, _lanes, 0.);
    _engine.SumAbreast({_rows, _cases.CaseWeights(), masks}, caseWeights);
  }
  return areSomeAbsent;
}

ordered::RowsAbreast PairwiseBlocks::TaskRows(std::size_t from, std::size_t count,
                                              bool areSomeAbsent) const {
  return {count, _cases.HasWeights() ? _cases.Weights() + from * _lanes : nullptr,
          areSomeAbsent ? VectorOf(_masks, from) : nullptr};
}

void PairwiseBlocks::FindTaskValues(std::span<const std::uint32_t> columns, std::size_t from) {
  std::transform(columns.begin(), columns.end(), _taskValues,
                 [=, this](std::uint32_t column) { return ValuesOf(column, from); });
}

void PairwiseBlocks::TakeMeansOf(std::span<const std::uint32_t> columns, bool areSomeAbsent) {
  std::fill_n(_moments, columns.size() * ordered::kAbreastFields * _lanes, 0.);
  for (std::size_t from = 0; from < _rows; from += BlockReader::kPieceRows) {
    const std::size_t count = std::min(BlockReader::kPieceRows, _rows - from);
    FindTaskValues(columns, from);
    _engine.TurnedMoments(_taskValues, static_cast<unsigned>(columns.size()),
                          TaskRows(from, count, areSomeAbsent), _moments);
  }
  FinishMeans(_engine, _moments, columns.size(), VectorOf(_totals, ordered::kLaneWeight), _means);
}

void PairwiseBlocks::TakeProductsOf(std::size_t columnsA, std::span<const std::uint32_t> columns,
                                    bool isTriangle, bool areSomeAbsent) {
  const auto a = static_cast<unsigned>(columnsA);
  const auto b = static_cast<unsigned>(columns.size() - columnsA);
  const std::size_t cells = isTriangle ? std::size_t{a} * (a + 1) / 2 : std::size_t{a} * b;
  std::fill_n(_cells, cells * _lanes, 0.);
  std::fill_n(_cellsOfB, (isTriangle ? 0 : cells) * _lanes, 0.);
  std::fill_n(_squares, columns.size() * _lanes, 0.);
  const double* const distancesB = _distances + a * _stride;
  const double* const weightedB = _weighted + a * _stride;
  for (std::size_t from = 0; from < _rows; from += BlockReader::kPieceRows) {
    const std::size_t count = std::min(BlockReader::kPieceRows, _rows - from);
    FindTaskValues(columns, from);
    _engine.TurnedDistances(_taskValues, a + b, TaskRows(from, count, areSomeAbsent), _means,
                            _stride, _distances, _weighted);
    _engine.SquaresAbreast(_weighted, _distances, a + b, _stride, count, _squares);
    if (isTriangle) {
      _engine.ProductsAbreast(_weighted, a, _distances, a, true, _stride, count, _cells);
    } else if (b > 0) {
      // With a's columns as the first ones of pairs, and with b's.
      _engine.ProductsAbreast(_weighted, a, distancesB, b, false, _stride, count, _cells);
      if (!_isRectangle && weightedB != distancesB) {
        _engine.ProductsAbreast(weightedB, b, _distances, a, false, _stride, count, _cellsOfB);
      }
    }
  }
}

void PairwiseBlocks::PutRecord(double* record, const double* mean0, const double* mean1,
                               const double* squares0, const double* squares1,
                               const double* products) {
  const auto put = [&](ordered::PairLaneField field, const double* from) {
    std::copy_n(from, _lanes, VectorOf(record, field));
  };
  put(ordered::kLaneRows, VectorOf(_totals, ordered::kLaneRows));
  put(ordered::kLaneCaseWeight, VectorOf(_totals, ordered::kLaneCaseWeight));
  put(ordered::kLaneWeight, VectorOf(_totals, ordered::kLaneWeight));
  put(ordered::kLaneMean0, mean0);
  put(ordered::kLaneMean1, mean1);
  put(ordered::kLaneSquares0, squares0);
  put(ordered::kLaneSquares1, squares1);
  put(ordered::kLaneProducts, products);
}

void PairwiseBlocks::PutVariables(Pattern columns) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const double* const mean = VectorOf(_means, i);
    const double* const squares = VectorOf(_squares, i);
    PutRecord(PairAt(_variableRecords, columns[i]), mean, mean, squares, squares, squares);
    const double* const fields = VectorOf(_moments, i * ordered::kAbreastFields);
    for (unsigned lane = 0; lane < _lanes; ++lane) {
      const bool hasCases = VectorOf(_totals, ordered::kLaneRows)[lane] != 0.;
      double& min = VectorOf(_mins, columns[i])[lane];
      double& max = VectorOf(_maxs, columns[i])[lane];
      min = ordered::kNoMinimum;
      max = ordered::kNoMaximum;
      if (hasCases) {
        MergeExtremes(fields[ordered::kAbreastMin * _lanes + lane],
                      fields[ordered::kAbreastMax * _lanes + lane], min, max);
      }
    }
  }
}

void PairwiseBlocks::PutPair(std::uint32_t first, std::uint32_t second, std::size_t placeOfFirst,
                             std::size_t placeOfSecond, const double* product) {
  PutRecord(PairAt(_pairRecords, PlaceOf(first, second)), VectorOf(_means, placeOfFirst),
            VectorOf(_means, placeOfSecond), VectorOf(_squares, placeOfFirst),
            VectorOf(_squares, placeOfSecond), product);
}

void PairwiseBlocks::PutPairsWithin(Pattern columns) {
  for (std::size_t i = 0; i < columns.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      PutPair(columns[i], columns[j], i, j, VectorOf(_cells, i * (i + 1) / 2 + j));
    }
  }
}

void PairwiseBlocks::PutPairsBetween(Pattern a, Pattern b) {
  // Without weights, both orders have the same products.
  const double* const cellsOfB = _cases.HasWeights() ? _cellsOfB : nullptr;
  for (std::size_t i = 0; i < a.size(); ++i) {
    for (std::size_t j = 0; j < b.size(); ++j) {
      const double* const cell = VectorOf(_cells, i * b.size() + j);
      if (IsPair(a[i], b[j])) {
        PutPair(a[i], b[j], i, a.size() + j, cell);
      } else if (IsPair(b[j], a[i])) {
        PutPair(b[j], a[i], a.size() + j, i,
                cellsOfB != nullptr ? cellsOfB + (j * a.size() + i) * _lanes : cell);
      }
    }
  }
}

// Whether a task of patterns takes the pair.
bool PairwiseBlocks::AreTogether(std::uint32_t first, std::uint32_t second) const {
  const std::uint32_t patternOfFirst = _patternOf[first];
  const std::uint32_t patternOfSecond = _patternOf[second];
  return patternOfFirst == patternOfSecond ||
         (IsWide(_patterns[patternOfFirst]) && IsWide(_patterns[patternOfSecond]));
}

// The other pairs, by their first columns, with the numbers of their cases.
void PairwiseBlocks::ListPairs() {
  std::uint32_t count = 0;
  for (std::uint32_t first = 0; first < _columns; ++first) {
    for (std::uint32_t second = 0; second < _columns; ++second) {
      if (IsPair(first, second) && !AreTogether(first, second)) {
        double* const fields = PairAt(_pairRecords, PlaceOf(first, second));
        _listed[count++] = {ValuesOf(second), fields};
        _engine.CountAbreast(WordsOf(first), WordsOf(second), _pieces,
                             VectorOf(fields, ordered::kLaneRows));
      }
    }
    _listedTo[first] = count;
  }
}

// Calls take(a first column's values, its pairs, their number).
template <class Take>
void PairwiseBlocks::ForEachListed(Take take) const {
  for (std::size_t c = 0, from = 0; c < _columns; from = _listedTo[c++]) {
    if (from != _listedTo[c]) {
      take(ValuesOf(c), _listed + from, static_cast<unsigned>(_listedTo[c] - from));
    }
  }
}

template <class Kernel>
void PairwiseBlocks::PassOverListed(Kernel kernel) const {
  for (std::size_t from = 0; from < _rows; from += kPairRows) {
    const ordered::PairRowsAbreast rows{from, std::min(_rows, from + kPairRows), _cases.Weights(),
                                        _cases.CaseWeights(), _missingCode};
    ForEachListed([&](const double* x, const ordered::PairAbreast* pairs, unsigned count) {
      kernel(rows, x, pairs, count);
    });
  }
}

// The sums of weights that no kernel takes, as they follow from the number of cases; then the
// means.
void PairwiseBlocks::FinishListedSums() {
  ForEachListed([&](const double* /*x*/, const ordered::PairAbreast* pairs, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      const double* const rows = VectorOf(pairs[i].fields, ordered::kLaneRows);
      double* const caseWeight = VectorOf(pairs[i].fields, ordered::kLaneCaseWeight);
      double* const weight = VectorOf(pairs[i].fields, ordered::kLaneWeight);
      if (!_cases.HasWeights()) {
        std::copy_n(rows, _lanes, weight);
      }
      if (!_cases.HasBothWeights()) {
        std::copy_n(_cases.HasRegWeights() ? rows : weight, _lanes, caseWeight);
      }
    }
    _engine.PairMeansAbreast(pairs, count);
  });
}

// Before the variables' records are merged, which say what _lanes have cases.
void PairwiseBlocks::MergeExtremesOf(std::size_t column) {
  const double* const counts = VectorOf(PairAt(_variableRecords, column), ordered::kLaneRows);
  std::array<bool, ordered::kMaxLanes> haveCases{};
  std::transform(counts, counts + _lanes, haveCases.begin(),
                 [](double count) { return count != 0.; });
  double* const mins = VectorOf(_mins, column);
  double* const maxs = VectorOf(_maxs, column);
  for (unsigned step = 1; step < _lanes; step *= 2) {
    for (unsigned lane = 0; lane < _lanes; lane += 2 * step) {
      if (haveCases[lane + step]) {
        MergeExtremes(mins[lane + step], maxs[lane + step], mins[lane], maxs[lane]);
        haveCases[lane] = true;
      }
    }
  }
}

bool PairwiseBlocks::Merge() {
  if (!_cases.CanMerge()) {
    return false;
  }
  const DefaultFloatEnvironment environment;
  for (std::size_t c = 0; c < _columns; ++c) {
    MergeExtremesOf(c);
  }
  _engine.MergePairsAbreast(_variableRecords, _columns);
  _engine.MergePairsAbreast(_pairRecords, _pairs);
  _cases.Merge();
  return true;
}

const PairwiseTotals& PairwiseBlocks::Block(unsigned lane) {
  const auto take = [&](double* records, std::size_t count, PairwiseTotals::Record* to) {
    for (std::size_t i = 0; i < count; ++i) {
      for (unsigned field = 0; field < ordered::kPairRecordFieldsAbreast; ++field) {
        to[i][field] = VectorOf(PairAt(records, i), field)[lane];
      }
    }
    return std::span<const PairwiseTotals::Record>(to, count);
  };
  for (std::size_t c = 0; c < _columns; ++c) {
    _oneExtremes[c] = VectorOf(_mins, c)[lane];
    _oneExtremes[_columns + c] = VectorOf(_maxs, c)[lane];
  }
  _block = {_cases.Count(lane),
            _cases.WeightSums()[lane],
            _cases.RegWeightSums()[lane],
            _cases.HasRegWeights(),
            take(_variableRecords, _columns, _oneVariables),
            {_oneExtremes, _columns},
            {_oneExtremes + _columns, _columns},
            take(_pairRecords, _pairs, _onePairs)};
  return _block;
}

}  // namespace velmor
