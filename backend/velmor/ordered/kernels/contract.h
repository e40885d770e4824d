#pragma once

// The engine: a table of kernels for each instruction set. Each kernel is written once, as a
// template of the file named in its comment, and compiled once for every set.
//
// A lane of a vector belongs to one column, one pair of columns or one cell and holds the whole of
// its running sum, never a part of it. So the bits are those of the plain loops (chains.h),
// whatever the width of the vectors.
//
// A panel interleaves Engine::panel columns of a strip of rows, so that a row of it is one vector
// or a few. Of three columns x, y, z, with four lanes:
//
//   row 0   x[0] y[0] z[0]  ?
//   row 1   x[1] y[1] z[1]  ?      panel[row * Engine::panel + lane]
//   row 2   x[2] y[2] z[2]  ?
//
// The fourth lane has no column. All lanes are read, so its memory has to be there, but may hold
// anything, NaN included. What a kernel computes for such a lane means nothing. Adjacent panels are
// `stride` doubles apart, at least the size of one.
//
// A tile has a cell for each pair of a column of panel a and a column of panel b; of Engine::panel
// squared cells, whatever the columns. Adjacent tiles have the same panel a.
//
//                    b's lane 0  1  2  3
//   a's lane 0             [ 0  1  2  3 ]
//   a's lane 1             [ 4  5  6  7 ]      tile[lane of a * Engine::panel + lane of b]
//   a's lane 2             [ 8  9 10 11 ]
//   a's lane 3             [12 13 14 15 ]
//
// For all kernels, unless the kernel's comment says otherwise:
// - Alignment: none but a double's. Panels, tiles and sums that begin at a multiple of 64 bytes are
//   quicker, since none of their vectors lies in two cache lines; scratch memory does.
// - Overlap: what is written overlaps nothing else. What is only read may be the same twice.
// - No rows, columns, panels or cells: nothing changes. Running sums may still be read, and written
//   back as they were.
// - Running sums are read, continued and written back, so that rows can be cut into strips
//   anywhere, also into strips without rows. They have to be set before the first strip.
// - Rounding is to nearest, and subnormal numbers are kept (floatenvironment.h).
// - A kernel keeps no state, allocates nothing, throws nothing and calls no function, but for
//   those that a compiler makes of a copy of bytes and of a count of bits.

#include <cstddef>
#include <cstdint>

