#pragma once

// The golden table's lines: every result of every accumulator, record and kernel.

#include "inputs.h"

#include <functional>
#include <string>
#include <vector>

namespace velmor::test {

// One record's results, and where they are from: "03 SMatrixListwise column 2".
struct Line {
  std::string label;
  std::vector<double> values;
};
using Lines = std::vector<Line>;

// Calls an operation of the library, in the environment that is to be tried. Cases are made and
// results are read outside it.
using Run = std::function<void(const std::function<void()>& operation)>;

// Of the accumulators and the records of present cases: the first two batches in one part, the
// third in another, and the parts merged.
Lines AccumulatorLines(const std::vector<Input>& inputs, const Run& run);

// Of every form of every kernel, which compute in the caller's environment.
Lines KernelLines(const std::vector<Input>& inputs);

// Of the forests that Accumulate makes of a table on so many threads, and of their states' bytes.
Lines ForestLines(const TypedTable& table, int threads, const Run& run);

// As they stand in the table: exact, as hexadecimal floating-point numbers, and all NaN alike.
std::string Text(const Line& line);

}  // namespace velmor::test
