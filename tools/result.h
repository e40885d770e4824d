#pragma once

// What comes of a study: sums over its cases, and the tables that show them.

#include <velmor/matrixbase.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cases.h"

namespace study {

// What is described. Columns go by their names, as the file that they came from need not be there.
struct Subject {
  std::vector<std::string> columns;  // the variables, then those that they are related with
  std::size_t variables = 0;         // how many of them are variables
  bool isPairwise = false;           // how missing values are treated
  std::optional<std::string> weight;
  std::optional<std::string> regWeight;

  bool HasWeights() const { return weight || regWeight; }
  // Whether the variables are related with other columns and not with each other.
  bool IsBlock() const { return variables < columns.size(); }
  int NVariables() const { return static_cast<int>(variables); }
  int NColumns() const { return static_cast<int>(columns.size()); }
  // The columns that the variables are related with begin here.
  int FirstRelated() const { return IsBlock() ? NVariables() : 0; }
  // A column's name as it is shown.
  std::string Name(int column) const;
};

// An accumulator for a study of it, with no case in it.
std::unique_ptr<velmor::MatrixBase> NewAccumulator(const Subject& subject);

// What came of the cases.
struct Result {
  std::string source;  // the name of what they came from, for messages
  Subject subject;
  csv::CaseCounts counts;
  std::unique_ptr<velmor::MatrixBase> sums;  // of the cases used, in the subject's accumulator

  csv::Error Error(const std::string& what) const { return csv::Error(source + ": " + what); }
};

struct ReportOptions {
  bool covariance = false;  // instead of correlations
  bool counts = false;      // also numbers of cases
};

// The tables. Throws csv::Error when no case is used, or when numbers were out of range.
std::string Report(const Result& result, const ReportOptions& options);

}  // namespace study
