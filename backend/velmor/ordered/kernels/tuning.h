#pragma once

// Sizes and thresholds that are the same for all instruction sets. Those of one set are in its file
// (baseline.cpp, avx2.cpp, avx512.cpp). They change a result's time and none of its bits.
//
// Figures named Zen 5 are from November 2026: an EPYC of family 26, g++ 12.2 -O3, one thread on a
// shared machine, the least of many runs of some milliseconds. Longer runs were never undisturbed,
// so what only they would tell is by reasoning. Most values were chosen earlier that month, on
// Zen 4; of those measurements only the figures that are named Zen 4 were kept. Where Zen 5
// would rather have another value by a few parts in a hundred, it stays as it is: it has to be
// right on both. Sizes that belong to one operation stand with it (tablecopy.cpp, merges.h).

#include <cstddef>

namespace velmor::ordered {

// Rows of a strip, at most: few enough that some panels fit into the first-level cache, enough that
// loading and storing the sums of a tile (3 % of its time) does not matter. Zen 5, 10^9 cells a
// second of a symmetric block of 48 and of 240 columns, with strips of 64, 128 and 192 rows: 25.8,
// 27.3, 27.5 and 40.2, 41.6, 41.7. Zen 4: 96 to 256 alike, 64 slower.
constexpr std::size_t kStripRows = 192;

// Columns whose moments are taken at once from columns: as many lines as a set of a first-level
// cache holds, which columns that are a power of two apart share. By reasoning.
constexpr unsigned kColumnsAtOnce = 8;

// Rows that a kernel takes one by one where a leading run of equal values ends.
constexpr std::size_t kChangingRows = 4;

// Columns whose panels of a strip take less than half of a second-level cache of half a megabyte.
// By reasoning.
constexpr std::size_t kResidentColumns = 128;

// Rows that are transposed at a time: so many columns of a page of rows that the lines read stay in
// the first-level cache. By reasoning.
constexpr std::size_t kTransposedRows = 64;

// Columns with which a pattern is taken as a block: they fill at least half of the narrowest panel.
// Zen 5, 10^9 pairs a second of 48 columns in patterns of so many, as blocks and column by column:
//              2             3             4
//   AVX-512    0.73, 4.18    1.65, 4.19    2.99, 4.18
//   AVX2       0.92, 2.12    1.92, 2.11    3.38, 2.12
// Panels of eight would rather wait for more than 4 columns there.
constexpr std::size_t kWidePattern = 3;

// Running sums of pairs that are worked on at a time, in doubles: some megabytes, and never less
// than what one task needs. By reasoning.
constexpr std::size_t kSumsAtOnce = std::size_t{1} << 19;

}  // namespace velmor::ordered
