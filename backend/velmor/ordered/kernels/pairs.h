#pragma once

// Statistics of pairs over the cases in which both variables are present: one variable's rows by
// the columns of panels. A lane is a pair, and selects its rows by a mask. A term that it leaves
// out is selected away, because an infinite term or NaN times zero is not zero. Contract:
// contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/runs.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

// The fields of one vector of pairs.
template <class Set>
struct PairVector {
  double* fields;

  double* At(unsigned field) const { return fields + field * Set::kPanel; }
  Vector<Set> Get(unsigned field) const { return LoadVector<Set>(At(field)); }
  void Put(unsigned field, Vector<Set> v) const { StoreVector<Set>(v, At(field)); }
  Mask<Set> GetMask(unsigned field) const { return LoadMask<Set>(At(field)); }
  void PutMask(unsigned field, Mask<Set> m) const { StoreMask<Set>(m, At(field)); }
  // Of the pair's variable 0 or 1, while their values come in.
  RunningMean<Set> GetMean(unsigned i) const {
    return {Get(kPairSum0 + i), Get(kPairRunValue0 + i), Get(kPairRunWeight0 + i),
            GetMask(kPairEnded0 + i)};
  }
  void PutMean(unsigned i, const RunningMean<Set>& mean) const {
    Put(kPairSum0 + i, mean.sum);
    Put(kPairRunValue0 + i, mean.runValue);
    Put(kPairRunWeight0 + i, mean.runWeight);
    PutMask(kPairEnded0 + i, mean.ended);
  }
};

// A row of values x, a weight at a time, by vector v of the panels.
template <class Set>
struct PairPanels {
  static constexpr unsigned kParts = Set::kPanel / Set::kLanes;
  const double* panels;
  std::size_t stride;
  double* pairs;

  Vector<Set> Values(std::size_t row, unsigned v) const {
    return LoadVector<Set>(panels + v / kParts * stride + row * Set::kPanel +
                           v % kParts * Set::kLanes);
  }
  PairVector<Set> Pairs(unsigned v) const {
    return {pairs + v / kParts * kPairFields * Set::kPanel + v % kParts * Set::kLanes};
  }
  // A field of all vectors' pairs, into registers.
  template <unsigned kVectors>
  [[gnu::always_inline]] void Get(PairField field, Vector<Set> (&values)[kVectors]) const {
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      values[v] = Pairs(v).Get(field);
    }
  }
};

// Whether all lanes have left the leading runs of both means.
template <class Set, unsigned kVectors>
bool RunsHaveEnded(PairPanels<Set> y) {
  Mask<Set> ended = ~Mask<Set>{};
  for (unsigned v = 0; v < kVectors; ++v) {
    ended = ended & y.Pairs(v).GetMask(kPairEnded0) & y.Pairs(v).GetMask(kPairEnded1);
  }
  return HoldsEverywhere<Set>(ended);
}

// The end of rows of which no lane begins or leaves a run (runs.h).
template <class Set, unsigned kVectors, bool kIsComplete>
std::size_t SteadyPairRows(const PairVariable& x, PairPanels<Set> y, std::size_t from) {
  const Vector<Set> missing = Broadcast<Set>(x.missingCode);
  std::size_t end = x.rows.count;
  // Shortens the rows for variable i of vector v, which has valueOf(row, values of the panel).
  const auto shorten = [&](unsigned v, unsigned i, auto valueOf) {
    const RunningMean<Set> mean = y.Pairs(v).GetMean(i);
    if (!HoldsAnywhere<Set>(~mean.ended)) {
      return;
    }
    // A run that has not begun does so with the first value: no value is equal to this.
    const Vector<Set> runValue =
        y.Pairs(v).GetMask(kPairStarted) ? mean.runValue : Broadcast<Set>(__builtin_nan(""));
    end = SteadyUntil<Set>(from, end, [&](std::size_t first, std::size_t to) {
      Mask<Set> leaves{};
      for (std::size_t r = first; r < to; ++r) {
        const std::size_t row = RowAt<Set>(x.rows, r);
        const Vector<Set> values = y.Values(row, v);
        const Mask<Set> differs = valueOf(row, values) != runValue;
        leaves |= kIsComplete ? differs : differs & (values != missing);
      }
      return HoldsAnywhere<Set>(leaves & ~mean.ended);
    });
  };
  for (unsigned v = 0; v < kVectors; ++v) {
    shorten(v, 0, [&x](std::size_t row, Vector<Set>) { return Broadcast<Set>(x.values[row]); });
    shorten(v, 1, [](std::size_t, Vector<Set> values) { return values; });
  }
  return end;
}

