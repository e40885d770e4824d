#pragma once

#include <velmor/blockforest.h>
#include <velmor/tableview.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>

#pragma GCC visibility push(default)
namespace velmor {

// Rows of a block for so many columns of values. Up to 64 columns, 504: so few that even a table of
// some thousand rows has the eight blocks that can be taken side by side, and that eight blocks of
// 12 columns stay in a second-level cache; so many that merging is 2 to 3 % of the work. (With 512,
// the same row of all eight would fall into one set of a first-level cache.) More columns fill
// vectors by themselves and have about 1 MiB of values in a block, but at least 512 rows.
//
// The number depends on the columns alone: how a run is cut into blocks is part of its result, and
// only forests of like blocks are merged, whatever the machine and the rows that each has.
// Asserts 0 < columns.
std::uint64_t DefaultBlockRows(std::size_t columns);
// Likewise for the accumulators by group, whose blocks are taken one by one: about 1 MiB of values,
// but at least 512 rows. Asserts 0 < columns.
std::uint64_t DefaultBlockRowsByGroup(std::size_t columns);

struct AccumulateOptions {
  // Rows of a block, at most 2^32 - 1; 0 stands for DefaultBlockRows of the number of columns, or
  // for an accumulator by group DefaultBlockRowsByGroup.
  std::uint64_t blockRows = 0;
  // The number of the block that begins with the table's row 0. Not 0 where the table is a later
  // part of the data.
  std::uint64_t firstBlock = 0;
  // As Driver's.
  int threads = 0;
  // Called before each block is taken and when none is left, with the number of rows in the blocks
  // taken so far; false cancels the run. Calls come one at a time, from the run's threads. An
  // exception of its own reaches Accumulate's caller.
  std::function<bool(std::uint64_t rows)> progress;
};

// A run ended because its progress callback said so.
class Cancelled : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Accumulates the cases of a table, block by block, on several threads: each claims a block, fills
// a batch of its own and accumulates it. Small blocks of few columns are claimed some at a time and
// accumulated side by side, a lane of a vector for each, with the same bits. The bits of the result
// depend on the table, the block rows and the accumulator's shape only.
//
//   shape  an accumulator of the class, bounds, groups and missing code wanted. It is only read,
//          and what it holds is not used.
//
// Listwise and discriminant accumulators leave out cases with an absent value; pairwise
// accumulators take an absent value as their missing code. Cases with an absent weight are left out
// by all. Cases with an absent group are left out by discriminant accumulators; the others don't
// look at the groups. The difference between the table's rows and the forest's NRows() is the
// number of cases left out.
//
// Cases of weight 0 are cases like others, and matrixbase.h says what becomes of a block whose
// weights sum to zero. To leave cases of weight 0 out, mark the weight as absent:
// absentCodes = {0.}.
//
// Memory: a batch of blockRows rows for each thread (by group, of twice the size), where blocks are
// taken side by side about ten of these and eight accumulators, and the forest's nodes. Asserts
// that blockRows is not too large and that all blocks are numbered below 2^63.
// Throws
//   std::invalid_argument when the table does not fit the shape, or when a value can't be taken
//       (DataBatch::AddColumns); the message says where, and it is the first such place in the
//       table, on any number of threads;
//   Cancelled;
//   std::runtime_error when the host's services ended the run before its last row;
//   what BlockForest::Add and Driver throw.
template <class Accumulator>
[[gnu::visibility("default")]] BlockForest<Accumulator> Accumulate(
    const TableView& table, const Accumulator& shape, const AccumulateOptions& options = {});

}  // namespace velmor
#pragma GCC visibility pop
