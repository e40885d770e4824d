// discriminate: discriminant analysis of the groups in a CSV file; start at main, at the end.
//
// A host of velmor that goes through its file three times: to find the groups, to sum their values,
// and to classify the cases by what came out. pass.h shows how a pass is run on several threads.

#include <velmor/velmor.h>

#include <CLI/CLI.hpp>
#include <Eigen/Core>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "arguments.h"
#include "cases.h"
#include "csv.h"
#include "discriminant.h"
#include "pass.h"
#include "report.h"

namespace {

using discriminant::Factors;
using discriminant::Functions;
using discriminant::Statistics;
using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

struct Options {
  std::string file;
  std::string group;
  std::optional<std::string> variables;
  std::optional<std::string> weight;
  std::string priors = "equal";
  int threads = 0;
};

constexpr const char* kExplanation = R"(
The file begins with a line of column names. Empty fields and NA are missing. A row in which the
group, a variable or the weight is missing is left out, and so is one with a weight of 0. How many
were left out is reported. Groups are listed by name, in alphabetical order. The file is read three
times, so it can't be a pipe. A name that holds a comma is given in double quotes, as in the file:
--variables 'age,"height, cm"'.

What is computed, x being the values of a case, one for each variable, and g one of G groups:
  w(g), W     sum of the case weights in g, and in all; the number of cases without weights
  m(g), m     means of the variables in g, and in all
  S(g)        squares and products in g: the sum of weight (x - m(g)) (x - m(g))'
  S           squares and products within the groups: the sum of all S(g)
  T           squares and products in all: S + the sum of w(g) (m(g) - m) (m(g) - m)'
  standard deviations and covariances in g     from S(g) / (w(g) - 1)
  pooled covariances within the groups         C = S / (W - G)
  Wilks' lambda of a variable                  L = its square in S / its square in T
  F with G - 1 and W - G degrees of freedom    (1 - L) / L * (W - G) / (G - 1)
  Wilks' lambda of all variables together      determinant of S / determinant of T
  classification function of g                 x' inv(C) m(g) - m(g)' inv(C) m(g) / 2 + ln p(g)
The prior probability p(g) is 1 / G, or w(g) / W with --priors sizes. A variable with a small lambda
and a large F differs much from group to group. A case is taken for one of the group in which the
classification function is largest. The last table counts the cases of each group, or their weights,
by the group that they are taken for. As the functions were made to suit these very cases, expect
fewer new cases to be taken for what they are. What is not defined, such as the standard deviation
of a single case, is shown as a dot.

Examples:
  discriminate iris.csv --group species
      how well four measurements of a flower tell its species
  discriminate penguins.csv --group species --variables bill_length_mm,bill_depth_mm --priors sizes
      two measurements of a bird, which is more likely of a species that was seen more often
  discriminate survey.csv --group party --weight households --threads 4
      all columns but households, which says how many each row stands for
)";

void DefineOptions(CLI::App& app, Options& options) {
  app.add_option("FILE", options.file, "CSV file with a header line")
      ->required()
      ->type_name("")
      ->check(arguments::FileName());
  app.add_option("--group", options.group, "Column that names each case's group")
      ->required()
      ->type_name("COLUMN");
  app.add_option("--variables", options.variables,
                 "Columns to tell the groups apart by; by default all others")
      ->type_name("A,B,...");
  app.add_option("--weight", options.weight, "Column of case weights")->type_name("COLUMN");
  app.add_option("--priors", options.priors, "Prior probabilities: equal, the default, or sizes")
      ->type_name("WHICH")
      ->check(CLI::IsMember({"equal", "sizes"}).description(""));
  app.add_option("--threads", options.threads, "Threads; by default one for each processor")
      ->type_name("N")
      ->transform(arguments::WholeNumber(0, 1024));
  app.footer(kExplanation);
}

using Names = std::vector<std::string>;

struct Group {
  int number = 0;  // in the order of the names
  std::uint64_t cases = 0;
  std::vector<double> origin;  // the values of its first case
};
using Groups = std::map<std::string, Group, std::less<>>;  // by name

// What is known before the first pass, and more after each.
struct Study {
  const Options& options;
  csv::Source source;
  csv::CaseColumns columns;
  Names variables;
  csv::CaseCounts counts;
  Groups groups;
  VectorXd centre;      // what the functions take as zero
  Functions functions;  // to classify by

  int NVariables() const { return static_cast<int>(variables.size()); }
  int NGroups() const { return static_cast<int>(groups.size()); }
  csv::Error Error(const std::string& what) const { return csv::Error(source.name + ": " + what); }
};

