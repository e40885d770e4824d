// describe: means, spread and correlations of the columns of a CSV file; start at main, at the end.
//
// A complete host of velmor, and a model for others: the Problem says what is computed and holds
// the result; its Parts each read, parse and accumulate a share of the file on their own thread.

#include <unistd.h>
#include <velmor/velmor.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "csv.h"

namespace {

struct Options {
  std::string file;
  std::optional<std::string> variables;
  std::string with;
  std::optional<std::string> weight;
  std::optional<std::string> regWeight;
  bool covariance = false;
  int threads = 0;
};

constexpr const char* kExplanation = R"(
The file begins with a line of column names. Empty fields and NA are missing. Only complete cases
are used: a row in which a column or weight that is used is missing is left out, and so is one with
a weight of 0. How many were left out is reported. A name that holds a comma is given in double
quotes, as in the file: --variables 'age,"height, cm"'.

What is computed, over the cases used, x and y being columns:
  u     what a case counts: its case weight times its regression weight, each 1 if not given
  W     sum of the case weights; the number of cases N without them
  mean  sum of u x / sum of u
  CCP   centred cross-product of x and y, the sum of u (x - mean of x) (y - mean of y)
  standard deviation of x     sqrt(CCP(x,x) / (W - 1))
  covariance of x and y       CCP(x,y) / (W - 1)
  correlation of x and y      CCP(x,y) / sqrt(CCP(x,x) CCP(y,y))
A case weight says how many cases like it a row stands for. A regression weight says how precise a
row is: it counts in the means and cross-products, but not in W. What is not defined, such as the
correlation of a column that does not vary, is shown as a dot.

Examples:
  describe iris.csv --variables sepal_length,sepal_width,petal_length,petal_width
      four means and standard deviations, and a 4 by 4 table of correlations
  describe airquality.csv --variables ozone --with solar_r,wind,temp --covariance
      how ozone varies with three others, and nothing among those three
  zcat survey.csv.gz | describe - --weight households --threads 4
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
  app.add_flag("--covariance", options.covariance, "Show covariances, not correlations");
  app.add_option("--threads", options.threads, "Threads; by default one for each processor")
      ->type_name("N")
      ->check(CLI::Range(0, 1024).description(""));
  app.footer(kExplanation);
}

// What a case consists of, as columns of the file.
struct Selection {
  std::vector<std::size_t> columns;  // those of --variables, then those of --with
  std::size_t variables = 0;         // how many the former are
  std::optional<std::size_t> weight;
  std::optional<std::size_t> regWeight;

  bool IsBlock() const { return variables < columns.size(); }
};

void CheckColumns(const csv::Source& source, const Selection& selection) {
  // The accumulators number the cells of a matrix with 32 bits.
  constexpr std::size_t kMostColumns = 46340;
  const std::size_t count = selection.columns.size();
  if (selection.variables == 0) {
    throw csv::Error(source.name + ": no column is left to describe");
  }
  if (count > kMostColumns) {
    throw csv::Error(source.name + ": " + std::to_string(count) + " columns are too many; choose " +
                     std::to_string(kMostColumns) + " of them or fewer with --variables");
  }
  std::set<std::size_t> seen;
  for (const std::size_t column : selection.columns) {
    if (!seen.insert(column).second) {
      throw csv::Error("column " + csv::Printable(source.columns[column]) +
                       " is named twice in --variables and --with");
    }
  }
}

Selection Select(const csv::Source& source, const Options& options) {
  const auto find = [&source](const std::optional<std::string>& name) {
    return name ? std::optional(csv::FindColumn(source, *name)) : std::nullopt;
  };
  Selection selection;
  selection.weight = find(options.weight);
  selection.regWeight = find(options.regWeight);
  const std::vector<std::size_t> with = csv::FindColumns(source, options.with);
  if (options.variables) {
    selection.columns = csv::FindColumns(source, *options.variables);
  } else {
    std::set<std::optional<std::size_t>> others(with.begin(), with.end());
    others.insert({selection.weight, selection.regWeight});
    for (std::size_t column = 0; column < source.columns.size(); ++column) {
      if (!others.contains(column)) {
        selection.columns.push_back(column);
      }
    }
  }
  selection.variables = selection.columns.size();
  selection.columns.insert(selection.columns.end(), with.begin(), with.end());
  CheckColumns(source, selection);
  return selection;
}

