// describe: means, spread and correlations of the columns of a CSV file; start at main, at the end.
//
// A complete host of velmor, and a model for others: Share is what one thread makes of its cases.
// It fills a batch, accumulates it and merges the result; pass.h runs one Share on each thread.

#include <velmor/velmor.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "cases.h"
#include "csv.h"
#include "pass.h"
#include "report.h"

namespace {

struct Options {
  std::string file;
  std::optional<std::string> variables;
  std::string with;
  std::optional<std::string> weight;
  std::optional<std::string> regWeight;
  std::string missing = "listwise";
  std::optional<double> missingCode;
  bool covariance = false;
  bool counts = false;
  int threads = 0;
};

constexpr const char* kExplanation = R"(
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

Examples:
  describe iris.csv --variables sepal_length,sepal_width,petal_length,petal_width
      four means and standard deviations, and a 4 by 4 table of correlations
  describe airquality.csv --variables ozone --with solar_r,wind,temp --covariance
      how ozone varies with three others, and nothing among those three
  describe airquality.csv --variables ozone,solar_r,wind,temp --missing pairwise --counts
      of 153 days, 37 lack ozone, 7 lack solar_r and 2 of these both: ozone and solar_r correlate by
      0.3483 over 111 days, ozone and wind by -0.6015 over 116, wind and temp by -0.4580 over 153
  zcat survey.csv.gz | describe - --weight households --missing-code -99 --threads 4
      all columns of a compressed file but households, which says how many each row stands for)";

void DefineOptions(CLI::App& app, Options& options) {
  app.add_option("FILE", options.file, "CSV file with a header line, - for standard input")
      ->required()
      ->type_name("");
  app.add_option("--variables", options.variables, "Columns to describe; by default all others")
      ->type_name("A,B,...");
  app.add_option("--with", options.with, "Relate each of --variables with each of these only")
      ->type_name("D,E,...");
  app.add_option("--weight", options.weight, "Column of case weights")->type_name("COLUMN");
  app.add_option("--regression-weight", options.regWeight, "Column of regression weights")
      ->type_name("COLUMN");
  app.add_option("--missing", options.missing,
                 "Use cases listwise, the default, or pairwise, also incomplete ones")
      ->type_name("HOW")
      ->check(CLI::IsMember({"listwise", "pairwise"}).description(""));
  const auto takeCode = [&options](const std::string& text) {
    options.missingCode = csv::ParseNumber(text);  // as in the file
    if (!options.missingCode) {
      throw CLI::ValidationError("--missing-code", '"' + text + "\" is not a number");
    }
  };
  app.add_option_function<std::string>("--missing-code", takeCode,
                                       "Number that stands for a missing value, not in weights")
      ->type_name("NUMBER");
  app.add_flag("--covariance", options.covariance, "Show covariances, not correlations");
  app.add_flag("--counts", options.counts, "Show also how many cases each pair has");
  app.add_option("--threads", options.threads, "Threads; by default one for each processor")
      ->type_name("N")
      ->check(CLI::Range(0, 1024).description(""));
  app.footer(kExplanation);
}

// What is described.
struct Study {
  const Options& options;
  const csv::Source& source;
  csv::CaseColumns columns;   // the values are those of --variables, then those of --with
  std::size_t variables = 0;  // how many the former are

  bool IsBlock() const { return variables < columns.values.size(); }
  bool IsPairwise() const { return columns.allowsIncomplete; }
  int NVariables() const { return static_cast<int>(variables); }
  int NColumns() const { return static_cast<int>(columns.values.size()); }
  // The columns that the variables are related with begin here.
  int FirstRelated() const { return IsBlock() ? NVariables() : 0; }

  std::string Name(int column) const {
    return csv::Printable(source.columns[columns.values[static_cast<std::size_t>(column)]]);
  }
  csv::Error Error(const std::string& what) const { return csv::Error(source.name + ": " + what); }
};

Study Prepare(const csv::Source& source, const Options& options) {
  const auto find = [&source](const std::optional<std::string>& name) {
    return name ? std::optional(csv::FindColumn(source, *name)) : std::nullopt;
  };
  Study study{options, source, {}};
  csv::CaseColumns& columns = study.columns;
  columns.weight = find(options.weight);
  columns.regWeight = find(options.regWeight);
  columns.missingCode = options.missingCode;
  columns.allowsIncomplete = options.missing == "pairwise";
  const std::vector<std::size_t> with = csv::FindColumns(source, options.with);
  std::set<std::optional<std::size_t>> taken(with.begin(), with.end());
  taken.insert({columns.weight, columns.regWeight});
  columns.values = csv::ListedColumns(source, options.variables, taken);
  study.variables = columns.values.size();
  columns.values.insert(columns.values.end(), with.begin(), with.end());
  if (study.variables == 0) {
    throw study.Error("no column is left to describe");
  }
  csv::CheckColumns(source, columns.values, "--variables and --with");
  return study;
}

