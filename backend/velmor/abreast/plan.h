#pragma once

// Which blocks of a table are taken side by side.

#include <velmor/tableview.h>

#include "ordered/engine.h"
#include "record/shape.h"

#include <cstdint>
#include <vector>

namespace velmor {

class AbreastPlan {
 public:
  // For an accumulator of that shape and blocks of so many rows. Throws std::bad_alloc.
  AbreastPlan(const TableView& table, const Shape& shape, std::uint64_t blockRows);

  // The widest engine whose lanes the next blocks fill as a node of the forest; null where they
  // are quicker one by one.
  //   block  number of the next block in the forest
  //   whole  blocks from it on that have all their rows
  const ordered::Engine* EngineFor(std::uint64_t block, std::uint64_t whole) const;

 private:
  std::vector<const ordered::Engine*> _engines;  // the widest last
};

}  // namespace velmor
