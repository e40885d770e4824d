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

  // Takes the rows of a table with all marks. Returns the number of rows used.
  //   options   those of Update; `progress` can be any function of that kind
  // Throws what Summary::Update says; the rows are then as they were.
  std::uint64_t Take(const TableView& table, const UpdateOptions& options);

  // All rows as parts; short blocks, too. Throws std::bad_alloc.
  Parts Close() const;

 private:
  using Forest = BlockForest<MatrixBase>;
  class Update;

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

}  // namespace velmor
