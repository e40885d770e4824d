#pragma once

// What a summary is of: its definition checked, compared, and applied to tables.

#include <velmor/matrixbase.h>
#include <velmor/summary.h>

#include "record/shape.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

namespace velmor {

// What stands for a missing value in the batches of the pairwise accumulators. No sum of squares
// has room for a value of this size.
constexpr double kMissingCode = std::numeric_limits<double>::lowest();

// The definition in its normal form (Summary::Definition). Throws std::invalid_argument when there
// are no summaries of it.
SummaryDefinition Normal(SummaryDefinition definition);

// What keeps summaries of these normal definitions from being merged, as b's, not a's: "column 2 is
// \"x\", not \"y\"". Empty when nothing does.
std::string Difference(const SummaryDefinition& a, const SummaryDefinition& b);

// The shape of the accumulators that a summary consists of, and an empty one.
Shape ShapeOf(const SummaryDefinition& definition);
std::unique_ptr<MatrixBase> NewAccumulator(const SummaryDefinition& definition);

// Throws std::invalid_argument unless a table has the definition's columns and weights.
void CheckColumns(const SummaryDefinition& definition, const TableView& table);

// Throws std::invalid_argument unless a view can be read, and has room for these codes, too.
void CheckColumn(const ColumnView& view, const std::vector<double>& codes, const std::string& name);

// The table with all the marks that leave values and rows out: the views' and the definition's, and
// weights of 0.
TableView Marked(const SummaryDefinition& definition, TableView table);

// The table's rows from this one on.
TableView RowsFrom(TableView table, std::uint64_t row);

}  // namespace velmor
