#pragma once

// A study of the columns of a CSV file: means, spread and how they vary together. What the programs
// have in common that do one: their options, and the way from the file to the sums.

#include <velmor/blockforest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cases.h"
#include "csv.h"
#include "result.h"

namespace CLI {  // NOLINT(readability-identifier-naming): CLI11's
class App;
class Option;
}  // namespace CLI

namespace study {

struct Options {
  std::optional<std::string> variables;
  std::string with;
  std::optional<std::string> weight;
  std::optional<std::string> regWeight;
  std::string missing = "listwise";
  std::optional<double> missingCode;
  std::uint64_t blockRows = 0;  // 0: as many as velmor takes
  int threads = 0;
  ReportOptions report;
};

// Defines options that set these. Returns those that are about a CSV file, for a program that can
// do without one.
std::vector<CLI::Option*> DefineOptions(CLI::App& app, Options& options);

// What they mean, for a program's help: the file, the cases, the formulas.
extern const char* const kExplanation;

// What is described, and how it is read from a file.
struct Study {
  std::string source;  // the file's name
  Subject subject;
  csv::CaseColumns columns;
  bool isOfAllColumns = false;  // nobody chose the variables
  std::uint64_t blockRows = 0;
  int threads = 0;

  csv::Error Error(const std::string& what) const { return csv::Error(source + ": " + what); }
};

// Throws csv::Error when the options do not fit the file.
Study Prepare(const csv::Source& source, const Options& options);

using Forest = velmor::BlockForest<velmor::MatrixBase>;

// A forest for the sums of the study's blocks, with none in it.
Forest NewForest(const Study& study);

// Takes the file's records window after window, a window being the same blocks whoever reads it,
// and adds the sums of those windows for which isMine(window) is true to the forest. Windows are
// counted from 0; the others are passed over without being parsed, so that several processes can
// share a file. Returns the counts of the cases in the former. Throws csv::Error about the first
// record in them that has an error; std::length_error when there are more cases than an accumulator
// can count.
csv::CaseCounts Read(csv::Reader& file, csv::Progress& progress, const Study& study,
                     const std::function<bool(std::uint64_t)>& isMine, Forest& forest);

}  // namespace study
