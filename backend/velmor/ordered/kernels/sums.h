#pragma once

// Sums of the columns of panels, which share a case's weight. Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

template <class Set, unsigned kPanels, bool kWeighted, bool kSums, bool kSquares>
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
    sum[v] = kSums ? LoadVector<Set>(sums + place(v)) : Vector<Set>{};
    square[v] = kSquares ? LoadVector<Set>(squares + place(v)) : Vector<Set>{};
  }
  for (std::size_t i = 0; i < rows.count; ++i) {
    const std::size_t row = RowAt<Set>(rows, i);
#pragma GCC unroll 8
    for (unsigned v = 0; v < kVectors; ++v) {
      const Vector<Set> x =
          LoadVector<Set>(panels + v / kParts * stride + row * kPanel + v % kParts * Set::kLanes);
      const Vector<Set> weighted = kWeighted ? x * weights[row] : x;
      if constexpr (kSums) {
        sum[v] = weighted + sum[v];
      }
      if constexpr (kSquares) {
        square[v] = weighted * x + square[v];
      }
    }
  }
#pragma GCC unroll 8
  for (unsigned v = 0; v < kVectors; ++v) {
    if constexpr (kSums) {
      StoreVector<Set>(sum[v], sums + place(v));
    }
    if constexpr (kSquares) {
      StoreVector<Set>(square[v], squares + place(v));
    }
  }
}

template <class Set, bool kSums, bool kSquares>
void ContinueAllSums(const double* panels, unsigned count, std::size_t stride, Rows rows,
                     const double* weights, std::size_t sumsStride, double* sums, double* squares) {
  constexpr unsigned kTogether = Set::kMomentPanels;
  const auto some = weights ? ContinueSums<Set, kTogether, true, kSums, kSquares>
                            : ContinueSums<Set, kTogether, false, kSums, kSquares>;
  const auto one = weights ? ContinueSums<Set, 1, true, kSums, kSquares>
                           : ContinueSums<Set, 1, false, kSums, kSquares>;
  TakePanels<Set, kTogether>(count, some, one, [=](auto take, std::size_t p) {
    take(panels + p * stride, stride, rows, weights, sumsStride,
         kSums ? sums + p * sumsStride : nullptr, kSquares ? squares + p * sumsStride : nullptr);
  });
}

template <class Set>
void PanelSums(const double* panels, unsigned count, std::size_t stride, Rows rows,
               const double* weights, std::size_t sumsStride, double* sums, double* squares) {
  const auto take = !squares ? ContinueAllSums<Set, true, false>
                    : !sums  ? ContinueAllSums<Set, false, true>
                             : ContinueAllSums<Set, true, true>;
  take(panels, count, stride, rows, weights, sumsStride, sums, squares);
}

}  // namespace velmor::ordered