namespace velmor::ordered {

// Most columns that any set's panel has.
constexpr unsigned kMaxPanel = 8;
// Most lanes that any set's vectors have.
constexpr unsigned kMaxLanes = 8;

// Some rows of a strip: ascending, each of them once. Without a list, all of the first `count`.
// What is in other rows is never read.
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

// The same for the two variables of a pair, over the cases in which both are present: variable 0 is
// PairVariable's, variable 1 the lane's column.
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

// Up to which sizes blocks are quicker side by side than one by one.
struct AbreastBounds {
  unsigned mostColumnsListwise;
  unsigned mostColumnsPairwise;
  std::uint64_t mostValues;  // of a block
};

// Blocks abreast: a lane is a block of rows, and an array abreast has a vector of lanes in each
// place. What is known of a column's mean in each block while its values come in:
enum AbreastField : unsigned {
  kAbreastSum,  // of weight times value, after the leading run
  kAbreastMin,
  kAbreastMax,
  kAbreastRunValue,   // the first value
  kAbreastRunWeight,  // sum of the run's weights
  kAbreastStarted,    // all bits set: there has been a row; none: there has not
  kAbreastRunEnded,   // likewise, whether the run has ended
  kAbreastFields
};

// A column of the blocks where it lies: first[l * stride + row] of block l.
struct LyingColumn {
  const double* first;
  std::size_t stride;
  std::size_t ahead;  // from what is read to what is wanted soon and therefore prefetched
};

// Rows of the blocks, with what their columns share, both abreast.
struct RowsAbreast {
  std::size_t count;
  const double* weights;  // the combined ones; null: 1 each
  const double* used;     // masks: in which lanes a row counts; null: in all of them
};

// A pair of columns in each block, a field being a vector: first what a record has, in the order of
// PairStatData.
enum PairLaneField : unsigned {
  kLaneRows,
  kLaneCaseWeight,
  kLaneWeight,  // sum of the combined weights
  kLaneMean0,
  kLaneMean1,
  kLaneSquares0,
  kLaneSquares1,
  kLaneProducts,
  kPairRecordFieldsAbreast,
  // While the means are sums, some of these fields mean others, and there are more.
  kLaneSum0 = kLaneMean0,
  kLaneSum1 = kLaneMean1,
  kLaneRunValue0 = kLaneSquares0,
  kLaneRunValue1 = kLaneSquares1,
  kLaneRunWeight0 = kLaneProducts,
  kLaneRunWeight1 = kPairRecordFieldsAbreast,
  kLaneStarted,  // masks, as the next two
  kLaneEnded0,
  kLaneEnded1,
  kPairFieldsAbreast
};

// The second column of a pair.
struct PairAbreast {
  const double* values;  // turned
  double* fields;
};

// Rows [from, to) of turned columns. Where a lane's value is the missing code, it is absent.
struct PairRowsAbreast {
  std::size_t from;
  std::size_t to;
  const double* weights;      // the combined ones, of row 0 on; null: 1 each
  const double* caseWeights;  // null unless their sum is another one
  double missingCode;
};

// The listwise statistics of each block, abreast.
struct ListwiseAbreast {
  unsigned columns;
  unsigned firstRange;  // columns of a rectangle's first range; of a triangle all
  double* means;        // one for each column, as the next three
  double* mins;         // null when not wanted, with maxs
  double* maxs;
  double* squares;  // of a rectangle; else null
  double* cells;    // packed like those of the accumulator
  double* shifts;   // scratch of a merge, one for each column, as the next two
  double* shiftsA;
  double* shiftsB;
};

struct Engine {
  const char* name;     // "baseline", "avx2", "avx512"
  unsigned panel;       // columns of a panel
  unsigned tilePanels;  // panels that Products takes at once, at most
  // Whether DiagonalProducts takes less time than Products.
  bool narrowsDiagonals;
  // The set for problems of few columns, with panels half as wide; null where there is none.
  const Engine* narrower;
  // Most columns of a problem that the narrower set is for.
  unsigned fewColumns;

  // packing.h. panel[row * Engine::panel + lane] = column lane's value, in all lanes.
  //   columns   Engine::panel addresses of a strip's first row; some may be the same
  //   weighted  a second panel, of weights[row] times that; null when not wanted, and then the
  //             weights are not read
  void (*Pack)(const double* const* columns, std::size_t rows, const double* weights, double* panel,
               double* weighted);

  // packing.h. Subtracts means[i] from a strip of rows of columns[i], in place, i < count.
  //   columns  no two the same
  void (*CenterColumns)(double* const* columns, unsigned count, std::size_t rows,
                        const double* means);

  // packing.h. The rows of the panel `from`, one after the other, less the centers in `panel`; and
  // in `weighted` times weights[i] for the i-th of them. All lanes are written.
  //   centers  Engine::panel
  void (*Center)(const double* from, Rows rows, const double* centers, const double* weights,
                 double* panel, double* weighted);

  // moments.h. The moments of all rows of columns, kMomentFields fields for each of `count` panels,
  // in all lanes. They need no value before; without a row they get none.
  //   columns   Engine::panel addresses of row 0 for each panel; some may be the same
  //   weights   of the rows; null: 1 each
  //   weightSum  gets the sum of the weights, 0 without a row; needs no value before
  void (*ColumnMoments)(const double* const* columns, unsigned count, std::size_t rows,
                        const double* weights, double* moments, double* weightSum);

  // moments.h. Takes rows of adjacent panels into their columns' moments, in all lanes.
  //   weights   by row of the panel; null: 1 each
  //   isFirst   whether the strips before had no row at all; the moments need no value then
  //   weightSum  of the weights of all rows that were taken, a running sum, 0 at first
  void (*PanelMoments)(const double* panels, unsigned count, std::size_t stride, Rows rows,
                       const double* weights, bool isFirst, double* moments, double* weightSum);

