#pragma once

// Sums by group: the columns of panels share a case's group and weight. Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

template <class Set, unsigned kPanels, bool kWeighted>
void ContinueSums(const double* panels, std::size_t stride, Rows rows, const double* weights,
                  std::size_t sumsStride, double* sums, double* squares) {
  constexpr unsigned kPanel = Set::kPanel;
  constexpr unsigned kParts = kPanel / Set::kLanes;
  constexpr unsigned kVectors = kPanels * kParts;
  const auto place = [sumsStride](unsigned v) {
    return v / kParts * sumsStride + v % kParts * Set::kLanes;
  };
  Vector<Set> sum[kVectors];
  Vector<Set> square[kVectors];
#pragma GCC unroll 8
  for (unsigned v = 0; v < kVectors; ++v) {
    sum[v] = LoadVector<Set>(sums + place(v));
    square[v] = LoadVector<Set>(squares + place(v));
  }
  for (std::size_t i = 0; i < rows.count; ++i) {
    const std::size_t row = RowAt<Set>(rows, i);
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> x =
          LoadVector<Set>(panels + v / kParts * stride + row * kPanel + v % kParts * Set::kLanes);
      const Vector<Set> weighted = kWeighted ? x * weights[row] : x;
      sum[v] = weighted + sum[v];
      square[v] = weighted * x + square[v];
    }
  }
#pragma GCC unroll 8
  for (unsigned v = 0; v < kVectors; ++v) {
    StoreVector<Set>(sum[v], sums + place(v));
    StoreVector<Set>(square[v], squares + place(v));
  }
}

template <class Set>
void PanelSums(const double* panels, unsigned count, std::size_t stride, Rows rows,
               const double* weights, std::size_t sumsStride, double* sums, double* squares) {
  constexpr unsigned kTogether = Set::kMomentPanels;
  const auto some =
      weights ? ContinueSums<Set, kTogether, true> : ContinueSums<Set, kTogether, false>;
  const auto one = weights ? ContinueSums<Set, 1, true> : ContinueSums<Set, 1, false>;
  TakePanels<Set, kTogether>(count, some, one, [=](auto take, std::size_t p) {
    take(panels + p * stride, stride, rows, weights, sumsStride, sums + p * sumsStride,
         squares + p * sumsStride);
  });
}

}  // namespace velmor::ordered
