// definition.cpp: what a summary is of; start at Normal.
#include "summary/definition.h"

#include <velmor/accumulate.h>

#include "record/stateof.h"
#include "summary/utf8.h"
#include "table/columnvalues.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>
#include <utility>

namespace velmor {
namespace {

// Cells of a triangle are counted in 32 bits.
constexpr std::size_t kMostColumns = 65535;
// Rows of a block, which the pairwise accumulators count in an int.
constexpr std::uint64_t kMostBlockRows = std::numeric_limits<std::int32_t>::max();

[[noreturn]] void Refuse(const std::string& what) { throw std::invalid_argument(what); }

std::string ColumnText(std::size_t column, const std::string& name) {
  return "column " + std::to_string(column) + ", " + Quoted(name);
}

void MakeNormal(std::vector<double>& codes, const std::string& column) {
  if (std::any_of(codes.begin(), codes.end(), [](double code) { return std::isnan(code); })) {
    Refuse(column + ": NaN can't be a missing code; nanIsMissing says whether it is missing");
  }
  std::sort(codes.begin(), codes.end());
  codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
  if (codes.size() > ColumnView::kMostAbsentCodes) {
    Refuse(column + ": " + std::to_string(codes.size()) + " missing codes, where there can be " +
           std::to_string(ColumnView::kMostAbsentCodes));
  }
  for (double& code : codes) {
    code += 0.;  // no zero has a sign, as both are one code
  }
}

// Throws unless the names of columns [from, to) are different texts.
void CheckNames(const std::vector<SummaryColumn>& columns, std::size_t from, std::size_t to) {
  std::set<std::string> names;
  for (std::size_t i = from; i < to; ++i) {
    const std::string& name = columns[i].name;
    if (!IsUtf8(name)) {
      Refuse("column " + std::to_string(i) + ": its name is not UTF-8");
    }
    if (!names.insert(name).second) {
      Refuse(ColumnText(i, name) + ": there is another column of this name");
    }
  }
}

std::string CodesText(const SummaryColumn& column) {
  std::string text = column.nanIsMissing ? "NaN" : "";
  for (const double code : column.missingCodes) {
    text += (text.empty() ? "" : ", ") + Text(code);
  }
  return text.empty() ? "none" : text;
}

std::string YesOrNo(bool has, const char* what) { return (has ? "" : "no ") + std::string(what); }

// How a column differs from another in the same place.
std::string Difference(const SummaryColumn& a, const SummaryColumn& b, std::size_t column) {
  if (a.name != b.name) {
    return "column " + std::to_string(column) + " is " + Quoted(b.name) + ", not " + Quoted(a.name);
  }
  const std::string ours = CodesText(a);
  const std::string others = CodesText(b);
  return ours == others
             ? ""
             : ColumnText(column, a.name) + " has the missing codes " + others + ", not " + ours;
}

// A view's own codes and those of a summary, each once.
std::vector<double> JoinedCodes(const ColumnView& view, const std::vector<double>& more) {
  // From here on no float is nearest: such a code is left alone, and is none of them.
  constexpr double kBeyondFloats = 0x1.ffffffp127;
  std::vector<double> codes = view.absentCodes;
  for (double code : more) {
    if (view.type == ValueType::Float && std::abs(code) < kBeyondFloats) {
      code = static_cast<double>(static_cast<float>(code));
    }
    if (std::find(codes.begin(), codes.end(), code) == codes.end()) {
      codes.push_back(code);
    }
  }
  return codes;
}

// A view with a summary's marks added to its own.
ColumnView Marked(ColumnView view, const SummaryColumn& column) {
  view.nanIsAbsent = view.nanIsAbsent || column.nanIsMissing;
  view.absentCodes = JoinedCodes(view, column.missingCodes);
  return view;
}

}  // namespace

SummaryDefinition Normal(SummaryDefinition definition) {
  std::vector<SummaryColumn>& columns = definition.columns;
  if (columns.empty() || columns.size() > kMostColumns) {
    Refuse("a summary has 1 to " + std::to_string(kMostColumns) + " columns, not " +
           std::to_string(columns.size()));
  }
  if (definition.firstSide >= columns.size()) {
    Refuse("no column is left for the second side: " + std::to_string(definition.firstSide) +
           " of " + std::to_string(columns.size()) + " are on the first");
  }
  if (definition.missing > MissingRule::Listwise) {
    Refuse("there is no such rule for missing values");
  }
  if (definition.blockRows > kMostBlockRows) {
    Refuse("a block has at most " + std::to_string(kMostBlockRows) + " rows, not " +
           std::to_string(definition.blockRows));
  }
  CheckNames(columns, 0, definition.firstSide);
  CheckNames(columns, definition.firstSide, columns.size());
  for (std::size_t i = 0; i < columns.size(); ++i) {
    MakeNormal(columns[i].missingCodes, ColumnText(i, columns[i].name));
  }
  if (definition.blockRows == 0) {
    definition.blockRows = DefaultBlockRows(columns.size());
  }
  return definition;
}

std::string Difference(const SummaryDefinition& a, const SummaryDefinition& b) {
  if (a.columns.size() != b.columns.size()) {
    return std::to_string(b.columns.size()) + " columns, not " + std::to_string(a.columns.size());
  }
  for (std::size_t i = 0; i < a.columns.size(); ++i) {
    std::string difference = Difference(a.columns[i], b.columns[i], i);
    if (!difference.empty()) {
      return difference;
    }
  }
  if (a.firstSide != b.firstSide) {
    return std::to_string(b.firstSide) + " columns on the first side, not " +
           std::to_string(a.firstSide);
  }
  if (a.missing != b.missing) {
    return b.missing == MissingRule::Pairwise
               ? "missing values are left out pairwise, not listwise"
               : "missing values are left out listwise, not pairwise";
  }
  if (a.hasWeights != b.hasWeights) {
    return YesOrNo(b.hasWeights, "case weights");
  }
  if (a.hasRegWeights != b.hasRegWeights) {
    return YesOrNo(b.hasRegWeights, "regression weights");
  }
  if (a.blockRows != b.blockRows) {
    return "blocks of " + std::to_string(b.blockRows) + " rows, not of " +
           std::to_string(a.blockRows);
  }
  return "";
}

Shape ShapeOf(const SummaryDefinition& definition) {
  const bool isPairwise = definition.missing == MissingRule::Pairwise;
  const bool isRectangle = definition.firstSide != 0;
  Shape shape;
  shape.kind = isPairwise ? (isRectangle ? Kind::NSMatrixPairwise : Kind::SMatrixPairwise)
                          : (isRectangle ? Kind::NSMatrixListwise : Kind::SMatrixListwise);
  shape.bounds = {0, static_cast<std::int32_t>(definition.firstSide),
                  static_cast<std::int32_t>(definition.columns.size())};
  shape.missingCode = isPairwise ? kMissingCode : 0.;
  return shape;
}

std::unique_ptr<MatrixBase> NewAccumulator(const SummaryDefinition& definition) {
  return StateOf<MatrixBase>::Make(ShapeOf(definition));
}

void CheckColumn(const ColumnView& view, const std::vector<double>& codes,
                 const std::string& name) {
  const auto refuse = [&](const std::string& what) {
    Refuse("the table does not fit the summary: " + name + what);
  };
  if (view.data == nullptr) {
    refuse(" has no address");
  }
  if (view.type > ValueType::Bool) {
    refuse(" has a type of values that there is not");
  }
  if (JoinedCodes(view, codes).size() > ColumnView::kMostAbsentCodes) {
    refuse(" has more than " + std::to_string(ColumnView::kMostAbsentCodes) + " missing codes");
  }
}

void CheckColumns(const SummaryDefinition& definition, const TableView& table) {
  const std::size_t columns = definition.columns.size();
  const auto refuse = [](const std::string& what) {
    Refuse("the table does not fit the summary: " + what);
  };
  if (table.values.size() != columns) {
    refuse("it has " + std::to_string(table.values.size()) + " columns of values, not " +
           std::to_string(columns));
  }
  const auto checkWeights = [&](const std::optional<ColumnView>& view, bool isWanted,
                                const char* name) {
    if (view.has_value() != isWanted) {
      refuse("it has " + YesOrNo(!isWanted, name));
    }
    if (view && table.rows != 0) {
      CheckColumn(*view, {0.}, name);
    }
  };
  checkWeights(table.weights, definition.hasWeights, "case weights");
  checkWeights(table.regWeights, definition.hasRegWeights, "regression weights");
  for (std::size_t i = 0; i < columns && table.rows != 0; ++i) {
    const SummaryColumn& column = definition.columns[i];
    CheckColumn(table.values[i], column.missingCodes, ColumnText(i, column.name));
  }
}

TableView Marked(const SummaryDefinition& definition, TableView table) {
  for (std::size_t i = 0; i < table.values.size(); ++i) {
    table.values[i] = Marked(std::move(table.values[i]), definition.columns[i]);
  }
  for (std::optional<ColumnView>* const view : {&table.weights, &table.regWeights}) {
    if (*view) {
      (*view)->absentCodes = JoinedCodes(**view, {0.});
    }
  }
  table.groups.reset();
  return table;
}

TableView RowsFrom(TableView table, std::uint64_t row) {
  const auto advance = [row](ColumnView& view) {
    view.data =
        static_cast<const std::byte*>(view.data) + view.stride * static_cast<std::ptrdiff_t>(row);
    view.validityOffset += row;
  };
  std::for_each(table.values.begin(), table.values.end(), advance);
  for (std::optional<ColumnView>* const view : {&table.weights, &table.regWeights}) {
    if (*view) {
      advance(**view);
    }
  }
  table.rows -= row;
  return table;
}

}  // namespace velmor
