#pragma once

// Means and extremes of columns. Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/runs.h"
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
  // Whether a lane of some differs from its value in the rows [from, to).
  bool Differ(unsigned v, std::size_t from, std::size_t to, Mask<Set> some,
              Vector<Set> values) const {
    Mask<Set> differ{};
    for (std::size_t i = from; i < to; ++i) {
      differ |= Get(i, v) != values;
    }
    return HoldsAnywhere<Set>(differ & some);
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
  // Column by column, in which rows stand side by side.
  bool Differ(unsigned v, std::size_t from, std::size_t to, Mask<Set> some,
              Vector<Set> values) const {
    Mask<Set> differ{};
    for (unsigned lane = 0; lane < Set::kLanes; ++lane) {
      const double* const x = columns[v * Set::kLanes + lane];
      const Vector<Set> value = Broadcast<Set>(values[lane]);
      std::size_t i = some[lane] != 0 ? from : to;
      for (; i + Set::kLanes <= to; i += Set::kLanes) {
        differ |= LoadVector<Set>(x + i) != value;
      }
      for (; i < to; ++i) {
        differ |= Broadcast<Set>(x[i]) != value;
      }
    }
    return HoldsAnywhere<Set>(differ);
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
  // The end of rows of which no lane leaves its run.
  template <class Source>
  [[gnu::always_inline]] std::size_t SteadyRows(const Source& source, std::size_t from,
                                                std::size_t end) const {
    for (unsigned v = 0; v < kVectors; ++v) {
      const Mask<Set> isInRun = ~ended[v];
      const Vector<Set> runValue = LoadVector<Set>(Field(v, kRunValue));
      if (HoldsAnywhere<Set>(isInRun)) {
        end = SteadyUntil<Set>(from, end, [&](std::size_t first, std::size_t to) {
          return source.Differ(v, first, to, isInRun, runValue);
        });
      }
    }
    return end;
  }
  template <bool kWeighted>
  [[gnu::always_inline]] void Take(unsigned v, double weight, Vector<Set> x) {
    sum[v] = (kWeighted ? weight * x : x) + sum[v];
    TakeExtremes(v, x);
  }
  // Takes the rows [from, to), in which no lane leaves its run. takeWeight(i) is row i's.
  template <bool kWeighted, class Source, class TakeWeight>
  [[gnu::always_inline]] void TakeSteady(const Source& source, std::size_t from, std::size_t to,
                                         TakeWeight takeWeight) {
    std::size_t i = from;
    for (; i + Set::kLanes <= to; i += Set::kLanes) {
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
          Take<kWeighted>(v, weight[r], x[r]);
        }
      }
    }
    for (; i < to; ++i) {
      const double weight = takeWeight(i);
      for (unsigned v = 0; v < kVectors; ++v) {
        Take<kWeighted>(v, weight, source.Get(i, v));
      }
    }
  }
  [[gnu::always_inline]] void DropSumsOfRuns() {
    for (unsigned v = 0; v < kVectors; ++v) {
      sum[v] = ended[v] ? sum[v] : Vector<Set>{};
    }
  }
  // A row's values, with which a lane may leave its run.
  [[gnu::always_inline]] void TakeWithRun(unsigned v, double weight, double weightBefore,
                                          Vector<Set> x) {
    RunningMean<Set> mean{sum[v], LoadVector<Set>(Field(v, kRunValue)),
                          LoadVector<Set>(Field(v, kRunWeight)), ended[v]};
    mean.Take(~Mask<Set>{}, x, Broadcast<Set>(weight), Broadcast<Set>(weightBefore));
    sum[v] = mean.sum;
    ended[v] = mean.ended;
    StoreVector<Set>(mean.runWeight, Field(v, kRunWeight));
    TakeExtremes(v, x);
  }
};

// A number of rows as a floating-point number. By way of a signed one, which takes one instruction;
// an unsigned one takes a sum of halves.
template <class Set>
double FromCount(std::size_t rows) {
  return static_cast<double>(static_cast<std::ptrdiff_t>(rows));
}