Study Prepare(const Options& options) {
  csv::CheckIsFile(options.file, "read three times");
  Study study{options, csv::Reader(options.file).GetSource(), {}, {}, {}, {}, {}, {}};
  csv::CaseColumns& columns = study.columns;
  columns.group = csv::FindColumn(study.source, options.group);
  if (options.weight) {
    columns.weight = csv::FindColumn(study.source, *options.weight);
  }
  columns.values =
      csv::ListedColumns(study.source, options.variables, {columns.group, columns.weight});
  if (columns.values.empty()) {
    throw study.Error("no column is left to tell the groups apart by");
  }
  csv::CheckColumns(study.source, columns.values, "--variables");
  for (const std::size_t column : columns.values) {
    study.variables.push_back(csv::Printable(study.source.columns[column]));
  }
  return study;
}

csv::Error HasChanged(const Study& study) {
  return study.Error("the file has changed while it was read");
}

template <class Share>
csv::CaseCounts ReadCases(const Study& study, csv::Progress& progress,
                          typename Share::Result& result) {
  csv::Reader reader(study.options.file, Share::ChunkSize(study));
  csv::Pass<Share> pass(reader, study.columns, progress, study, result);
  velmor::Driver(&pass, study.options.threads);
  progress.EndPass();
  if (study.counts.read != 0 && pass.Counts() != study.counts) {
    throw HasChanged(study);
  }
  return pass.Counts();
}

constexpr std::size_t kChunkSize = std::size_t{256} << 10U;

// The first pass: which groups there are.
class GroupsShare {
 public:
  using Input = Study;
  using Result = Groups;
  explicit GroupsShare(const Study& study) : _study(study) {}
  static std::size_t ChunkSize(const Study& /*study*/) { return kChunkSize; }

  void Add(const csv::Case& current) {
    auto place = _groups.find(current.group);
    if (place == _groups.end()) {
      place = _groups.emplace(current.group, Group{0, 0, current.values}).first;
      CheckNumber(_groups);
    }
    ++place->second.cases;
  }

  Groups Take() { return std::exchange(_groups, {}); }

  void Append(const Groups& next, Groups& all) const {
    for (const auto& [name, group] : next) {
      const auto [place, isNew] = all.try_emplace(name, group);
      place->second.cases += isNew ? 0 : group.cases;
    }
    CheckNumber(all);
  }

 private:
  // A column of numbers or dates that is taken for groups would fill the memory.
  void CheckNumber(const Groups& groups) const {
    constexpr std::size_t kMost = 1000;
    if (groups.size() > kMost) {
      throw _study.Error("there are more than " + std::to_string(kMost) +
                         " groups; is --group the right column?");
    }
  }

  const Study& _study;
  Groups _groups;
};

void FindGroups(Study& study, csv::Progress& progress) {
  study.counts = ReadCases<GroupsShare>(study, progress, study.groups);
  if (study.groups.empty()) {
    throw study.Error("no case to analyse: " +
                      csv::Summary(study.counts, study.columns.HasWeights()));
  }
  if (study.NGroups() == 1) {
    throw study.Error("the " + std::to_string(study.counts.Used()) +
                      " cases used are all in one group, " +
                      csv::Printable(study.groups.begin()->first) + "; it takes two or more");
  }
  const std::uint64_t fewest = study.groups.size() + study.variables.size();
  if (study.counts.Used() < fewest) {
    throw study.Error("the " + std::to_string(study.counts.Used()) + " cases used, in " +
                      std::to_string(study.NGroups()) + " groups, are too few for " +
                      std::to_string(study.NVariables()) + " columns; it takes " +
                      std::to_string(fewest) + ", as many as groups and columns together");
  }
  int number = 0;
  for (auto& [name, group] : study.groups) {
    group.number = number++;
  }
}

const Group& FindGroup(const Study& study, std::string_view name) {
  const auto place = study.groups.find(name);
  if (place == study.groups.end()) {
    throw HasChanged(study);
  }
  return place->second;
}

struct Sums {
  Sums() = default;  // can only be appended to
  Sums(int groups, int variables)
      : all(std::make_unique<velmor::DiscriminantMatrix>(groups, variables)),
        byGroup(std::make_unique<velmor::DiscIndividualMatrix>(groups, variables)) {}

  std::unique_ptr<velmor::DiscriminantMatrix> all = std::make_unique<velmor::DiscriminantMatrix>();
  std::unique_ptr<velmor::DiscIndividualMatrix> byGroup =
      std::make_unique<velmor::DiscIndividualMatrix>();
};

