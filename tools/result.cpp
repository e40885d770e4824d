// result.cpp: tables of means, spread and correlations; start at Report, at the end.
#include "result.h"

#include <velmor/nsmatrixlistwise.h>
#include <velmor/nsmatrixpairwise.h>
#include <velmor/smatrixlistwise.h>
#include <velmor/smatrixpairwise.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <functional>

#include "csv.h"
#include "report.h"

namespace study {

std::string Subject::Name(int column) const {
  return csv::Printable(columns[static_cast<std::size_t>(column)]);
}

std::unique_ptr<velmor::MatrixBase> NewAccumulator(const Subject& subject) {
  const int variables = subject.NVariables();
  const int columns = subject.NColumns();
  if (subject.isPairwise) {
    if (subject.IsBlock()) {
      return std::make_unique<velmor::NSMatrixPairwise>(csv::kMissingCode, 0, variables, columns);
    }
    return std::make_unique<velmor::SMatrixPairwise>(csv::kMissingCode, 0, columns);
  }
  if (subject.IsBlock()) {
    return std::make_unique<velmor::NSMatrixListwise>(0, variables, columns);
  }
  return std::make_unique<velmor::SMatrixListwise>(0, columns);
}

namespace {

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

// All that is shown, whichever accumulator it comes from.
struct Statistics {
  double weight;          // of all cases used
  double combinedWeight;  // case weights times regression weights
  std::function<Column(int)> column;
  std::function<Pair(int, int)> pair;  // of different columns
};

template <class Matrix>
Statistics OfListwise(const velmor::MatrixBase& sums, std::uint64_t cases) {
  const auto& matrix = dynamic_cast<const Matrix&>(sums);
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

// Whether a column varies over a pair's cases, which are some or all of its own.
bool VariesInPair(const velmor::VarStat& column, const velmor::PairStat& pair, double squares,
                  double mean) {
  return column.Min() < column.Max() &&
         (pair.NRows() == column.NRows() || velmor::Varies(squares, mean, pair.RegWeightSum()));
}

// What merges have left of squares and products where nothing varies is not taken for any.
template <class Matrix>
Statistics OfPairwise(const velmor::MatrixBase& sums, bool isBlock) {
  const auto& matrix = dynamic_cast<const Matrix&>(sums);
  return {matrix.WeightSum(), matrix.RegWeightSum(),
          [&matrix](int x) {
            const velmor::VarStat& own = matrix.Var(x);
            return Column{static_cast<std::uint64_t>(own.NRows()), own.WeightSum(), own.Mean(),
                          own.Min() < own.Max() ? own.CSS() : 0.,  own.Min(),       own.Max()};
          },
          [&matrix, isBlock](int x, int y) {
            const velmor::PairStat& own = matrix.Pair(x, y);
            const int column0 = isBlock ? x : std::max(x, y);
            const int column1 = x + y - column0;
            const bool varies0 = VariesInPair(matrix.Var(column0), own, own.CSS0(), own.Mean0());
            const bool varies1 = VariesInPair(matrix.Var(column1), own, own.CSS1(), own.Mean1());
            return Pair{static_cast<std::uint64_t>(own.NRows()), own.WeightSum(),
                        varies0 ? own.CSS0() : 0., varies1 ? own.CSS1() : 0.,
                        varies0 && varies1 ? own.CSCP() : 0.};
          }};
}

Statistics GetStatistics(const Result& result) {
  const Subject& subject = result.subject;
  const velmor::MatrixBase& sums = *result.sums;
  if (subject.isPairwise) {
    return subject.IsBlock() ? OfPairwise<velmor::NSMatrixPairwise>(sums, true)
                             : OfPairwise<velmor::SMatrixPairwise>(sums, false);
  }
  const std::uint64_t cases = result.counts.Used();
  return subject.IsBlock() ? OfListwise<velmor::NSMatrixListwise>(sums, cases)
                           : OfListwise<velmor::SMatrixListwise>(sums, cases);
}

// Sums of very large numbers overflow and squares of very small ones vanish. Better no table than
// one of infinities, or of zeros that are none.
void CheckRange(const Result& result, const Statistics& statistics) {
  if (!std::isfinite(statistics.weight) || !std::isfinite(statistics.combinedWeight)) {
    throw result.Error("the weights are too large to be added up; rescale them");
  }
  if (statistics.weight <= 0.) {
    throw result.Error("the weights of the cases used add up to nothing");
  }
  for (int x = 0; x < result.subject.NColumns(); ++x) {
    const Column own = statistics.column(x);
    const bool varies = own.min < own.max;
    if (!std::isfinite(own.mean) || !std::isfinite(own.squares) || varies != (own.squares > 0.)) {
      throw result.Error("the values of column " + result.subject.Name(x) +
                         " are too large or too close together to compute with; rescale them");
    }
  }
}

report::Table Descriptives(const Subject& subject, const Statistics& statistics) {
  report::Table table;
  table.AddRow({"", "N", "mean", "std. dev.", "minimum", "maximum"});
  for (int x = 0; x < subject.NColumns(); ++x) {
    const Column own = statistics.column(x);
    const double freedom = own.weight - 1.;
    const auto figure = [](bool isDefined, double number) {
      return isDefined ? report::Significant(number) : ".";
    };
    const bool isAny = own.cases != 0;
    table.AddRow({subject.Name(x), std::to_string(own.cases), figure(isAny, own.mean),
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
std::string Relations(const Subject& subject, const Statistics& statistics,
                      const std::string& title, std::string (*cell)(const Pair&)) {
  report::Table table;
  std::vector<std::string> cells{""};
  for (int y = subject.FirstRelated(); y < subject.NColumns(); ++y) {
    cells.push_back(subject.Name(y));
  }
  table.AddRow(cells);
  for (int x = 0; x < subject.NVariables(); ++x) {
    const Column own = statistics.column(x);
    const Pair diagonal{own.cases, own.weight, own.squares, own.squares, own.squares};
    cells.assign(1, subject.Name(x));
    for (int y = subject.FirstRelated(); y < subject.NColumns(); ++y) {
      cells.push_back(cell(x == y ? diagonal : statistics.pair(x, y)));
    }
    table.AddRow(cells);
  }
  return '\n' + title + '\n' + table.Layout();
}

}  // namespace

std::string Report(const Result& result, const ReportOptions& options) {
  const Subject& subject = result.subject;
  const std::string summary = csv::Summary(result.counts, subject.HasWeights(), subject.isPairwise);
  if (result.counts.Used() == 0) {
    throw result.Error("no case to describe: " + summary);
  }
  const Statistics statistics = GetStatistics(result);
  CheckRange(result, statistics);
  std::string text = summary + '\n';
  if (subject.weight) {
    text += "sum of case weights: " + report::Significant(statistics.weight, 12) + '\n';
  }
  if (subject.regWeight) {
    text += "sum of combined weights: " + report::Significant(statistics.combinedWeight, 12) + '\n';
  }
  text += Descriptives(subject, statistics).Layout();
  text += options.covariance ? Relations(subject, statistics, "Covariances", Covariance)
                             : Relations(subject, statistics, "Correlations", Correlation);
  return text + (options.counts ? Relations(subject, statistics, "Numbers of cases", Count) : "");
}

}  // namespace study