  // products.h. For column r < columns of a and every lane c of panel p < panels,
  //   cells[(p * panel + r) * panel + c] += a[row * panel + r] * b[p * stride + row * panel + c]
  // for row = 0, 1, ... rows - 1, product and sum rounded apart. Where the columns are odd, the
  // next row of each tile is read and written as well; other rows are not.
  //   columns  at least 1 and at most Engine::panel
  //   panels   at least 1 and at most tilePanels
  //   a        may be one of the panels b, as without weights, where a panel is both operands
  //   cells    tiles
  void (*Products)(const double* a, unsigned columns, const double* b, unsigned panels,
                   std::size_t stride, std::size_t rows, double* cells);

  // products.h. The same for one panel b, of which only the cells with c <= r are wanted. The other
  // cells of the rows that Products writes come out right or stay as they were.
  void (*DiagonalProducts)(const double* a, unsigned columns, const double* b, std::size_t rows,
                           double* cells);

  // sums.h. With t = value * weights[row], adds t to sums and t * value to squares for each lane of
  // adjacent panels, whose sums are `sumsStride` apart.
  //   weights   by row of the panel; null: 1 each
  //   sums, squares  null when not wanted, one of them
  void (*PanelSums)(const double* panels, unsigned count, std::size_t stride, Rows rows,
                    const double* weights, std::size_t sumsStride, double* sums, double* squares);

  // presence.h. Sets bit row % 64 of bits[row / 64] where x[row] is not the missing code, and
  // clears the other bits of these words; they need no value before. Returns how many are set.
  std::size_t (*Presence)(const double* x, std::size_t rows, double missingCode,
                          std::uint64_t* bits);
  // presence.h. The number of bits set in both.
  std::size_t (*CountBoth)(const std::uint64_t* a, const std::uint64_t* b, std::size_t words);

  // presence.h. Sets bit row % 64 of bits[row / 64] where x[row] is equal to the value, or where it
  // is any NaN if the value is one; leaves the other bits.
  void (*MarkEqual)(const double* x, std::size_t rows, double value, std::uint64_t* bits);

  // presence.h. Lowers *min and raises *max, both the first value present, to the extremes of all
  // that are. A later value counts where it is strictly further out, so NaNs don't. At least one
  // value is present.
  void (*PresentExtremes)(const double* x, std::size_t rows, double missingCode, double* min,
                          double* max);

  // pairs.h. Takes a variable's rows into the sums of its pairs with each lane of adjacent panels
  // of raw values, kPairFields fields a panel, each +0 at first. A row in which the lane has the
  // missing code is left out; x's values are not compared with it, so x.rows leaves out its own.
  //   x           its rows may be a part of a strip; whether it has case weights is the same in all
  //               calls for a pair
  //   isComplete  whether no column of the panels lacks any of the rows, in all calls for a pair
  void (*PairSums)(const PairVariable& x, bool isComplete, const double* panels, unsigned count,
                   std::size_t stride, double* pairs);
  // pairs.h. Turns the sums of one panel's pairs into means, and clears the fields of squares and
  // products. The sums of weights stay.
  void (*PairMeans)(double* pairs);
  // pairs.h. With u the weight and d0, d1 the distances from the pair's means, adds (u * d0) * d0,
  // (u * d1) * d1 and (u * d0) * d1 - or, unless x is the pair's first variable, (u * d1) * d0.
  // The other arguments are those of PairSums, for the same rows.
  void (*PairProducts)(const PairVariable& x, bool isFirst, bool isComplete, const double* panels,
                       unsigned count, std::size_t stride, double* pairs);

  // merging.h. The operations of ordered/merges.h of these names. d and cellsB may be the cells
  // themselves.
  void (*AddCells)(const double* d, std::size_t count, double* cells);
  void (*MergeRow)(const double* shiftsA, const double* shiftsB, double factorA, double factorB,
                   const double* cellsB, std::size_t count, double* cellsA);
  // merging.h. Merges pairs b[i] into a[i], each eight doubles: a count, then the fields of
  // PairStatData. The count is read, and written back as it was. Asks nothing of the counts: leave
  // pairs without cases out.
  //   a  no two the same
  //   b  b[i] may be a[i] itself, but overlaps no other a
  void (*MergePairs)(double* const* a, const double* const* b, std::size_t count);

