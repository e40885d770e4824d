// parts.cpp: accumulators one behind the other; start at Parts::Append.
#include "summary/parts.h"

#include "summary/definition.h"

#include <utility>

namespace velmor {

bool Parts::HasRoomFor(const MatrixBase& next) const {
  return !_all.empty() && next.NRows() <= kMostPartRows - _all.back()->NRows();
}

void Parts::Append(std::unique_ptr<MatrixBase> next) {
  if (next->NRows() == 0) {
    return;
  }
  if (HasRoomFor(*next)) {
    *_all.back() += *next;
  } else {
    _all.push_back(std::move(next));
  }
}

void Parts::Append(const Parts& others, const SummaryDefinition& definition) {
  for (const std::unique_ptr<MatrixBase>& next : others._all) {
    if (HasRoomFor(*next)) {
      *_all.back() += *next;
    } else {
      _all.push_back(NewAccumulator(definition));
      *_all.back() += *next;
    }
  }
}

Parts Parts::Copy(const SummaryDefinition& definition) const {
  Parts copy;
  copy.Append(*this, definition);
  return copy;
}

}  // namespace velmor
