#pragma once

// The engine: a table of kernels for each instruction set. Each kernel is written once, as a
// template of the file named in its comment, and compiled once for every set.
//
// A kernel works on panels. A panel interleaves some columns of a strip of rows: one row of it is
// one or a few vectors. A lane of a vector belongs to one column, one pair of columns or one cell
// and holds the whole of its running sum, never a part of it. So the bits are those of the plain
// loops (chains.h), whatever the width of the vectors.
//
// For all kernels: panels are aligned to 64 bytes, results to a vector or better, and they do not
// overlap; `panel` lanes stand side by side; running sums are read, continued and written back, so
// that rows can be cut into strips anywhere. Lanes beyond a panel's columns may hold anything.
// Kernels keep no state, allocate nothing, throw nothing.

#include <cstddef>
#include <cstdint>

namespace velmor::ordered {

// A strip is so many adjacent rows of a batch, or fewer: few enough that some panels fit into the
// first-level cache, enough that loading and storing the sums of a tile (3 % of its time) does not
// matter.
constexpr std::size_t kStripRows = 192;
// Most columns that any set's panel has.
constexpr unsigned kMaxPanel = 8;

// Some rows of a strip, ascending. Without a list, all of the first `count`.
struct Rows {
  std::size_t count;
  const std::uint8_t* list;
};

// What is known of each column's mean while its values come in, a field being as many doubles as a
// panel has columns. As WeightedMean has it, a leading run of equal values enters last, as value
// times weight.
enum MomentField : unsigned {
  kSum,        // of weight times value, after the run
  kRunValue,   // the first value
  kRunWeight,  // sum of the run's weights
  kRunEnded,   // all bits set: the run has ended; none: it has not
  kMin,
  kMax,
  kMomentFields
};

// The same for the two variables of a pair, over the cases in which both are present.
enum PairField : unsigned {
  kPairWeightSum,  // of the combined weights
  kPairCaseWeightSum,
  kPairSum0,
  kPairSum1,
  kPairRunValue0,
  kPairRunValue1,
  kPairRunWeight0,
  kPairRunWeight1,
  kPairStarted,  // masks, as kRunEnded
  kPairEnded0,
  kPairEnded1,
  kPairFields,
  // Once the means are known, their fields and others begin to mean:
  kPairMean0 = kPairSum0,
  kPairMean1 = kPairSum1,
  kPairSquares0 = kPairRunValue0,
  kPairSquares1 = kPairRunValue1,
  kPairProducts = kPairRunWeight0,
};

// One variable of pairs: a column's values in a strip and the rows in which it is present.
struct PairVariable {
  const double* values;
  Rows rows;
  const double* weights;      // the cases' combined weights
  const double* caseWeights;  // their case weights, where their sum is another one; else null
  double missingCode;
};

struct Engine {
  const char* name;     // "baseline", "avx2", "avx512"
  unsigned panel;       // columns of a panel
  unsigned tilePanels;  // panels that Products takes at once, at most
  // Whether DiagonalProducts takes less time than Products.
  bool narrowsDiagonals;
  // The set for problems of few columns, with panels half as wide; null where there is none.
  const Engine* narrower;

  // packing.h. panel[row * Engine::panel + lane] = column lane's value.
  //   columns   Engine::panel addresses of a strip's first row
  //   weighted  a second panel, of weights[row] times that; null when not wanted
  void (*Pack)(const double* const* columns, std::size_t rows, const double* weights, double* panel,
               double* weighted);

  // packing.h. Subtracts means[i] from a strip of rows of columns[i], in place, i < count.
  void (*CenterColumns)(double* const* columns, unsigned count, std::size_t rows,
                        const double* means);

  // packing.h. The rows of `from`, one after the other, less the centers in `panel`; and in
  // `weighted` times weights[i] for the i-th.
  void (*Center)(const double* from, Rows rows, const double* centers, const double* weights,
                 double* panel, double* weighted);

  // moments.h. The moments of all rows of columns, kMomentFields fields for each of `count` panels.
  //   columns   Engine::panel addresses of row 0 for each panel
  //   weights   of the rows; null: 1 each
  //   weightSum  of the weights, a running sum, as it was without weights; null when not wanted
  void (*ColumnMoments)(const double* const* columns, unsigned count, std::size_t rows,
                        const double* weights, double* moments, double* weightSum);

