#pragma once

// Products of panels: the inner loop of everything quadratic. Contract: contract.h.

#include "ordered/kernels/contract.h"
#include "ordered/kernels/vectors.h"

#include <utility>

namespace velmor::ordered {

// kRows columns of panel a by kPanels panels b. The sums stay in registers; with 24 of them (8 by 3
// vectors of eight lanes) both latency and loads are hidden behind the arithmetic.
template <class Set, unsigned kRows, unsigned kPanels>
void ProductTile(const double* a, const double* b, std::size_t stride, std::size_t rows,
                 double* cells) {
  constexpr std::size_t kPanel = Set::kPanel;
  constexpr std::size_t kParts = kPanel / Set::kLanes;
  constexpr std::size_t kVectors = kPanels * kParts;
  const auto cell = [cells](std::size_t r, std::size_t v) {
    return cells + (v / kParts * kPanel + r) * kPanel + v % kParts * Set::kLanes;
  };
  // A broadcast that is part of a multiplication is free, one on its own takes a port from the
  // arithmetic (Zen 4, 8 by 3: 28.5 thousand million cells a second against 21). Compilers share a
  // broadcast among its uses, so each use reads through an address they can't tell from another.
  const double* factors[Set::kFoldsBroadcasts ? kVectors : 1];
#pragma GCC unroll 8
  for (const double*& factor : factors) {
    factor = a;
    if constexpr (Set::kFoldsBroadcasts) {
      asm volatile("" : "+r"(factor));
    }
  }
  Vector<Set> sums[kRows][kVectors];
#pragma GCC unroll 8
  for (std::size_t r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kVectors; ++v) {
      sums[r][v] = LoadVector<Set>(cell(r, v));
    }
  }
  for (std::size_t row = 0; row < rows; ++row) {
    Vector<Set> y[kVectors];
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kVectors; ++v) {
      y[v] = LoadVector<Set>(b + v / kParts * stride + row * kPanel + v % kParts * Set::kLanes);
    }
#pragma GCC unroll 8
    for (std::size_t r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
      for (std::size_t v = 0; v < kVectors; ++v) {
        const double* const factor = factors[Set::kFoldsBroadcasts ? v : 0];
        sums[r][v] = Broadcast<Set>(factor[row * kPanel + r]) * y[v] + sums[r][v];
      }
    }
  }
#pragma GCC unroll 8
  for (std::size_t r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kVectors; ++v) {
      StoreVector<Set>(sums[r][v], cell(r, v));
    }
  }
}

// As many lanes as reach the diagonal: the first rows take vectors of kDiagonalLanes, which is half
// the work where a panel is two of them and wide vectors take two turns in a core's units.
template <class Set, unsigned kRows>
void DiagonalTile(const double* a, const double* b, std::size_t rows, double* cells) {
  constexpr std::size_t kPanel = Set::kPanel;
  constexpr unsigned kNarrow = Set::kDiagonalLanes;
  constexpr unsigned kNarrowRows = kRows < kNarrow ? kRows : kNarrow;
  constexpr std::size_t kParts = kPanel / Set::kLanes;
  Vector<Set, kNarrow> narrow[kNarrowRows];
  Vector<Set> wide[kRows - kNarrowRows + 1][kParts];  // one more than is used, as 0 is no size
#pragma GCC unroll 8
  for (std::size_t r = 0; r < kNarrowRows; ++r) {
    narrow[r] = LoadVector<Set, kNarrow>(cells + r * kPanel);
  }
#pragma GCC unroll 8
  for (std::size_t r = kNarrowRows; r < kRows; ++r) {
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kParts; ++v) {
      wide[r - kNarrowRows][v] = LoadVector<Set>(cells + r * kPanel + v * Set::kLanes);
    }
  }
  for (std::size_t row = 0; row < rows; ++row) {
    const double* const x = a + row * kPanel;
    const double* const y = b + row * kPanel;
    const Vector<Set, kNarrow> first = LoadVector<Set, kNarrow>(y);
#pragma GCC unroll 8
    for (std::size_t r = 0; r < kNarrowRows; ++r) {
      narrow[r] = Broadcast<Set, kNarrow>(x[r]) * first + narrow[r];
    }
#pragma GCC unroll 8
    for (std::size_t r = kNarrowRows; r < kRows; ++r) {
#pragma GCC unroll 8
      for (std::size_t v = 0; v < kParts; ++v) {
        wide[r - kNarrowRows][v] =
            Broadcast<Set>(x[r]) * LoadVector<Set>(y + v * Set::kLanes) + wide[r - kNarrowRows][v];
      }
    }
  }
#pragma GCC unroll 8
  for (std::size_t r = 0; r < kNarrowRows; ++r) {
    StoreVector<Set, kNarrow>(narrow[r], cells + r * kPanel);
  }
#pragma GCC unroll 8
  for (std::size_t r = kNarrowRows; r < kRows; ++r) {
#pragma GCC unroll 8
    for (std::size_t v = 0; v < kParts; ++v) {
      StoreVector<Set>(wide[r - kNarrowRows][v], cells + r * kPanel + v * Set::kLanes);
    }
  }
}

// Tiles have an even number of rows: what is left of a panel is rounded up.
template <class Set, unsigned... kHalf>
auto TilesOf(unsigned columns, unsigned panels, std::integer_sequence<unsigned, kHalf...> /*all*/) {
  using Tile = void (*)(const double*, const double*, std::size_t, std::size_t, double*);
  constexpr Tile kTiles[][sizeof...(kHalf)] = {
      {ProductTile<Set, 2 * (kHalf + 1), 1>...},
      {ProductTile < Set, 2 * (kHalf + 1), Set::kTilePanels >= 2 ? 2 : 1 > ...},
      {ProductTile < Set, 2 * (kHalf + 1), Set::kTilePanels >= 3 ? 3 : 1 > ...}};
  return kTiles[panels - 1][(columns - 1) / 2];
}

template <class Set>
void Products(const double* a, unsigned columns, const double* b, unsigned panels,
              std::size_t stride, std::size_t rows, double* cells) {
  constexpr auto kHalves = std::make_integer_sequence<unsigned, Set::kPanel / 2>{};
  TilesOf<Set>(columns, panels, kHalves)(a, b, stride, rows, cells);
}

template <class Set, unsigned... kHalf>
auto DiagonalTileOf(unsigned columns, std::integer_sequence<unsigned, kHalf...> /*all*/) {
  using Tile = void (*)(const double*, const double*, std::size_t, double*);
  constexpr Tile kTiles[] = {DiagonalTile<Set, 2 * (kHalf + 1)>...};
  return kTiles[(columns - 1) / 2];
}

template <class Set>
void DiagonalProducts(const double* a, unsigned columns, const double* b, std::size_t rows,
                      double* cells) {
  constexpr auto kHalves = std::make_integer_sequence<unsigned, Set::kPanel / 2>{};
  DiagonalTileOf<Set>(columns, kHalves)(a, b, rows, cells);
}

}  // namespace velmor::ordered
