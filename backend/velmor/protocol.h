#pragma once

// The steps that every accumulator's operator+= takes around its record's own arithmetic.
// A record says with IsEmpty whether it holds a case, and makes with Fresh an empty one of its
// shape.

#include <velmor/databatch.h>

#include "float_environment.h"

#include <utility>

namespace velmor {

// Adds a batch: reduces it to a record of its own, then merges that. A first batch's record is
// taken over as it is.
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

// Adds a batch to a record that accumulates it in place. A first batch that fails leaves the record
// empty.
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

// Merges a record that holds at least one case.
template <class Record>
void MergeRecord(Record& record, const Record& other) {
  const DefaultFloatEnvironment environment;
  if (record.IsEmpty()) {
    record.Init(other);
  } else {
    record.Update(other);
  }
}

}  // namespace velmor