  // moments.h. Takes rows of adjacent panels, `stride` doubles apart, into their columns' moments.
  //   weights   by row of the panel
  //   isFirst   whether no row has been taken yet; the moments need no value then
  //   weightSum  of the rows' weights, a running sum; null when not wanted
  void (*PanelMoments)(const double* panels, unsigned count, std::size_t stride, Rows rows,
                       const double* weights, bool isFirst, double* moments, double* weightSum);

  // products.h. For column r < columns of a and column c of panel p < panels,
  //   cells[(p * panel + r) * panel + c] += a[row * panel + r] * b[p * stride + row * panel + c]
  // for row = 0, 1, ... rows - 1, product and sum rounded apart.
  void (*Products)(const double* a, unsigned columns, const double* b, unsigned panels,
                   std::size_t stride, std::size_t rows, double* cells);

  // products.h. The same for one panel b, of which only the cells with c <= r are wanted; the
  // others come out right or not at all.
  void (*DiagonalProducts)(const double* a, unsigned columns, const double* b, std::size_t rows,
                           double* cells);

  // sums.h. With t = value * weights[row], adds t to sums and t * value to squares for each
  // column of adjacent panels, whose sums are `sumsStride` apart.
  //   weights   by row of the panel; null: 1 each
  void (*PanelSums)(const double* panels, unsigned count, std::size_t stride, Rows rows,
                    const double* weights, std::size_t sumsStride, double* sums, double* squares);

  // presence.h. Sets bit row % 64 of bits[row / 64] where x[row] is not the missing code, and
  // clears the other bits of these words. Returns how many are set.
  std::size_t (*Presence)(const double* x, std::size_t rows, double missingCode,
                          std::uint64_t* bits);
  // presence.h. The bits set in both.
  std::size_t (*CountBoth)(const std::uint64_t* a, const std::uint64_t* b, std::size_t words);

  // presence.h. Sets bit row % 64 of bits[row / 64] where x[row] is equal to the value, or where it
  // is any NaN if the value is one; leaves the other bits.
  void (*MarkEqual)(const double* x, std::size_t rows, double value, std::uint64_t* bits);

  // presence.h. Lowers *min and raises *max, both the first value present, to the extremes of all
  // that are. A later value counts where it is strictly further out, so NaNs don't.
  void (*PresentExtremes)(const double* x, std::size_t rows, double missingCode, double* min,
                          double* max);

  // pairs.h. Takes a variable's rows into the sums of its pairs with each column of adjacent
  // panels, of raw values, kPairFields fields a panel, all zero at first. A row in which the
  // panel's column has the missing code is left out.
  //   isComplete  whether there is none
  void (*PairSums)(const PairVariable& x, bool isComplete, const double* panels, unsigned count,
                   std::size_t stride, double* pairs);
  // pairs.h. Turns the sums of one panel's pairs into means, and clears the fields of squares and
  // products.
  void (*PairMeans)(double* pairs);
  // pairs.h. With u the weight and d0, d1 the distances from the pair's means, adds (u * d0) * d0,
  // (u * d1) * d1 and (u * d0) * d1 - or, unless x is the pair's first variable, (u * d1) * d0.
  void (*PairProducts)(const PairVariable& x, bool isFirst, bool isComplete, const double* panels,
                       unsigned count, std::size_t stride, double* pairs);

  // merging.h. The operations of ordered/merges.h of these names.
  void (*AddCells)(const double* d, std::size_t count, double* cells);
  void (*MergeRow)(const double* shiftsA, const double* shiftsB, double factorA, double factorB,
                   const double* cellsB, std::size_t count, double* cellsA);
  // merging.h. Merges pairs b[i] into a[i], each eight doubles: a count, which is not touched, then
  // the fields of PairStatData. Asks nothing of the counts: leave pairs without cases out.
  void (*MergePairs)(double* const* a, const double* const* b, std::size_t count);

  // transposition.h. to[i] = the i-th double from any address on, i < count.
  void (*Copy)(const void* from, std::size_t count, double* to);
  // transposition.h. to[c * stride + r] = from[r][c] for r < rows, c < columns.
  void (*Transpose)(const double* const* from, std::size_t rows, std::size_t columns,
                    std::size_t stride, double* to);
};

}  // namespace velmor::ordered
