#pragma once

// Panels from columns, and centred panels from panels. Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

namespace velmor::ordered {

template <class Set, bool kWeighted>
void PackPanel(const double* const* columns, std::size_t rows, const double* weights, double* panel,
               double* weighted) {
  constexpr unsigned kLanes = Set::kLanes;
  constexpr unsigned kPanel = Set::kPanel;
  const std::size_t whole = rows - rows % kLanes;
  for (unsigned first = 0; first < kPanel; first += kLanes) {
    for (std::size_t row = 0; row < whole; row += kLanes) {
      Vector<Set> v[kLanes];
      LoadTransposed<Set>(columns + first, row, v);
#pragma GCC unroll 8
      for (unsigned i = 0; i < kLanes; ++i) {
        const std::size_t to = (row + i) * kPanel + first;
        StoreVector<Set>(v[i], panel + to);
        if constexpr (kWeighted) {
          StoreVector<Set>(Broadcast<Set>(weights[row + i]) * v[i], weighted + to);
        }
      }
    }
  }
  for (std::size_t row = whole; row < rows; ++row) {
    for (unsigned i = 0; i < kPanel; ++i) {
      const double value = columns[i][row];
      panel[row * kPanel + i] = value;
      if constexpr (kWeighted) {
        weighted[row * kPanel + i] = weights[row] * value;
      }
    }
  }
}

template <class Set>
void Pack(const double* const* columns, std::size_t rows, const double* weights, double* panel,
          double* weighted) {
  const auto pack = weighted ? PackPanel<Set, true> : PackPanel<Set, false>;
  pack(columns, rows, weights, panel, weighted);
}

template <class Set>
void CenterColumns(double* const* columns, unsigned count, std::size_t rows, const double* means) {
  constexpr unsigned kLanes = Set::kLanes;
  for (unsigned i = 0; i < count; ++i) {
    double* const x = columns[i];
    std::size_t row = 0;
    for (; row + kLanes <= rows; row += kLanes) {
      StoreVector<Set>(LoadVector<Set>(x + row) - Broadcast<Set>(means[i]), x + row);
    }
    for (; row < rows; ++row) {
      x[row] = x[row] - means[i];
    }
  }
}

template <class Set>
void Center(const double* from, Rows rows, const double* centers, const double* weights,
            double* panel, double* weighted) {
  constexpr unsigned kPanel = Set::kPanel;
  for (unsigned first = 0; first < kPanel; first += Set::kLanes) {
    const Vector<Set> center = LoadVector<Set>(centers + first);
    for (std::size_t i = 0; i < rows.count; ++i) {
      const std::size_t row = RowAt<Set>(rows, i);
      const Vector<Set> centered = LoadVector<Set>(from + row * kPanel + first) - center;
      StoreVector<Set>(centered, panel + i * kPanel + first);
      StoreVector<Set>(Broadcast<Set>(weights[i]) * centered, weighted + i * kPanel + first);
    }
  }
}

}  // namespace velmor::ordered