std::unique_ptr<velmor::MatrixBase> NewAccumulator(const Study& study) {
  const int variables = study.NVariables();
  const int columns = study.NColumns();
  if (study.IsPairwise()) {
    const double missing = study.columns.MissingMark();
    if (study.IsBlock()) {
      return std::make_unique<velmor::NSMatrixPairwise>(missing, 0, variables, columns);
    }
    return std::make_unique<velmor::SMatrixPairwise>(missing, 0, columns);
  }
  if (study.IsBlock()) {
    return std::make_unique<velmor::NSMatrixListwise>(0, variables, columns);
  }
  return std::make_unique<velmor::SMatrixListwise>(0, columns);
}

// One thread's share. Batches are accumulated when full, whatever chunks their cases came from.
class Share {
 public:
  using Input = Study;
  using Result = velmor::MatrixBase;

  Share(const Study& study, std::uint64_t cacheSize)
      : _batch(static_cast<unsigned int>(study.NColumns()), BatchRows(study, cacheSize),
               study.columns.weight ? &_weight : nullptr,
               study.columns.regWeight ? &_regWeight : nullptr, nullptr),
        _accumulator(NewAccumulator(study)) {}

  void Add(const csv::Case& current) {
    _weight = current.weight;
    _regWeight = current.regWeight;
    _batch.AddRow(current.values.data());
    if (_batch.NRows() == _batch.MaxRows()) {
      AccumulateCases();
    }
  }

  void MergeInto(velmor::MatrixBase& all) {
    AccumulateCases();
    all += *_accumulator;
  }

 private:
  static unsigned int BatchRows(const Study& study, std::uint64_t cacheSize) {
    const csv::CaseColumns& columns = study.columns;
    const std::uint64_t rowSize = velmor::DataBatch::RowSize(
        static_cast<unsigned int>(study.NColumns()), columns.weight.has_value(),
        columns.regWeight.has_value(), false);
    // Merging costs about as much as a few cases.
    return csv::BatchRows(cacheSize, rowSize, columns.values.size(), 64);
  }

  void AccumulateCases() {
    *_accumulator += _batch;
    _batch.Clear();
  }

  double _weight = 1.;  // of the current case, for the batch, with the next one
  double _regWeight = 1.;
  velmor::DataBatch _batch;
  std::unique_ptr<velmor::MatrixBase> _accumulator;
};

// What an accumulator holds of a column, and of two columns, over the cases used for them. Squares
// and products are centred and weighted.
struct Column {
  std::uint64_t cases;
  double weight;
  double mean;
  double squares;
  double min;
  double max;
};

struct Pair {
  std::uint64_t cases;
  double weight;
  double squares0;  // of one of the two columns
  double squares1;  // of the other
  double products;
};

// The results, whichever accumulator they come from.
struct Results {
  double weight;          // of all cases used
  double combinedWeight;  // case weights times regression weights
  std::function<Column(int)> column;
  std::function<Pair(int, int)> pair;  // of different columns
};

template <class Matrix>
Results ListwiseResults(const velmor::MatrixBase& result, std::uint64_t cases) {
  const auto& matrix = dynamic_cast<const Matrix&>(result);
  const double weight = matrix.WeightSum();
  return {weight, matrix.RegWeightSum(),
          [&matrix, cases, weight](int x) {
            return Column{cases,         weight,       matrix.Mean(x), matrix.CCP(x, x),
                          matrix.Min(x), matrix.Max(x)};
          },
          [&matrix, cases, weight](int x, int y) {
            return Pair{cases, weight, matrix.CCP(x, x), matrix.CCP(y, y), matrix.CCP(x, y)};
          }};
}

template <class Matrix>
Results PairwiseResults(const velmor::MatrixBase& result) {
  const auto& matrix = dynamic_cast<const Matrix&>(result);
  return {matrix.WeightSum(), matrix.RegWeightSum(),
          [&matrix](int x) {
            const velmor::VarStat& own = matrix.Var(x);
            return Column{static_cast<std::uint64_t>(own.NRows()),
                          own.WeightSum(),
                          own.Mean(),
                          own.CSS(),
                          own.Min(),
                          own.Max()};
          },
          [&matrix](int x, int y) {
            const velmor::PairStat& own = matrix.Pair(x, y);
            return Pair{static_cast<std::uint64_t>(own.NRows()), own.WeightSum(), own.CSS0(),
                        own.CSS1(), own.CSCP()};
          }};
}

Results GetResults(const Study& study, const velmor::MatrixBase& result, std::uint64_t cases) {
  if (study.IsPairwise()) {
    return study.IsBlock() ? PairwiseResults<velmor::NSMatrixPairwise>(result)
                           : PairwiseResults<velmor::SMatrixPairwise>(result);
  }
  return study.IsBlock() ? ListwiseResults<velmor::NSMatrixListwise>(result, cases)
                         : ListwiseResults<velmor::SMatrixListwise>(result, cases);
}