// The second pass: sums. velmor's discriminant accumulators leave them raw, and a sum of squares
// that is centred only afterwards loses the digits in which it agrees with what is subtracted: some
// log10(1 + d d) of them, d being the distance from the origin to the mean in standard deviations.
// From zero that would be more than five digits for the years of a decade. So each group's values
// are summed from an origin of the group's own, its first case: that mostly costs less than one
// digit, and what does not vary comes out as exactly zero.
class SumsShare {
 public:
  using Input = Study;
  using Result = Sums;
  explicit SumsShare(const Study& study)
      : _study(study),
        _values(study.variables.size()),
        _batch(NColumns(), BatchRows(), Weight(), nullptr, &_group),
        _batchByGroup(NColumns(), BatchRows(), Weight(), nullptr, &_group,
                      static_cast<unsigned int>(study.NGroups())),
        _sums(NewSums()) {}

  // As many bytes to read as sums have, so that to merge these is not most of the work.
  static std::size_t ChunkSize(const Study& study) {
    const std::size_t variables = study.variables.size();
    return std::clamp(study.groups.size() * variables * (variables + 1) / 2 * sizeof(double),
                      kChunkSize, 64 * kChunkSize);
  }

  void Add(const csv::Case& current) {
    const Group& group = FindGroup(_study, current.group);
    _group = static_cast<unsigned int>(group.number);
    _weight = current.weight;
    std::transform(current.values.begin(), current.values.end(), group.origin.begin(),
                   _values.begin(), std::minus());
    _batch.AddRow(_values.data());
    std::copy(_values.begin(), _values.end(), _batchByGroup.NextRow());
    _batchByGroup.AddRow();
    if (_batch.NRows() == _batch.MaxRows()) {
      AccumulateCases();
    }
  }

  Sums Take() {
    AccumulateCases();
    return std::exchange(_sums, NewSums());
  }

  static void Append(const Sums& next, Sums& all) {
    *all.all += *next.all;
    *all.byGroup += *next.byGroup;
  }

 private:
  unsigned int NColumns() const { return static_cast<unsigned int>(_values.size()); }
  const double* Weight() const { return _study.columns.weight ? &_weight : nullptr; }

  Sums NewSums() const { return {_study.NGroups(), _study.NVariables()}; }

  // The same on every machine, as batches round the sums differently where they end.
  unsigned int BatchRows() const {
    constexpr std::uint64_t kBatchSize = std::uint64_t{1} << 20U;
    const bool hasWeights = Weight() != nullptr;
    const std::uint64_t rowSize =
        velmor::DataBatch::RowSize(NColumns(), hasWeights, false, true) +
        2 * velmor::DataBatchByGroup::RowSize(NColumns(), hasWeights, false, true);
    // Merging costs about as much as a case or two of every group.
    return csv::BatchRows(kBatchSize, rowSize, _values.size(), 64 + 16 * _study.groups.size());
  }

  void AccumulateCases() {
    *_sums.all += _batch;
    _batch.Clear();
    _batchByGroup.SortByGroup();
    *_sums.byGroup += _batchByGroup;
    _batchByGroup.Clear();
  }

  const Study& _study;
  std::vector<double> _values;  // the current case, with the next two
  double _weight = 1.;
  unsigned int _group = 0;
  velmor::DataBatch _batch;
  velmor::DataBatchByGroup _batchByGroup;
  Sums _sums;
};

Eigen::Map<const VectorXd> AsVector(const std::vector<double>& numbers) {
  return {numbers.data(), static_cast<Index>(numbers.size())};
}

// Where the values of each group were summed from.
MatrixXd Origins(const Study& study) {
  MatrixXd origins(study.NVariables(), study.NGroups());
  for (const auto& [name, group] : study.groups) {
    origins.col(group.number) = AsVector(group.origin);
  }
  return origins;
}

void CheckRange(const Study& study, const Statistics& s) {
  if (!std::isfinite(s.weights.sum())) {
    throw study.Error("the weights are too large to be added up; rescale them");
  }
  if (s.Freedom() <= 0.) {
    throw study.Error("the cases used weigh " + report::Significant(s.weights.sum()) +
                      " in all, one each without --weight; it must be more than the number of "
                      "groups, " +
                      std::to_string(study.NGroups()));
  }
  for (Index x = 0; x < s.within.rows(); ++x) {
    const std::string& name = study.variables[static_cast<std::size_t>(x)];
    if (!std::isfinite(s.within(x, x) + s.between(x, x))) {
      throw study.Error("the values of column " + name +
                        " are too large to compute with; rescale them");
    }
    if (s.within(x, x) < std::numeric_limits<double>::min()) {
      throw study.Error("column " + name +
                        " does not vary within the groups, or too little to compute with; leave "
                        "it out or rescale it");
    }
  }
}

