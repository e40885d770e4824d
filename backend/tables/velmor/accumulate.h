#pragma once

#include <velmor/blockforest.h>
#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>

#pragma GCC visibility push(default)
namespace velmor {

// Rows of a block for so many columns of values: about 1 MiB of values, what a second-level cache
// holds, but at least 512 rows, so that merging stays a small part of the work. The same on every
// machine, because how a run is cut into blocks is part of its result.
std::uint64_t DefaultBlockRows(std::size_t columns);

struct AccumulateOptions {
  // Rows of a block, at most 2^32 - 1; 0 stands for DefaultBlockRows of the number of columns.
  std::uint64_t blockRows = 0;
  // The number of the block that begins with the table's row 0, where a table is a part of the
  // data.
  std::uint64_t firstBlock = 0;
  // As Driver's.
  int threads = 0;
  // Called with the number of rows that have been taken so far, when a block is taken and when none
  // is left; false cancels the run. Calls come one at a time, from the run's threads. What it
  // throws reaches Accumulate's caller.
  std::function<bool(std::uint64_t rows)> progress;
};

// A run ended because its progress callback said so.
class Cancelled : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Accumulates the cases of a table, block by block, on several threads: each claims a block, fills
// a batch of its own and accumulates it. The bits of the result depend on the table, the block rows
// and the accumulator's shape only.
//
//   shape  an accumulator of the class, bounds, groups and missing code wanted. It is only read,
//          and what it holds is not used.
//
// The listwise and the discriminant accumulators leave out cases with an absent value; the pairwise
// ones take it as their missing code. Cases with an absent weight or group are left out by all. The
// difference between the table's rows and the forest's NRows() is the number of cases left out.
//
// Cases of weight 0 are cases like others, but an accumulator drops a block in which all case
// weights are 0 where others are there, and a block in which only the regression weights are makes
// listwise means NaN. To leave such cases out, mark the weight as absent: absentCodes = {0.}.
//
// Memory: a batch of blockRows rows for each thread (two, by group), and the forest's nodes.
// Asserts that blockRows is not too large and that all blocks are numbered below 2^63. Throws
// std::invalid_argument when the table does not fit the shape or a value can't be taken
// (DataBatch::AddColumns), saying where: the first such place in the table, whatever the number of
// threads; Cancelled; std::runtime_error when the host's services ended the run before its last
// row; and what BlockForest::Add and Driver throw.
template <class Accumulator>
[[gnu::visibility("default")]] BlockForest<Accumulator> Accumulate(
    const TableView& table, const Accumulator& shape, const AccumulateOptions& options = {});

}  // namespace velmor
#pragma GCC visibility pop