// Shows on the terminal how much of a large file has been read.
class Progress {
 public:
  explicit Progress(const std::string& path) {
    constexpr std::uintmax_t kLarge = 64U << 20U;
    std::error_code error;
    if (isatty(STDERR_FILENO) == 1 && std::filesystem::is_regular_file(path, error)) {
      const std::uintmax_t size = std::filesystem::file_size(path, error);
      _size = !error && size >= kLarge ? size : 0;
    }
  }
  ~Progress() {
    if (_size != 0) {
      std::fputs("\r      \r", stderr);
    }
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(std::uintmax_t bytesRead) {
    const auto now = std::chrono::steady_clock::now();
    if (_size != 0 && now - _shown >= std::chrono::milliseconds(250)) {
      std::fprintf(stderr, "\r%3d %%", static_cast<int>(100 * bytesRead / _size));
      _shown = now;
    }
  }

 private:
  std::uintmax_t _size = 0;  // 0: nothing is shown
  std::chrono::steady_clock::time_point _shown;
};

struct CaseCounts {
  std::uint64_t read = 0;
  std::uint64_t incomplete = 0;
  std::uint64_t weightless = 0;

  std::uint64_t Used() const { return read - incomplete - weightless; }
};

// What is computed of a file, and in the end the result.
class Problem : public velmor::ProblemBase {
 public:
  Problem(csv::Reader& file, const Selection& caseColumns, Progress& shown)
      : reader(file), selection(caseColumns), progress(shown), result(NewAccumulator()) {}

  velmor::ProblemPartBase* CreatePart() override;
  std::unique_ptr<velmor::MatrixBase> NewAccumulator() const;
  unsigned int BatchRows() const;
  std::string Name(int column) const;  // of a batch's column

  csv::Reader& reader;  // for ReadBatch
  const Selection& selection;
  Progress& progress;                          // for ReadBatch
  std::unique_ptr<velmor::MatrixBase> result;  // for MergeResult, like the counts
  CaseCounts counts;
};

// One thread's share. Batches are accumulated when full, whatever chunks their cases came from.
class Part : public velmor::ProblemPartBase {
 public:
  explicit Part(Problem& problem);

  bool ReadBatch() override;
  void AccumulateBatch() override;
  void MergeResult() override;

 private:
  bool TakeCase();
  std::optional<double> Weight(const std::optional<std::size_t>& column) const;
  void AccumulateCases();

  Problem& _problem;
  csv::Chunk _chunk;
  csv::Parser _parser;
  std::vector<double> _values;  // the current case, with the next two
  double _weight = 1.;
  double _regWeight = 1.;
  velmor::DataBatch _batch;
  std::unique_ptr<velmor::MatrixBase> _accumulator;
  CaseCounts _counts;
};

velmor::ProblemPartBase* Problem::CreatePart() { return new Part(*this); }

std::unique_ptr<velmor::MatrixBase> Problem::NewAccumulator() const {
  const int variables = static_cast<int>(selection.variables);
  const int columns = static_cast<int>(selection.columns.size());
  if (selection.IsBlock()) {
    return std::make_unique<velmor::NSMatrixListwise>(0, variables, columns);
  }
  return std::make_unique<velmor::SMatrixListwise>(0, columns);
}

// As many cases as the cache holds, but enough for the merge that follows each batch, which costs
// about as much as a few cases, to be a small part of the work.
unsigned int Problem::BatchRows() const {
  constexpr std::uint64_t kFewest = 64;
  const auto columns = static_cast<unsigned int>(selection.columns.size());
  const std::uint64_t most = UINT32_MAX / (columns + 1);
  const std::uint64_t rowSize = velmor::DataBatch::RowSize(columns, selection.weight.has_value(),
                                                           selection.regWeight.has_value(), false);
  return static_cast<unsigned int>(std::clamp(_cacheSize / rowSize, kFewest, most));
}

std::string Problem::Name(int column) const {
  const std::size_t place = selection.columns[static_cast<std::size_t>(column)];
  return csv::Printable(reader.GetSource().columns[place]);
}

Part::Part(Problem& problem)
    : _problem(problem),
      _parser(problem.reader.GetSource()),
      _values(problem.selection.columns.size()),
      _batch(static_cast<unsigned int>(_values.size()), problem.BatchRows(),
             problem.selection.weight ? &_weight : nullptr,
             problem.selection.regWeight ? &_regWeight : nullptr, nullptr),
      _accumulator(problem.NewAccumulator()) {}

bool Part::ReadBatch() {
  _problem.progress.Show(_problem.reader.BytesRead());
  return _problem.reader.Claim(_chunk);
}

void Part::AccumulateBatch() {
  _parser.Start(_chunk);
  while (_parser.Next()) {
    ++_counts.read;
    if (TakeCase()) {
      _batch.AddRow(_values.data());
      if (_batch.NRows() == _batch.MaxRows()) {
        AccumulateCases();
      }
    }
  }
}

// Reads the current record's values and weights. Returns whether the case is used; one that is not
// is looked through all the same, for fields that are wrong.
bool Part::TakeCase() {
  const std::optional<double> weight = Weight(_problem.selection.weight);
  const std::optional<double> regWeight = Weight(_problem.selection.regWeight);
  bool isComplete = weight && regWeight;
  for (std::size_t i = 0; i < _values.size(); ++i) {
    const std::optional<double> value = _parser.Number(_problem.selection.columns[i]);
    isComplete = isComplete && value;
    _values[i] = value.value_or(0.);
  }
  if (!isComplete) {
    ++_counts.incomplete;
    return false;
  }
  _weight = *weight;
  _regWeight = *regWeight;
  if (_weight * _regWeight == 0.) {
    // It would count in no mean, yet in the extremes and in the number of cases.
    ++_counts.weightless;
    return false;
  }
  return true;
}

std::optional<double> Part::Weight(const std::optional<std::size_t>& column) const {
  if (!column) {
    return 1.;
  }
  const std::optional<double> weight = _parser.Number(*column);
  if (weight && *weight < 0.) {
    throw csv::Error(_parser.Place(*column) + "the weight " + std::string(_parser.Text(*column)) +
                     " is negative");
  }
  return weight;
}

void Part::AccumulateCases() {
  *_accumulator += _batch;
  _batch.Clear();
}

void Part::MergeResult() {
  AccumulateCases();
  *_problem.result += *_accumulator;
  _problem.counts.read += _counts.read;
  _problem.counts.incomplete += _counts.incomplete;
  _problem.counts.weightless += _counts.weightless;
}

// A number as text; `digits` are significant ones, or decimals in the fixed format.
std::string Format(double number, std::chars_format format, int digits) {
  char buffer[400];  // the largest double has 309 digits before the point
  const auto [end, error] =
      std::to_chars(std::begin(buffer), std::end(buffer), number, format, digits);
  const std::string text(buffer, end);
  const bool isMinusZero = text[0] == '-' && text.find_first_not_of("-0.") == std::string::npos;
  return isMinusZero ? text.substr(1) : text;
}

std::string Significant(double number, int digits = 6) {
  return Format(number, std::chars_format::general, digits);
}

// A table of texts: row names to the left, columns to the right. Where the columns don't fit side
// by side they go on below, under the row names again.
class Table {
 public:
  void AddRow(std::vector<std::string> cells) {
    _widths.resize(cells.size());
    for (std::size_t column = 0; column < cells.size(); ++column) {
      _widths[column] = std::max(_widths[column], Length(cells[column]));
    }
    _rows.push_back(std::move(cells));
  }