template <class Set, unsigned kVectors>
void DropSumsOfRuns(PairPanels<Set> y) {
  for (unsigned v = 0; v < kVectors; ++v) {
    const PairVector<Set> pair = y.Pairs(v);
    for (unsigned i = 0; i < 2; ++i) {
      pair.Put(kPairSum0 + i,
               pair.GetMask(kPairEnded0 + i) ? pair.Get(kPairSum0 + i) : Vector<Set>{});
    }
  }
}

// One row, in which a lane may begin or leave a run.
template <class Set>
void TakeRow(PairVector<Set> pair, double x, double weight, Vector<Set> y, Mask<Set> isPresent) {
  const Vector<Set> u = Broadcast<Set>(weight);
  const Vector<Set> weightBefore = pair.Get(kPairWeightSum);
  const Mask<Set> hasStarted = pair.GetMask(kPairStarted);
  for (unsigned i = 0; i < 2; ++i) {
    const Vector<Set> values = i == 0 ? Broadcast<Set>(x) : y;
    RunningMean<Set> mean = pair.GetMean(i);
    mean.runValue = isPresent & ~hasStarted ? values : mean.runValue;
    mean.Take(isPresent, values, u, weightBefore);
    pair.PutMean(i, mean);
  }
  pair.PutMask(kPairStarted, hasStarted | isPresent);
  pair.Put(kPairWeightSum, AddWhere<Set>(isPresent, u, weightBefore));
}

// The rows [from, to), in which no lane begins or leaves a run.
// kIsComplete: the panels' columns lack none of the rows, so that all lanes have x's cases, and
// what is the same in all of them is summed once.
template <class Set, unsigned kVectors, bool kIsComplete>
[[gnu::always_inline]] inline void TakeSteadyRows(const PairVariable& x, PairPanels<Set> y,
                                                  std::size_t from, std::size_t to) {
  [[maybe_unused]] const Vector<Set> missing = Broadcast<Set>(x.missingCode);
  Vector<Set> weightSum[kVectors];
  Vector<Set> sum0[kVectors];
  Vector<Set> sum1[kVectors];
  y.Get(kPairWeightSum, weightSum);
  y.Get(kPairSum0, sum0);
  y.Get(kPairSum1, sum1);
  for (std::size_t i = from; i < to; ++i) {
    const std::size_t row = RowAt<Set>(x.rows, i);
    const double weight = x.weights[row];
    const Vector<Set> weighted = Broadcast<Set>(weight * x.values[row]);
    if constexpr (kIsComplete) {
      weightSum[0] = weight + weightSum[0];
      sum0[0] = weighted + sum0[0];
    }
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> values = y.Values(row, v);
      if constexpr (kIsComplete) {
        sum1[v] = weight * values + sum1[v];
      } else {
        const Mask<Set> isPresent = values != missing;
        weightSum[v] = AddWhere<Set>(isPresent, Broadcast<Set>(weight), weightSum[v]);
        sum0[v] = AddWhere<Set>(isPresent, weighted, sum0[v]);
        sum1[v] = AddWhere<Set>(isPresent, weight * values, sum1[v]);
      }
    }
  }
