// fill.cpp: forwards to the engine in use.
#include "ordered/fill.h"

#include "ordered/engine.h"
#include "ordered/kernels/tuning.h"

#include <algorithm>

namespace velmor::ordered {

void Copy(const void* from, std::size_t count, double* to) { Active().Copy(from, count, to); }

void Transpose(const double* const* rows, std::size_t count, Columns columns) {
  for (std::size_t from = 0; from < count; from += kTransposedRows) {
    Active().Transpose(rows + from, std::min(kTransposedRows, count - from), columns.count,
                       columns.stride, columns.first + from);
  }
}

void MarkEqual(const double* x, std::size_t rows, double value, std::uint64_t* bits) {
  Active().MarkEqual(x, rows, value, bits);
}

}  // namespace velmor::ordered
