#pragma once

// Blocks of rows side by side: a lane is a block, and holds the chains of that block. So whatever
// the number of columns is, no lane is empty, and the chains of a tile don't wait for each other.
// Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

#include <utility>

namespace velmor::ordered {

// Rows of columns where they lie, an address in each lane's block; they are turned on the way.
template <class Set>
struct LyingColumns {
  const double* const* blocks;

  LyingColumns From(unsigned column) const { return {blocks + column * Set::kLanes}; }
  // Calls visit(row, the lanes' values in it) for rows [from, to) of the first column.
  template <class Visit>
  [[gnu::always_inline]] void ForEachRow(std::size_t from, std::size_t to, Visit visit) const {
    constexpr unsigned kLanes = Set::kLanes;
    for (; from + kLanes <= to; from += kLanes) {
      Vector<Set> x[kLanes];
      LoadTransposed<Set>(blocks, from, x);
#pragma GCC unroll 8
      for (unsigned i = 0; i < kLanes; ++i) {
        visit(from + i, x[i]);
      }
    }
    for (; from < to; ++from) {
      Vector<Set> x{};
      for (unsigned lane = 0; lane < kLanes; ++lane) {
        x[lane] = blocks[lane][from];
      }
      visit(from, x);
    }
  }
};

// Columns that have been turned.
template <class Set>
struct TurnedColumns {
  const double* const* columns;

  TurnedColumns From(unsigned column) const { return {columns + column}; }
  template <class Visit>
  [[gnu::always_inline]] void ForEachRow(std::size_t from, std::size_t to, Visit visit) const {
    for (; from < to; ++from) {
      visit(from, LoadVector<Set>(columns[0] + from * Set::kLanes));
    }
  }
};

template <class Set>
void TurnAbreast(const double* const* blocks, std::size_t rows, double* turned) {
  LyingColumns<Set>{blocks}.ForEachRow(0, rows, [turned](std::size_t row, Vector<Set> x) {
    StoreVector<Set>(x, turned + row * Set::kLanes);
  });
}

// What the lanes' rows have beside their values.
template <class Set, bool kWeighted, bool kSome>
struct LaneRows {
  const RowsAbreast& rows;

  Vector<Set> Weight(std::size_t row) const {
    return kWeighted ? LoadVector<Set>(rows.weights + row * Set::kLanes) : Broadcast<Set>(1.);
  }
  Vector<Set> Weighted(std::size_t row, Vector<Set> x) const {
    return kWeighted ? Weight(row) * x : x;
  }
  Mask<Set> IsUsed(std::size_t row) const {
    return kSome ? LoadMask<Set>(rows.used + row * Set::kLanes) : ~Mask<Set>{};
  }
  Vector<Set> Add(std::size_t row, Vector<Set> term, Vector<Set> sum) const {
    return kSome ? AddWhere<Set>(IsUsed(row), term, sum) : term + sum;
  }
  // Of a lane that leaves the row out, +0, which changes no sum.
  Vector<Set> OrZero(std::size_t row, Vector<Set> x) const {
    return kSome ? (IsUsed(row) ? x : Vector<Set>{}) : x;
  }
};

// Calls call.operator()<kWeighted, kSome>() as the rows are.
template <class Call>
[[gnu::always_inline]] inline void WithKindOf(const RowsAbreast& rows, Call call) {
  if (rows.used != nullptr) {
    rows.weights != nullptr ? call.template operator()<true, true>()
                            : call.template operator()<false, true>();
  } else {
    rows.weights != nullptr ? call.template operator()<true, false>()
                            : call.template operator()<false, false>();
  }
}

template <class Set>
void SumAbreast(const RowsAbreast& rows, double* sums) {
  WithKindOf(rows, [&]<bool kWeighted, bool kSome>() {
    const LaneRows<Set, kWeighted, kSome> lanes{rows};
    Vector<Set> sum = LoadVector<Set>(sums);
    for (std::size_t row = 0; row < rows.count; ++row) {
      sum = lanes.Add(row, lanes.Weight(row), sum);
    }
    StoreVector<Set>(sum, sums);
  });
}

// The moments of one column in registers.
template <class Set, bool kWeighted, bool kSome>
struct ColumnAbreast {
  LaneRows<Set, kWeighted, kSome> lanes;
  double* fields = nullptr;
  Vector<Set> sum = LoadVector<Set>(At(kAbreastSum));
  Vector<Set> min = LoadVector<Set>(At(kAbreastMin));
  Vector<Set> max = LoadVector<Set>(At(kAbreastMax));
  Vector<Set> runValue = LoadVector<Set>(At(kAbreastRunValue));
  Vector<Set> runWeight = LoadVector<Set>(At(kAbreastRunWeight));
  Mask<Set> started = LoadMask<Set>(At(kAbreastStarted));
  Mask<Set> ended = LoadMask<Set>(At(kAbreastRunEnded));

