#pragma once

// Sizes and thresholds that are the same for all instruction sets. Those of one set are in its file
// (kernels/baseline.cpp, avx2.cpp, avx512.cpp). They change a result's time and none of its bits.

#include <cstddef>

namespace velmor::ordered {

// Rows of a strip, at most: few enough that some panels fit into the first-level cache, enough that
// loading and storing the sums of a tile (3 % of its time) does not matter.
constexpr std::size_t kStripRows = 192;

// Columns whose moments are taken at once from columns: as many lines as a set of a first-level
// cache holds, which columns that are a power of two apart share.
constexpr unsigned kColumnsAtOnce = 8;

// Rows that a kernel takes one by one where a leading run of equal values ends.
constexpr std::size_t kChangingRows = 4;

// Columns whose panels of a strip take less than half of a second-level cache of half a megabyte.
constexpr std::size_t kResidentColumns = 128;

// Rows that are transposed at a time: so many columns of a page of rows that the lines read stay in
// the first-level cache.
constexpr std::size_t kTransposedRows = 64;

// Columns with which a pattern is taken as a block: they fill at least half of the narrowest panel.
// With fewer, a column at a time is quicker.
constexpr std::size_t kWidePattern = 3;

// Running sums of pairs that are worked on at a time, in doubles: some megabytes, and never less
// than what one task needs.
constexpr std::size_t kSumsAtOnce = std::size_t{1} << 19;

}  // namespace velmor::ordered