  // transposition.h. to[i] = the i-th double from any address on, of whatever alignment, i < count.
  void (*Copy)(const void* from, std::size_t count, double* to);
  // transposition.h. to[c * stride + r] = from[r][c] for r < rows, c < columns; nothing between.
  void (*Transpose)(const double* const* from, std::size_t rows, std::size_t columns,
                    std::size_t stride, double* to);

  // The kernels of abreast.h. Rows of a lane that are not used are read, too.
  unsigned lanes;
  AbreastBounds abreast;
  // turned[row * lanes + l] = the column's value in that row of block l.
  void (*TurnAbreast)(const LyingColumn& column, std::size_t rows, double* turned);
  // sums += the weights of used rows, one after the other.
  void (*SumAbreast)(const RowsAbreast& rows, double* sums);
  // Takes rows into their columns' moments, kAbreastFields each, all zero at first.
  void (*MomentsAbreast)(const LyingColumn* columns, unsigned count, const RowsAbreast& rows,
                         double* moments);
  // distances[c * stride + row * lanes + l] = value less mean, 0 where the row is not used; and in
  // `weighted` weight times that, which is left alone without weights.
  void (*DistancesAbreast)(const LyingColumn* columns, unsigned count, const RowsAbreast& rows,
                           const double* means, std::size_t stride, double* distances,
                           double* weighted);
  // cells += a * b, row after row, for each column of a by each of b; of a triangle only with b's
  // column no higher than a's. Cells are packed row by row.
  //   a, b  columns as DistancesAbreast writes them; may be the same
  void (*ProductsAbreast)(const double* a, unsigned columnsA, const double* b, unsigned columnsB,
                          bool isTriangle, std::size_t stride, std::size_t rows, double* cells);
  // The same from columns that have been turned: the address of each one's first row.
  void (*TurnedMoments)(const double* const* turned, unsigned count, const RowsAbreast& rows,
                        double* moments);
  void (*TurnedDistances)(const double* const* turned, unsigned count, const RowsAbreast& rows,
                          const double* means, std::size_t stride, double* distances,
                          double* weighted);
  // The same for each column of a by that of b with its number.
  void (*SquaresAbreast)(const double* a, const double* b, unsigned columns, std::size_t stride,
                         std::size_t rows, double* squares);
  // Merges neighbouring lanes in twos, and these in twos again, into lane 0; what the other lanes
  // hold then means nothing.
  //   weights  sums of the lanes' combined weights
  void (*MergeAbreast)(const ListwiseAbreast& record, const double* weights);

  // The kernels of abreastpairs.h, over turned columns.
  // masks[row * lanes + l]: whether both columns are present.
  void (*PresentAbreast)(const double* a, const double* b, double missingCode, std::size_t rows,
                         double* masks);
  // counts[l] = the bits set in both of lane l's words; the lanes' words stand one after the other.
  void (*CountAbreast)(const std::uint64_t* a, const std::uint64_t* b, std::size_t words,
                       double* counts);
  // Takes rows into the sums of the pairs of column x, as the first, with others; all fields are
  // zero at first. Without weights their sums are left alone.
  void (*PairSumsAbreast)(const PairRowsAbreast& rows, const double* x, const PairAbreast* pairs,
                          unsigned count);
  // Turns sums into means, and clears squares and products.
  void (*PairMeansAbreast)(const PairAbreast* pairs, unsigned count);
  // Takes rows into the pairs' squares and products.
  void (*PairProductsAbreast)(const PairRowsAbreast& rows, const double* x,
                              const PairAbreast* pairs, unsigned count);
  // Makes of each pair the record of an accumulator whose first batch it is: merges it into an
  // empty one, which rounds its means.
  void (*FreshPairs)(double* pairs, std::size_t count);
  // Merges the lanes of each pair as MergeAbreast does. A lane without cases changes nothing.
  void (*MergePairsAbreast)(double* pairs, std::size_t count);
};

}  // namespace velmor::ordered