// The sum of the weights of all rows before one. Asked for in ascending order.
template <class Set, class Source, bool kWeighted>
struct WeightsBefore {
  const Source& source;
  const double* weights = nullptr;
  double sum = 0.;
  std::size_t rows = 0;

  double Row(std::size_t i) {
    if constexpr (kWeighted) {
      for (; rows < i; ++rows) {
        sum = weights[source.Row(rows)] + sum;
      }
      return sum;
    }
    return sum + FromCount<Set>(i);
  }
};

// kSumsWeights: the weights' sum is one more chain, beside the columns' chains.
//   weightBefore  the weights of the rows that were taken before
template <class Set, class Source, unsigned kPanels, bool kWeighted, bool kSumsWeights>
void ContinueMoments(const Source& source, std::size_t rows, const double* weights, bool isFirst,
                     double* moments, double weightBefore, double* weightSum) {
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
  WeightsBefore<Set, Source, kWeighted> weightsBefore{source, weights, weightBefore};
  double allWeights = weightBefore;
  const auto takeWeight = [&](std::size_t i) {
    const double weight = kWeighted ? weights[source.Row(i)] : 1.;
    if constexpr (kSumsWeights) {
      allWeights = weight + allWeights;
    }
    return weight;
  };
  for (std::size_t i = 0; i < rows;) {
    const bool haveEnded = taken.HaveEnded();
    const std::size_t steady = haveEnded ? rows : taken.SteadyRows(source, i, rows);
    taken.template TakeSteady<kWeighted>(source, i, steady, takeWeight);
    i = steady;
    if (!haveEnded) {
      taken.DropSumsOfRuns();
      for (; i < rows && i < steady + kChangingRows; ++i) {
        const double weight = takeWeight(i);
        for (unsigned v = 0; v < kVectors; ++v) {
          taken.TakeWithRun(v, weight, weightsBefore.Row(i), source.Get(i, v));
        }
      }
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
  using Take = void (*)(const Source&, std::size_t, const double*, bool, double*, double, double*);
  constexpr Take kTake[][2] = {{ContinueMoments<Set, Source, 1, false, false>,
                                ContinueMoments<Set, Source, kTogether, false, false>},
                               {ContinueMoments<Set, Source, 1, true, false>,
                                ContinueMoments<Set, Source, kTogether, true, false>},
                               {ContinueMoments<Set, Source, 1, true, true>,
                                ContinueMoments<Set, Source, kTogether, true, true>}};
  const auto& others = kTake[weights ? 1 : 0];
  const auto& first = weights ? kTake[2] : others;
  const double weightBefore = *weightSum;
  if (count > 0 && !weights) {
    *weightSum = weightBefore + FromCount<Set>(rows);
  }
  TakePanels<Set, kTogether>(count, 1, 0, [&](int takesSome, std::size_t p) {
    (p == 0 ? first : others)[takesSome](sourceAt(p), rows, weights, isFirst,
                                         moments + p * (kMomentFields * Set::kPanel), weightBefore,
                                         weightSum);
  });
}

template <class Set>
void PanelMoments(const double* panels, unsigned count, std::size_t stride, Rows rows,
                  const double* weights, bool isFirst, double* moments, double* weightSum) {
  using Source = RowsOfPanels<Set>;
  ContinueAllMoments<Set, Source, Set::kMomentPanels>(
      count,
      [=](std::size_t p) {
        return Source{panels + p * stride, stride, rows};
      },
      rows.count, weights, isFirst, moments, weightSum);
}

template <class Set>
void ColumnMoments(const double* const* columns, unsigned count, std::size_t rows,
                   const double* weights, double* moments, double* weightSum) {
  using Source = RowsOfColumns<Set>;
  *weightSum = 0.;
  ContinueAllMoments<Set, Source, kColumnsAtOnce / Set::kPanel>(
      count, [=](std::size_t p) { return Source{columns + p * Set::kPanel}; }, rows, weights, true,
      moments, weightSum);
}

}  // namespace velmor::ordered
