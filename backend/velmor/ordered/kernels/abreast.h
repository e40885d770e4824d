#pragma once

// Blocks of rows side by side: a lane is a block, and holds the chains of that block. So whatever
// the number of columns is, no lane is empty, and the chains of a tile don't wait for each other.
// Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

#include <utility>

namespace velmor::ordered {

// A column of blocks where it lies, which is turned on the way.
template <class Set>
struct LyingRows {
  static constexpr std::size_t kLine = 8;
  LyingColumn column;

  Vector<Set> Get(std::size_t row) const {
    Vector<Set> x{};
    for (unsigned lane = 0; lane < Set::kLanes; ++lane) {
      x[lane] = column.first[lane * column.stride + row];
    }
    return x;
  }
  // As many rows as there are lanes.
  [[gnu::always_inline]] void GetSome(std::size_t row, Vector<Set> (&x)[Set::kLanes]) const {
#pragma GCC unroll 8
    for (unsigned lane = 0; lane < Set::kLanes; ++lane) {
      const double* const at = column.first + row + lane * column.stride;
      x[lane] = LoadVector<Set>(at);
      if (row % kLine == 0) {
        __builtin_prefetch(at + column.ahead, 0, 2);
      }
    }
    TransposeVectors<Set>(x);
  }
};

// A column that has been turned.
template <class Set>
struct TurnedRows {
  const double* turned;