  std::string Layout() const {
    constexpr std::size_t kWidest = 100;
    constexpr std::size_t kGap = 2;
    std::string text;
    for (std::size_t from = 1, to = 1; from < _widths.size(); from = to) {
      std::size_t width = _widths[0];
      do {
        width += kGap + _widths[to++];
      } while (to < _widths.size() && width + kGap + _widths[to] <= kWidest);
      text += '\n';
      for (const std::vector<std::string>& row : _rows) {
        text += row[0] + Padding(row, 0);
        for (std::size_t column = from; column < to; ++column) {
          text += std::string(kGap, ' ') + Padding(row, column) + row[column];
        }
        text += '\n';
      }
    }
    return text;
  }

 private:
  // Characters in UTF-8 text: bytes that don't continue one.
  static std::size_t Length(const std::string& text) {
    const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
  }
  std::string Padding(const std::vector<std::string>& row, std::size_t column) const {
    return std::string(_widths[column] - Length(row[column]), ' ');
  }

  std::vector<std::vector<std::string>> _rows;
  std::vector<std::size_t> _widths;
};

std::string Summary(const Problem& problem) {
  const CaseCounts& counts = problem.counts;
  std::string text = std::to_string(counts.read) + " cases read, " + std::to_string(counts.Used()) +
                     " used, " + std::to_string(counts.incomplete) + " left out as incomplete";
  if (problem.selection.weight || problem.selection.regWeight) {
    text += ", " + std::to_string(counts.weightless) + " left out for a weight of 0";
  }
  return text;
}

// Below, Matrix is SMatrixListwise, which relates the columns up to Col2() with each other, or
// NSMatrixListwise, which relates those up to Col1() with those from there to Col2().

template <class Matrix>
double RootOfSquares(const Matrix& matrix, int column) {
  return std::sqrt(matrix.CCP(column, column));
}

// Sums of very large numbers overflow and squares of very small ones vanish. Better no table than
// one of infinities, or of zeros that are none.
template <class Matrix>
void CheckRange(const Problem& problem, const Matrix& matrix) {
  const std::string& file = problem.reader.GetSource().name;
  if (!std::isfinite(matrix.WeightSum()) || !std::isfinite(matrix.RegWeightSum())) {
    throw csv::Error(file + ": the weights are too large to be added up; rescale them");
  }
  for (int x = 0; x < matrix.Col2(); ++x) {
    const double root = RootOfSquares(matrix, x);
    const bool varies = matrix.Min(x) < matrix.Max(x);
    if (!std::isfinite(matrix.Mean(x)) || !std::isfinite(root) || varies != (root > 0.)) {
      throw csv::Error(file + ": the values of column " + problem.Name(x) +
                       " are too large or too close together to compute with; rescale them");
    }
  }
}

template <class Matrix>
Table Descriptives(const Problem& problem, const Matrix& matrix) {
  const double freedom = matrix.WeightSum() - 1.;
  Table table;
  table.AddRow({"", "N", "mean", "std. dev.", "minimum", "maximum"});
  for (int x = 0; x < matrix.Col2(); ++x) {
    const double deviation = RootOfSquares(matrix, x) / std::sqrt(freedom);
    table.AddRow({problem.Name(x), std::to_string(problem.counts.Used()),
                  Significant(matrix.Mean(x)), freedom > 0. ? Significant(deviation) : ".",
                  Significant(matrix.Min(x)), Significant(matrix.Max(x))});
  }
  return table;
}

template <class Matrix>
std::string Covariance(const Matrix& matrix, int x, int y) {
  const double freedom = matrix.WeightSum() - 1.;
  return freedom > 0. ? Significant(matrix.CCP(x, y) / freedom) : ".";
}

template <class Matrix>
std::string Correlation(const Matrix& matrix, int x, int y) {
  // Two divisions, as the product of two sums of squares can overflow.
  const double correlation = matrix.CCP(x, y) / RootOfSquares(matrix, x) / RootOfSquares(matrix, y);
  return std::isnan(correlation) ? "." : Format(correlation, std::chars_format::fixed, 4);
}

template <class Matrix>
Table Relations(const Problem& problem, const Matrix& matrix, bool covariance) {
  Table table;
  std::vector<std::string> cells{""};
  for (int y = matrix.Col1(); y < matrix.Col2(); ++y) {
    cells.push_back(problem.Name(y));
  }
  table.AddRow(cells);
  for (int x = 0; x < static_cast<int>(problem.selection.variables); ++x) {
    cells.assign(1, problem.Name(x));
    for (int y = matrix.Col1(); y < matrix.Col2(); ++y) {
      cells.push_back(covariance ? Covariance(matrix, x, y) : Correlation(matrix, x, y));
    }
    table.AddRow(cells);
  }
  return table;
}

template <class Matrix>
std::string Report(const Problem& problem, bool covariance) {
  const auto& matrix = dynamic_cast<const Matrix&>(*problem.result);
  CheckRange(problem, matrix);
  std::string text = Summary(problem) + '\n';
  if (problem.selection.weight) {
    text += "sum of case weights: " + Significant(matrix.WeightSum(), 12) + '\n';
  }
  if (problem.selection.regWeight) {
    text += "sum of combined weights: " + Significant(matrix.RegWeightSum(), 12) + '\n';
  }
  return text + Descriptives(problem, matrix).Layout() +
         (covariance ? "\nCovariances\n" : "\nCorrelations\n") +
         Relations(problem, matrix, covariance).Layout();
}

std::string Describe(const Options& options) {
  csv::Reader reader(options.file);
  const Selection selection = Select(reader.GetSource(), options);
  Progress progress(options.file);
  Problem problem(reader, selection, progress);
  velmor::Driver(&problem, options.threads);
  if (problem.counts.Used() == 0) {
    throw csv::Error(reader.GetSource().name + ": no case to describe: " + Summary(problem));
  }
  return selection.IsBlock() ? Report<velmor::NSMatrixListwise>(problem, options.covariance)
                             : Report<velmor::SMatrixListwise>(problem, options.covariance);
}

void Print(const std::string& text) {
  if (std::fputs(text.c_str(), stdout) == EOF || std::fflush(stdout) == EOF) {
    throw std::system_error(errno, std::generic_category(), "cannot write the tables");
  }
}

int Fail(const char* message, const char* hint = "") {
  std::fprintf(stderr, "describe: %s%s\n", message, hint);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    CLI::App app("Describes the numeric columns of a CSV file and how they vary together.",
                 "describe");
    DefineOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    Print(Describe(options));
    return 0;
  } catch (const csv::NotANumber& error) {
    return Fail(error.what(),
                options.variables ? "" : "; name the columns to describe with --variables");
  } catch (const std::bad_alloc&) {
    return Fail("out of memory");
  } catch (const std::exception& error) {
    return Fail(error.what());
  }
}
