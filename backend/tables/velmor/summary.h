#pragma once

#include <velmor/stateerror.h>
#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#pragma GCC visibility push(default)
namespace velmor {

// What is done with missing values. Pairwise: a value that is missing is left out of its own
// column's statistics and of its pairs'. Listwise: a row with a missing value is left out.
enum class MissingRule : unsigned char { Pairwise, Listwise };

// A column of a summary.
struct SummaryColumn {
  std::string name;  // UTF-8
  // Values that stand for missing ones: at most ColumnView::kMostAbsentCodes, none of them NaN. In
  // a column of floats a code stands for the float that is nearest to it.
  std::vector<double> missingCodes;
  bool nanIsMissing = true;  // NaN in columns of doubles and floats
};

// What a summary is of, and how its rows are taken in. Summaries are merged only if all of it
// agrees.
struct SummaryDefinition {
  // At most 65535. Names differ, but for one that stands once on either side.
  std::vector<SummaryColumn> columns;
  // 0: each column is paired with each other. Otherwise so many columns, the first ones, are
  // paired with each of the others, and no two of one side.
  std::size_t firstSide = 0;
  MissingRule missing = MissingRule::Pairwise;
  bool hasWeights = false;     // case weights: how many cases a row stands for
  bool hasRegWeights = false;  // regression weights: how precise a row is
  // Rows of a block, at most 2^31 - 1; 0 stands for DefaultBlockRows of the number of columns.
  // Other blocks round otherwise.
  std::uint64_t blockRows = 0;
};

// How many rows a summary has been given, by what became of them.
struct SummaryRows {
  std::uint64_t used = 0;
  std::uint64_t withoutWeight = 0;  // left out: a weight is missing
  std::uint64_t weightless = 0;     // left out: no weight is missing, and one is 0
  std::uint64_t incomplete = 0;     // left out listwise: only values are missing
};

// Statistics of a column over the rows in which it is present (listwise: over all used rows). u is
// a row's combined weight (databatch.h).
struct ColumnStatistics {
  std::uint64_t rows = 0;
  double weightSum = 0.;     // sum of the case weights, the number of rows without case weights
  double regWeightSum = 0.;  // sum of u
  double mean = 0.;          // sum of u * x over regWeightSum; NaN without rows
  double squares = 0.;       // sum of u * (x - mean)^2; exactly 0 where all values are equal
  double min = 0.;           // NaN without rows, like max
  double max = 0.;

  // squares / (weightSum - ddof); NaN where that divisor is not positive.
  double Variance(double ddof = 1.) const;
};

// Statistics of two columns, a and b, over the rows in which both are present. Squares and products
// are exactly 0 where one of the columns has no spread over these rows: its extremes are equal; or,
// over a part of the column's rows, of which no extremes are known, its squares are no larger than
// what rounding its mean can leave (Varies in statistics.h).
struct PairStatistics {
  std::uint64_t rows = 0;
  double weightSum = 0.;
  double regWeightSum = 0.;
  double meanA = 0.;     // NaN without rows, like meanB
  double meanB = 0.;     //
  double squaresA = 0.;  // sum of u * (a - meanA)^2
  double squaresB = 0.;
  double products = 0.;  // sum of u * (a - meanA) * (b - meanB)

  // products / (weightSum - ddof); NaN where that divisor is not positive.
  double Covariance(double ddof = 1.) const;
  // products / (sqrt(squaresA) * sqrt(squaresB)), but never outside [-1, 1]. NaN where either
  // column has no spread, and where squares were too large or too small for a double.
  double Correlation() const;
};

struct UpdateOptions {
  // As Driver's. The bits do not depend on it.
  int threads = 0;
  // Called before blocks are taken and at the end, with the number of the call's rows taken so far;
  // false cancels the update. Calls come one at a time, from the update's threads. An exception of
  // its own reaches Update's caller. Until the update ends, operations on the summary that read or
  // change its statistics throw std::logic_error.
  std::function<bool(std::uint64_t rows)> progress;
};

// Means, extremes and centred cross-products of named columns, over rows that come in pieces of any
// size: to be updated, merged with others, read, saved and loaded.
//
// Rows are numbered in the order in which they come, and cut into blocks of a fixed number of them.
// The blocks are accumulated and merged as Accumulate does (accumulate.h). So how rows are cut into
// calls of Update, and how many threads there are, changes no bit: the state is that of one
// Accumulate over all rows, up to 2^31 of them, used or not.
//
// A summary has room for any number of rows. Every 2^31 of them take the memory of another matrix.
// Any number of threads may read it at once, const operations all; one that changes it has to be
// alone. One that was moved from can only be destroyed or assigned to. Operations leave the
// caller's floating-point environment as it is.
class Summary {
 public:
  // A summary of no rows. Throws std::invalid_argument, which says what is wrong with the
  // definition; std::bad_alloc.
  explicit Summary(SummaryDefinition definition);
  ~Summary();
  Summary(Summary&& other) noexcept;
  Summary& operator=(Summary&& other) noexcept;