#pragma GCC unroll 8
  for (unsigned v = 0; v < kVectors; ++v) {
    y.Pairs(v).Put(kPairWeightSum, weightSum[kIsComplete ? 0 : v]);
    y.Pairs(v).Put(kPairSum0, sum0[kIsComplete ? 0 : v]);
    y.Pairs(v).Put(kPairSum1, sum1[v]);
  }
}

template <class Set, unsigned kPanels, bool kIsComplete, bool kTwoWeights>
void PanelPairSums(const PairVariable& x, PairPanels<Set> y) {
  constexpr unsigned kVectors = kPanels * PairPanels<Set>::kParts;
  const Vector<Set> missing = Broadcast<Set>(x.missingCode);
  if constexpr (kTwoWeights) {
    for (unsigned v = 0; v < kVectors; ++v) {
      const PairVector<Set> pair = y.Pairs(v);
      Vector<Set> sum = pair.Get(kPairCaseWeightSum);
      for (std::size_t i = 0; i < x.rows.count; ++i) {
        const std::size_t row = RowAt<Set>(x.rows, i);
        sum = AddWhere<Set>(y.Values(row, v) != missing, Broadcast<Set>(x.caseWeights[row]), sum);
      }
      pair.Put(kPairCaseWeightSum, sum);
    }
  }
  for (std::size_t i = 0; i < x.rows.count;) {
    const bool haveEnded = RunsHaveEnded<Set, kVectors>(y);
    const std::size_t steady =
        haveEnded ? x.rows.count : SteadyPairRows<Set, kVectors, kIsComplete>(x, y, i);
    TakeSteadyRows<Set, kVectors, kIsComplete>(x, y, i, steady);
    i = steady;
    if (!haveEnded) {
      DropSumsOfRuns<Set, kVectors>(y);
      for (; i < x.rows.count && i < steady + kChangingRows; ++i) {
        const std::size_t row = RowAt<Set>(x.rows, i);
        for (unsigned v = 0; v < kVectors; ++v) {
          TakeRow<Set>(y.Pairs(v), x.values[row], x.weights[row], y.Values(row, v),
                       y.Values(row, v) != missing);
        }
      }
    }
  }
}

template <class Set>
void PairSums(const PairVariable& x, bool isComplete, const double* panels, unsigned count,
              std::size_t stride, double* pairs) {
  constexpr unsigned kTogether = Set::kPairPanels;
  using Take = void (*)(const PairVariable&, PairPanels<Set>);
  constexpr Take kTake[][2][2] = {
      {{PanelPairSums<Set, kTogether, false, false>, PanelPairSums<Set, 1, false, false>},
       {PanelPairSums<Set, kTogether, false, true>, PanelPairSums<Set, 1, false, true>}},
      {{PanelPairSums<Set, kTogether, true, false>, PanelPairSums<Set, 1, true, false>},
       {PanelPairSums<Set, kTogether, true, true>, PanelPairSums<Set, 1, true, true>}}};
  const auto& take = kTake[isComplete ? 1 : 0][x.caseWeights ? 1 : 0];
  TakePanels<Set, kTogether>(count, take[0], take[1], [&](Take some, std::size_t p) {
    some(x, {panels + p * stride, stride, pairs + p * (kPairFields * Set::kPanel)});
  });
}

template <class Set>
void PairMeans(double* pairs) {
  for (unsigned first = 0; first < Set::kPanel; first += Set::kLanes) {
    const PairVector<Set> pair{pairs + first};
    const Vector<Set> weightSum = pair.Get(kPairWeightSum);
    for (unsigned i = 0; i < 2; ++i) {
      // Of no case, 0.
      const RunningMean<Set> mean = pair.GetMean(i);
      const Vector<Set> quotient = (mean.sum + mean.runWeight * mean.runValue) / weightSum;
      pair.Put(kPairMean0 + i, mean.ended ? quotient : mean.runValue);
    }
    pair.Put(kPairSquares0, Vector<Set>{});
    pair.Put(kPairSquares1, Vector<Set>{});
    pair.Put(kPairProducts, Vector<Set>{});
  }
}

