#pragma once

// Means and extremes of columns. Contract: contract.h. A mean's leading run of equal values is a
// lane's state; once no lane is in its run any more, the plain loop goes on.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/tuning.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

// Rows of panels: vector v belongs to panel v / parts of a panel.
template <class Set>
struct RowsOfPanels {
  static constexpr unsigned kParts = Set::kPanel / Set::kLanes;
  const double* panels;
  std::size_t stride;
  Rows rows;

  std::size_t Row(std::size_t i) const { return RowAt<Set>(rows, i); }
  Vector<Set> Get(std::size_t i, unsigned v) const {
    return LoadVector<Set>(panels + v / kParts * stride + Row(i) * Set::kPanel +
                           v % kParts * Set::kLanes);
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
    LoadTransposed<Set>(columns + v * Set::kLanes, i, x);
  }
};

// The moments of adjacent vectors of columns in registers.
template <class Set, unsigned kVectors>
struct MomentVectors {
  static constexpr unsigned kParts = Set::kPanel / Set::kLanes;
  double* moments;
  Vector<Set> sum[kVectors];
  Vector<Set> min[kVectors];
  Vector<Set> max[kVectors];
  Mask<Set> ended[kVectors];

  double* Field(unsigned v, MomentField f) const {
    return moments + std::size_t{v / kParts * kMomentFields + f} * Set::kPanel +
           v % kParts * Set::kLanes;
  }

  template <class Source>
  void Start(const Source& source) {
    for (unsigned v = 0; v < kVectors; ++v) {
      StoreVector<Set>(source.Get(0, v), Field(v, kRunValue));
      StoreVector<Set>(Vector<Set>{}, Field(v, kRunWeight));
      sum[v] = Vector<Set>{};
      min[v] = max[v] = source.Get(0, v);
      ended[v] = Mask<Set>{};
    }
  }
  [[gnu::always_inline]] void Get() {
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      sum[v] = LoadVector<Set>(Field(v, kSum));
      min[v] = LoadVector<Set>(Field(v, kMin));
      max[v] = LoadVector<Set>(Field(v, kMax));
      ended[v] = LoadMask<Set>(Field(v, kRunEnded));
    }
  }
  [[gnu::always_inline]] void Put() const {
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      StoreVector<Set>(sum[v], Field(v, kSum));
      StoreVector<Set>(min[v], Field(v, kMin));
      StoreVector<Set>(max[v], Field(v, kMax));
      StoreMask<Set>(ended[v], Field(v, kRunEnded));
    }
  }

  bool HaveEnded() const {
    Mask<Set> all = ended[0];
    for (unsigned v = 1; v < kVectors; ++v) {
      all = all & ended[v];
    }
    return HoldsEverywhere<Set>(all);
  }
  [[gnu::always_inline]] void TakeExtremes(unsigned v, Vector<Set> x) {
    min[v] = x < min[v] ? x : min[v];
    max[v] = x > max[v] ? x : max[v];
  }
  // Takes rows as long as a lane may be in its run, and says how many. takeWeight(i) is row i's.
  template <class Source, class TakeWeight>
  std::size_t TakeRuns(const Source& source, std::size_t rows, TakeWeight takeWeight) {
    std::size_t i = 0;
    for (bool haveEnded = HaveEnded(); !haveEnded && i < rows; ++i) {
      const double weight = takeWeight(i);
      for (unsigned v = 0; v < kVectors; ++v) {
        TakeWithRun(v, weight, source.Get(i, v));
      }
      haveEnded = i % 8 == 7 && HaveEnded();
    }
    return i;
  }
  void TakeWithRun(unsigned v, double weight, Vector<Set> x) {
    double* const runWeight = Field(v, kRunWeight);
    ended[v] = ended[v] | ~(x == LoadVector<Set>(Field(v, kRunValue)));
    sum[v] = AddWhere<Set>(ended[v], weight * x, sum[v]);
    StoreVector<Set>(AddWhere<Set>(~ended[v], Broadcast<Set>(weight), LoadVector<Set>(runWeight)),
                     runWeight);
    TakeExtremes(v, x);
  }
};