  // Another summary that goes on as this one does. O(state). Throws std::bad_alloc.
  Summary Copy() const;

  // As it was given, but each column's codes ascend without repetition, and blockRows is told. The
  // reference holds until the summary is merged into, assigned to or destroyed.
  const SummaryDefinition& Definition() const;

  // Takes the rows of a table, whose columns of values are the summary's. A value is missing where
  // the view or the summary's column says so. A row is left out, and counted by its reason, if one
  // of its weights is missing by the view's marks or is 0, or listwise if a value is missing.
  //
  // Rows of blocks that can't be accumulated yet are copied: those of a block, or of up to 8 small
  // ones of up to 2 MiB together, the memory for which is kept. The other blocks of the table are
  // read where they lie. O(rows * pairs).
  //
  // Throws, and leaves the summary as it was,
  //   std::invalid_argument when the table's columns or weights are not the summary's, or when a
  //       row has a weight that is negative, infinite or not a number, weights whose product is
  //       too large or too small for a double, or a value that can't be taken: a 64-bit integer
  //       that no double equals, or pairwise the lowest double, which marks missing values inside.
  //       The message names the row, counted from 0 in this table, and the column;
  //   Cancelled; std::runtime_error when the host's services ended the run (accumulate.h);
  //   std::length_error when there are more rows than can be counted; std::bad_alloc; what Driver
  //   throws.
  void Update(const TableView& table, const UpdateOptions& options = {});

  // Takes the other's rows behind its own, which end a block. The other can be this summary. A
  // summary that was given no rows changes nothing. O(state). Throws, and leaves the summary as it
  // was, std::invalid_argument, which names what differs in the definitions; std::length_error;
  // std::bad_alloc.
  void Merge(const Summary& other);

  // Summaries merged in a balanced tree over their order, so that many keep their digits:
  // neighbours in twos, and these in twos again; one that is left over goes up as it is. Those that
  // were given no rows are left out first. O(summaries * state), in the memory of log2(summaries)
  // states. Throws as Merge does, and std::invalid_argument when there is none.
  static Summary MergeAll(const std::vector<const Summary*>& summaries);

  // What follows reads; it changes nothing. The rows of a block that is not full count as a short
  // block. The first reading after an update merges what is there, in O(state) and that much
  // memory; the others cost what they say. They throw std::bad_alloc, and std::out_of_range where
  // there is no such column or pair.

  SummaryRows Rows() const;
  // Over the used rows: the sum of the case weights, the number of rows without them; the sum of
  // the combined weights.
  double WeightSum() const;
  double RegWeightSum() const;
  // O(1), like the next.
  ColumnStatistics Column(std::size_t column) const;
  // Two different columns that are paired, in either order.
  PairStatistics Pair(std::size_t a, std::size_t b) const;

  // Whole matrices. Entry (i, j) is about columns i and j; on a rectangle about columns i and
  // firstSide + j. On the diagonal of the others is the column with itself. Entries are written to
  // to[i * rowStride + j]; nothing else is written there. O(rows * columns), for complete cases at
  // about the speed of memory.
  std::size_t MatrixRows() const;
  std::size_t MatrixColumns() const;

  void CrossProducts(double* to, std::size_t rowStride) const;
  //   ddof        as in Covariance
  //   fewestRows  entries over fewer rows are NaN
  void Covariances(double* to, std::size_t rowStride, double ddof = 1.,
                   std::uint64_t fewestRows = 1) const;
  // The diagonal is exactly 1 where it is not NaN.
  void Correlations(double* to, std::size_t rowStride, std::uint64_t fewestRows = 1) const;
  void PairRows(std::uint64_t* to, std::size_t rowStride) const;
  void PairWeightSums(double* to, std::size_t rowStride) const;

  // The summary as bytes, to be kept in a file (its name extension is .velmor) or sent. Equal
  // summaries have equal bytes. No row is in them: rows of a block that is not full are saved as
  // that short block. docs/state-format.md describes the bytes; every later version of the library
  // reads them. O(state). Throws std::bad_alloc.
  std::vector<std::byte> Save() const;

  // The summary whose bytes these are, all of them. The bytes are not trusted: whatever they are,
  // the memory taken is in proportion to their number, and what is loaded can be used in every way.
  // Rows that are added begin a block. Throws StateError, which says what is wrong; std::bad_alloc.
  static Summary Load(const std::byte* bytes, std::size_t size);
  static Summary Load(const std::vector<std::byte>& bytes) {
    return Load(bytes.data(), bytes.size());
  }

 private:
  struct [[gnu::visibility("hidden")]] Data;
  [[gnu::visibility("hidden")]] explicit Summary(std::unique_ptr<Data> my) noexcept;

  std::unique_ptr<Data> _my;
};

}  // namespace velmor
#pragma GCC visibility pop
