#pragma once

// The steps that every accumulator's operator+= takes around its record's own arithmetic. A record
// says with IsEmpty that it holds no case. A new record is built aside and moved in, so that the
// old one is as it was when memory runs out.

#include <velmor/databatch.h>
#include <velmor/matrixbase.h>

#include "ordered/floatenvironment.h"

#include <utility>

namespace velmor {

// Adds a batch: reduces it to a record of its own (Fresh makes an empty one of the same shape),
// then merges the two. An empty record takes the batch's over as it is.
template <class Record, class Batch>
void AddBatch(Record& record, Batch& batch) {
  if (batch.NRows() == 0) {
    return;
  }
  const DefaultFloatEnvironment environment;
  Record part = record.Fresh();
  part.Init(batch);
  if (record.IsEmpty()) {
    record = std::move(part);
  } else {
    record.Update(part);
  }
}

// Adds a batch to a record that accumulates it in place.
template <class Record>
void AddBatchInPlace(Record& record, DataBatch& batch) {
  if (batch.NRows() == 0) {
    return;
  }
  const DefaultFloatEnvironment environment;
  if (record.IsEmpty()) {
    Record first = record;
    first.Init(batch);
    record = std::move(first);
  } else {
    record.Update(batch);
  }
}

// The other side of a merge as the accumulator's own class, which is asserted; null if the other
// side holds no case.
template <class Accumulator>
const Accumulator* SameClass(const MatrixBase& other) {
  if (other.NRows() == 0) {
    return nullptr;
  }
  const auto* const sameClass = dynamic_cast<const Accumulator*>(&other);
  VELMOR_ASSERT(sameClass != nullptr);
  return sameClass;
}

// Merges a record that holds at least one case.
template <class Record>
void MergeRecord(Record& record, const Record& other) {
  const DefaultFloatEnvironment environment;
  if (record.IsEmpty()) {
    record = Record(other);
  } else {
    record.Update(other);
  }
}

}  // namespace velmor