// kSumsWeights: their sum is one more chain beside those of the columns.
template <class Set, class Source, unsigned kPanels, bool kWeighted, bool kSumsWeights>
void ContinueMoments(const Source& source, std::size_t rows, const double* weights, bool isFirst,
                     double* moments, double* weightSum) {
  constexpr unsigned kVectors = kPanels * Set::kPanel / Set::kLanes;
  if (rows == 0) {
    return;
  }
  MomentVectors<Set, kVectors> taken;  // NOLINT(*-member-init): the next lines do
  taken.moments = moments;
  if (isFirst) {
    taken.Start(source);
  } else {
    taken.Get();
  }
  double allWeights = kSumsWeights ? *weightSum : 0.;
  const auto takeWeight = [&](std::size_t i) {
    const double weight = kWeighted ? weights[source.Row(i)] : 1.;
    if constexpr (kSumsWeights) {
      allWeights = weight + allWeights;
    }
    return weight;
  };
  const auto take = [&](unsigned v, double weight, Vector<Set> x) {
    taken.sum[v] = (kWeighted ? weight * x : x) + taken.sum[v];
    taken.TakeExtremes(v, x);
  };
  std::size_t i = taken.TakeRuns(source, rows, takeWeight);
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
  taken.Put();
  if constexpr (kSumsWeights) {
    *weightSum = allWeights;
  }
}

// Panel after panel, kTogether at once while there are as many; the first ones take the weights'
// sum along. sourceAt(p) has the rows from panel p on.
template <class Set, class Source, unsigned kTogether, class SourceAt>
void ContinueAllMoments(unsigned count, SourceAt sourceAt, std::size_t rows, const double* weights,
                        bool isFirst, double* moments, double* weightSum) {
  using Take = void (*)(const Source&, std::size_t, const double*, bool, double*, double*);
  constexpr Take kTake[][2] = {{ContinueMoments<Set, Source, 1, false, false>,
                                ContinueMoments<Set, Source, kTogether, false, false>},
                               {ContinueMoments<Set, Source, 1, true, false>,
                                ContinueMoments<Set, Source, kTogether, true, false>},
                               {ContinueMoments<Set, Source, 1, true, true>,
                                ContinueMoments<Set, Source, kTogether, true, true>}};
  const auto& others = kTake[weights ? 1 : 0];
  const auto& first = weights && weightSum ? kTake[2] : others;
  for (unsigned p = 0; p < count;) {
    const bool takesSome = count - p >= kTogether;
    (p == 0 ? first : others)[takesSome ? 1 : 0](
        sourceAt(p), rows, weights, isFirst,
        moments + std::size_t{p} * (kMomentFields * Set::kPanel), weightSum);
    p += takesSome ? kTogether : 1;
  }
}

template <class Set>
void PanelMoments(const double* panels, unsigned count, std::size_t stride, Rows rows,
                  const double* weights, bool isFirst, double* moments, double* weightSum) {
  using Source = RowsOfPanels<Set>;
  ContinueAllMoments<Set, Source, Set::kMomentPanels>(
      count,
      [=](unsigned p) {
        return Source{panels + p * stride, stride, rows};
      },
      rows.count, weights, isFirst, moments, weightSum);
}

template <class Set>
void ColumnMoments(const double* const* columns, unsigned count, std::size_t rows,
                   const double* weights, double* moments, double* weightSum) {
  using Source = RowsOfColumns<Set>;
  ContinueAllMoments<Set, Source, kColumnsAtOnce / Set::kPanel>(
      count, [=](unsigned p) { return Source{columns + std::size_t{p} * Set::kPanel}; }, rows,
      weights, true, moments, weightSum);
}

}  // namespace velmor::ordered