template <class Set, unsigned kPanels, bool kIsComplete, bool kIsFirst>
void PanelPairProducts(const PairVariable& x, PairPanels<Set> y) {
  constexpr unsigned kVectors = kPanels * PairPanels<Set>::kParts;
  [[maybe_unused]] const Vector<Set> missing = Broadcast<Set>(x.missingCode);
  Vector<Set> mean0[kVectors];
  Vector<Set> mean1[kVectors];
  Vector<Set> squares0[kVectors];
  Vector<Set> squares1[kVectors];
  Vector<Set> products[kVectors];
  y.Get(kPairMean0, mean0);
  y.Get(kPairMean1, mean1);
  y.Get(kPairSquares0, squares0);
  y.Get(kPairSquares1, squares1);
  y.Get(kPairProducts, products);
  for (std::size_t i = 0; i < x.rows.count; ++i) {
    const std::size_t row = RowAt<Set>(x.rows, i);
    const double weight = x.weights[row];
    const Vector<Set> x0 = Broadcast<Set>(x.values[row]);
    const Vector<Set> common0 = x0 - mean0[0];
    const Vector<Set> commonWeighted0 = weight * common0;
    if constexpr (kIsComplete) {
      squares0[0] = commonWeighted0 * common0 + squares0[0];
    }
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> values = y.Values(row, v);
      const Vector<Set> d0 = kIsComplete ? common0 : x0 - mean0[v];
      const Vector<Set> d1 = values - mean1[v];
      const Vector<Set> weighted0 = kIsComplete ? commonWeighted0 : weight * d0;
      const Vector<Set> weighted1 = weight * d1;
      const Vector<Set> product = kIsFirst ? weighted0 * d1 : weighted1 * d0;
      if constexpr (kIsComplete) {
        squares1[v] = weighted1 * d1 + squares1[v];
        products[v] = product + products[v];
      } else {
        const Mask<Set> isPresent = values != missing;
        squares0[v] = AddWhere<Set>(isPresent, weighted0 * d0, squares0[v]);
        squares1[v] = AddWhere<Set>(isPresent, weighted1 * d1, squares1[v]);
        products[v] = AddWhere<Set>(isPresent, product, products[v]);
      }
    }
  }
#pragma GCC unroll 8
  for (unsigned v = 0; v < kVectors; ++v) {
    y.Pairs(v).Put(kPairSquares0, squares0[kIsComplete ? 0 : v]);
    y.Pairs(v).Put(kPairSquares1, squares1[v]);
    y.Pairs(v).Put(kPairProducts, products[v]);
  }
}

template <class Set>
void PairProducts(const PairVariable& x, bool isFirst, bool isComplete, const double* panels,
                  unsigned count, std::size_t stride, double* pairs) {
  constexpr unsigned kTogether = Set::kPairPanels;
  using Take = void (*)(const PairVariable&, PairPanels<Set>);
  constexpr Take kTake[][2][2] = {
      {{PanelPairProducts<Set, kTogether, false, false>, PanelPairProducts<Set, 1, false, false>},
       {PanelPairProducts<Set, kTogether, false, true>, PanelPairProducts<Set, 1, false, true>}},
      {{PanelPairProducts<Set, kTogether, true, false>, PanelPairProducts<Set, 1, true, false>},
       {PanelPairProducts<Set, kTogether, true, true>, PanelPairProducts<Set, 1, true, true>}}};
  const auto& take = kTake[isComplete ? 1 : 0][isFirst ? 1 : 0];
  TakePanels<Set, kTogether>(count, take[0], take[1], [&](Take some, std::size_t p) {
    some(x, {panels + p * stride, stride, pairs + p * (kPairFields * Set::kPanel)});
  });
}

}  // namespace velmor::ordered
