#pragma once

// Means and extremes of the columns of panels. Contract: engine.h. A mean's leading run of equal
// values is a lane's state; once no lane is in its run any more, the plain loop goes on.

#include "ordered/engine.h"
#include "ordered/vectors.h"

namespace velmor::ordered {

// kSumsWeights: their sum is one more chain beside those of the columns.
template <class Set, unsigned kPanels, bool kWeighted, bool kSumsWeights>
void PanelMoments(const double* panels, std::size_t stride, Rows rows, const double* weights,
                  bool isFirst, double* moments, double* weightSum) {
  constexpr unsigned kPanel = Set::kPanel;
  constexpr unsigned kParts = kPanel / Set::kLanes;
  constexpr unsigned kVectors = kPanels * kParts;
  const auto rowAt = [rows](std::size_t i) { return rows.list ? rows.list[i] : i; };
  const auto values = [panels, stride](std::size_t row, unsigned v) {
    return Load<Set>(panels + v / kParts * stride + row * kPanel + v % kParts * Set::kLanes);
  };
  const auto field = [moments](unsigned v, MomentField f) {
    return moments + (v / kParts * kMomentFields + f) * kPanel + v % kParts * Set::kLanes;
  };
  if (rows.count == 0) {
    return;
  }
  if (isFirst) {
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> first = values(rowAt(0), v);
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
#pragma GCC unroll 8
  for (unsigned v = 0; v < kVectors; ++v) {
    sum[v] = Load<Set>(field(v, kSum));
    min[v] = Load<Set>(field(v, kMin));
    max[v] = Load<Set>(field(v, kMax));
    ended[v] = reinterpret_cast<Mask<Set>>(Load<Set>(field(v, kRunEnded)));
  }
  double allWeights = kSumsWeights ? *weightSum : 0.;
  const auto allEnded = [&ended] {
    Mask<Set> all = ended[0];
    for (unsigned v = 1; v < kVectors; ++v) {
      all = all & ended[v];
    }
    return HoldsEverywhere<Set>(all);
  };
  std::size_t i = 0;
  for (bool isOver = allEnded(); !isOver && i < rows.count; ++i) {
    const std::size_t row = rowAt(i);
    const double weight = kWeighted ? weights[row] : 1.;
    if constexpr (kSumsWeights) {
      allWeights = weight + allWeights;
    }
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> x = values(row, v);
      ended[v] = ended[v] | ~(x == Load<Set>(field(v, kRunValue)));
      sum[v] = AddWhere<Set>(ended[v], weight * x, sum[v]);
      Store<Set>(AddWhere<Set>(~ended[v], Broadcast<Set>(weight), Load<Set>(field(v, kRunWeight))),
                 field(v, kRunWeight));
      min[v] = x < min[v] ? x : min[v];
      max[v] = x > max[v] ? x : max[v];
    }
    isOver = i % 8 == 7 && allEnded();
  }
  for (; i < rows.count; ++i) {
    const std::size_t row = rowAt(i);
    if constexpr (kSumsWeights) {
      allWeights = weights[row] + allWeights;
    }
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> x = values(row, v);
      sum[v] = (kWeighted ? weights[row] * x : x) + sum[v];
      min[v] = x < min[v] ? x : min[v];
      max[v] = x > max[v] ? x : max[v];
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
void Moments(const double* panels, unsigned count, std::size_t stride, Rows rows,
             const double* weights, bool isFirst, double* moments, double* weightSum) {
  constexpr unsigned kTogether = Set::kMomentPanels;
  using Take = void (*)(const double*, std::size_t, Rows, const double*, bool, double*, double*);
  constexpr Take kTake[][2] = {
      {PanelMoments<Set, kTogether, false, false>, PanelMoments<Set, 1, false, false>},
      {PanelMoments<Set, kTogether, true, false>, PanelMoments<Set, 1, true, false>},
      {PanelMoments<Set, kTogether, true, true>, PanelMoments<Set, 1, true, true>}};
  for (unsigned p = 0; p < count;) {
    const bool takesSome = count - p >= kTogether;
    const bool sumsWeights = p == 0 && weightSum != nullptr;
    kTake[weights ? (sumsWeights ? 2 : 1) : 0][takesSome ? 0 : 1](
        panels + p * stride, stride, rows, weights, isFirst,
        moments + std::size_t{p} * kMomentFields * Set::kPanel, weightSum);
    p += takesSome ? kTogether : 1;
  }
}

}  // namespace velmor::ordered
