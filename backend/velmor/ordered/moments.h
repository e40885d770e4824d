#pragma once

// Means and extremes of columns. Contracts: engine.h. A mean's leading run of equal values is a
// lane's state; once no lane is in its run any more, the plain loop goes on.

#include "ordered/engine.h"
#include "ordered/vectors.h"

namespace velmor::ordered {

// Rows of panels: vector v belongs to panel v / parts of a panel.
template <class Set>
struct RowsOfPanels {
  static constexpr unsigned kParts = Set::kPanel / Set::kLanes;
  const double* panels;
  std::size_t stride;
  Rows rows;

  std::size_t Row(std::size_t i) const { return rows.list ? rows.list[i] : i; }
  Vector<Set> Get(std::size_t i, unsigned v) const {
    return Load<Set>(panels + v / kParts * stride + Row(i) * Set::kPanel + v % kParts * Set::kLanes);
  }
  // As many rows as a vector has lanes.
  void GetSome(std::size_t i, unsigned v, Vector<Set> (&x)[Set::kLanes]) const {
#pragma GCC unroll 8
    for (unsigned r = 0; r < Set::kLanes; ++r) {
      x[r] = Get(i + r, v);
    }
  }
};

// Rows of columns, which are turned on the way.
template <class Set>
struct RowsOfColumns {
  const double* const* columns;

  static std::size_t Row(std::size_t i) { return i; }
  Vector<Set> Get(std::size_t i, unsigned v) const {
    Vector<Set> x{};
    for (unsigned lane = 0; lane < Set::kLanes; ++lane) {
      x[lane] = columns[v * Set::kLanes + lane][i];
    }
    return x;
  }
  void GetSome(std::size_t i, unsigned v, Vector<Set> (&x)[Set::kLanes]) const {
#pragma GCC unroll 8
    for (unsigned lane = 0; lane < Set::kLanes; ++lane) {
      x[lane] = Load<Set>(columns[v * Set::kLanes + lane] + i);
    }
    TransposeVectors<Set>(x);
  }
};

// kSumsWeights: their sum is one more chain beside those of the columns.
template <class Set, class Source, unsigned kPanels, bool kWeighted, bool kSumsWeights>
void TakeMoments(const Source& source, std::size_t rows, const double* weights, bool isFirst,
                 double* moments, double* weightSum) {
  constexpr unsigned kParts = Set::kPanel / Set::kLanes;
  constexpr unsigned kVectors = kPanels * kParts;
  const auto field = [moments](unsigned v, MomentField f) {
    return moments + (v / kParts * kMomentFields + f) * Set::kPanel + v % kParts * Set::kLanes;
  };
  if (rows == 0) {
    return;
  }
  if (isFirst) {
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> first = source.Get(0, v);
      Store<Set>(Vector<Set>{}, field(v, kSum));
      Store<Set>(first, field(v, kRunValue));
      Store<Set>(Vector<Set>{}, field(v, kRunWeight));
      Store<Set>(Vector<Set>{}, field(v, kRunEnded));
      Store<Set>(first, field(v, kMin));
      Store<Set>(first, field(v, kMax));
    }
  }
  Vector<Set> sum[kVectors];
  Vector<Set> min[kVectors];
  Vector<Set> max[kVectors];
  Mask<Set> ended[kVectors];
  double allWeights = kSumsWeights ? *weightSum : 0.;
#pragma GCC unroll 8
  for (unsigned v = 0; v < kVectors; ++v) {
    sum[v] = Load<Set>(field(v, kSum));
    min[v] = Load<Set>(field(v, kMin));
    max[v] = Load<Set>(field(v, kMax));
    ended[v] = reinterpret_cast<Mask<Set>>(Load<Set>(field(v, kRunEnded)));
  }
  const auto allEnded = [&ended] {
    Mask<Set> all = ended[0];
    for (unsigned v = 1; v < kVectors; ++v) {
      all = all & ended[v];
    }
    return HoldsEverywhere<Set>(all);
  };
  const auto takeWeight = [&](std::size_t i) {
    const double weight = kWeighted ? weights[source.Row(i)] : 1.;
    if constexpr (kSumsWeights) {
      allWeights = weight + allWeights;
    }
    return weight;
  };
  const auto take = [&](unsigned v, double weight, Vector<Set> x) {
    sum[v] = (kWeighted ? weight * x : x) + sum[v];
    min[v] = x < min[v] ? x : min[v];
    max[v] = x > max[v] ? x : max[v];
  };
  std::size_t i = 0;
  for (bool isOver = allEnded(); !isOver && i < rows; ++i) {
    const double weight = takeWeight(i);
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> x = source.Get(i, v);
      ended[v] = ended[v] | ~(x == Load<Set>(field(v, kRunValue)));
      sum[v] = AddWhere<Set>(ended[v], weight * x, sum[v]);
      Store<Set>(AddWhere<Set>(~ended[v], Broadcast<Set>(weight), Load<Set>(field(v, kRunWeight))),
                 field(v, kRunWeight));
      min[v] = x < min[v] ? x : min[v];
      max[v] = x > max[v] ? x : max[v];
    }
    isOver = i % 8 == 7 && allEnded();
  }
  for (; i + Set::kLanes <= rows; i += Set::kLanes) {
    double weight[Set::kLanes];
#pragma GCC unroll 8
    for (unsigned r = 0; r < Set::kLanes; ++r) {
      weight[r] = takeWeight(i + r);
    }
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      Vector<Set> x[Set::kLanes];
      source.GetSome(i, v, x);
#pragma GCC unroll 8
      for (unsigned r = 0; r < Set::kLanes; ++r) {
        take(v, weight[r], x[r]);
      }
    }
  }
  for (; i < rows; ++i) {
    const double weight = takeWeight(i);
    for (unsigned v = 0; v < kVectors; ++v) {
      take(v, weight, source.Get(i, v));
    }
  }