Factors Factor(const Study& study, const Statistics& s) {
  Factors factors(s);
  if (const std::optional<Index> dependent = factors.FirstDependent()) {
    throw study.Error("column " + study.variables[static_cast<std::size_t>(*dependent)] +
                      " is a combination of the columns before it within the groups, or too close "
                      "to one to compute with; leave one of them out");
  }
  return factors;
}

VectorXd Priors(const Study& study, const Statistics& s) {
  if (study.options.priors == "sizes") {
    return s.weights / s.weights.sum();
  }
  return VectorXd::Constant(s.weights.size(), 1. / static_cast<double>(s.weights.size()));
}

Functions GetFunctions(const Study& study, const Statistics& s, const Factors& within,
                       const MatrixXd& means) {
  Functions functions = discriminant::ClassificationFunctions(s, within, means, Priors(study, s));
  if (!functions.coefficients.allFinite() || !functions.constants.allFinite()) {
    throw study.Error("the means are too large, in standard deviations, to compute with");
  }
  return functions;
}

// The third pass: the weight of the cases by group, one row each, and the group they are taken for.
class ClassifiedShare {
 public:
  using Input = Study;
  using Result = MatrixXd;
  explicit ClassifiedShare(const Study& study)
      : _study(study), _weights(NoWeights()), _scores(study.NGroups()) {}
  static std::size_t ChunkSize(const Study& /*study*/) { return kChunkSize; }

  void Add(const csv::Case& current) {
    const Functions& functions = _study.functions;
    _values = AsVector(current.values) - _study.centre;
    for (Index g = 0; g < _scores.size(); ++g) {
      _scores[g] = functions.coefficients.col(g).dot(_values) + functions.constants[g];
    }
    Index takenFor = 0;
    _scores.maxCoeff(&takenFor);
    _weights(FindGroup(_study, current.group).number, takenFor) += current.weight;
  }

  MatrixXd Take() { return std::exchange(_weights, NoWeights()); }
  static void Append(const MatrixXd& next, MatrixXd& all) { all += next; }

 private:
  MatrixXd NoWeights() const { return MatrixXd::Zero(_study.NGroups(), _study.NGroups()); }

  const Study& _study;
  MatrixXd _weights;
  VectorXd _scores;
  VectorXd _values;  // from the centre
};

// A matrix under a title; what is not a number is not defined.
std::string MatrixTable(const std::string& title, const Names& rows, const Names& columns,
                        const MatrixXd& numbers, int digits = 6) {
  report::Table table;
  Names cells{""};
  cells.insert(cells.end(), columns.begin(), columns.end());
  table.AddRow(cells);
  for (Index row = 0; row < numbers.rows(); ++row) {
    cells.assign(1, rows[static_cast<std::size_t>(row)]);
    for (const double number : numbers.row(row)) {
      cells.push_back(std::isnan(number) ? "." : report::Significant(number, digits));
    }
    table.AddRow(cells);
  }
  return '\n' + title + '\n' + table.Layout();
}

constexpr int kWeightDigits = 12;

std::string GroupSizes(const Study& study, const Names& groups, const Statistics& s) {
  const bool hasWeights = study.columns.weight.has_value();
  MatrixXd sizes(s.weights.size(), 2);
  sizes.col(1) = s.weights;
  for (const auto& [name, group] : study.groups) {
    sizes(group.number, 0) = static_cast<double>(group.cases);
  }
  return MatrixTable("Groups", groups, hasWeights ? Names{"cases", "weight"} : Names{"cases"},
                     sizes.leftCols(hasWeights ? 2 : 1), kWeightDigits);
}

// A group's covariances, from its raw sums.
MatrixXd Covariances(const velmor::DiscIndividualMatrix& raw, int group, double weight) {
  const int variables = raw.NVar();
  const int sums = variables * (variables + 1) / 2;  // before them come the products
  const double freedom = weight > 1. ? weight - 1. : std::numeric_limits<double>::quiet_NaN();
  MatrixXd covariances(variables, variables);
  for (int x = 0; x < variables; ++x) {
    const double mean = raw.TSSP(sums + x, group) / weight;
    for (int y = 0; y <= x; ++y) {
      const double product = raw.TSSP(x + 1, y, group) - mean * raw.TSSP(sums + y, group);
      covariances(x, y) = covariances(y, x) = product / freedom;
    }
  }
  return covariances;
}