  double* At(AbreastField field) const { return fields + field * Set::kLanes; }

  void Put() const {
    StoreVector<Set>(sum, At(kAbreastSum));
    StoreVector<Set>(min, At(kAbreastMin));
    StoreVector<Set>(max, At(kAbreastMax));
    StoreVector<Set>(runValue, At(kAbreastRunValue));
    StoreVector<Set>(runWeight, At(kAbreastRunWeight));
    StoreMask<Set>(started, At(kAbreastStarted));
    StoreMask<Set>(ended, At(kAbreastRunEnded));
  }
  [[gnu::always_inline]] void TakeExtremes(std::size_t row, Vector<Set> x) {
    if constexpr (kSome) {
      const Mask<Set> isUsed = lanes.IsUsed(row);
      min = (isUsed & (x < min)) ? x : min;
      max = (isUsed & (x > max)) ? x : max;
    } else {
      min = x < min ? x : min;
      max = x > max ? x : max;
    }
  }
  // A row of which a lane may be in its leading run of equal values.
  [[gnu::always_inline]] void TakeWithRun(std::size_t row, Vector<Set> x) {
    const Mask<Set> isUsed = lanes.IsUsed(row);
    const Mask<Set> starts = isUsed & ~started;
    const Vector<Set> weight = lanes.Weight(row);
    started = started | starts;
    runValue = starts ? x : runValue;
    min = starts ? x : min;
    max = starts ? x : max;
    ended = ended | (isUsed & ~(x == runValue));
    runWeight = AddWhere<Set>(isUsed & ~ended, weight, runWeight);
    sum = AddWhere<Set>(isUsed & ended, weight * x, sum);
    TakeExtremes(row, x);
  }
  [[gnu::always_inline]] void Take(std::size_t row, Vector<Set> x) {
    sum = lanes.Add(row, lanes.Weighted(row, x), sum);
    TakeExtremes(row, x);
  }
};

template <class Set, class Source>
void TakeMomentsAbreast(Source source, unsigned columns, const RowsAbreast& rows, double* moments) {
  WithKindOf(rows, [&]<bool kWeighted, bool kSome>() {
    for (unsigned c = 0; c < columns; ++c) {
      const Source column = source.From(c);
      ColumnAbreast<Set, kWeighted, kSome> taken{{rows},
                                                 moments + c * kAbreastFields * Set::kLanes};
      std::size_t row = 0;
      while (row < rows.count && !HoldsEverywhere<Set>(taken.ended)) {
        const std::size_t to = row + Set::kLanes < rows.count ? row + Set::kLanes : rows.count;
        column.ForEachRow(row, to, [&](std::size_t i, Vector<Set> x) { taken.TakeWithRun(i, x); });
        row = to;
      }
      column.ForEachRow(row, rows.count, [&](std::size_t i, Vector<Set> x) { taken.Take(i, x); });
      taken.Put();
    }
  });
}

template <class Set>
void MomentsAbreast(const double* const* blocks, unsigned columns, const RowsAbreast& rows,
                    double* moments) {
  TakeMomentsAbreast<Set>(LyingColumns<Set>{blocks}, columns, rows, moments);
}

template <class Set>
void TurnedMoments(const double* const* turned, unsigned columns, const RowsAbreast& rows,
                   double* moments) {
  TakeMomentsAbreast<Set>(TurnedColumns<Set>{turned}, columns, rows, moments);
}

template <class Set, class Source>
void TakeDistancesAbreast(Source source, unsigned columns, const RowsAbreast& rows,
                          const double* means, std::size_t stride, double* distances,
                          double* weighted) {
  WithKindOf(rows, [&]<bool kWeighted, bool kSome>() {
    const LaneRows<Set, kWeighted, kSome> lanes{rows};
    for (unsigned c = 0; c < columns; ++c) {
      const Vector<Set> mean = LoadVector<Set>(means + c * Set::kLanes);
      double* const to = distances + c * stride;
      double* const toWeighted = weighted + c * stride;
      source.From(c).ForEachRow(0, rows.count, [&](std::size_t row, Vector<Set> x) {
        const Vector<Set> distance = x - mean;
        StoreVector<Set>(lanes.OrZero(row, distance), to + row * Set::kLanes);
        if constexpr (kWeighted) {
          StoreVector<Set>(lanes.OrZero(row, lanes.Weight(row) * distance),
                           toWeighted + row * Set::kLanes);
        }
      });
    }
  });
}

template <class Set>
void DistancesAbreast(const double* const* blocks, unsigned columns, const RowsAbreast& rows,
                      const double* means, std::size_t stride, double* distances,
                      double* weighted) {
  TakeDistancesAbreast<Set>(LyingColumns<Set>{blocks}, columns, rows, means, stride, distances,
                            weighted);
}

template <class Set>
void TurnedDistances(const double* const* turned, unsigned columns, const RowsAbreast& rows,
                     const double* means, std::size_t stride, double* distances, double* weighted) {
  TakeDistancesAbreast<Set>(TurnedColumns<Set>{turned}, columns, rows, means, stride, distances,
                            weighted);
}

// kRows columns of a by kColumns of b; of a tile on a triangle's diagonal those with b <= a only.
//   cells  the first cell of each row
template <class Set, unsigned kRows, unsigned kColumns, bool kIsDiagonal>
void TileAbreast(const double* a, const double* b, std::size_t stride, std::size_t rows,
                 double* const* cells) {
  constexpr unsigned kLanes = Set::kLanes;
  const auto isWanted = [](unsigned r, unsigned c) { return !kIsDiagonal || c <= r; };
  Vector<Set> sums[kRows][kColumns];
#pragma GCC unroll 8
  for (unsigned r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
    for (unsigned c = 0; c < kColumns; ++c) {
      if (isWanted(r, c)) {
        sums[r][c] = LoadVector<Set>(cells[r] + std::size_t{c} * kLanes);
      }
    }
  }
  for (std::size_t row = 0; row < rows; ++row) {
    Vector<Set> y[kColumns];
#pragma GCC unroll 8
    for (unsigned c = 0; c < kColumns; ++c) {
      y[c] = LoadVector<Set>(b + c * stride + row * kLanes);
    }
#pragma GCC unroll 8
    for (unsigned r = 0; r < kRows; ++r) {
      const Vector<Set> x = LoadVector<Set>(a + r * stride + row * kLanes);
#pragma GCC unroll 8
      for (unsigned c = 0; c < kColumns; ++c) {
        if (isWanted(r, c)) {
          sums[r][c] = x * y[c] + sums[r][c];
        }
      }
    }
  }
#pragma GCC unroll 8
  for (unsigned r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
    for (unsigned c = 0; c < kColumns; ++c) {
      if (isWanted(r, c)) {
        StoreVector<Set>(sums[r][c], cells[r] + std::size_t{c} * kLanes);
      }
    }
  }
}

using TakeTile = void (*)(const double*, const double*, std::size_t, std::size_t, double* const*);

template <class Set, unsigned kRows, unsigned... kColumn>
TakeTile TileOfRows(unsigned columns, bool isDiagonal,
                    std::integer_sequence<unsigned, kColumn...> /*all*/) {
  constexpr TakeTile kTiles[] = {TileAbreast<Set, kRows, kColumn + 1, false>...};
  return isDiagonal ? TileAbreast<Set, kRows, kRows, true> : kTiles[columns - 1];
}

template <class Set, unsigned... kRow>
TakeTile TileOf(unsigned rows, unsigned columns, bool isDiagonal,
                std::integer_sequence<unsigned, kRow...> all) {
  TakeTile tile = nullptr;
  static_cast<void>(
      ((rows == kRow + 1 && (tile = TileOfRows<Set, kRow + 1>(columns, isDiagonal, all), true)) ||
       ...));
  return tile;
}

template <class Set>
void ProductsAbreast(const double* a, unsigned columnsA, const double* b, unsigned columnsB,
                     bool isTriangle, std::size_t stride, std::size_t rows, double* cells) {
  constexpr unsigned kLanes = Set::kLanes;
  constexpr unsigned kTile = Set::kTileAbreast;
  constexpr auto kAll = std::make_integer_sequence<unsigned, kTile>{};
  const auto rest = [](unsigned columns) { return columns < kTile ? columns : kTile; };
  double* row = cells;
  for (unsigned i = 0; i < columnsA; i += kTile) {
    const unsigned height = rest(columnsA - i);
    double* starts[kTile] = {};
    for (unsigned r = 0; r < height; ++r) {
      starts[r] = row;
      row += std::size_t{isTriangle ? i + r + 1 : columnsB} * kLanes;
    }
    const unsigned end = isTriangle ? i + 1 : columnsB;
    for (unsigned j = 0; j < end; j += kTile) {
      const bool isDiagonal = isTriangle && j == i;
      TileOf<Set>(height, isDiagonal ? height : rest(columnsB - j), isDiagonal, kAll)(
          a + i * stride, b + j * stride, stride, rows, starts);
      for (unsigned r = 0; r < height; ++r) {
        starts[r] += std::size_t{kTile} * kLanes;
      }
    }
  }
}

template <class Set>
void SquaresAbreast(const double* a, const double* b, unsigned columns, std::size_t stride,
                    std::size_t rows, double* squares) {
  for (unsigned c = 0; c < columns; ++c) {
    double* const cell = squares + c * Set::kLanes;
    TileAbreast<Set, 1, 1, false>(a + c * stride, b + c * stride, stride, rows, &cell);
  }
}

// Lane l gets what lane l + kStep holds, for the lanes that have such a neighbour.
template <class Set, unsigned kStep, unsigned... kLane>
[[gnu::always_inline]] inline Vector<Set> Neighbours(
    Vector<Set> v, std::integer_sequence<unsigned, kLane...> /*all*/) {
  return __builtin_shufflevector(v, v, ((kLane + kStep) % Set::kLanes)...);
}

// A step of merging: each lane takes up the lane that is kStep behind it. What then is in lanes
// that are no multiple of 2 * kStep means nothing.
template <class Set, unsigned kStep>
struct LaneMerge {
  const ListwiseAbreast& record;
  Vector<Set> weightA;
  Vector<Set> weightB = Next(weightA);