  Vector<Set> Get(std::size_t row) const { return LoadVector<Set>(turned + row * Set::kLanes); }
  [[gnu::always_inline]] void GetSome(std::size_t row, Vector<Set> (&x)[Set::kLanes]) const {
#pragma GCC unroll 8
    for (unsigned i = 0; i < Set::kLanes; ++i) {
      x[i] = Get(row + i);
    }
  }
};

// Calls visit(column, row, the lanes' values) for rows [from, to) of some columns, which take turns
// so that no chain waits for itself.
template <class Set, unsigned kColumns, class Rows, class Visit>
[[gnu::always_inline]] inline void ForEachRow(const Rows (&columns)[kColumns], std::size_t from,
                                              std::size_t to, Visit visit) {
  for (; from + Set::kLanes <= to; from += Set::kLanes) {
#pragma GCC unroll 8
    for (unsigned c = 0; c < kColumns; ++c) {
      Vector<Set> x[Set::kLanes];
      columns[c].GetSome(from, x);
#pragma GCC unroll 8
      for (unsigned i = 0; i < Set::kLanes; ++i) {
        visit(c, from + i, x[i]);
      }
    }
  }
  for (; from < to; ++from) {
#pragma GCC unroll 8
    for (unsigned c = 0; c < kColumns; ++c) {
      visit(c, from, columns[c].Get(from));
    }
  }
}

template <class Set>
void TurnAbreast(const LyingColumn& column, std::size_t rows, double* turned) {
  const LyingRows<Set> lying[] = {{column}};
  ForEachRow<Set>(lying, 0, rows, [turned](unsigned /*column*/, std::size_t row, Vector<Set> x) {
    StoreVector<Set>(x, turned + row * Set::kLanes);
  });
}

// What the lanes' rows have beside their values.
template <class Set, bool kWeighted, bool kSome>
struct LaneRows {
  RowsAbreast rows;

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
  [[gnu::always_inline]] void TakeExtremes(std::size_t row, Vector<Set> x, Vector<Set>& min,
                                           Vector<Set>& max) const {
    if constexpr (kSome) {
      const Mask<Set> isUsed = IsUsed(row);
      min = (isUsed & (x < min)) ? x : min;
      max = (isUsed & (x > max)) ? x : max;
    } else {
      min = x < min ? x : min;
      max = x > max ? x : max;
    }
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

// A column's moments while a lane may be in its leading run of equal values.
template <class Set, bool kWeighted, bool kSome>
struct RunAbreast {
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
  [[gnu::always_inline]] void Take(std::size_t row, Vector<Set> x) {
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
    lanes.TakeExtremes(row, x, min, max);
  }
};

// Takes rows of a column until all lanes have left their runs. Returns the row that comes next.
template <class Set, bool kWeighted, bool kSome, class Rows>
std::size_t TakeRun(Rows column, const RowsAbreast& rows, double* moments) {
  RunAbreast<Set, kWeighted, kSome> taken{{rows}, moments};
  const Rows columns[] = {column};
  std::size_t row = 0;
  while (row < rows.count && !HoldsEverywhere<Set>(taken.ended)) {
    const std::size_t to = row + Set::kLanes < rows.count ? row + Set::kLanes : rows.count;
    ForEachRow<Set>(columns, row, to,
                    [&](unsigned /*column*/, std::size_t i, Vector<Set> x) { taken.Take(i, x); });
    row = to;
  }
  taken.Put();
  return row;
}

// Takes the other rows of some columns.
template <class Set, bool kWeighted, bool kSome, unsigned kColumns, class Rows>
void TakeSteadyRows(const Rows (&columns)[kColumns], std::size_t from, const RowsAbreast& rows,
                    double* moments) {
  const LaneRows<Set, kWeighted, kSome> lanes{rows};
  const auto at = [=](unsigned column, AbreastField field) {
    return moments + (column * kAbreastFields + field) * Set::kLanes;
  };
  Vector<Set> sum[kColumns];
  Vector<Set> min[kColumns];
  Vector<Set> max[kColumns];
#pragma GCC unroll 8
  for (unsigned c = 0; c < kColumns; ++c) {
    sum[c] = LoadVector<Set>(at(c, kAbreastSum));
    min[c] = LoadVector<Set>(at(c, kAbreastMin));
    max[c] = LoadVector<Set>(at(c, kAbreastMax));
  }
  ForEachRow<Set>(columns, from, rows.count, [&](unsigned c, std::size_t row, Vector<Set> x) {
    sum[c] = lanes.Add(row, lanes.Weighted(row, x), sum[c]);
    lanes.TakeExtremes(row, x, min[c], max[c]);
  });
#pragma GCC unroll 8
  for (unsigned c = 0; c < kColumns; ++c) {
    StoreVector<Set>(sum[c], at(c, kAbreastSum));
    StoreVector<Set>(min[c], at(c, kAbreastMin));
    StoreVector<Set>(max[c], at(c, kAbreastMax));
  }
}

// rowsOf(c) has the rows of column c.
template <class Set, class Rows, class RowsOf>
[[gnu::always_inline]] inline void TakeMomentsAbreast(RowsOf rowsOf, unsigned count,
                                                      const RowsAbreast& rows, double* moments) {
  constexpr unsigned kTogether = Set::kColumnsAbreast;
  WithKindOf(rows, [&]<bool kWeighted, bool kSome>() {
    for (unsigned c = 0; c < count; c += kTogether) {
      Rows columns[kTogether];
      std::size_t from[kTogether];
      const unsigned some = count - c < kTogether ? count - c : kTogether;
      bool areTogether = some == kTogether;
      for (unsigned i = 0; i < some; ++i) {
        columns[i] = rowsOf(c + i);
        double* const fields = moments + (c + i) * kAbreastFields * Set::kLanes;
        from[i] = HoldsEverywhere<Set>(LoadMask<Set>(fields + kAbreastRunEnded * Set::kLanes))
                      ? 0
                      : TakeRun<Set, kWeighted, kSome>(columns[i], rows, fields);
        areTogether = areTogether && from[i] == from[0];
      }
      double* const fields = moments + c * kAbreastFields * Set::kLanes;
      if (areTogether) {
        TakeSteadyRows<Set, kWeighted, kSome>(columns, from[0], rows, fields);
        continue;
      }
      for (unsigned i = 0; i < some; ++i) {
        const Rows column[] = {columns[i]};
        TakeSteadyRows<Set, kWeighted, kSome>(column, from[i], rows,
                                              fields + i * kAbreastFields * Set::kLanes);
      }
    }
  });
}

template <class Set>
void MomentsAbreast(const LyingColumn* columns, unsigned count, const RowsAbreast& rows,
                    double* moments) {
  TakeMomentsAbreast<Set, LyingRows<Set>>([=](unsigned c) { return LyingRows<Set>{columns[c]}; },
                                          count, rows, moments);
}

template <class Set>
void TurnedMoments(const double* const* turned, unsigned count, const RowsAbreast& rows,
                   double* moments) {
  TakeMomentsAbreast<Set, TurnedRows<Set>>([=](unsigned c) { return TurnedRows<Set>{turned[c]}; },
                                           count, rows, moments);
}

template <class Set, class Rows, class RowsOf>
[[gnu::always_inline]] inline void TakeDistancesAbreast(RowsOf rowsOf, unsigned count,
                                                        const RowsAbreast& rows,
                                                        const double* means, std::size_t stride,
                                                        double* distances, double* weighted) {
  WithKindOf(rows, [&]<bool kWeighted, bool kSome>() {
    const LaneRows<Set, kWeighted, kSome> lanes{rows};
    for (unsigned c = 0; c < count; ++c) {
      const Rows columns[] = {rowsOf(c)};
      const Vector<Set> mean = LoadVector<Set>(means + c * Set::kLanes);
      double* const to = distances + c * stride;
      double* const toWeighted = weighted + c * stride;
      ForEachRow<Set>(columns, 0, rows.count,
                      [=](unsigned /*column*/, std::size_t row, Vector<Set> x) {
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
void DistancesAbreast(const LyingColumn* columns, unsigned count, const RowsAbreast& rows,
                      const double* means, std::size_t stride, double* distances,
                      double* weighted) {
  TakeDistancesAbreast<Set, LyingRows<Set>>([=](unsigned c) { return LyingRows<Set>{columns[c]}; },
                                            count, rows, means, stride, distances, weighted);
}

template <class Set>
void TurnedDistances(const double* const* turned, unsigned count, const RowsAbreast& rows,
                     const double* means, std::size_t stride, double* distances, double* weighted) {
  TakeDistancesAbreast<Set, TurnedRows<Set>>([=](unsigned c) { return TurnedRows<Set>{turned[c]}; },
                                             count, rows, means, stride, distances, weighted);
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