MatrixXd Tests(const Statistics& s) {
  const double freedom = static_cast<double>(s.weights.size()) - 1.;
  MatrixXd tests(s.within.rows(), 4);
  for (Index x = 0; x < tests.rows(); ++x) {
    const double lambda = s.within(x, x) / (s.within(x, x) + s.between(x, x));
    const double f = s.between(x, x) / s.within(x, x) * s.Freedom() / freedom;
    tests.row(x) << lambda, f, freedom, s.Freedom();
  }
  return tests;
}

std::string FunctionTable(const Study& study, const Names& groups, const Functions& functions) {
  Names rows = study.variables;
  rows.emplace_back("(constant)");
  MatrixXd numbers(functions.coefficients.rows() + 1, functions.coefficients.cols());
  numbers << functions.coefficients, functions.constants.transpose();
  return MatrixTable(study.options.priors == "sizes"
                         ? "Classification functions, prior probabilities by the groups' sizes"
                         : "Classification functions, equal prior probabilities",
                     rows, groups, numbers);
}

std::string ClassificationTable(const Names& groups, const MatrixXd& weights) {
  const double correct = weights.trace();
  const double all = weights.sum();
  return MatrixTable("Cases of each group by the group they are taken for", groups, groups, weights,
                     kWeightDigits) +
         "\ncorrect: " + report::Significant(correct, kWeightDigits) + " of " +
         report::Significant(all, kWeightDigits) + ", a share of " +
         report::Format(correct / all, std::chars_format::fixed, 4) + '\n';
}

std::string Report(const Study& study, const Sums& sums, const Statistics& s, const Factors& within,
                   const MatrixXd& classified) {
  const Names& variables = study.variables;
  Names groups;
  MatrixXd deviations(study.NGroups(), study.NVariables());
  std::string covariances;
  for (const auto& [name, group] : study.groups) {
    groups.push_back(csv::Printable(name));
    const MatrixXd table = Covariances(*sums.byGroup, group.number, s.weights[group.number]);
    deviations.row(group.number) = table.diagonal().cwiseMax(0.).cwiseSqrt();
    covariances += MatrixTable("Covariances in " + groups.back(), variables, variables, table);
  }
  const MatrixXd means = s.means.colwise() + s.centre;
  return csv::Summary(study.counts, study.columns.HasWeights()) + '\n' +
         GroupSizes(study, groups, s) + MatrixTable("Means", groups, variables, means.transpose()) +
         MatrixTable("Standard deviations", groups, variables, deviations) +
         MatrixTable("Tests of equal means", variables,
                     {"Wilks' lambda", "F", "df between", "df within"}, Tests(s)) +
         "\nWilks' lambda of all variables together: " +
         report::Significant(within.WilksLambda(s)) + '\n' +
         MatrixTable("Pooled covariances within the groups", variables, variables,
                     s.within / s.Freedom()) +
         covariances + FunctionTable(study, groups, GetFunctions(study, s, within, means)) +
         ClassificationTable(groups, classified);
}

std::string Discriminate(const Options& options) {
  Study study = Prepare(options);
  csv::Progress progress(options.file, 3);
  FindGroups(study, progress);

  Sums sums;
  ReadCases<SumsShare>(study, progress, sums);
  const Statistics s = discriminant::Centre(*sums.all, Origins(study));
  CheckRange(study, s);
  const Factors within = Factor(study, s);
  study.centre = s.centre;
  study.functions = GetFunctions(study, s, within, s.means);

  MatrixXd classified = MatrixXd::Zero(study.NGroups(), study.NGroups());
  ReadCases<ClassifiedShare>(study, progress, classified);
  return Report(study, sums, s, within, classified);
}

}  // namespace

int main(int argc, char** argv) {
  return report::Run("discriminate", [argc, argv] {
    Options options;
    CLI::App app("Finds out how well columns of numbers in a CSV file tell groups apart.",
                 "discriminate");
    DefineOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    try {
      report::Print(Discriminate(options));
    } catch (const csv::NotANumber& error) {
      const char* const hint = "; name the columns of numbers with --variables";
      throw csv::Error(std::string(error.what()) + (options.variables ? "" : hint));
    }
    return 0;
  });
}
