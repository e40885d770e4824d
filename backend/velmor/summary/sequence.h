#pragma once

// All rows that a summary has used, in their order.

#include <velmor/blockforest.h>
#include <velmor/summary.h>

#include "summary/parts.h"
#include "summary/stage.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace velmor {

// Rows in three pieces, one behind the other: parts, which were merged or loaded; forests of the
// blocks that came after these; and the stage, where the rows of blocks wait that are not
// accumulated yet. A forest takes as many blocks as a part can hold, a power of 2, and then the
// next one begins.
class Sequence {
 public:
  // The definition is in its normal form, and outlives the sequence.
  Sequence(const SummaryDefinition& definition, Parts parts);

  // Another one over the same rows, for a definition that is equal. Throws std::bad_alloc.
  Sequence Copy(const SummaryDefinition& definition) const;

  // Rows on their way into a sequence.
  class Update;

  // All rows as parts; short blocks, too. Throws std::bad_alloc.
  Parts Close() const;

 private:
  using Forest = BlockForest<MatrixBase>;

  Forest NewForest() const;
  // The forest of a table whose first row begins this block.
  Forest Accumulated(const TableView& table, std::uint64_t firstBlock,
                     const UpdateOptions& options) const;

  const SummaryDefinition* _definition;
  std::uint64_t _forestBlocks;  // that a forest takes
  Parts _parts;
  std::vector<Forest> _forests;  // all but the last are full
  Stage _stage;
  Stage _spare;  // memory for the next stage
};

// What is built is kept aside until nothing can fail any more; an update that ends before that
// leaves the sequence as it was. There is one update at a time.
class Sequence::Update {
 public:
  explicit Update(Sequence& rows);
  ~Update();
  Update(const Update&) = delete;
  Update& operator=(const Update&) = delete;

  // Takes the rows of a table with all marks, behind those of the calls before.
  //   options  those of Summary::Update; `progress` can be any function of that kind, and gets rows
  //            of this table
  // Throws what Summary::Update says, but for weights.
  void Add(const TableView& table, const UpdateOptions& options);

  // Rows used of those that were added.
  std::uint64_t NUsed() const;

  // Takes what memory Commit needs. Throws std::bad_alloc.
  void Prepare();
  // Makes the rows a part of the sequence. Comes last, behind Prepare.
  void Commit() noexcept;

 private:
  class Report;

  Stage& Current() { return _isStageTaken ? _rows._spare : _rows._stage; }
  std::uint64_t FillStage(const TableView& table);
  std::uint64_t TakeStages(const TableView& table, std::uint64_t next, int threads, Report& report);
  void Keep(Forest forest, std::uint64_t blocks);

  Sequence& _rows;
  Stage::End _stage;             // of the sequence's stage, before
  std::uint64_t _usedBefore;     // rows on it
  std::vector<Forest> _forests;  // blocks to be merged into the last forest, then further forests
  std::uint64_t _blocks;         // in the forest that the next ones belong to
  std::uint64_t _usedOfForests = 0;
  bool _isStageTaken = false;  // the stage's rows are in the forests
  bool _isDone = false;
};

}  // namespace velmor
