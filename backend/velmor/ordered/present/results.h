#pragma once

// The way of the tasks' results into the caller's records.

#include "ordered/merges.h"
#include "ordered/present/presentcases.h"

#include <cstddef>

namespace velmor::ordered {

// Merges a batch's variables and pairs into the records. Tasks leave out variables and pairs
// without a case.
class Results {
 public:
  Results(WantedPairs wanted, const PairwiseRecords& records)
      : _wanted(wanted), _records(records) {}
  void Merge(std::size_t column, const PresentVariable& variable) {
    _records.mergeVariable(column, variable);
  }
  void Merge(std::size_t first, std::size_t second, const PairRecord& pair) {
    PairRecord& next = _merges.NextPair();
    next = pair;
    _merges.Add(_records.countPair(_wanted.PlaceOf(first, second), pair._nRows), RoomOf(next));
  }

 private:
  WantedPairs _wanted;
  const PairwiseRecords& _records;
  PairMerges _merges;
};

}  // namespace velmor::ordered