  static Vector<Set> Next(Vector<Set> v) {
    return Neighbours<Set, kStep>(v, std::make_integer_sequence<unsigned, Set::kLanes>{});
  }
  static double* At(double* field, std::size_t i) { return field + i * Set::kLanes; }

  // The mean's shift as it is before it is rounded into the merged mean.
  Vector<Set> MeanShift(Vector<Set> meanA, Vector<Set> meanB) const {
    const Vector<Set> sum = weightA + weightB;
    const Vector<Set> quotient = ((meanB - meanA) * weightB) / sum;
    return sum == 0. ? Vector<Set>{} : quotient;
  }
  void MergeMeans() const {
    for (unsigned i = 0; i < record.columns; ++i) {
      const Vector<Set> meanA = LoadVector<Set>(At(record.means, i));
      const Vector<Set> meanB = Next(meanA);
      const Vector<Set> shift = MeanShift(meanA, meanB);
      const Vector<Set> merged = meanA + shift;
      StoreVector<Set>(shift, At(record.shifts, i));
      StoreVector<Set>(merged - meanA, At(record.shiftsA, i));
      StoreVector<Set>(merged - meanB, At(record.shiftsB, i));
      StoreVector<Set>(merged, At(record.means, i));
    }
  }
  void MergeExtremes() const {
    for (unsigned i = 0; i < record.columns; ++i) {
      const Vector<Set> min = LoadVector<Set>(At(record.mins, i));
      const Vector<Set> max = LoadVector<Set>(At(record.maxs, i));
      StoreVector<Set>(min > Next(min) ? Next(min) : min, At(record.mins, i));
      StoreVector<Set>(Next(max) > max ? Next(max) : max, At(record.maxs, i));
    }
  }
  // A row of cells, those of column i by the columns from `first` on.
  void MergeRow(Vector<Set> shift, unsigned i, unsigned first, unsigned count,
                double* cells) const {
    const Vector<Set> factorA = weightA * shift;
    const Vector<Set> factorB = weightB * LoadVector<Set>(At(record.shiftsB, i));
    for (unsigned j = 0; j < count; ++j) {
      const Vector<Set> a = LoadVector<Set>(At(cells, j));
      const Vector<Set> shiftA = LoadVector<Set>(At(record.shiftsA, first + j));
      const Vector<Set> shiftB = LoadVector<Set>(At(record.shiftsB, first + j));
      StoreVector<Set>(((Next(a) + factorA * shiftA) + factorB * shiftB) + a, At(cells, j));
    }
  }
  void MergeTriangle() const {
    std::size_t cell = 0;
    for (unsigned i = 0; i < record.columns; ++i) {
      MergeRow(LoadVector<Set>(At(record.shifts, i)), i, 0, i + 1, At(record.cells, cell));
      cell += i + 1;
    }
  }
  // Unlike in a triangle, a row's factor takes the mean's shift as it was rounded, and a square
  // sum's terms are taken as square times weight.
  void MergeRectangle() const {
    const unsigned columns = record.columns - record.firstRange;
    for (unsigned i = 0; i < record.firstRange; ++i) {
      MergeRow(LoadVector<Set>(At(record.shiftsA, i)), i, record.firstRange, columns,
               At(record.cells, std::size_t{i} * columns));
    }
    for (unsigned i = 0; i < record.columns; ++i) {
      const Vector<Set> a = LoadVector<Set>(At(record.squares, i));
      const Vector<Set> shift = LoadVector<Set>(At(record.shifts, i));
      const Vector<Set> shiftB = LoadVector<Set>(At(record.shiftsB, i));
      StoreVector<Set>(((Next(a) + (shift * shift) * weightA) + (shiftB * shiftB) * weightB) + a,
                       At(record.squares, i));
    }
  }
  void Merge() const {
    MergeMeans();
    if (record.mins != nullptr) {
      MergeExtremes();
    }
    if (record.squares == nullptr) {
      MergeTriangle();
    } else {
      MergeRectangle();
    }
  }
};

template <class Set>
void MergeAbreast(const ListwiseAbreast& record, const double* weights) {
  const Vector<Set> ofOnes = LoadVector<Set>(weights);
  LaneMerge<Set, 1>{record, ofOnes}.Merge();
  if constexpr (Set::kLanes >= 4) {
    const Vector<Set> ofTwos = ofOnes + LaneMerge<Set, 1>::Next(ofOnes);
    LaneMerge<Set, 2>{record, ofTwos}.Merge();
    if constexpr (Set::kLanes >= 8) {
      LaneMerge<Set, 4>{record, ofTwos + LaneMerge<Set, 2>::Next(ofTwos)}.Merge();
    }
  }
}

}  // namespace velmor::ordered