#pragma GCC unroll 8
  for (unsigned v = 0; v < kVectors; ++v) {
    Store<Set>(sum[v], field(v, kSum));
    Store<Set>(min[v], field(v, kMin));
    Store<Set>(max[v], field(v, kMax));
    Store<Set>(reinterpret_cast<Vector<Set>>(ended[v]), field(v, kRunEnded));
  }
  if constexpr (kSumsWeights) {
    *weightSum = allWeights;
  }
}

template <class Set>
void PanelMoments(const double* panels, unsigned count, std::size_t stride, Rows rows,
                  const double* weights, bool isFirst, double* moments) {
  using Source = RowsOfPanels<Set>;
  constexpr unsigned kTogether = Set::kMomentPanels;
  for (unsigned p = 0; p < count;) {
    const bool takesSome = count - p >= kTogether;
    (takesSome ? TakeMoments<Set, Source, kTogether, true, false>
               : TakeMoments<Set, Source, 1, true, false>)(
        {panels + p * stride, stride, rows}, rows.count, weights, isFirst,
        moments + std::size_t{p} * kMomentFields * Set::kPanel, nullptr);
    p += takesSome ? kTogether : 1;
  }
}

template <class Set>
void ColumnMoments(const double* const* columns, unsigned count, std::size_t rows,
                   const double* weights, double* moments, double* weightSum) {
  using Source = RowsOfColumns<Set>;
  using Take = void (*)(const Source&, std::size_t, const double*, bool, double*, double*);
  constexpr unsigned kTogether = 8 / Set::kPanel;
  constexpr Take kTake[][2] = {
      {TakeMoments<Set, Source, kTogether, false, false>, TakeMoments<Set, Source, 1, false, false>},
      {TakeMoments<Set, Source, kTogether, true, false>, TakeMoments<Set, Source, 1, true, false>},
      {TakeMoments<Set, Source, kTogether, true, true>, TakeMoments<Set, Source, 1, true, true>}};
  for (unsigned p = 0; p < count;) {
    const bool takesSome = count - p >= kTogether;
    const bool sumsWeights = p == 0 && weightSum != nullptr;
    kTake[weights ? (sumsWeights ? 2 : 1) : 0][takesSome ? 0 : 1](
        {columns + std::size_t{p} * Set::kPanel}, rows, weights, true,
        moments + std::size_t{p} * kMomentFields * Set::kPanel, weightSum);
    p += takesSome ? kTogether : 1;
  }
}

}  // namespace velmor::ordered
