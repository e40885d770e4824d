// study.cpp: from a CSV file to the sums of a study; start at Read, at the end.
#include "study.h"

#include <velmor/accumulate.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <limits>
#include <memory>
#include <set>

#include "arguments.h"
#include "window.h"

namespace study {

const char* const kExplanation = R"(
The file begins with a line of column names. A value is missing when its field is empty or NA, or
when it equals the number given as --missing-code, such as -99; in columns of weights that number is
a weight like others. A name that holds a comma is given in double quotes, as in the file:
--variables 'age,"height, cm"'.

Which cases are used, a case being a row:
  --missing listwise   complete ones, in which no column or weight that is used is missing
  --missing pairwise   for a column those in which it is present, for two columns those in which
                       both are; a case that lacks all of the columns or a weight is left out
Either way a case with a weight of 0 is left out. How many were left out is reported.

What is computed, x and y being columns, over the cases used for x or for x and y:
  N     number of these cases
  u     what a case counts: its case weight times its regression weight, each 1 if not given
  W     sum of the case weights; N without them
  mean  sum of u x / sum of u
  CCP   centred cross-product of x and y, the sum of u (x - mean of x) (y - mean of y)
  standard deviation of x     sqrt(CCP(x,x) / (W - 1))
  covariance of x and y       CCP(x,y) / (W - 1)
  correlation of x and y      CCP(x,y) / sqrt(CCP(x,x) CCP(y,y))
Pairwise, the means, CCP(x,x), CCP(y,y) and W of a covariance or correlation are those of the pair's
cases, and so differ from pair to pair; on the diagonal they are the column's. Such a table uses all
there is, but need not be one that complete cases could have: it can have negative eigenvalues.

A case weight says how many cases like it a row stands for. A regression weight says how precise a
row is: it counts in the means and cross-products, but not in W. What is not defined, such as the
correlation of a column that does not vary, is shown as a dot. --counts adds a table of the N of each
pair, with that of each column on the diagonal; listwise they are all the same.

Sums are taken over blocks of rows and then merged, always in the same order: the result is the same
to the last bit, whatever --threads says. --block-rows says how many rows a block has. Other blocks
round otherwise, so that last bits differ; the default depends on the number of columns only.
)";

std::vector<CLI::Option*> DefineOptions(CLI::App& app, Options& options) {
  const auto takeCode = [&options](const std::string& text) {
    options.missingCode = csv::ParseNumber(text);  // as in the file
    if (!options.missingCode) {
      throw CLI::ValidationError("--missing-code", '"' + text + "\" is not a number");
    }
  };
  constexpr std::uint64_t kMostRows = std::numeric_limits<std::uint32_t>::max();
  std::vector<CLI::Option*> ofFile{
      app.add_option("--variables", options.variables, "Columns to describe; by default all others")
          ->type_name("A,B,..."),
      app.add_option("--with", options.with, "Relate each of --variables with each of these only")
          ->type_name("D,E,..."),
      app.add_option("--weight", options.weight, "Column of case weights")->type_name("COLUMN"),
      app.add_option("--regression-weight", options.regWeight, "Column of regression weights")
          ->type_name("COLUMN"),
      app.add_option("--missing", options.missing,
                     "Use cases listwise, the default, or pairwise, also incomplete ones")
          ->type_name("HOW")
          ->check(CLI::IsMember({"listwise", "pairwise"}).description("")),
      app.add_option_function<std::string>("--missing-code", takeCode,
                                           "Number that stands for a missing value, not in weights")
          ->type_name("NUMBER"),
      app.add_option("--block-rows", options.blockRows, "Rows that are summed up before a merge")
          ->type_name("N")
          ->transform(arguments::WholeNumber(1, kMostRows)),
      app.add_option("--threads", options.threads, "Threads; by default one for each processor")
          ->type_name("N")
          ->transform(arguments::WholeNumber(0, 1024))};
  app.add_flag("--covariance", options.report.covariance, "Show covariances, not correlations");
  app.add_flag("--counts", options.report.counts, "Show also how many cases each pair has");
  return ofFile;
}