// Sums of very large numbers overflow and squares of very small ones vanish. Better no table than
// one of infinities, or of zeros that are none.
void CheckRange(const Study& study, const Results& results) {
  if (!std::isfinite(results.weight) || !std::isfinite(results.combinedWeight)) {
    throw study.Error("the weights are too large to be added up; rescale them");
  }
  for (int x = 0; x < study.NColumns(); ++x) {
    const Column own = results.column(x);
    const bool varies = own.min < own.max;
    if (!std::isfinite(own.mean) || !std::isfinite(own.squares) || varies != (own.squares > 0.)) {
      throw study.Error("the values of column " + study.Name(x) +
                        " are too large or too close together to compute with; rescale them");
    }
  }
}

report::Table Descriptives(const Study& study, const Results& results) {
  report::Table table;
  table.AddRow({"", "N", "mean", "std. dev.", "minimum", "maximum"});
  for (int x = 0; x < study.NColumns(); ++x) {
    const Column own = results.column(x);
    const double freedom = own.weight - 1.;
    const auto figure = [](bool isDefined, double number) {
      return isDefined ? report::Significant(number) : ".";
    };
    const bool isAny = own.cases != 0;
    table.AddRow({study.Name(x), std::to_string(own.cases), figure(isAny, own.mean),
                  figure(freedom > 0., std::sqrt(own.squares) / std::sqrt(freedom)),
                  figure(isAny, own.min), figure(isAny, own.max)});
  }
  return table;
}

std::string Count(const Pair& pair) { return std::to_string(pair.cases); }

std::string Covariance(const Pair& pair) {
  const double freedom = pair.weight - 1.;
  return freedom > 0. ? report::Significant(pair.products / freedom) : ".";
}

std::string Correlation(const Pair& pair) {
  // Two divisions, as the product of two sums of squares can overflow.
  const double correlation = pair.products / std::sqrt(pair.squares0) / std::sqrt(pair.squares1);
  return std::isfinite(correlation) ? report::Format(correlation, std::chars_format::fixed, 4)
                                    : ".";
}

// A cell for each of the variables with each of the columns that they are related with.
std::string Relations(const Study& study, const Results& results, const std::string& title,
                      std::string (*cell)(const Pair&)) {
  report::Table table;
  std::vector<std::string> cells{""};
  for (int y = study.FirstRelated(); y < study.NColumns(); ++y) {
    cells.push_back(study.Name(y));
  }
  table.AddRow(cells);
  for (int x = 0; x < study.NVariables(); ++x) {
    const Column own = results.column(x);
    const Pair diagonal{own.cases, own.weight, own.squares, own.squares, own.squares};
    cells.assign(1, study.Name(x));
    for (int y = study.FirstRelated(); y < study.NColumns(); ++y) {
      cells.push_back(cell(x == y ? diagonal : results.pair(x, y)));
    }
    table.AddRow(cells);
  }
  return '\n' + title + '\n' + table.Layout();
}

std::string Report(const Study& study, const csv::CaseCounts& counts, const Results& results) {
  std::string text = csv::Summary(counts, study.columns) + '\n';
  if (study.columns.weight) {
    text += "sum of case weights: " + report::Significant(results.weight, 12) + '\n';
  }
  if (study.columns.regWeight) {
    text += "sum of combined weights: " + report::Significant(results.combinedWeight, 12) + '\n';
  }
  text += Descriptives(study, results).Layout();
  text += study.options.covariance ? Relations(study, results, "Covariances", Covariance)
                                   : Relations(study, results, "Correlations", Correlation);
  return text + (study.options.counts ? Relations(study, results, "Numbers of cases", Count) : "");
}

std::string Describe(const Options& options) {
  csv::Reader reader(options.file);
  const Study study = Prepare(reader.GetSource(), options);
  csv::Progress progress(options.file);
  const std::unique_ptr<velmor::MatrixBase> result = NewAccumulator(study);
  csv::Pass<Share> pass(reader, study.columns, progress, study, *result);
  velmor::Driver(&pass, options.threads);
  const csv::CaseCounts& counts = pass.Counts();
  if (counts.Used() == 0) {
    throw study.Error("no case to describe: " + csv::Summary(counts, study.columns));
  }
  // The pairwise accumulators count the cases of a pair with 31 bits.
  constexpr int kMost = std::numeric_limits<int>::max();
  if (study.IsPairwise() && counts.Used() > kMost) {
    throw study.Error("pairwise, no more than " + std::to_string(kMost) +
                      " cases can be used; there are " + std::to_string(counts.Used()));
  }
  const Results results = GetResults(study, *result, counts.Used());
  CheckRange(study, results);
  return Report(study, counts, results);
}

}  // namespace

int main(int argc, char** argv) {
  return report::Run("describe", [argc, argv] {
    Options options;
    CLI::App app("Describes the numeric columns of a CSV file and how they vary together.",
                 "describe");
    DefineOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    try {
      report::Print(Describe(options));
    } catch (const csv::NotANumber& error) {
      const char* const hint = "; name the columns to describe with --variables";
      throw csv::Error(std::string(error.what()) + (options.variables ? "" : hint));
    }
    return 0;
  });
}
