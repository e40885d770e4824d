// fill.cpp: forwards to the engine in use.
#include "ordered/fill.h"

#include "ordered/engine.h"

#include <algorithm>

namespace velmor::ordered {

void Copy(const void* from, std::size_t count, double* to) { Active().Copy(from, count, to); }

void Transpose(const double* const* rows, std::size_t count, Columns columns) {
  // So many columns of a page of rows at a time that the lines read stay in the first-level cache.
  constexpr std::size_t kRowsAtOnce = 64;
  for (std::size_t from = 0; from < count; from += kRowsAtOnce) {
    Active().Transpose(rows + from, std::min(kRowsAtOnce, count - from), columns.count,
                       columns.stride, columns.first + from);
  }
}

void MarkEqual(const double* x, std::size_t rows, double value, std::uint64_t* bits) {
  Active().MarkEqual(x, rows, value, bits);
}

}  // namespace velmor::ordered