namespace {

// Memory of a window, unless a single block takes more. Enough text for the threads to share, while
// a file of any size is read within some tens of megabytes.
constexpr std::uint64_t kWindowSize = std::uint64_t{16} << 20U;
constexpr std::uint64_t kMostBlockSize = std::uint64_t{1} << 30U;
// Enough for the threads to share, too, where blocks are small.
constexpr std::uint64_t kMostBlocks = 64;

std::uint64_t BlockSize(const Study& study, std::uint64_t rows) {
  return rows * study.columns.values.size() * sizeof(double);
}

std::uint64_t WindowBlocks(const Study& study) {
  const std::uint64_t blockSize = BlockSize(study, study.blockRows);
  return std::clamp(kWindowSize / blockSize, std::uint64_t{1}, kMostBlocks);
}

std::uint64_t BlockRows(const Study& study, const Options& options) {
  const std::size_t columns = study.columns.values.size();
  if (options.blockRows == 0) {
    return velmor::DefaultBlockRows(columns);
  }
  const std::uint64_t most = kMostBlockSize / BlockSize(study, 1);
  if (options.blockRows > most) {
    throw study.Error(
        "blocks of " + std::to_string(options.blockRows) + " rows and " + std::to_string(columns) +
        " columns take more than 1 GiB; --block-rows can be " + std::to_string(most) + " at most");
  }
  return options.blockRows;
}

csv::CaseCounts ReadWindow(csv::Window& window, csv::Reader& file, csv::Progress& progress,
                           const Study& study) {
  try {
    return window.Read(file, progress, study.threads);
  } catch (const csv::NotANumber& error) {
    const char* const hint = "; name the columns to describe with --variables";
    throw csv::Error(std::string(error.what()) + (study.isOfAllColumns ? hint : ""));
  }
}

}  // namespace

Study Prepare(const csv::Source& source, const Options& options) {
  const auto find = [&source](const std::optional<std::string>& name) {
    return name ? std::optional(csv::FindColumn(source, *name)) : std::nullopt;
  };
  Study study;
  study.source = source.name;
  csv::CaseColumns& columns = study.columns;
  columns.weight = find(options.weight);
  columns.regWeight = find(options.regWeight);
  columns.missingCode = options.missingCode;
  columns.allowsIncomplete = options.missing == "pairwise";
  const std::vector<std::size_t> with = csv::FindColumns(source, options.with);
  std::set<std::optional<std::size_t>> taken(with.begin(), with.end());
  taken.insert({columns.weight, columns.regWeight});
  columns.values = csv::ListedColumns(source, options.variables, taken);
  const std::size_t variables = columns.values.size();
  if (variables == 0) {
    throw study.Error("no column is left to describe");
  }
  columns.values.insert(columns.values.end(), with.begin(), with.end());
  csv::CheckColumns(source, columns.values, "--variables and --with");
  std::vector<std::string> names;
  for (const std::size_t column : columns.values) {
    names.push_back(source.columns[column]);
  }
  study.subject = {names, variables, columns.allowsIncomplete, options.weight, options.regWeight};
  study.isOfAllColumns = !options.variables;
  study.blockRows = BlockRows(study, options);
  study.threads = options.threads;
  return study;
}

Forest NewForest(const Study& study) { return {study.blockRows, *NewAccumulator(study.subject)}; }

csv::CaseCounts Read(csv::Reader& file, csv::Progress& progress, const Study& study,
                     const std::function<bool(std::uint64_t)>& isMine, Forest& forest) {
  const std::uint64_t blocks = WindowBlocks(study);
  const std::uint64_t rows = blocks * study.blockRows;
  const std::unique_ptr<velmor::MatrixBase> shape = NewAccumulator(study.subject);
  velmor::AccumulateOptions options;
  options.blockRows = study.blockRows;
  options.threads = study.threads;
  csv::Window window(study.columns, rows);
  csv::CaseCounts counts;
  bool isMore = true;
  for (std::uint64_t number = 0; isMore; ++number) {
    if (!isMine(number)) {
      isMore = file.Skip(rows) == rows;
      continue;
    }
    const csv::CaseCounts read = ReadWindow(window, file, progress, study);
    options.firstBlock = number * blocks;
    forest.Merge(velmor::Accumulate(window.View(), *shape, options));
    counts += read;
    isMore = read.read == rows;
  }
  return counts;
}

}  // namespace study
